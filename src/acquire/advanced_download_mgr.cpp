#include "acquire/advanced_download_mgr.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>

#include "engine/doc.h"
#include "engine/task.h"
#include "platform/error.h"
#include "platform/event_loop.h"
#include "platform/text.h"
#include "rules/package_data_access.h"
#include "web/http_utility.h"
#include "web/http_web_request.h"

namespace gw {

namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

constexpr const char* kRefusedByRobots = "Refused by robots.txt";
constexpr const char* kTruncated = "File saved, but path was truncated";
constexpr long kLastTry = 10;

// The code of a saved response's row: a path the saver shortened, or one near the length limit,
// is saved but said to be truncated.
std::string SavedResponseCode(const FileSaver& saver, const std::string& path) {
  const std::size_t length = text::CountCodePoints(path);
  return saver.LastPathWasShortened() || (length >= 253 && length <= 255) ? kTruncated : "Success";
}

// Hands the saver's naming notices on while it lives, when someone listens for them (a run
// that only copies files pays nothing for them).
class NamingRelay {
 public:
  NamingRelay(FileSaver& saver, bool wanted, std::function<void(const std::string& path)> listener)
      : saver_(wanted ? &saver : nullptr) {
    if (saver_) saver_->SetNamingListener(std::move(listener));
  }
  ~NamingRelay() {
    if (saver_) saver_->SetNamingListener(nullptr);
  }
  NamingRelay(const NamingRelay&) = delete;
  NamingRelay& operator=(const NamingRelay&) = delete;

 private:
  FileSaver* saver_;
};

// A number of seconds as the runtime writes a quotient: "1", "0.5", "1.25".
std::string Seconds(long ms) {
  char buf[32];
  std::snprintf(buf, sizeof buf, "%.15g", static_cast<double>(ms) / 1000.0);
  return buf;
}

long NumberOf(const Variant& v) { return v.IsEmptyOrNull() ? 0 : v.ToLong(); }
std::string TextOf(const Variant& v) { return v.IsEmptyOrNull() ? std::string() : v.ToText(); }

// The list given as a recordset: its rows from the current one to the end, as one slice.
class RecordsetRows : public DownloadRowFeed {
 public:
  explicit RecordsetRows(db::Recordset& rs) : rs_(rs) {}
  long Count() override { return rs_.RecordCount(); }
  std::vector<DownloadRow> NextSlice(long& width) override {
    std::vector<DownloadRow> rows;
    if (read_) return rows;
    read_ = true;
    if (!rs_.IsEOF() && !rs_.IsBOF()) width = rs_["copy_completion_code"].DefinedSize();
    for (; !rs_.IsEOF() && !rs_.IsBOF(); rs_.MoveNext()) {
      rows.push_back({TextOf(rs_["doc_id"].Value()), TextOf(rs_["uri"].Value()),
                      NumberOf(rs_["copy_try_count"].Value()), rs_.Bookmark()});
    }
    return rows;
  }
  db::ConnectionPtr Connection() override { return rs_.ActiveConnection(); }

 private:
  db::Recordset& rs_;
  bool read_ = false;
};

// Waits for the next completion, timer or post (at most `ms`), then handles what came. The
// caller has pumped and looked at its condition just before: pumping again before the wait could
// handle the last transfer's completion and then wait the whole `ms` for nothing.
void WaitAndPump(milliseconds ms) {
  EventLoop& loop = EventLoop::Current();
  loop.WaitForActivity(ms);
  loop.DoEvents();
}

}  // namespace

// ---- DownloadAgent ---------------------------------------------------------------------------

void DownloadAgent::SetClient(HttpClientPtr client) {
  client_ = std::move(client);
  complete_.Disconnect();
  if (client_) {
    complete_ = client_->AsynchRequestComplete.Connect([this](const std::string& error) {
      if (!error.empty()) error_message_ = error;
      RequestComplete.Emit();
    });
  }
}

// ---- OpenRowsFeed ------------------------------------------------------------------------------

OpenRowsFeed::OpenRowsFeed(std::string job_id, std::string task_id, DateTime job_start,
                           long slice_rows)
    : job_id_(std::move(job_id)),
      task_id_(std::move(task_id)),
      job_start_(job_start),
      slice_rows_(std::max(slice_rows, 1L)) {}

long OpenRowsFeed::Count() {
  return D_DownloadMgr().CountNonDownloadedFiles(job_id_, task_id_, job_start_);
}

