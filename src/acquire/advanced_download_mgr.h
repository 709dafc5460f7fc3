// AdvancedDownloadMgr: downloads a list of documents, up to ten transfers at a time.
//
// The list is an updatable recordset of document rows of a run (columns "doc_id", "uri",
// "copy_completion_code", "copy_completion_time", "copy_try_count", "temp_uri"); each row names
// an address and gets its outcome written back:
//  - saved: "Success" (or "File saved, but path was truncated" when the saver had to shorten the
//    path), `temp_uri` the file, `copy_completion_time` now;
//  - not saved: the response's status text ("Not Found"), the transport's failure text, the
//    saver's failure text, "Refused by robots.txt", or the texts for FTP, e-mail and invalid
//    addresses, cut to the column's width. On the tenth try with `SaveErrorPages` the error page
//    is saved too and its file becomes `temp_uri`;
// and every outcome counts one try in `copy_try_count` ("Refused by robots.txt" counts as the
// tenth, so that the row is not asked for again). A row whose host must wait (see politeness.h)
// is put back and sent when its host is free; a cancelled run leaves the rows it did not reach as
// they were.
//
// Each transfer runs on a `DownloadAgent`, whose `HttpClient` is a clone of the template client
// (its cookies and credentials; the jars then go their own ways). A row's address may carry a
// form block ("page <form_variables>...</form_variables>"): it is posted (`BuildWebForm`).
// Sends are asynchronous and completions are handled from `EventLoop::DoEvents`; every wait is
// `WaitForActivity`, so a completion is handled as soon as it arrives. Local files are copied by
// the saver.
//
// A long list can be given as a `DownloadRowFeed`, a slice of rows at a time, so that a pass over
// many thousands of rows holds only the slice in hand, the transfers under way and a bounded
// number of rows waiting for their hosts. Outcomes are written by document id on the list's
// connection (a recordset's rows in memory are not changed, except for a list cut from its
// connection, whose rows get the outcomes instead).
//
// Events: status texts "Downloading <uri>  Count: <n>" before each row, "Politely Downloading
// ..." before the throttle's pause, "Waiting up to 5 minutes for all threads to complete..." at
// the end; a status answered with flgCancel stops new requests (those under way still finish).
// Progress (1, rows x 5) for each saved row.
//
// Failures: a row's failure never stops the run. The run stops on cancel, on a recordset failure,
// or when no agent became free within the agent time-out (`acquireerr::kNoAgentAvailable`).
#pragma once

#include <array>
#include <chrono>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "acquire/failures.h"
#include "acquire/politeness.h"
#include "engine/download_manager.h"
#include "engine/file_saver.h"
#include "platform/date_time.h"
#include "platform/db/recordset.h"
#include "platform/signal.h"
#include "web/http_client.h"
#include "web/web_form.h"

namespace gw {

// One row of a download list as the manager reads it.
struct DownloadRow {
  std::string doc_id;
  std::string uri;
  long tries = 0;    // copy_try_count before this try
  Variant bookmark;  // its place in a recordset given as the list (empty from a feed)
};

// A download list read a slice at a time.
class DownloadRowFeed {
 public:
  virtual ~DownloadRowFeed() = default;
  // How many rows the list holds (what the progress counts against).
  virtual long Count() = 0;
  // The next rows in order; none at the end. `width` receives the width of
  // "copy_completion_code" (0: unlimited).
  virtual std::vector<DownloadRow> NextSlice(long& width) = 0;
  // Where the outcomes are written (by document id); null: nowhere.
  virtual db::ConnectionPtr Connection() = 0;
};

// The open rows of a task's run (those `D_DownloadMgr::GetNonDownloadedFiles` gives), read
// `kSliceRows` at a time by row number: every row that is open when its slice is read is in it
// once, and the outcomes written meanwhile never bring a row back into a later slice.
class OpenRowsFeed : public DownloadRowFeed {
 public:
  static constexpr long kSliceRows = 2000;
  OpenRowsFeed(std::string job_id, std::string task_id, DateTime job_start,
               long slice_rows = kSliceRows);
  long Count() override;
  std::vector<DownloadRow> NextSlice(long& width) override;
  db::ConnectionPtr Connection() override;

