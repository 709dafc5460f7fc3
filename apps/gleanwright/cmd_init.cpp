// gleanwright init: creates the rules database if it is not there, loads its schema and
// reference rows, applies the upgrade, and gives the path settings of runs a value below
// $GLEANWRIGHT_HOME when they have none. Running it again changes nothing. (Every command runs
// the start-up tasks first, which on a fresh machine do the same; init says what they made.)
#include <filesystem>
#include <iostream>

#include "commands.h"
#include "platform/db/connection.h"
#include "platform/paths.h"
#include "rules/connection_string.h"
#include "rules/env_config.h"
#include "rules/rules_schema.h"
#include "rules/settings.h"
#include "rules_listing.h"

namespace gw::app {
namespace {

// The folders runs write into: downloaded copies, and the files made of a run's source text.
// A value a user has set is left alone.
void EnsurePathSettings(const std::string& cn_str) {
  Settings settings(cn_str);
  const std::pair<const char*, const char*> paths[] = {
      {"DefaultDownloadPath", "downloads"},
      {"StringFileCreatePath", "strings"},
  };
  for (const auto& [name, folder] : paths) {
    std::string value = settings.GetOption(name).ToText();
    if (value.empty()) {
      // With its separator: a run appends the file name to it as it stands.
      value = (HomeDir() / folder).string() + "/";
      settings.PutOption(name, Variant(value), DataType::Str);
      std::cout << "Set " << name << " to " << value << "\n";
    }
    std::error_code ec;
    std::filesystem::create_directories(value, ec);
  }
}

int RunInit() {
  const std::string cn_str = modConnectionString::GetCnStr();
  auto cn = db::Connection::Create();
  cn->Open(cn_str);
  bool created = false;
  // A newer store is refused untouched; an older one is upgraded, keeping what it holds.
  std::vector<std::string> steps = RulesSchema::BringUpToDate(*cn, created);
  // On a fresh machine the start-up's first-run tasks have just created the store.
  created = created || FirstRunTasksRan();
  if (!created) {
    // Whatever is missing even at this version (a table or reference row deleted by hand).
    RulesSchema::Load(*cn);
    RulesSchema::LoadBaseData(*cn);
    for (auto& step : RulesSchema::Upgrade(*cn)) steps.push_back(std::move(step));
  }
  cn->Close();
  std::cout << "Rules database: " << DescribeRulesStore(cn_str) << "\n";
  if (created) {
    std::cout << "Created its schema and reference rows.\n";
  } else if (steps.empty()) {
    std::cout << "Its schema and reference rows are current.\n";
  } else {
    for (const auto& step : steps) std::cout << "Applied the upgrade step " << step << ".\n";
  }
  EnsurePathSettings(cn_str);
  return 0;
}

const CommandRegistration kInit(
    10, "init", [](CLI::App&) -> CommandAction { return RunInit; },
    "Create the rules database if it does not exist, load its schema and reference rows, apply the "
    "upgrade, and give the folders of runs (downloads, source texts) a place below "
    "$GLEANWRIGHT_HOME; running it again changes nothing");

}  // namespace
}  // namespace gw::app