std::vector<DownloadRow> OpenRowsFeed::NextSlice(long& width) {
  std::vector<DownloadRow> rows;
  if (done_) return rows;
  auto rs =
      D_DownloadMgr().GetNonDownloadedFilesAfter(job_id_, task_id_, job_start_, after_, kSliceRows);
  rows.reserve(static_cast<std::size_t>(rs->RecordCount()));
  if (!rs->IsEOF()) width = (*rs)["copy_completion_code"].DefinedSize();
  for (; !rs->IsEOF(); rs->MoveNext()) {
    after_ = (*rs)["row_no"].Value().ToLongLong();
    rows.push_back({TextOf((*rs)["doc_id"].Value()), TextOf((*rs)["uri"].Value()),
                    NumberOf((*rs)["copy_try_count"].Value()), Variant()});
  }
  done_ = static_cast<long>(rows.size()) < slice_rows_;
  return rows;
}

db::ConnectionPtr OpenRowsFeed::Connection() {
  if (!cn_) cn_ = D_DownloadMgr().OutcomeConnection();
  return cn_;
}

// ---- AdvancedDownloadMgr -----------------------------------------------------------------------

AdvancedDownloadMgr::AdvancedDownloadMgr() = default;
AdvancedDownloadMgr::~AdvancedDownloadMgr() = default;

const HttpClientPtr& AdvancedDownloadMgr::TemplateClient() {
  if (!template_client_) template_client_ = web::HttpClient::Create();
  return template_client_;
}

const std::shared_ptr<Politeness>& AdvancedDownloadMgr::GetPoliteness() {
  if (!politeness_) politeness_ = std::make_shared<Politeness>();
  return politeness_;
}

void AdvancedDownloadMgr::InitializeAgents() {
  agent_events_.clear();
  for (auto& agent : agents_) {
    agent = std::make_shared<DownloadAgent>();
    agent->SetClient(TemplateClient()->Clone());
    DownloadAgent* raw = agent.get();
    agent_events_.push_back(
        agent->RequestComplete.Connect([this, raw] { CompleteHttpFileDownload(*raw); }));
  }
}

HttpClientPtr AdvancedDownloadMgr::DownloadFiles(db::Recordset& rsFileList,
                                                 const FileSaverPtr& SaveAsTemplate,
                                                 const HttpClientPtr& TemplateHttpClient,
                                                 const std::string& Method, bool SaveErrorPages) {
  return ReportAs(
      "AdvancedDownloadMgr.DownloadFiles(rsFileList,SaveAsTemplate,TemplateHttpClient,Method,"
      "SaveErrorPages)",
      Args(rsFileList, SaveAsTemplate, TemplateHttpClient, Method, SaveErrorPages), [&] {
        RecordsetRows rows(rsFileList);
        rs_ = &rsFileList;
        return Run(rows, SaveAsTemplate, TemplateHttpClient, Method, SaveErrorPages);
      });
}

HttpClientPtr AdvancedDownloadMgr::DownloadFiles(DownloadRowFeed& Rows,
                                                 const FileSaverPtr& SaveAsTemplate,
                                                 const HttpClientPtr& TemplateHttpClient,
                                                 const std::string& Method, bool SaveErrorPages) {
  return ReportAs(
      "AdvancedDownloadMgr.DownloadFiles(rsFileList,SaveAsTemplate,TemplateHttpClient,Method,"
      "SaveErrorPages)",
      [&] {
        rs_ = nullptr;
        return Run(Rows, SaveAsTemplate, TemplateHttpClient, Method, SaveErrorPages);
      });
}

