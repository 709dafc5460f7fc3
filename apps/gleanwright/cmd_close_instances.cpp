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

CommandAction SetUpCloseInstances(CLI::App& cmd) {
  auto package = std::make_shared<std::string>();
  cmd.add_option("package", *package, "The package's id or name (default: every package)");
  return [=] {
    DJob jobs;
    if (package->empty()) {
      jobs.CloseInstances();
      std::cout << "Closed the runs of every package.\n";
    } else {
      const std::string id = FindPackageId(*package);
      jobs.CloseInstances(id);
      std::cout << "Closed the runs of " << *package << ".\n";
    }
    return 0;
  };
}

const CommandRegistration kCloseInstances(
    52, "close-instances", SetUpCloseInstances,
    "Mark the runs of a package (or of every package) as completed now, for runs whose process "
    "ended without finishing them; use it only when nothing runs");

}  // namespace
}  // namespace gw::app
