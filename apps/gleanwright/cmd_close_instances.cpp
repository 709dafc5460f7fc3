// gleanwright close-instances: stamps a completion time on the runs of a package (or of every
// package) whose process died, so that the package can be edited and run again. Meant for when
// nothing runs: a run under way is closed too.
#include <iostream>
#include <memory>

#include "commands.h"
#include "package_lookup.h"
#include "rules/package_data_access.h"

namespace gw::app {
namespace {

const CommandRegistration kCloseInstances(52, [](CLI::App& app, const GlobalOptions&,
                                                 const std::function<void(int)>& set_exit) {
  auto* cmd = app.add_subcommand(
      "close-instances",
      "Mark the runs of a package (or of every package) as completed now, for runs whose process "
      "ended without finishing them; use it only when nothing runs");
  auto package = std::make_shared<std::string>();
  cmd->add_option("package", *package, "The package's id or name (default: every package)");
  cmd->callback([=] {
    DJob jobs;
    if (package->empty()) {
      jobs.CloseInstances();
      std::cout << "Closed the runs of every package.\n";
    } else {
      const std::string id = FindPackageId(*package);
      jobs.CloseInstances(id);
      std::cout << "Closed the runs of " << *package << ".\n";
    }
    set_exit(0);
  });
});

}  // namespace
}  // namespace gw::app