HttpClientPtr AdvancedDownloadMgr::Run(DownloadRowFeed& rows, const FileSaverPtr& SaveAsTemplate,
                                       const HttpClientPtr& TemplateHttpClient,
                                       const std::string& Method, bool SaveErrorPages) {
  struct Done {
    AdvancedDownloadMgr& m;
    ~Done() {
      try {
        m.CommitBatch(true);
      } catch (const Error&) {
      }
      m.running_ = false;
      m.rs_ = nullptr;
      m.write_cn_.reset();
      m.waiting_.clear();
      m.waiting_count_ = 0;
    }
  } done{*this};
  running_ = true;
  write_cn_ = rows.Connection();
  code_width_ = 0;
  saver_ = SaveAsTemplate ? SaveAsTemplate : FileSaver::Create();
  template_client_ = TemplateHttpClient;
  method_ = Method;
  save_error_pages_ = SaveErrorPages;
  const auto task = saver_->GetTask();
  throttle_ms_ = task ? task->ThrottleWaitMSecs() : 0;
  progress_max_ = rows.Count() * 5;
  GetPoliteness();
  InitializeAgents();

  long count = 1;
  bool cancel = false;
  for (auto slice = rows.NextSlice(code_width_); !slice.empty() && !cancel;) {
    for (DownloadRow& row : slice) {
      const std::string n = std::to_string(count);
      OnStatusChange.Emit("Downloading " + row.uri + "  Count: " + n, cancel);
      if (cancel) break;
      if (throttle_ms_ > 0) {
        OnStatusChange.Emit("Politely Downloading " + row.uri + "  Count: " + n +
                                "  (Throttling Download Requests... Waiting " +
                                Seconds(throttle_ms_) + " seconds...)",
                            cancel);
        DoEvents();
        Throttle();
      }
      DoEvents();
      SendWaitingRows();
      // The list is read on only while few rows wait for their hosts.
      WaitForWaitingRows(kMaxWaitingRows - 1, cancel);
      if (cancel) break;
      DownloadFile(row);
      DoEvents();
      ++count;
    }
    if (cancel) break;
    // The next slice is read with every outcome so far committed.
    CommitBatch(true);
    slice = rows.NextSlice(code_width_);
  }
  if (!cancel) WaitForWaitingRows(0, cancel);
  waiting_.clear();
  waiting_count_ = 0;
  OnStatusChange.Emit("Waiting up to 5 minutes for all threads to complete...", cancel);
  WaitForAllAgentsToExit(milliseconds(300000));
  // The caller goes on with a session that has seen a response; the others are dropped.
  CommitBatch(true);
  HttpClientPtr result = agents_[0]->Client()->Clone();
  InitializeAgents();
  return result;
}

void AdvancedDownloadMgr::DownloadFile(const DownloadRow& row) {
  web::ResourceType type =
      web::HttpUtility::ClassifyResourceUri(row.uri, TemplateClient()->StaticRelativeUrl().get());
  // An absolute path is to this file system what "C:\..." is to Windows.
  if (type == web::ResourceType::Unknown && row.uri.starts_with('/') &&
      !row.uri.starts_with("//")) {
    type = web::ResourceType::FileSystem;
  }
  switch (type) {
    case web::ResourceType::http:
      Dispatch(Pending{row, TargetOf(row.uri)});
      break;
    case web::ResourceType::FileSystem:
      DownloadWinFile(row);
      break;
    case web::ResourceType::FTP:
      LogUnsuccessfulDownload(
          "FTP is not supported at this time.  Let us know if this is a critical feature for you.",
          row, nullptr);
      break;
    case web::ResourceType::email:
      LogUnsuccessfulDownload("The uri appears to be an email address.", row, nullptr);
      break;
    case web::ResourceType::Unknown:
      if (!DownloadWinFile(row)) Dispatch(Pending{row, TargetOf(row.uri)});
      break;
    case web::ResourceType::Invalid:
      LogUnsuccessfulDownload("The uri appears to be invalid.", row, nullptr);
      break;
  }
}

std::shared_ptr<web::Uri> AdvancedDownloadMgr::TargetOf(const std::string& uri) {
  std::string address = uri;
  if (text::FindNoCase(uri, "<form") != text::npos) {
    web::WebForm::GetFormVarXMLFromString(uri, address);
  }
  address = std::string(text::TrimWhitespace(address));
  const web::HttpClient& client = *TemplateClient();
  const std::shared_ptr<web::Uri>& base =
      client.StaticRelativeUrl() ? client.StaticRelativeUrl() : client.CurrentUrl();
  for (const std::string& text : {address, "http://" + address}) {
    try {
      auto u = std::make_shared<web::Uri>(text, base.get());
      const std::string scheme = text::AsciiLower(u->scheme());
      if ((scheme == "http" || scheme == "https") && !u->Host().empty()) return u;
    } catch (const Error&) {
    }
  }
  return nullptr;
}

void AdvancedDownloadMgr::PutBack(Pending row) {
  const std::string site = Politeness::SiteKey(*row.target);
  waiting_[site].push_back(std::move(row));
  ++waiting_count_;
}

