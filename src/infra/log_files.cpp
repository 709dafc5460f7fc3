#include "infra/log_files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <deque>
#include <fstream>
#include <mutex>
#include <optional>
#include <system_error>

#include "infra/error_report.h"
#include "platform/date_time.h"
#include "platform/error.h"
#include "platform/file_io.h"
#include "platform/paths.h"

namespace gw {

namespace {

std::mutex g_limits_mutex;
std::optional<LogLimits> g_limits;

std::string Two(int v) {
  char buf[8];
  std::snprintf(buf, sizeof buf, "%02d", v);
  return buf;
}

// "mm/dd/yyyy hh:nn:ss".
std::string LogTime() {
  const DateTime t = DateTime::Now();
  return Two(t.Month()) + "/" + Two(t.Day()) + "/" + std::to_string(t.Year()) + " " +
         Two(t.Hour()) + ":" + Two(t.Minute()) + ":" + Two(t.Second());
}

[[noreturn]] void Fail(const std::filesystem::path& file, const char* what, int code) {
  Error e(errnum::kDeviceIOError, "LogFiles.AppendToLog(File,Text)",
          std::string("Cannot ") + what + " the log file '" + file.string() + "'");
  e.SetSystemError(code);
  throw e;
}

std::filesystem::path Rotated(const std::filesystem::path& file, int n) {
  return file.string() + "." + std::to_string(n);
}

void Rotate(const std::filesystem::path& file, int kept) {
  std::error_code ec;
  if (kept <= 0) {
    std::filesystem::remove(file, ec);
    return;
  }
  std::filesystem::remove(Rotated(file, kept), ec);
  for (int n = kept - 1; n >= 1; --n) {
    if (std::filesystem::exists(Rotated(file, n), ec)) {
      std::filesystem::rename(Rotated(file, n), Rotated(file, n + 1), ec);
    }
  }
  std::filesystem::rename(file, Rotated(file, 1), ec);
}

LogLimits ReadLimits() {
  LogLimits limits;
  const Variant kb = ReadReportOption(log_option::kMaxKB);
  const Variant kept = ReadReportOption(log_option::kKept);
  try {
    if (!kb.IsEmptyOrNull()) {
      const double v = kb.ToDouble();
      if (v >= 1) limits.max_bytes = static_cast<std::uintmax_t>(v) * 1024;
    }
  } catch (...) {
    // A value that is no number keeps the default: a log must be written whatever the settings.
  }
  try {
    if (!kept.IsEmptyOrNull()) {
      const double v = kept.ToDouble();
      if (v >= 0 && v <= 1000) limits.kept = static_cast<int>(v);
    }
  } catch (...) {
  }
  return limits;
}

std::vector<std::string> ReadLines(const std::filesystem::path& file) {
  std::vector<std::string> lines;
  std::ifstream in(file, std::ios::binary);
  std::string line;
  while (std::getline(in, line)) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    lines.push_back(std::move(line));
  }
  return lines;
}

}  // namespace

std::filesystem::path LogDir() { return HomeDir() / "logs"; }

LogLimits CurrentLogLimits() {
  {
    std::lock_guard lock(g_limits_mutex);
    if (g_limits) return *g_limits;
  }
  const LogLimits read = ReadLimits();
  std::lock_guard lock(g_limits_mutex);
  if (!g_limits) g_limits = read;
  return *g_limits;
}

void SetLogLimits(LogLimits limits) {
  std::lock_guard lock(g_limits_mutex);
  g_limits = limits;
}

void ReloadLogLimits() {
  std::lock_guard lock(g_limits_mutex);
  g_limits.reset();
}

void AppendToLog(const std::filesystem::path& file, std::string_view text,
                 const LogLimits& limits) {
  std::error_code ec;
  std::filesystem::create_directories(file.parent_path(), ec);
  if (ec) Fail(file, "create the folder of", ec.value());
  FileLock lock;  // on "<file>.lock"
  bool opened = false;
  if (const int code = lock.Acquire(file.string() + ".lock", opened); code != 0) {
    Fail(file, "lock", code);
  }
  const std::uintmax_t size = std::filesystem::file_size(file, ec);
  if (!ec && size > 0 && size + text.size() > limits.max_bytes) Rotate(file, limits.kept);
  const int fd = ::open(file.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
  if (fd < 0) Fail(file, "open", errno);
  if (const int code = WriteAll(fd, text); code != 0) {
    ::close(fd);
    Fail(file, "write", code);
  }
  if (::close(fd) != 0) Fail(file, "write", errno);
}

bool AppendReportToLogFile(std::string_view report) noexcept {
  if (report.empty()) return false;
  try {
    std::string entry(report);
    entry += "\n\n";
    AppendToLog(LogDir() / log_file::kErrors, entry, CurrentLogLimits());
    return true;
  } catch (...) {
    return false;
  }
}

void Trace(std::string_view tag, std::string_view text) noexcept {
  try {
    std::string line = LogTime() + " [" + std::string(tag) + "] " + std::string(text) + "\n";
    AppendToLog(LogDir() / log_file::kTrace, line, CurrentLogLimits());
  } catch (...) {
  }
}

bool AppendLogLine(const std::filesystem::path& folder,
                   const std::array<std::string, 8>& items) noexcept {
  try {
    std::string line = LogTime();
    for (const std::string& item : items) line += ", \"" + item + "\"";
    line += "\n";
    AppendToLog(folder / log_file::kWebSink, line, CurrentLogLimits());
    return true;
  } catch (...) {
    return false;
  }
}

std::vector<std::string> TailLines(const std::filesystem::path& file, std::size_t count) {
  std::deque<std::string> tail;
  std::error_code ec;
  // The current file first, then older and older rotated ones, until `count` lines are found.
  for (int n = 0; tail.size() < count; ++n) {
    const std::filesystem::path path = n == 0 ? file : Rotated(file, n);
    if (!std::filesystem::exists(path, ec)) break;
    std::vector<std::string> lines = ReadLines(path);
    for (auto it = lines.rbegin(); it != lines.rend() && tail.size() < count; ++it) {
      tail.push_front(std::move(*it));
    }
  }
  return {tail.begin(), tail.end()};
}

}  // namespace gw
