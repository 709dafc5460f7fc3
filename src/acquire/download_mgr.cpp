#include "acquire/download_mgr.h"

#include <cstdio>
#include <filesystem>

#include "acquire/advanced_download_mgr.h"
#include "engine/doc.h"
#include "engine/job.h"
#include "engine/task.h"
#include "platform/error.h"
#include "platform/event_loop.h"
#include "platform/http_transport.h"
#include "platform/stream.h"
#include "platform/text.h"
#include "rules/package_data_access.h"
#include "web/web_settings.h"

namespace gw {

namespace fs = std::filesystem;

namespace {

constexpr const char* kCrawlNotAvailable = "Crawling is not available yet.";

long TriesOf(db::Recordset& rs) {
  const Variant& v = rs["copy_try_count"].Value();
  return v.IsEmptyOrNull() ? 0 : v.ToLong();
}

// A synchronous GET the way the serial path always made it: the transport of the web client,
// with its settings, and a 30-second limit on the answer.
std::shared_ptr<HttpTransport> SerialGet(const std::string& url) {
  auto http = HttpTransport::Create();
  const web::WebSettings settings = web::CurrentWebSettings();
  http->SetSettings(settings.ForTransport());
  http->SetUserAgent(settings.EffectiveUserAgent());
  http->SetTimeouts(settings.resolve_timeout_ms, settings.connect_timeout_ms, 30000, 30000);
  http->Open("GET", url, false);
  http->Send();
  return http;
}

}  // namespace

HttpClientPtr DownloadMgr::DownloadDocs(const std::string& JobId, const std::string& TaskId,
                                        const DateTime& JobStartTime,
                                        const FileSaverPtr& SaveAsTemplate,
                                        const HttpClientPtr& TemplateHttpClient,
                                        const std::string& Method, bool SaveErrorPages) {
  return ReportAs(
      "DownloadMgr.DownloadDocs(JobId,TaskId,JobStartTime,SaveAsTemplate,TemplateHttpClient,"
      "Method,SaveErrorPages)",
      Args(JobId, TaskId, JobStartTime, SaveAsTemplate, TemplateHttpClient, Method, SaveErrorPages),
      [&] {
        std::string method = text::AsciiUpper(text::TrimSpaces(Method));
        if (method != "GET" && method != "POST") method = "GET";
        const FileSaverPtr saver = SaveAsTemplate ? SaveAsTemplate : FileSaver::Create();
        HttpClientPtr client = TemplateHttpClient ? TemplateHttpClient : web::HttpClient::Create();
        // The hosts' robots.txt, limits and pauses hold for the whole run, across passes.
        const auto politeness = std::make_shared<Politeness>();
        counts_ = {};
        // Each pass reads the open rows a slice at a time, so a long list costs no more memory
        // than a short one.
        for (;;) {
          OpenRowsFeed rows(JobId, TaskId, JobStartTime);
          const long open = rows.Count();
          if (open == 0) break;
          auto pass = AdvancedDownloadMgr::Create();
          pass->SetPoliteness(politeness);
          bool cancelled = false;
          counts_.queued = open;
          const ScopedConnection status =
              pass->OnStatusChange.Connect([&](const std::string& s, bool& cancel) {
                OnStatusChange.Emit(s, cancel);
                cancelled = cancelled || cancel;
              });
          const ScopedConnection progress = pass->OnProgressChange.Connect(
              [this](long change, long max) { OnProgressChange.Emit(change, max); });
          const ScopedConnection outcome = pass->OnRowOutcome.Connect(
              [this](const std::string&, const std::string&, bool saved, long long bytes) {
                (saved ? counts_.fetched : counts_.failed)++;
                counts_.bytes += bytes;
                if (counts_.queued > 0) --counts_.queued;
                OnTransferCounts.Emit(counts_);
              });
          client = pass->DownloadFiles(rows, saver, client, method, SaveErrorPages);
          // A cancelled pass ends the downloads: the rows it left would come back in the next
          // pass untried, and the passes would never end.
          if (cancelled) break;
        }
        return client;
      });
}

void DownloadMgr::DontDownloadDocs(const std::string& JobId, const std::string& TaskId,
                                   const DateTime& JobStartTime) {
  ReportAs("DownloadMgr.DontDownloadDocs(JobId,TaskId,JobStartTime)",
           Args(JobId, TaskId, JobStartTime),
           [&] { D_DownloadMgr().SetCachePathToSrcPath(JobId, TaskId, JobStartTime); });
}

void DownloadMgr::FailOpenRows(const std::string& JobId, const std::string& TaskId,
                               const DateTime& JobStartTime, const std::string& text) {
  auto rows = D_DownloadMgr().GetNonDownloadedFiles(JobId, TaskId, JobStartTime);
  if (rows->RecordCount() > 0) rows->MoveFirst();
  for (; !rows->IsEOF(); rows->MoveNext()) {
    (*rows)["copy_completion_code"].SetValue(Variant(text));
    (*rows)["copy_try_count"].SetValue(Variant(static_cast<std::int32_t>(TriesOf(*rows) + 1)));
    rows->Update();
    DoEvents();
  }
}

HttpClientPtr DownloadMgr::Crawl(const std::shared_ptr<Task>& task,
                                 const FileSaverPtr& SaveAsTemplate,
                                 const HttpClientPtr& TemplateHttpClient) {
  return ReportAs(
      "DownloadMgr.Crawl(Task,SaveAsTemplate,TemplateHttpClient)",
      Args(task, SaveAsTemplate, TemplateHttpClient), [&] {
        if (!task) {
          throw Error(errnum::kObjectNotSet, "DownloadMgr.Crawl",
                      "Object variable or With block variable not set");
        }
        auto crawler = std::dynamic_pointer_cast<ICrawlAgent>(task->CrawlerAgent());
        if (!crawler) {
          auto job = task->GetJob();
          FailOpenRows(job->JobId(), task->TaskId(), job->StartTime(), kCrawlNotAvailable);
          return TemplateHttpClient;
        }
        const ScopedConnection status = crawler->OnStatusChange.Connect(
            [this](const std::string& s, bool& cancel) { OnStatusChange.Emit(s, cancel); });
        const ScopedConnection progress = crawler->OnProgressChange.Connect(
            [this](long change, long max) { OnProgressChange.Emit(change, max); });
        counts_ = {};
        const ScopedConnection outcome = crawler->OnRowOutcome.Connect(
            [this](const std::string&, const std::string&, bool saved, long long bytes) {
              (saved ? counts_.fetched : counts_.failed)++;
              counts_.bytes += bytes;
              OnTransferCounts.Emit(counts_);
            });
        return crawler->Crawl(task, TemplateHttpClient, SaveAsTemplate);
      });
}

// ---- the serial path ---------------------------------------------------------------------------

void DownloadMgr::DownloadDocsSerially(const std::string& JobId, const std::string& TaskId,
                                       const DateTime& JobStartTime, const std::string& TempDir,
                                       long ThrottleWaitmsec) {
  ReportAs("DownloadMgr.DownloadDocs(JobId,TaskId,JobStartTime,TempDir,ThrottleWaitmsec)",
           Args(JobId, TaskId, JobStartTime, TempDir, ThrottleWaitmsec), [&] {
             D_DownloadMgr store;
             const long total = store.GetTotalDocCount(JobId, TaskId, JobStartTime);
             bool cancel = false;
             for (auto rows = store.GetNonDownloadedFiles(JobId, TaskId, JobStartTime);
                  rows->RecordCount() > 0;
                  rows = store.GetNonDownloadedFiles(JobId, TaskId, JobStartTime)) {
               for (rows->MoveFirst(); !rows->IsEOF(); rows->MoveNext()) {
                 db::Recordset& rs = *rows;
                 const std::string uri = rs["uri"].Value().ToText();
                 OnStatusChange.Emit("Downloading " + uri, cancel);
                 if (cancel) return;
                 std::string path;
                 std::string code;
                 try {
                   code = DownloadDoc(uri, TempDir, rs["doc_id"].Value().ToText(), path);
                 } catch (const Error& e) {
                   code = e.Description();
                 }
                 db::Field& field = rs["copy_completion_code"];
                 const auto width = field.DefinedSize();
                 field.SetValue(Variant(width > 0 ? std::string(text::TruncateCodePoints(
                                                        code, static_cast<std::size_t>(width)))
                                                  : code));
                 if (code == "Success") {
                   rs["temp_uri"].SetValue(Variant(path));
                   rs["copy_completion_time"].SetValue(Variant(DateTime::Now()));
                   OnProgressChange.Emit(1, total);
                 }
                 rs["copy_try_count"].SetValue(Variant(static_cast<std::int32_t>(TriesOf(rs) + 1)));
                 rs.Update();
                 DoEvents();
                 if (ThrottleWaitmsec > 0) {
                   char seconds[32];
                   std::snprintf(seconds, sizeof seconds, "%.15g", ThrottleWaitmsec / 1000.0);
                   OnStatusChange.Emit(
                       std::string("Throttling Download Requests...") + seconds + " seconds...",
                       cancel);
                   for (long round = 0; round < ThrottleWaitmsec / 250; ++round) {
                     Sleep(std::chrono::milliseconds(250));
                     DoEvents();
                   }
                 }
               }
             }
           });
}

web::ResourceType DownloadMgr::DetermineResourceType(std::string& URI) {
  URI = std::string(text::TrimSpaces(URI));
  const std::string_view u = URI;
  const auto at = [&](std::size_t pos, std::string_view s) {
    return u.size() >= pos + s.size() && u.substr(pos, s.size()) == s;
  };
  if (text::StartsWithNoCase(u, "https://") || text::StartsWithNoCase(u, "http://")) {
    return web::ResourceType::http;
  }
  if (at(1, ":\\")) return web::ResourceType::FileSystem;
  if (text::StartsWithNoCase(u, "ftp://")) return web::ResourceType::FTP;
  for (const char* prefix : {"file:///", "file://"}) {
    if (text::StartsWithNoCase(u, prefix)) {
      URI.erase(0, std::string_view(prefix).size());
      return web::ResourceType::FileSystem;
    }
  }
  for (const char* prefix : {"mailto://", "nntp://", "news://", "gopher://"}) {
    if (text::StartsWithNoCase(u, prefix)) return web::ResourceType::Invalid;
  }
  if (u.starts_with("\\\\")) return web::ResourceType::FileSystem;
  if (at(1, ":/")) return web::ResourceType::FileSystem;
  if (u.starts_with("//")) {
    URI.erase(0, 2);
    return web::ResourceType::Unknown;
  }
  return web::ResourceType::Unknown;
}

std::string DownloadMgr::GetFileExtFromMimeType(const std::string& URI, web::ResourceType ResType) {
  if (ResType != web::ResourceType::http) return {};
  auto http = SerialGet(URI);
  std::string type;
  for (const std::string& line : text::Split(http->GetAllResponseHeaders(), "\r\n")) {
    const std::size_t colon = line.find(':');
    if (colon != std::string::npos &&
        text::EqualsNoCase(text::TrimSpaces(std::string_view(line).substr(0, colon)),
                           "Content-Type")) {
      type = std::string(text::TrimSpaces(std::string_view(line).substr(colon + 1)));
    }
  }
  return type.empty() ? std::string() : D_DownloadMgr().GetFileExtFromMimeType(type);
}

std::string DownloadMgr::DetermineFileExt(const std::string& URI, web::ResourceType ResType) {
  D_DownloadMgr store;
  const std::string fallback = store.GetDefaultFileExt(static_cast<int>(ResType));
  const auto by_mime = [&] {
    std::string ext = GetFileExtFromMimeType(URI, ResType);
    return ext.empty() ? fallback : ext;
  };
  std::string address = URI;
  if (const std::size_t q = address.find('?'); q != std::string::npos) address.resize(q);
  if (address.size() > 6) {
    if (const std::size_t colon = address.find(':', 6); colon != std::string::npos) {
      address.resize(colon);
    }
  }
  if (address.ends_with("/")) return by_mime();
  const std::size_t dot = address.rfind('.');
  if (dot == std::string::npos) return by_mime();
  const std::string ext = address.substr(dot + 1);
  if (ext.size() >= 5 || ext.find('/') != std::string::npos) return by_mime();
  std::string mapped = store.GetSaveAsFileExt(text::AsciiLower(ext));
  return mapped.empty() ? by_mime() : mapped;
}

std::string DownloadMgr::CopyFTPFile(const std::string&, const std::string&) {
  return "Download Failed";
}

std::string DownloadMgr::DownloadDoc(std::string URI, const std::string& TempDir,
                                     const std::string& DocId, std::string& FullTempPath) {
  const web::ResourceType type = DetermineResourceType(URI);
  FullTempPath = TempDir + DocId + "." + DetermineFileExt(URI, type);
  const auto fetch = [&]() -> std::string {
    std::string url = URI;
    if (!text::StartsWithNoCase(url, "http://") && !text::StartsWithNoCase(url, "https://")) {
      url = "http://" + url;
    }
    auto http = SerialGet(url);
    const long status = http->Status();
    if (status == 200) {
      Stream body;
      body.SetType(Stream::kBinary);
      body.Open();
      body.Write(http->ResponseBody());
      body.SaveToFile(FullTempPath, Stream::kSaveCreateOverWrite);
    }
    return std::to_string(status);
  };
  const auto copy = [&]() -> std::string {
    std::error_code ec;
    const std::string source = FileSystemPathOf(URI);
    if (!fs::is_regular_file(source, ec)) return "File not found: " + source;
    fs::copy_file(source, FullTempPath, fs::copy_options::overwrite_existing, ec);
    return ec ? "Could not copy " + source + ": " + ec.message() : "Success";
  };
  switch (type) {
    case web::ResourceType::http: {
      const std::string status = fetch();
      if (status == "200") return "Success";
      if (status == "404") return "File Not Found (404)";
      return "Download Failed";
    }
    case web::ResourceType::FileSystem:
      return copy();
    case web::ResourceType::FTP:
      return CopyFTPFile(URI, FullTempPath);
    case web::ResourceType::Unknown: {
      std::string result;
      try {
        result = fetch() == "200" ? "Success" : "Download Failed";
      } catch (const Error&) {
        result = "Download Failed";
      }
      if (result == "Success") return result;
      result = copy();
      if (result == "Success") return result;
      return CopyFTPFile(URI, FullTempPath);
    }
    default:
      return "Invalid URI";
  }
}

}  // namespace gw