bool AdvancedDownloadMgr::Dispatch(Pending row) {
  Politeness& polite = *GetPoliteness();
  const auto verdict = [&] {
    return row.target ? polite.Check(*row.target, *TemplateClient()) : Politeness::Verdict::kGo;
  };
  switch (verdict()) {
    case Politeness::Verdict::kRefused:
      LogUnsuccessfulDownload(kRefusedByRobots, row.row, nullptr, true);
      return true;
    case Politeness::Verdict::kWait:
      PutBack(std::move(row));
      return false;
    case Politeness::Verdict::kGo:
      break;
  }
  DownloadAgent& agent = GetAvailableAgent(agent_timeout_);
  // Waiting for an agent may have changed the host's state.
  if (verdict() != Politeness::Verdict::kGo) {
    PutBack(std::move(row));
    return false;
  }
  agent.SetFileId(row.row.doc_id);
  agent.SetRecordPosition(row.row.bookmark);
  agent.row = row.row;
  agent.ClearErrorMessage();
  agent.target = row.target;
  if (agent.target) polite.Started(*agent.target);
  const std::string method = text::AsciiUpper(text::TrimSpaces(method_));
  web::HttpClient& client = *agent.Client();
  const std::string& uri = row.row.uri;
  try {
    const bool has_form = text::FindNoCase(uri, "<form") != text::npos;
    if (method == "GET" && !has_form) {
      client.GetPage(uri, true);
    } else if (method == "GET" || method == "POST") {
      client.SubmitForm(*BuildWebForm(uri, client), true);
    } else {
      if (agent.target) polite.Finished(*agent.target);
      agent.target.reset();
    }
  } catch (const Error& e) {
    // Nothing was sent: the agent gets a fresh client, for this one may still count as busy.
    if (agent.target) polite.Finished(*agent.target);
    agent.target.reset();
    agent.SetClient(TemplateClient()->Clone());
    LogUnsuccessfulDownload(e.Description(), row.row, nullptr);
  }
  return true;
}

std::shared_ptr<web::WebForm> AdvancedDownloadMgr::BuildWebForm(const std::string& url,
                                                                web::HttpClient& Client) {
  return ReportAs("AdvancedDownloadMgr.BuildWebForm(url,Client)", Args(url, Client), [&] {
    auto form = std::make_shared<web::WebForm>();
    form->SetMethod("POST");
    const std::string address(text::TrimWhitespace(form->LoadFormVariablesFromXML(url, false)));
    const std::shared_ptr<web::Uri>& base =
        Client.StaticRelativeUrl() ? Client.StaticRelativeUrl() : Client.CurrentUrl();
    auto u = std::make_shared<web::Uri>();
    u->Parse(address, base.get());
    if (form->FormVarCount() == 0 && !u->QueryString().empty()) {
      form->LoadFormVariablesFromQueryString(u->QueryString());
    }
    form->SetAction(u->ToExternalForm());
    return form;
  });
}

void AdvancedDownloadMgr::SendWaitingRows() {
  // A site's rows go in their order while its host takes them; a site whose first row must wait
  // keeps the rest waiting too, so each call costs a look per site, not per row.
  for (auto site = waiting_.begin(); site != waiting_.end();) {
    std::deque<Pending>& rows = site->second;
    while (!rows.empty()) {
      const Politeness::Verdict verdict =
          GetPoliteness()->Check(*rows.front().target, *TemplateClient());
      if (verdict == Politeness::Verdict::kWait) break;
      Pending row = std::move(rows.front());
      rows.pop_front();
      --waiting_count_;
      if (throttle_ms_ > 0 && verdict == Politeness::Verdict::kGo) Throttle();
      // Dispatch may put it back (the host got busy while an agent was awaited): then the site
      // waits again.
      if (!Dispatch(std::move(row))) break;
    }
    site = rows.empty() ? waiting_.erase(site) : std::next(site);
  }
}

void AdvancedDownloadMgr::WaitForWaitingRows(std::size_t most, bool& cancel) {
  auto last_status = Clock::now();
  while (waiting_count_ > most) {
    SendWaitingRows();
    if (waiting_count_ <= most) break;
    milliseconds wait(200);
    if (const auto next = GetPoliteness()->NextRelease()) {
      const auto until = std::chrono::duration_cast<milliseconds>(*next - Clock::now());
      wait = std::clamp(until, milliseconds(1), milliseconds(200));
    }
    CommitBatch(false);
    WaitAndPump(wait);
    // While sites ask to wait, the host still gets a status now and then to answer.
    if (Clock::now() - last_status >= std::chrono::seconds(1)) {
      last_status = Clock::now();
      OnStatusChange.Emit("Waiting for " + std::to_string(waiting_count_) +
                              " documents whose sites ask for a pause...",
                          cancel);
      if (cancel) return;
    }
  }
}

