#include "platform/process.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "platform/error.h"

extern char** environ;

namespace gw {

std::unique_ptr<ChildProcess> ChildProcess::StartCommandLine(const std::string& command_line,
                                                             const std::string& working_dir,
                                                             const std::string& output_file) {
  return Start({"/bin/sh", "-c", command_line}, working_dir, output_file);
}

std::unique_ptr<ChildProcess> ChildProcess::Start(const std::vector<std::string>& argv,
                                                  const std::string& working_dir,
                                                  const std::string& output_file) {
  if (argv.empty())
    throw Error(errnum::kInvalidProcedureCall, "ChildProcess", "No program to start.");
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  if (!output_file.empty()) {
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, output_file.c_str(),
                                     O_WRONLY | O_CREAT | O_APPEND, 0644);
    posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
  }
  if (!working_dir.empty()) posix_spawn_file_actions_addchdir_np(&actions, working_dir.c_str());
  std::vector<char*> args;
  for (const auto& a : argv) args.push_back(const_cast<char*>(a.c_str()));
  args.push_back(nullptr);
  pid_t pid = 0;
  const int rc = ::posix_spawnp(&pid, args[0], &actions, nullptr, args.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (rc != 0) {
    Error e(errnum::kFileNotFound, "ChildProcess",
            "Cannot start " + argv[0] + ": " + std::strerror(rc));
    e.SetSystemError(rc);
    throw e;
  }
  return std::unique_ptr<ChildProcess>(new ChildProcess(pid));
}

ChildProcess::~ChildProcess() {
  if (!exit_code_) IsRunning();  // reap it if it has ended
}

void ChildProcess::Record(int status) {
  if (WIFEXITED(status)) {
    exit_code_ = WEXITSTATUS(status);
  } else if (WIFSIGNALED(status)) {
    exit_code_ = 128 + WTERMSIG(status);
  }
}

bool ChildProcess::IsRunning() {
  if (exit_code_) return false;
  int status = 0;
  const pid_t r = ::waitpid(pid_, &status, WNOHANG);
  if (r == 0) return true;
  if (r == pid_) {
    Record(status);
    return !exit_code_.has_value();
  }
  // Not our child any more (reaped elsewhere): it has ended, with no code to report.
  exit_code_ = -1;
  return false;
}

std::optional<int> ChildProcess::ExitCode() {
  IsRunning();
  return exit_code_;
}

void ChildProcess::Kill(bool force) {
  if (!exit_code_) ::kill(pid_, force ? SIGKILL : SIGTERM);
}

int ChildProcess::Wait() {
  while (!exit_code_) {
    int status = 0;
    const pid_t r = ::waitpid(pid_, &status, 0);
    if (r == pid_) {
      Record(status);
    } else if (r < 0 && errno != EINTR) {
      exit_code_ = -1;
    }
  }
  return *exit_code_;
}

}  // namespace gw
