#include "acquire/advanced_download_mgr.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>

#include "engine/doc.h"
#include "engine/task.h"
#include "platform/error.h"
#include "platform/event_loop.h"
#include "platform/text.h"
#include "web/http_utility.h"
#include "web/http_web_request.h"

namespace gw {

namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

constexpr const char* kRefusedByRobots = "Refused by robots.txt";
constexpr const char* kTruncated = "File saved, but path was truncated";
constexpr long kLastTry = 10;

// A number of seconds as the runtime writes a quotient: "1", "0.5", "1.25".
std::string Seconds(long ms) {
  char buf[32];
  std::snprintf(buf, sizeof buf, "%.15g", static_cast<double>(ms) / 1000.0);
  return buf;
}

long TriesOf(db::Recordset& rs) {
  const Variant& v = rs["copy_try_count"].Value();
  return v.IsEmptyOrNull() ? 0 : v.ToLong();
}

void WaitAndPump(milliseconds ms) {
  EventLoop& loop = EventLoop::Current();
  loop.DoEvents();
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

// ---- AdvancedDownloadMgr
// -------------------------------------------------------------------------

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
      [&] {
        struct Done {
          AdvancedDownloadMgr& m;
          ~Done() {
            try {
              m.CommitBatch(true);
            } catch (const Error&) {
            }
            m.rs_ = nullptr;
            m.waiting_.clear();
          }
        } done{*this};
        rs_ = &rsFileList;
        saver_ = SaveAsTemplate ? SaveAsTemplate : FileSaver::Create();
        template_client_ = TemplateHttpClient;
        method_ = Method;
        save_error_pages_ = SaveErrorPages;
        const auto task = saver_->GetTask();
        throttle_ms_ = task ? task->ThrottleWaitMSecs() : 0;
        progress_max_ = rsFileList.RecordCount() * 5;
        GetPoliteness();
        InitializeAgents();

        long count = 1;
        bool cancel = false;
        while (!rsFileList.IsEOF() && !rsFileList.IsBOF()) {
          const std::string doc_id = rsFileList["doc_id"].Value().ToText();
          const std::string uri = rsFileList["uri"].Value().ToText();
          main_bookmark_ = rsFileList.Bookmark();
          const std::string n = std::to_string(count);
          OnStatusChange.Emit("Downloading " + uri + "  Count: " + n, cancel);
          if (cancel) break;
          if (throttle_ms_ > 0) {
            OnStatusChange.Emit("Politely Downloading " + uri + "  Count: " + n +
                                    "  (Throttling Download Requests... Waiting " +
                                    Seconds(throttle_ms_) + " seconds...)",
                                cancel);
            DoEvents();
            Throttle();
          }
          DoEvents();
          SendWaitingRows();
          DownloadFile(uri, doc_id, main_bookmark_);
          DoEvents();
          ++count;
          rsFileList.SetBookmark(main_bookmark_);
          rsFileList.MoveNext();
        }
        if (!cancel) DrainWaitingRows(cancel);
        waiting_.clear();
        OnStatusChange.Emit("Waiting up to 5 minutes for all threads to complete...", cancel);
        WaitForAllAgentsToExit(milliseconds(300000));
        // The caller goes on with a session that has seen a response; the others are dropped.
        CommitBatch(true);
        HttpClientPtr result = agents_[0]->Client()->Clone();
        InitializeAgents();
        return result;
      });
}

