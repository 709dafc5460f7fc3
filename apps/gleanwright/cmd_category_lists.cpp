// gleanwright datapages, gleanwright packages: the datapages (templates) and the packages of the
// rules store by category.
#include <functional>
#include <iostream>
#include <string>

#include "commands.h"
#include "rules/package_data_access.h"
#include "rules/template_data_access.h"
#include "rules_listing.h"

namespace gw::app {
namespace {

constexpr const char* kByCategory =
    " by category: a name \"Category\\Name\" stands under its category, one without a backslash "
    "under (Default)";

// Prints the tree `read` gives; `id_column` names its rows' ids.
CommandAction ListByCategory(std::function<db::RecordsetPtr()> read, std::string id_column,
                             std::string empty_text) {
  return [=] {
    PrintCategoryTree(std::cout, *read(), id_column, empty_text);
    return 0;
  };
}

const CommandRegistration kDatapages(
    20, "datapages",
    [](CLI::App&) {
      return ListByCategory([] { return D_DataPage().GetDatapageCategoryHierarchy(); },
                            "datapage_id", "No datapages.");
    },
    std::string("List the datapages") + kByCategory);

const CommandRegistration kPackages(
    21, "packages",
    [](CLI::App&) {
      return ListByCategory([] { return DJob().GetPkgCategoryHierarchy(); }, "job_id",
                            "No packages.");
    },
    std::string("List the packages") + kByCategory);

}  // namespace
}  // namespace gw::app