void AdvancedDownloadMgr::Throttle() {
  // Whole rounds of 250 ms, as the throttle has always counted them, but a completion is handled
  // as soon as it arrives.
  const auto until = Clock::now() + milliseconds(throttle_ms_ / 250 * 250);
  for (auto now = Clock::now(); now < until; now = Clock::now()) {
    CommitBatch(false);
    WaitAndPump(std::chrono::duration_cast<milliseconds>(until - now));
  }
}

DownloadAgent& AdvancedDownloadMgr::GetAvailableAgent(milliseconds timeout) {
  const auto start = Clock::now();
  while (true) {
    for (auto& agent : agents_) {
      if (agent->Client()->IsReady()) return *agent;
    }
    const auto elapsed = std::chrono::duration_cast<milliseconds>(Clock::now() - start);
    if (elapsed >= timeout) {
      throw Error(acquireerr::kNoAgentAvailable, "AdvancedDownloadMgr.GetAvailableAgent",
                  "Waited " + Seconds(static_cast<long>(timeout.count())) +
                      " seconds for an agent to become available, but timed out.");
    }
    CommitBatch(false);  // no write lock is held while the run waits
    WaitAndPump(std::min(milliseconds(200), timeout - elapsed));
  }
}

bool AdvancedDownloadMgr::WaitForAllAgentsToExit(milliseconds timeout) {
  const auto start = Clock::now();
  while (true) {
    if (std::all_of(agents_.begin(), agents_.end(),
                    [](const auto& agent) { return agent->Client()->IsReady(); })) {
      return true;
    }
    const auto elapsed = std::chrono::duration_cast<milliseconds>(Clock::now() - start);
    if (elapsed >= timeout) return false;
    CommitBatch(false);  // no write lock is held while the run waits
    WaitAndPump(std::min(milliseconds(200), timeout - elapsed));
  }
}

void AdvancedDownloadMgr::CompleteHttpFileDownload(DownloadAgent& agent) {
  const std::shared_ptr<web::Uri> target = std::move(agent.target);
  agent.target.reset();
  if (target) GetPoliteness()->Finished(*target);
  if (!running_) return;  // a transfer that outlived its run
  const DownloadRow& row = agent.row;
  if (!agent.ErrorMessage().empty()) {
    LogUnsuccessfulDownload(agent.ErrorMessage(), row, &agent);
    return;
  }
  web::HttpClient& client = *agent.Client();
  saver_->SetSrcUrl(client.CurrentUrl());
  saver_->SetDocID(row.doc_id);
  const auto& response = client.HttpResponse();
  if (!response) {
    LogUnsuccessfulDownload("No response", row, &agent);
    return;
  }
  if (response->StatusType() != web::HttpStatusType::Successful) {
    const long status = response->StatusCode();
    if ((status == 429 || status == 503) && target) {
      if (const auto* header = response->Headers().Find("Retry-After")) {
        if (auto seconds = ParseRetryAfter((*header)->Value(), std::chrono::system_clock::now())) {
          GetPoliteness()->HoldBack(*target, *seconds);
        }
      }
    }
    const std::string text =
        response->StatusText().empty() ? std::to_string(status) : response->StatusText();
    LogUnsuccessfulDownload(text, row, &agent);
    return;
  }
  try {
    std::string path;
    {
      const NamingRelay relay(*saver_, OnFileNaming.HasHandlers(), [&](const std::string& name) {
        OnFileNaming.Emit(row.doc_id, name, SavedResponseCode(*saver_, name));
      });
      path = saver_->SaveBytes(response->ResponseBody());
    }
    if (!path.empty()) OnPageSaved.Emit(row, path, response->ResponseBody());
    LogSuccessfulDownload(path, row, SavedResponseCode(*saver_, path),
                          static_cast<long long>(response->ResponseBody().size()));
  } catch (const Error& e) {
    if (e.Number() == engineerr::kPathTruncated) {
      LogSuccessfulDownload("", row, kTruncated, 0);
    } else {
      LogUnsuccessfulDownload(e.Description(), row, &agent);
    }
  }
}