void AdvancedDownloadMgr::DownloadFile(const std::string& URI, const std::string& FileId,
                                       const Variant& bookmark) {
  web::ResourceType type =
      web::HttpUtility::ClassifyResourceUri(URI, TemplateClient()->StaticRelativeUrl().get());
  // An absolute path is to this file system what "C:\..." is to Windows.
  if (type == web::ResourceType::Unknown && URI.starts_with('/') && !URI.starts_with("//")) {
    type = web::ResourceType::FileSystem;
  }
  switch (type) {
    case web::ResourceType::http:
      DownloadHttpFile(URI, FileId, bookmark);
      break;
    case web::ResourceType::FileSystem:
      DownloadWinFile(URI, FileId, bookmark);
      break;
    case web::ResourceType::FTP:
      LogUnsuccessfulDownload(
          "FTP is not supported at this time.  Let us know if this is a critical feature for you.",
          bookmark, nullptr);
      break;
    case web::ResourceType::email:
      LogUnsuccessfulDownload("The uri appears to be an email address.", bookmark, nullptr);
      break;
    case web::ResourceType::Unknown:
      if (!DownloadWinFile(URI, FileId, bookmark)) DownloadHttpFile(URI, FileId, bookmark);
      break;
    case web::ResourceType::Invalid:
      LogUnsuccessfulDownload("The uri appears to be invalid.", bookmark, nullptr);
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

void AdvancedDownloadMgr::DownloadHttpFile(const std::string& URI, const std::string& FileId,
                                           const Variant& bookmark) {
  Dispatch(Pending{URI, FileId, bookmark, TargetOf(URI)});
}

bool AdvancedDownloadMgr::Dispatch(const Pending& row) {
  Politeness& polite = *GetPoliteness();
  const auto verdict = [&] {
    return row.target ? polite.Check(*row.target, *TemplateClient()) : Politeness::Verdict::kGo;
  };
  switch (verdict()) {
    case Politeness::Verdict::kRefused:
      LogUnsuccessfulDownload(kRefusedByRobots, row.bookmark, nullptr, true);
      return true;
    case Politeness::Verdict::kWait:
      waiting_.push_back(row);
      return false;
    case Politeness::Verdict::kGo:
      break;
  }
  DownloadAgent& agent = GetAvailableAgent(agent_timeout_);
  // Waiting for an agent may have changed the host's state.
  if (verdict() != Politeness::Verdict::kGo) {
    waiting_.push_back(row);
    return false;
  }
  agent.SetFileId(row.file_id);
  agent.SetRecordPosition(row.bookmark);
  agent.ClearErrorMessage();
  agent.target = row.target;
  if (agent.target) polite.Started(*agent.target);
  const std::string method = text::AsciiUpper(text::TrimSpaces(method_));
  web::HttpClient& client = *agent.Client();
  try {
    const bool has_form = text::FindNoCase(row.uri, "<form") != text::npos;
    if (method == "GET" && !has_form) {
      client.GetPage(row.uri, true);
    } else if (method == "GET" || method == "POST") {
      client.SubmitForm(*BuildWebForm(row.uri, client), true);
    } else {
      if (agent.target) polite.Finished(*agent.target);
      agent.target.reset();
    }
  } catch (const Error& e) {
    // Nothing was sent: the agent gets a fresh client, for this one may still count as busy.
    if (agent.target) polite.Finished(*agent.target);
    agent.target.reset();
    agent.SetClient(TemplateClient()->Clone());
    LogUnsuccessfulDownload(e.Description(), row.bookmark, nullptr);
  }
  return true;
}

std::shared_ptr<web::WebForm> AdvancedDownloadMgr::BuildWebForm(const std::string& url,
                                                                web::HttpClient& Client) {
  return ReportAs("AdvancedDownloadMgr.BuildWebForm(url,Client)", [&] {
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
  for (std::size_t n = waiting_.size(); n > 0 && !waiting_.empty(); --n) {
    Pending row = std::move(waiting_.front());
    waiting_.pop_front();
    if (throttle_ms_ > 0 && row.target &&
        GetPoliteness()->Check(*row.target, *TemplateClient()) == Politeness::Verdict::kGo) {
      Throttle();
    }
    Dispatch(row);
  }
}

void AdvancedDownloadMgr::DrainWaitingRows(bool& cancel) {
  auto last_status = Clock::now();
  while (!waiting_.empty()) {
    SendWaitingRows();
    if (waiting_.empty()) break;
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
      OnStatusChange.Emit("Waiting for " + std::to_string(waiting_.size()) +
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
  if (!rs_) return;  // a transfer that outlived its run
  if (!agent.ErrorMessage().empty()) {
    LogUnsuccessfulDownload(agent.ErrorMessage(), agent.RecordPosition(), &agent);
    return;
  }
  web::HttpClient& client = *agent.Client();
  saver_->SetSrcUrl(client.CurrentUrl());
  saver_->SetDocID(agent.FileId());
  const auto& response = client.HttpResponse();
  if (!response) {
    LogUnsuccessfulDownload("No response", agent.RecordPosition(), &agent);
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
    LogUnsuccessfulDownload(text, agent.RecordPosition(), &agent);
    return;
  }
  try {
    const std::string path = saver_->SaveBytes(response->ResponseBody());
    const std::size_t length = text::CountCodePoints(path);
    const bool truncated = saver_->LastPathWasShortened() || (length >= 253 && length <= 255);
    LogSuccessfulDownload(path, agent.RecordPosition(), truncated ? kTruncated : "Success",
                          static_cast<long long>(response->ResponseBody().size()));
  } catch (const Error& e) {
    if (e.Number() == engineerr::kPathTruncated) {
      LogSuccessfulDownload("", agent.RecordPosition(), kTruncated, 0);
    } else {
      LogUnsuccessfulDownload(e.Description(), agent.RecordPosition(), &agent);
    }
  }
}

bool AdvancedDownloadMgr::DownloadWinFile(const std::string& URI, const std::string& FileId,
                                          const Variant& bookmark) {
  saver_->SetDocID(FileId);
  // The copy is named after its own file ([FILENAME], its extension), not the last page's.
  const std::string path = FileSystemPathOf(URI);
  std::shared_ptr<web::Uri> source;
  try {
    source = std::make_shared<web::Uri>(
        "file://" + std::filesystem::absolute(path).lexically_normal().string());
  } catch (const std::exception&) {
    source.reset();
  }
  saver_->SetSrcUrl(source);
  try {
    const std::string dest = saver_->CopyFile(URI);
    std::error_code ec;
    const auto size = std::filesystem::file_size(dest, ec);
    LogSuccessfulDownload(dest, bookmark, "Success", ec ? 0 : static_cast<long long>(size));
    return true;
  } catch (const Error& e) {
    LogUnsuccessfulDownload(e.Description(), bookmark, nullptr);
    return false;
  }
}

void AdvancedDownloadMgr::MoveTo(const Variant& bookmark) {
  BeginBatch();
  rs_->SetBookmark(bookmark);
}

void AdvancedDownloadMgr::BeginBatch() {
  if (batch_ || !rs_) return;
  db::ConnectionPtr cn = rs_->ActiveConnection();
  if (!cn) return;
  try {
    cn->BeginTrans();
  } catch (const Error&) {
    return;  // a store without transactions writes row by row
  }
  batch_ = std::move(cn);
  batch_began_ = Clock::now();
}

void AdvancedDownloadMgr::CommitBatch(bool force) {
  if (!batch_ || (!force && Clock::now() - batch_began_ < milliseconds(250))) return;
  db::ConnectionPtr cn = std::move(batch_);
  batch_.reset();
  cn->CommitTrans();
}

void AdvancedDownloadMgr::MoveBack() {
  if (!main_bookmark_.IsEmpty()) rs_->SetBookmark(main_bookmark_);
}

void AdvancedDownloadMgr::LogSuccessfulDownload(const std::string& Destpath,
                                                const Variant& RecordPos, const std::string& Code,
                                                long long bytes) {
  db::Recordset& rs = *rs_;
  MoveTo(RecordPos);
  const std::string doc_id = rs["doc_id"].Value().ToText();
  if (!Destpath.empty()) OnFileSaved.Emit(doc_id, Destpath, Code);
  rs["copy_completion_code"].SetValue(Variant(Code));
  rs["temp_uri"].SetValue(Variant(Destpath));
  rs["copy_completion_time"].SetValue(Variant(DateTime::Now()));
  rs["copy_try_count"].SetValue(Variant(TriesOf(rs) + 1));
  rs.Update();
  MoveBack();
  CommitBatch(false);
  OnProgressChange.Emit(1, progress_max_);
  OnRowOutcome.Emit(doc_id, Code, true, bytes);
}

void AdvancedDownloadMgr::LogUnsuccessfulDownload(const std::string& StatusText,
                                                  const Variant& RecordPos, DownloadAgent* agent,
                                                  bool final_try) {
  db::Recordset& rs = *rs_;
  MoveTo(RecordPos);
  const std::string doc_id = rs["doc_id"].Value().ToText();
  db::Field& code = rs["copy_completion_code"];
  const auto width = code.DefinedSize();
  const std::string text =
      width > 0 ? std::string(text::TruncateCodePoints(StatusText, static_cast<std::size_t>(width)))
                : StatusText;
  code.SetValue(Variant(text));
  const long tries = final_try ? std::max(TriesOf(rs) + 1, kLastTry) : TriesOf(rs) + 1;
  rs["copy_try_count"].SetValue(Variant(static_cast<std::int32_t>(tries)));
  long long bytes = 0;
  // An error page is kept only on the last try of a row.
  if (agent && save_error_pages_ && tries == kLastTry && agent->Client()->HttpResponse()) {
    try {
      const std::string& body = agent->Client()->HttpResponse()->ResponseBody();
      rs["temp_uri"].SetValue(Variant(saver_->SaveBytes(body)));
      bytes = static_cast<long long>(body.size());
    } catch (const Error&) {
    }
  }
  rs.Update();
  MoveBack();
  CommitBatch(false);
  OnRowOutcome.Emit(doc_id, text, false, bytes);
}

}  // namespace gw
