#include "commands.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace gw::app {

namespace {
std::vector<std::pair<int, CommandRegistrar>>& Registrars() {
  static std::vector<std::pair<int, CommandRegistrar>> registrars;
  return registrars;
}
}  // namespace

CommandRegistration::CommandRegistration(int order, CommandRegistrar registrar) {
  Registrars().emplace_back(order, std::move(registrar));
}

void RegisterCommands(CLI::App& app, const GlobalOptions& globals,
                      const std::function<void(int)>& set_exit) {
  auto& regs = Registrars();
  std::stable_sort(regs.begin(), regs.end(),
                   [](const auto& a, const auto& b) { return a.first < b.first; });
  for (auto& [order, registrar] : regs) registrar(app, globals, set_exit);
}

}  // namespace gw::app
