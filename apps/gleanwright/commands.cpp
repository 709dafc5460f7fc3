#include "commands.h"

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

namespace gw::app {

namespace {
struct Registered {
  int order;
  std::string name;
  std::string description;
  CommandSetup setup;
};
std::vector<Registered>& Registry() {
  static std::vector<Registered> registry;
  return registry;
}
}  // namespace

CommandRegistration::CommandRegistration(int order, std::string name, CommandSetup setup,
                                         std::string description) {
  Registry().push_back({order, std::move(name), std::move(description), std::move(setup)});
}

void RegisterCommands(CLI::App& app, const std::function<void(int)>& set_exit) {
  auto& registry = Registry();
  std::stable_sort(registry.begin(), registry.end(),
                   [](const auto& a, const auto& b) { return a.order < b.order; });
  for (const Registered& r : registry) {
    CLI::App* cmd = app.add_subcommand(r.name, r.description);
    cmd->callback([action = r.setup(*cmd), set_exit] { set_exit(action()); });
  }
}

}  // namespace gw::app
