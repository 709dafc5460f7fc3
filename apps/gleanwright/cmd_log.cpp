// gleanwright log: the end of the error log ("LogFile.txt" below $GLEANWRIGHT_HOME/logs, with
// its rotated files), or of the trace of start-up steps ("TraceFile.txt").
#include <iostream>

#include "commands.h"
#include "infra/log_files.h"

namespace gw::app {
namespace {

struct LogOptions {
  std::size_t tail = 40;
  bool trace = false;
};

int RunLog(const LogOptions& options) {
  const auto file = LogDir() / (options.trace ? log_file::kTrace : log_file::kErrors);
  const std::vector<std::string> lines = TailLines(file, options.tail);
  if (lines.empty()) {
    std::cout << "Nothing logged yet (" << file.string() << ").\n";
    return 0;
  }
  for (const std::string& line : lines) std::cout << line << "\n";
  return 0;
}

CommandAction SetUpLog(CLI::App& cmd) {
  auto options = std::make_shared<LogOptions>();
  cmd.add_option("--tail", options->tail, "How many lines to print (default 40)")
      ->check(CLI::PositiveNumber);
  cmd.add_flag("--trace", options->trace,
               "Print the trace of start-up and first-run steps (TraceFile.txt) instead");
  return [options] { return RunLog(*options); };
}

const CommandRegistration kLog(
    90, "log", SetUpLog,
    "Print the end of the error log: every failed command appends its full report to "
    "$GLEANWRIGHT_HOME/logs/LogFile.txt (rotated by size, see the options LogFileMaxKB and "
    "LogFilesKept)");

}  // namespace
}  // namespace gw::app
