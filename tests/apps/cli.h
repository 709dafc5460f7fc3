// Runs the gleanwright program as a user does, for the tests of its commands.
#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <initializer_list>
#include <string>

namespace gw::testing {

struct CliResult {
  int status = -1;
  std::string output;
};

// Runs gleanwright with `args` (already quoted for the shell) and $GLEANWRIGHT_HOME at `home`;
// `with_errors` adds what it writes to standard error to the output.
// `bound_by_permissions`: file permissions bind the program even when the tests run as the
// superuser (which CI does): it runs without the capabilities that override them.
inline CliResult RunCli(const std::filesystem::path& home, const std::string& args,
                        bool with_errors = true, bool bound_by_permissions = false) {
  const std::string bound = bound_by_permissions && ::geteuid() == 0
                                ? "setpriv --bounding-set=-dac_override,-dac_read_search "
                                : "";
  const std::string cmd = "GLEANWRIGHT_HOME='" + home.string() + "' " + bound + "'" GW_CLI "' " +
                          args + (with_errors ? " 2>&1" : " 2>/dev/null");
  CliResult r;
  FILE* p = ::popen(cmd.c_str(), "r");
  if (!p) return r;
  char buf[4096];
  std::size_t n;
  while ((n = std::fread(buf, 1, sizeof buf, p)) > 0) r.output.append(buf, n);
  const int status = ::pclose(p);
  r.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return r;
}

// The program's path, for tests that start it themselves.
inline std::string CliPath() { return GW_CLI; }

// `text` as one word for the shell.
inline std::string ShellQuoted(const std::string& text) {
  std::string quoted = "'";
  for (char c : text) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return quoted + "'";
}

// The same with each argument quoted.
inline CliResult RunCli(const std::filesystem::path& home, std::initializer_list<std::string> args,
                        bool with_errors = true) {
  std::string line;
  for (const std::string& a : args) line += (line.empty() ? "" : " ") + ShellQuoted(a);
  return RunCli(home, line, with_errors);
}

}  // namespace gw::testing