 private:
  std::string job_id_;
  std::string task_id_;
  DateTime job_start_;
  long slice_rows_;
  long long after_ = 0;
  bool done_ = false;
  db::ConnectionPtr cn_;
};

// One transfer slot: a client, the row it works for, and the failure text of its last request.
class DownloadAgent : public Object {
 public:
  std::string TypeName() const override { return "DownloadAgent"; }

  const Variant& RecordPosition() const noexcept { return record_position_; }
  void SetRecordPosition(Variant v) { record_position_ = std::move(v); }
  const std::string& FileId() const noexcept { return file_id_; }
  void SetFileId(std::string v) { file_id_ = std::move(v); }
  const HttpClientPtr& Client() const noexcept { return client_; }
  // Listens to the client's completion: its failure text becomes `ErrorMessage`, then
  // `RequestComplete` is raised.
  void SetClient(HttpClientPtr client);
  const std::string& ErrorMessage() const noexcept { return error_message_; }
  void ClearErrorMessage() { error_message_.clear(); }

  Signal<> RequestComplete;

  // ---- inside the library ----
  // The address whose host counts this transfer (null when none was counted).
  std::shared_ptr<web::Uri> target;
  // The row it works for.
  DownloadRow row;

 private:
  Variant record_position_;
  std::string file_id_;
  HttpClientPtr client_;
  std::string error_message_;
  ScopedConnection complete_;
};

class AdvancedDownloadMgr : public Object {
 public:
  static constexpr int kAgentCount = 10;
  static std::shared_ptr<AdvancedDownloadMgr> Create() {
    return std::make_shared<AdvancedDownloadMgr>();
  }
  AdvancedDownloadMgr();
  ~AdvancedDownloadMgr() override;
  std::string TypeName() const override { return "AdvancedDownloadMgr"; }

  // Downloads every row from the current one to the end (see the file comment). `Method` "GET"
  // (a row with a form block is posted all the same) or "POST"; anything else sends nothing.
  // The throttle is `SaveAsTemplate`'s task's `ThrottleWaitMSecs` (0 without a task). Returns a
  // clone of the first agent's client, so that the caller goes on with a session that has seen a
  // response; the agents are then replaced.
  HttpClientPtr DownloadFiles(db::Recordset& rsFileList, const FileSaverPtr& SaveAsTemplate,
                              const HttpClientPtr& TemplateHttpClient,
                              const std::string& Method = "GET", bool SaveErrorPages = false);
  // The same for a list read slice by slice.
  HttpClientPtr DownloadFiles(DownloadRowFeed& Rows, const FileSaverPtr& SaveAsTemplate,
                              const HttpClientPtr& TemplateHttpClient,
                              const std::string& Method = "GET", bool SaveErrorPages = false);
  // The form a row's address stands for: its form block's variables (or, without a block, the
  // variables of its query), posted to the address resolved against the client's
  // `StaticRelativeUrl` or else its current address.
  std::shared_ptr<web::WebForm> BuildWebForm(const std::string& url, web::HttpClient& Client);

  // Made on first read when empty.
  const HttpClientPtr& TemplateClient();
  void SetTemplateClient(HttpClientPtr client) { template_client_ = std::move(client); }
  const FileSaverPtr& saver() const noexcept { return saver_; }
  void SetSaver(FileSaverPtr saver) { saver_ = std::move(saver); }
  // The hosts' state; one of its own unless set (a download manager shares one across passes).
  const std::shared_ptr<Politeness>& GetPoliteness();
  void SetPoliteness(std::shared_ptr<Politeness> politeness) {
    politeness_ = std::move(politeness);
  }
  // How long a row waits for a free agent before the run fails (default ten minutes).
  void SetAgentTimeout(std::chrono::milliseconds t) { agent_timeout_ = t; }

