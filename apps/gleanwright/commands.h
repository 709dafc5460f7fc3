// The command-line host: every command registers itself from a cmd_*.cpp file with a
// `CommandRegistration` object, so that adding a command touches no other file.
#pragma once

#include <CLI/CLI.hpp>

#include <functional>
#include <string>

namespace gw::app {

// Exit statuses (the README lists them): 0 done; 1 failed (the error is printed); 3 finished,
// but documents failed or targets refused rows (`run`, `extract`); 100 and above, the command
// line was not understood; 130, stopped by a second Ctrl-C.
inline constexpr int kExitFinishedWithLosses = 3;

// Sets up a command's options on `cmd` (bound to state the setup keeps) and returns what the
// command does when it is chosen; that returns the process's exit status.
using CommandAction = std::function<int()>;
using CommandSetup = std::function<CommandAction(CLI::App& cmd)>;

struct CommandRegistration {
  // Adds the subcommand `name` with `description`; `order` sorts the commands in `--help`.
  CommandRegistration(int order, std::string name, CommandSetup setup, std::string description);
};

// Adds every registered command, in order; the chosen one stores its exit status with `set_exit`.
void RegisterCommands(CLI::App& app, const std::function<void(int)>& set_exit);

}  // namespace gw::app
