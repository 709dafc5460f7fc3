// gleanwright packages: the packages of the rules store by category.
#include <iostream>

#include "commands.h"
#include "rules/package_data_access.h"
#include "rules_listing.h"

namespace gw::app {
namespace {

const CommandRegistration kPackages(21, [](CLI::App& app, const GlobalOptions&,
                                           const std::function<void(int)>& set_exit) {
  auto* cmd = app.add_subcommand(
      "packages",
      "List the packages by category: a name \"Category\\Name\" stands under its category, "
      "one without a backslash under (Default)");
  cmd->callback([set_exit] {
    auto tree = DJob().GetPkgCategoryHierarchy();
    PrintCategoryTree(std::cout, *tree, "job_id", "No packages.");
    set_exit(0);
  });
});

}  // namespace
}  // namespace gw::app
