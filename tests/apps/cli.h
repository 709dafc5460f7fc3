// Runs the gleanwright program as a user does, for the tests of its commands.
#pragma once

#include <sys/wait.h>

#include <cstdio>
#include <filesystem>
#include <string>

namespace gw::testing {

struct CliResult {
  int status = -1;
  std::string output;
};

// Runs gleanwright with `args` (already quoted for the shell) and $GLEANWRIGHT_HOME at `home`;
// `with_errors` adds what it writes to standard error to the output.
inline CliResult RunCli(const std::filesystem::path& home, const std::string& args,
                        bool with_errors = true) {
  const std::string cmd = "GLEANWRIGHT_HOME='" + home.string() + "' '" GW_CLI "' " + args +
                          (with_errors ? " 2>&1" : " 2>/dev/null");
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

}  // namespace gw::testing
