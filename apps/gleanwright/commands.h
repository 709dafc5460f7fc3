// The command-line host: every command lives in its own cmd_*.cpp file and registers itself with
// a `CommandRegistration` object, so that adding a command touches no other file.
#pragma once

#include <CLI/CLI.hpp>

#include <functional>
#include <string>

namespace gw::app {

// Exit statuses (the README lists them): 0 done; 1 failed (the error is printed); 3 finished,
// but documents failed or targets refused rows (`run`, `extract`); 100 and above, the command
// line was not understood; 130, stopped by a second Ctrl-C.
inline constexpr int kExitFinishedWithLosses = 3;

// Options every command sees.
struct GlobalOptions {
  // --rules: the rules connection string for this invocation only (empty: the stored one).
  std::string rules_connection;
};

// Adds a subcommand to `app`. Its callback stores the process's exit status with `set_exit`.
using CommandRegistrar = std::function<void(CLI::App& app, const GlobalOptions& globals,
                                            const std::function<void(int)>& set_exit)>;

struct CommandRegistration {
  // `order` sorts the commands in `--help`.
  CommandRegistration(int order, CommandRegistrar registrar);
};

// Adds every registered command, in order.
void RegisterCommands(CLI::App& app, const GlobalOptions& globals,
                      const std::function<void(int)>& set_exit);

}  // namespace gw::app
