#include "acquire/download_mgr.h"

#include <cstdio>
#include <filesystem>

#include "engine/doc.h"
#include "engine/job.h"
#include "engine/task.h"
#include "platform/error.h"
#include "platform/event_loop.h"
#include "platform/paths.h"
#include "platform/text.h"
#include "rules/package_data_access.h"
#include "rules/settings.h"
#include "web/http_utility.h"

namespace gw {

namespace fs = std::filesystem;

namespace {

constexpr const char* kHttpNotAvailable = "Fetching over HTTP is not available yet.";
constexpr const char* kCrawlNotAvailable = "Crawling is not available yet.";

std::string StartStamp(const DateTime& t) {
  char buf[32];
  std::snprintf(buf, sizeof buf, "%04d-%02d-%02d_%02d-%02d-%02d-%03d", t.Year(), t.Month(), t.Day(),
                t.Hour(), t.Minute(), t.Second(), t.Millisecond());
  return buf;
}

// The extension a copy of `source` gets: its own, mapped through the store's table, else the
// default of file-system addresses.
std::string CopyExtension(const fs::path& source) {
  D_DownloadMgr table;
  std::string ext = source.extension().string();
  if (!ext.empty()) ext.erase(0, 1);
  if (!ext.empty() && ext.size() < 5) {
    std::string mapped = table.GetSaveAsFileExt(text::AsciiLower(ext));
    if (!mapped.empty()) return mapped;
  }
  return table.GetDefaultFileExt(static_cast<int>(web::ResourceType::FileSystem));
}

}  // namespace

std::string DownloadMgr::DownloadFolder(const std::string& JobId, const DateTime& JobStartTime,
                                        const std::string& TaskId) {
  if (!root_read_) {
    default_root_ = Settings().GetOption("DefaultDownloadPath").ToText();
    root_read_ = true;
  }
  const fs::path root = default_root_.empty() ? HomeDir() / "downloads" : fs::path(default_root_);
  return (root / JobId / StartStamp(JobStartTime) / TaskId).string();
}

HttpClientPtr DownloadMgr::DownloadDocs(const std::string& JobId, const std::string& TaskId,
                                        const DateTime& JobStartTime, const FileSaverPtr&,
                                        const HttpClientPtr& TemplateHttpClient, const std::string&,
                                        bool) {
  return ReportAs(
      "DownloadMgr.DownloadDocs(JobId,TaskId,JobStartTime,SaveAsTemplate,TemplateHttpClient,"
      "Method,SaveErrorPages)",
      [&] {
        // Failed rows are tried again in new passes until the store stops handing them out.
        D_DownloadMgr store;
        for (auto rows = store.GetNonDownloadedFiles(JobId, TaskId, JobStartTime);
             rows->RecordCount() > 0;
             rows = store.GetNonDownloadedFiles(JobId, TaskId, JobStartTime)) {
          // A cancelled pass ends the downloads: the rows it left would come back in the next
          // pass untried, and the passes would never end.
          if (!DownloadFiles(*rows, JobId, JobStartTime, TaskId)) break;
        }
        return TemplateHttpClient;
      });
}

bool DownloadMgr::DownloadFiles(db::Recordset& rows, const std::string& JobId,
                                const DateTime& JobStartTime, const std::string& TaskId) {
  const std::string folder = DownloadFolder(JobId, JobStartTime, TaskId);
  const long progress_max = rows.RecordCount() * 5;
  bool cancel = false;
  long count = 1;
  rows.MoveFirst();
  while (!rows.IsEOF() && !rows.IsBOF()) {
    const std::string uri = rows["uri"].Value().ToText();
    OnStatusChange.Emit("Downloading " + uri + "  Count: " + std::to_string(count), cancel);
    if (cancel) return false;
    DoEvents();
    switch (web::HttpUtility::ClassifyResourceUri(uri)) {
      case web::ResourceType::FileSystem:
        DownloadWinFile(rows, uri, folder, progress_max);
        break;
      case web::ResourceType::Unknown:
        // A path as a person writes it; were it no file, it would be tried over HTTP, which is
        // not available yet, so the copy's failure stands.
        DownloadWinFile(rows, uri, folder, progress_max);
        break;
      case web::ResourceType::http:
        LogUnsuccessfulDownload(rows, kHttpNotAvailable);
        break;
      case web::ResourceType::FTP:
        LogUnsuccessfulDownload(rows,
                                "FTP is not supported at this time.  Let us know if this is a "
                                "critical feature for you.");
        break;
      case web::ResourceType::email:
        LogUnsuccessfulDownload(rows, "The uri appears to be an email address.");
        break;
      case web::ResourceType::Invalid:
        LogUnsuccessfulDownload(rows, "The uri appears to be invalid.");
        break;
    }
    DoEvents();
    ++count;
    rows.MoveNext();
  }
  OnStatusChange.Emit("Waiting up to 5 minutes for all threads to complete...", cancel);
  return !cancel;
}

bool DownloadMgr::DownloadWinFile(db::Recordset& rows, const std::string& uri,
                                  const std::string& folder, long progress_max) {
  const fs::path source = FileSystemPathOf(uri);
  std::error_code ec;
  if (!fs::is_regular_file(source, ec)) {
    LogUnsuccessfulDownload(rows, "File not found: " + source.string());
    return false;
  }
  fs::create_directories(folder, ec);
  const fs::path dest =
      fs::path(folder) / (rows["doc_id"].Value().ToText() + "." + CopyExtension(source));
  if (ec || !fs::copy_file(source, dest, fs::copy_options::none, ec)) {
    LogUnsuccessfulDownload(rows, "Could not copy " + source.string() + " to " + dest.string() +
                                      ": " + ec.message() + ".");
    return false;
  }
  LogSuccessfulDownload(rows, dest.string(), "Success", progress_max);
  return true;
}

void DownloadMgr::LogSuccessfulDownload(db::Recordset& rows, const std::string& dest_path,
                                        const std::string& code, long progress_max) {
  const Variant tries = rows["copy_try_count"].Value();
  rows["copy_completion_code"].SetValue(Variant(code));
  rows["temp_uri"].SetValue(Variant(dest_path));
  rows["copy_completion_time"].SetValue(Variant(DateTime::Now()));
  rows["copy_try_count"].SetValue(Variant((tries.IsNull() ? 0 : tries.ToLong()) + 1));
  rows.Update();
  DoEvents();
  OnProgressChange.Emit(1, progress_max);
}

void DownloadMgr::LogUnsuccessfulDownload(db::Recordset& rows, const std::string& status_text) {
  db::Field& code = rows["copy_completion_code"];
  const auto width = static_cast<std::size_t>(code.DefinedSize());
  const Variant tries = rows["copy_try_count"].Value();
  code.SetValue(Variant(std::string(text::TruncateCodePoints(status_text, width))));
  rows["copy_try_count"].SetValue(Variant((tries.IsNull() ? 0 : tries.ToLong()) + 1));
  rows.Update();
  DoEvents();
}

void DownloadMgr::DontDownloadDocs(const std::string& JobId, const std::string& TaskId,
                                   const DateTime& JobStartTime) {
  ReportAs("DownloadMgr.DontDownloadDocs(JobId,TaskId,JobStartTime)",
           [&] { D_DownloadMgr().SetCachePathToSrcPath(JobId, TaskId, JobStartTime); });
}

HttpClientPtr DownloadMgr::Crawl(const std::shared_ptr<Task>& task, const FileSaverPtr&,
                                 const HttpClientPtr& TemplateHttpClient) {
  return ReportAs("DownloadMgr.Crawl(Task,SaveAsTemplate,TemplateHttpClient)", [&] {
    if (!task) {
      throw Error(errnum::kObjectNotSet, "DownloadMgr.Crawl",
                  "Object variable or With block variable not set");
    }
    auto job = task->GetJob();
    auto rows =
        D_DownloadMgr().GetNonDownloadedFiles(job->JobId(), task->TaskId(), job->StartTime());
    if (rows->RecordCount() > 0) rows->MoveFirst();
    for (; !rows->IsEOF(); rows->MoveNext()) LogUnsuccessfulDownload(*rows, kCrawlNotAvailable);
    return TemplateHttpClient;
  });
}

}  // namespace gw