bool AdvancedDownloadMgr::DownloadWinFile(const DownloadRow& row) {
  saver_->SetDocID(row.doc_id);
  // The copy is named after its own file ([FILENAME], its extension), not the last page's.
  const std::string path = FileSystemPathOf(row.uri);
  std::shared_ptr<web::Uri> source;
  try {
    source = std::make_shared<web::Uri>(
        "file://" + std::filesystem::absolute(path).lexically_normal().string());
  } catch (const std::exception&) {
    source.reset();
  }
  saver_->SetSrcUrl(source);
  try {
    long long size = 0;
    std::string dest;
    {
      const NamingRelay relay(*saver_, OnFileNaming.HasHandlers(), [&](const std::string& name) {
        OnFileNaming.Emit(row.doc_id, name, "Success");
      });
      dest = saver_->CopyFile(row.uri, &size);
    }
    LogSuccessfulDownload(dest, row, "Success", size);
    return true;
  } catch (const Error& e) {
    LogUnsuccessfulDownload(e.Description(), row, nullptr);
    return false;
  }
}

void AdvancedDownloadMgr::BeginBatch() {
  if (batch_open_ || !write_cn_) return;
  try {
    write_cn_->BeginTrans();
  } catch (const Error&) {
    return;  // a store without transactions writes row by row
  }
  batch_open_ = true;
  batch_began_ = Clock::now();
}

void AdvancedDownloadMgr::CommitBatch(bool force) {
  if (!batch_open_ || (!force && Clock::now() - batch_began_ < milliseconds(250))) return;
  batch_open_ = false;
  write_cn_->CommitTrans();
}

void AdvancedDownloadMgr::WriteOutcome(const DownloadRow& row, const std::string& code, long tries,
                                       const std::string* temp_uri, bool completed) {
  if (write_cn_) {
    BeginBatch();
    const DateTime now = completed ? DateTime::Now() : DateTime();
    D_DownloadMgr::SetCopyOutcome(*write_cn_, row.doc_id, code, tries, temp_uri,
                                  completed ? &now : nullptr);
    CommitBatch(false);
    return;
  }
  // A list cut from its store keeps the outcomes in its rows.
  if (!rs_) return;
  db::Recordset& rs = *rs_;
  const Variant back = rs.IsEOF() || rs.IsBOF() ? Variant() : rs.Bookmark();
  rs.SetBookmark(row.bookmark);
  rs["copy_completion_code"].SetValue(Variant(code));
  if (temp_uri) rs["temp_uri"].SetValue(Variant(*temp_uri));
  if (completed) rs["copy_completion_time"].SetValue(Variant(DateTime::Now()));
  rs["copy_try_count"].SetValue(Variant(static_cast<std::int32_t>(tries)));
  rs.Update();
  if (!back.IsEmpty()) rs.SetBookmark(back);
}

void AdvancedDownloadMgr::LogSuccessfulDownload(const std::string& Destpath, const DownloadRow& row,
                                                const std::string& Code, long long bytes) {
  if (!Destpath.empty()) OnFileSaved.Emit(row.doc_id, Destpath, Code);
  WriteOutcome(row, Code, row.tries + 1, &Destpath, true);
  OnProgressChange.Emit(1, progress_max_);
  OnRowOutcome.Emit(row.doc_id, Code, true, bytes);
}

void AdvancedDownloadMgr::LogUnsuccessfulDownload(const std::string& StatusText,
                                                  const DownloadRow& row, DownloadAgent* agent,
                                                  bool final_try) {
  const std::string text =
      code_width_ > 0
          ? std::string(text::TruncateCodePoints(StatusText, static_cast<std::size_t>(code_width_)))
          : StatusText;
  const long tries = final_try ? std::max(row.tries + 1, kLastTry) : row.tries + 1;
  long long bytes = 0;
  std::string error_page;
  // An error page is kept only on the last try of a row.
  if (agent && save_error_pages_ && tries == kLastTry && agent->Client()->HttpResponse()) {
    try {
      const std::string& body = agent->Client()->HttpResponse()->ResponseBody();
      error_page = saver_->SaveBytes(body);
      bytes = static_cast<long long>(body.size());
    } catch (const Error&) {
      error_page.clear();
    }
  }
  WriteOutcome(row, text, tries, error_page.empty() ? nullptr : &error_page, false);
  OnRowOutcome.Emit(row.doc_id, text, false, bytes);
}

}  // namespace gw
