// DownloadMgr: gets a task's queued documents, the download manager that `Task::Execute` uses.
//
// Local documents are copied: each row of the run that is still to fetch is taken in turn, its
// address classified (`HttpUtility::ClassifyResourceUri`), and a file-system address (a path, or
// a "file://" address) copied into the run's download folder:
//
//   <DefaultDownloadPath>/<package id>/<package start, yyyy-mm-dd_hh-mm-ss-fff>/<task id>/
//       <document id>.<extension>
//
// The extension is the source's, mapped through the store's extension table (an unknown one
// becomes the file-system default). The row then gets "Success", `temp_uri` (the copy) and
// `copy_completion_time`; cleansing later rewrites the copy, never the source. Any other address
// gets its failure text in `copy_completion_code` (fetching over HTTP and crawling are not
// available yet), every try counts in `copy_try_count`, and the run goes on. Passes repeat until
// no row is left to fetch, which the store's bound of 10 tries ends.
#pragma once

#include <memory>
#include <string>

#include "engine/download_manager.h"
#include "platform/db/recordset.h"

namespace gw {

class DownloadMgr : public Object, public IDownloadMgr {
 public:
  static std::shared_ptr<DownloadMgr> Create() { return std::make_shared<DownloadMgr>(); }
  std::string TypeName() const override { return "DownloadMgr"; }

  // Passes over the rows still to fetch until none is left or a status is answered with
  // flgCancel. Statuses: "Downloading <uri>  Count: <n>" before each row, and "Waiting up to 5
  // minutes for all threads to complete..." after each pass. Progress: (1, rows of the pass x 5)
  // for each copied row. Returns `TemplateHttpClient`.
  HttpClientPtr DownloadDocs(const std::string& JobId, const std::string& TaskId,
                             const DateTime& JobStartTime, const FileSaverPtr& SaveAsTemplate,
                             const HttpClientPtr& TemplateHttpClient, const std::string& Method,
                             bool SaveErrorPages) override;
  // `D_DownloadMgr::SetCachePathToSrcPath`.
  void DontDownloadDocs(const std::string& JobId, const std::string& TaskId,
                        const DateTime& JobStartTime) override;
  // Crawling is not available yet: every row of the run still to fetch gets that failure.
  // Returns `TemplateHttpClient`.
  HttpClientPtr Crawl(const std::shared_ptr<Task>& task, const FileSaverPtr& SaveAsTemplate,
                      const HttpClientPtr& TemplateHttpClient) override;

  // The run's download folder of a task (see the file comment); made on first copy. With no
  // "DefaultDownloadPath" setting the root is $GLEANWRIGHT_HOME/downloads.
  std::string DownloadFolder(const std::string& JobId, const DateTime& JobStartTime,
                             const std::string& TaskId);

 private:
  // One pass over `rows`; false when a status was answered with flgCancel.
  bool DownloadFiles(db::Recordset& rows, const std::string& JobId, const DateTime& JobStartTime,
                     const std::string& TaskId);
  // Copies the current row's file; false (with the failure logged on the row) when it failed.
  bool DownloadWinFile(db::Recordset& rows, const std::string& uri, const std::string& folder,
                       long progress_max);
  void LogSuccessfulDownload(db::Recordset& rows, const std::string& dest_path,
                             const std::string& code, long progress_max);
  void LogUnsuccessfulDownload(db::Recordset& rows, const std::string& status_text);

  std::string default_root_;  // "DefaultDownloadPath", read once
  bool root_read_ = false;
};

}  // namespace gw