  // (ChangeAmount, ProgressMax).
  Signal<long, long> OnProgressChange;
  // (Status, flgCancel).
  Signal<const std::string&, bool&> OnStatusChange;
  // (doc_id, copy_completion_code, saved, bytes of the response or copy) after each row's
  // outcome; for a host's display of the run.
  Signal<const std::string&, const std::string&, bool, long long> OnRowOutcome;
  // (doc_id, file, copy_completion_code) as soon as a file is saved, before its row is written
  // (the rows are committed in batches).
  Signal<const std::string&, const std::string&, const std::string&> OnFileSaved;
  // (doc_id, file, copy_completion_code) just before a saved response or copy is given its name,
  // again for each further name tried when one is taken: what a crawl journals, so that a process
  // killed after the naming, before the row is written, leaves a file the journal names. Not
  // raised for error pages.
  Signal<const std::string&, const std::string&, const std::string&> OnFileNaming;
  // (row, file, the response's body as saved) just before a saved response's row outcome, while
  // the body is still in hand: what a crawl reads the page's links from without reading the file
  // back. Not raised for copied files, error pages or a path that could not be made.
  Signal<const DownloadRow&, const std::string&, std::string_view> OnPageSaved;

 private:
  // At most this many rows wait for their hosts; the list is read on when fewer do.
  static constexpr std::size_t kMaxWaitingRows = 1000;

  struct Pending {
    DownloadRow row;
    std::shared_ptr<web::Uri> target;
  };

  HttpClientPtr Run(DownloadRowFeed& rows, const FileSaverPtr& SaveAsTemplate,
                    const HttpClientPtr& TemplateHttpClient, const std::string& Method,
                    bool SaveErrorPages);
  void InitializeAgents();
  void DownloadFile(const DownloadRow& row);
  bool DownloadWinFile(const DownloadRow& row);
  // Sends `row` on a free agent, or puts it back when its host must wait; false if put back.
  bool Dispatch(Pending row);
  void PutBack(Pending row);
  void CompleteHttpFileDownload(DownloadAgent& agent);
  void LogSuccessfulDownload(const std::string& Destpath, const DownloadRow& row,
                             const std::string& Code, long long bytes);
  void LogUnsuccessfulDownload(const std::string& StatusText, const DownloadRow& row,
                               DownloadAgent* agent, bool final_try = false);
  // Writes a row's outcome: by its document id on the list's connection, or into the list's own
  // rows when it has none.
  void WriteOutcome(const DownloadRow& row, const std::string& code, long tries,
                    const std::string* temp_uri, bool completed);
  DownloadAgent& GetAvailableAgent(std::chrono::milliseconds timeout);
  bool WaitForAllAgentsToExit(std::chrono::milliseconds timeout);
  // Sends the rows put back whose hosts are free now.
  void SendWaitingRows();
  // Waits until at most `most` rows are put back, or a status is answered with cancel.
  void WaitForWaitingRows(std::size_t most, bool& cancel);
  // The address a row's request goes to, or null when it cannot be read.
  std::shared_ptr<web::Uri> TargetOf(const std::string& uri);
  // Waits `throttle_ms_` in steps of 250 ms, handling completions as they come.
  void Throttle();
  // Row writes are committed in batches (at most every 250 ms, and when the pass ends): one
  // commit per row would bound a pass by the store's commits per second. A run killed in between
  // leaves those rows open, and the next run tries them again.
  void BeginBatch();
  void CommitBatch(bool force);

  db::Recordset* rs_ = nullptr;  // the list, when it was given as a recordset
  bool running_ = false;
  db::ConnectionPtr write_cn_;  // where the outcomes go
  long code_width_ = 0;
  std::array<std::shared_ptr<DownloadAgent>, kAgentCount> agents_;
  HttpClientPtr template_client_;
  FileSaverPtr saver_;
  std::string method_;
  bool save_error_pages_ = false;
  long throttle_ms_ = 0;
  std::shared_ptr<Politeness> politeness_;
  // The rows put back, by site, each site's in the order they came; and how many they are.
  std::map<std::string, std::deque<Pending>> waiting_;
  std::size_t waiting_count_ = 0;
  std::chrono::milliseconds agent_timeout_{600000};
  long progress_max_ = 0;
  bool batch_open_ = false;  // a write batch is open on write_cn_
  std::chrono::steady_clock::time_point batch_began_{};
  std::vector<ScopedConnection> agent_events_;
};

}  // namespace gw
