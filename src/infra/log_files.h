// The product's log files, below `$GLEANWRIGHT_HOME/logs`:
//  - "LogFile.txt": every error report a host wrote, each followed by an empty line;
//  - "log.txt": one line per web error report (the web sink's own record);
//  - "TraceFile.txt": start-up and configuration steps, each line with its tag.
//
// Files are appended, never rewritten. A file that would grow past the size limit is first
// rotated: "LogFile.txt" becomes "LogFile.txt.1", the older ones move up by one, and the oldest
// beyond the number kept is deleted. Rotation and append happen under an exclusive `flock` on
// "<name>.lock" in the same folder, so two processes writing at once lose no line and rotate once.
//
// The limits come from the options "LogFileMaxKB" (default 1024) and "LogFilesKept" (default 5),
// read once per process through the option reader of error reporting (error_report.h).
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace gw {

namespace log_file {
inline constexpr const char* kErrors = "LogFile.txt";
inline constexpr const char* kWebSink = "log.txt";
inline constexpr const char* kTrace = "TraceFile.txt";
}  // namespace log_file

namespace log_option {
inline constexpr const char* kMaxKB = "LogFileMaxKB";
inline constexpr const char* kKept = "LogFilesKept";
}  // namespace log_option

struct LogLimits {
  std::uintmax_t max_bytes = 1024 * 1024;
  int kept = 5;  // rotated files kept beside the current one; 0 keeps none
};

// `HomeDir()/logs` (not created here).
std::filesystem::path LogDir();

// The limits in force: read from the options on first use and kept for the process.
LogLimits CurrentLogLimits();
// Replaces the limits until `ReloadLogLimits`.
void SetLogLimits(LogLimits limits);
// Forgets the limits; the next write reads them again.
void ReloadLogLimits();

// Appends `text` to `file` (its folder is created), rotating it first when it would pass
// `limits.max_bytes`. A text longer than the limit by itself is written whole into a fresh file.
// Fails with 57 ("Device I/O error", the system's error in `SystemError`) when it cannot write.
void AppendToLog(const std::filesystem::path& file, std::string_view text, const LogLimits& limits);

// Appends a report and two line ends to "LogFile.txt". Nothing is written for an empty report.
// Failures are swallowed; returns whether it was written.
bool AppendReportToLogFile(std::string_view report) noexcept;

// Appends "mm/dd/yyyy hh:nn:ss [tag] text" to "TraceFile.txt". Failures are swallowed.
void Trace(std::string_view tag, std::string_view text) noexcept;

// Appends one line to "log.txt" in `folder` (created if needed): the time as
// "mm/dd/yyyy HH:NN:SS", then each item in double quotation marks, separated by ", ".
// Failures are swallowed; returns whether it was written.
bool AppendLogLine(const std::filesystem::path& folder,
                   const std::array<std::string, 8>& items) noexcept;

// The last `count` lines of `file`, continuing into its rotated files ("<file>.1", ...) when the
// current one holds fewer, oldest first. Empty when there is no such file.
std::vector<std::string> TailLines(const std::filesystem::path& file, std::size_t count);

}  // namespace gw
