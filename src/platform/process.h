// Child processes: the stand-in for starting a program and asking for its exit code.
//
// A process is started without blocking; whether it still runs is asked with `IsRunning()`
// (waitpid without waiting), so a caller polls it from its loop and yields to the host
// (`EventLoop::DoEvents`) between rounds. A process that is still running when its object goes
// is left to run on.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace gw {

class ChildProcess {
 public:
  // Runs `command_line` through /bin/sh -c, as a command line typed by a user. Standard input is
  // /dev/null; standard output and error are the caller's unless `output_file` names a file that
  // takes both. Fails with error 53 when the shell cannot be started.
  static std::unique_ptr<ChildProcess> StartCommandLine(const std::string& command_line,
                                                        const std::string& working_dir = {},
                                                        const std::string& output_file = {});
  // Runs a program with arguments, without a shell.
  static std::unique_ptr<ChildProcess> Start(const std::vector<std::string>& argv,
                                             const std::string& working_dir = {},
                                             const std::string& output_file = {});
  ~ChildProcess();

  int Pid() const { return pid_; }
  // True while the process runs; never blocks.
  bool IsRunning();
  // The exit status once it ended (128 + signal number for a process ended by a signal).
  std::optional<int> ExitCode();
  // Sends SIGTERM (or SIGKILL when `force`).
  void Kill(bool force = false);
  // Blocks until the process ends; returns its exit code.
  int Wait();

 private:
  explicit ChildProcess(int pid) : pid_(pid) {}
  void Record(int status);

  int pid_;
  std::optional<int> exit_code_;
};

}  // namespace gw
