// gleanwright datapages: the datapages (templates) of the rules store by category.
#include <iostream>

#include "commands.h"
#include "rules/template_data_access.h"
#include "rules_listing.h"

namespace gw::app {
namespace {

const CommandRegistration kDatapages(20, [](CLI::App& app, const GlobalOptions&,
                                            const std::function<void(int)>& set_exit) {
  auto* cmd = app.add_subcommand(
      "datapages",
      "List the datapages by category: a name \"Category\\Name\" stands under its category, "
      "one without a backslash under (Default)");
  cmd->callback([set_exit] {
    auto tree = D_DataPage().GetDatapageCategoryHierarchy();
    PrintCategoryTree(std::cout, *tree, "datapage_id", "No datapages.");
    set_exit(0);
  });
});

}  // namespace
}  // namespace gw::app
