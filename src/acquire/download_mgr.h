// DownloadMgr: gets a task's queued documents; the download manager that `Task::Execute` uses.
//
// The parallel path (`DownloadDocs`): the rows of the run still to fetch (not "Success", tried
// fewer than ten times) go to a new `AdvancedDownloadMgr` pass after pass, each pass going on with
// the client the last one returned, until the store hands out no row or a status is answered with
// flgCancel. Files are written by the task's `FileSaver`; local files (a path or a "file://"
// address) are copied by it, web addresses fetched with up to ten transfers at a time, politely
// (politeness.h; the hosts' state lasts for the whole run). The managers' events are relayed.
//
// `DontDownloadDocs` points the open rows at their sources. The crawl entry hands the task to its
// crawler (`ICrawlAgent`), relaying its events. The serial path (`DownloadDocsSerially`) is the
// older one-file-at-a-time download into a temporary folder, kept for old callers.
#pragma once

#include <memory>
#include <string>

#include "acquire/politeness.h"
#include "engine/download_manager.h"
#include "platform/db/recordset.h"
#include "platform/signal.h"
#include "web/resource_type.h"

namespace gw {

// What a task's crawler offers the crawl entry. The crawler implements it and is held as the
// task's `CrawlerAgent`.
class ICrawlAgent {
 public:
  virtual ~ICrawlAgent() = default;
  // Crawls from the task's queued rows; returns the client it ended with.
  virtual HttpClientPtr Crawl(const std::shared_ptr<Task>& tsk,
                              const HttpClientPtr& TemplateHttpClient,
                              const FileSaverPtr& SaveAsTemplate) = 0;
  Signal<long, long> OnProgressChange;
  Signal<const std::string&, bool&> OnStatusChange;
  // (doc_id, copy_completion_code, saved, bytes) after each row's outcome, as
  // `AdvancedDownloadMgr::OnRowOutcome`.
  Signal<const std::string&, const std::string&, bool, long long> OnRowOutcome;
};

// How a run's downloads stand, for a host's display.
struct TransferCounts {
  long fetched = 0;     // rows saved in this run
  long failed = 0;      // outcomes that were not a save (a row tried again counts each time)
  long queued = 0;      // rows of the current pass not yet done
  long long bytes = 0;  // bytes saved
};

class DownloadMgr : public Object, public IDownloadMgr {
 public:
  static std::shared_ptr<DownloadMgr> Create() { return std::make_shared<DownloadMgr>(); }
  std::string TypeName() const override { return "DownloadMgr"; }

  // The parallel path (see the file comment). A `Method` other than GET or POST is taken as GET.
  // Returns the client of the last pass (`TemplateHttpClient` when there was none).
  HttpClientPtr DownloadDocs(const std::string& JobId, const std::string& TaskId,
                             const DateTime& JobStartTime, const FileSaverPtr& SaveAsTemplate,
                             const HttpClientPtr& TemplateHttpClient, const std::string& Method,
                             bool SaveErrorPages) override;
  // `D_DownloadMgr::SetCachePathToSrcPath`.
  void DontDownloadDocs(const std::string& JobId, const std::string& TaskId,
                        const DateTime& JobStartTime) override;
  // The task's `CrawlerAgent` crawls. Without a crawler every open row of the run gets the
  // failure "Crawling is not available yet." Returns the crawler's client (or the template).
  HttpClientPtr Crawl(const std::shared_ptr<Task>& task, const FileSaverPtr& SaveAsTemplate,
                      const HttpClientPtr& TemplateHttpClient) override;

  // ---- the serial path ----
  // Each open row in turn: status "Downloading <uri>" (cancel ends all), `DownloadDoc` into
  // `TempDir`, its code in "copy_completion_code" (on "Success" also `temp_uri` and the time,
  // and progress (1, total)), one more try; then, with a throttle, the status "Throttling
  // Download Requests...<s> seconds..." and the pause. Passes repeat while rows are open.
  void DownloadDocsSerially(const std::string& JobId, const std::string& TaskId,
                            const DateTime& JobStartTime, const std::string& TempDir,
                            long ThrottleWaitmsec);
  // Fetches or copies one document to TempDir + DocId + "." + extension (in `FullTempPath`);
  // returns "Success", "File Not Found (404)", "Download Failed", "Invalid URI" or a copy's
  // failure text.
  std::string DownloadDoc(std::string URI, const std::string& TempDir, const std::string& DocId,
                          std::string& FullTempPath);
  // Classifies an address by its prefix; "file://" and "//" are cut off `URI`.
  static web::ResourceType DetermineResourceType(std::string& URI);
  // The extension the file gets: the address's own mapped through the store's table, else the
  // one its MIME type implies (a request), else the type's default.
  std::string DetermineFileExt(const std::string& URI, web::ResourceType ResType);
  // The extension the store maps the "Content-Type" of a GET of `URI` to ("" unless http).
  std::string GetFileExtFromMimeType(const std::string& URI, web::ResourceType ResType);
  // FTP is not available: "Download Failed".
  std::string CopyFTPFile(const std::string& SrcURL, const std::string& DestPath);

  // After each row's outcome on the parallel path.
  Signal<const TransferCounts&> OnTransferCounts;

 private:
  void FailOpenRows(const std::string& JobId, const std::string& TaskId,
                    const DateTime& JobStartTime, const std::string& text);

  TransferCounts counts_;
};

}  // namespace gw
