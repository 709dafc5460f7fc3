// The commands of the rules store, run as the program a user runs.
#include <gtest/gtest.h>

#include "cli.h"
#include "platform/db/connection.h"
#include "platform/db/recordset.h"
#include "rules/connection_string.h"
#include "rules/package_data_access.h"
#include "rules/rules_schema.h"
#include "rules/template_data_access.h"
#include "support/test_support.h"

namespace gw {
namespace {

using testing::RunCli;
using Result = testing::CliResult;

// Schema objects and row counts of a SQLite store.
std::string Snapshot(const std::filesystem::path& file) {
  auto cn = db::Connection::Create();
  cn->Open("Provider=SQLite;Data Source=" + file.string());
  std::string out;
  for (auto rs = cn->Execute("SELECT type, name, sql FROM sqlite_master ORDER BY name");
       !rs->IsEOF(); rs->MoveNext()) {
    const std::string name = (*rs)["name"].Value().ToText();
    out += name + ": " + (*rs)["sql"].Value().ToText() + "\n";
    if ((*rs)["type"].Value().ToText() == "table") {
      out += "rows " +
             (*cn->Execute("SELECT COUNT(*) FROM \"" + name + "\""))[0L].Value().ToText() + "\n";
    }
  }
  return out;
}

TEST(InitCommand, CreatesTheStoreOnceAndSaysWhereItIs) {
  testing::TempDir home;
  const auto file = home.Path() / "ZentrovoDB.sqlite";
  Result first = RunCli(home.Path(), "init");
  ASSERT_EQ(first.status, 0) << first.output;
  EXPECT_NE(first.output.find("Rules database: " + file.string()), std::string::npos)
      << first.output;
  EXPECT_NE(first.output.find("Created"), std::string::npos) << first.output;
  ASSERT_TRUE(std::filesystem::exists(file));
  const std::string before = Snapshot(file);
  EXPECT_NE(before.find("rows 4\n"), std::string::npos) << "reference rows are loaded";

  Result second = RunCli(home.Path(), "init");
  ASSERT_EQ(second.status, 0) << second.output;
  EXPECT_NE(second.output.find("current"), std::string::npos) << second.output;
  EXPECT_EQ(Snapshot(file), before);
}

TEST(InitCommand, AStoreOfANewerProgramIsRefusedUntouched) {
  testing::TempDir home;
  const auto file = home.Path() / "ZentrovoDB.sqlite";
  ASSERT_EQ(RunCli(home.Path(), "init").status, 0);
  {
    // What a newer program would leave: a column this one does not know, a higher version, and a
    // column type the old upgrade would have rebuilt the table for.
    auto cn = db::Connection::Create();
    cn->Open("Provider=SQLite;Data Source=" + file.string());
    cn->ExecuteScript(
        "PRAGMA legacy_alter_table = ON;"
        "DROP TRIGGER trg_attributes_delete; DROP TABLE attributes;"
        "CREATE TABLE attributes (attribute_id VARCHAR(50) NOT NULL COLLATE NOCASE PRIMARY KEY, "
        "entity_id VARCHAR(50), column_name VARCHAR(255), start_tag VARCHAR(4000), end_tag "
        "VARCHAR(4000), step SMALLINT, is_pk BIT, column_type TEXT, column_size INT, "
        "is_optional BIT, later_feature TEXT);"
        "INSERT INTO attributes (attribute_id, later_feature) VALUES ('a1', 'keep me');"
        "PRAGMA user_version = 99;");
  }
  const std::string before = Snapshot(file);
  for (const char* command : {"init", "datapages"}) {
    SCOPED_TRACE(command);
    Result r = RunCli(home.Path(), command);
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.output.find("The rules database " + file.string() +
                            " has schema version 99, newer than version " +
                            std::to_string(RulesSchema::kVersion)),
              std::string::npos)
        << r.output;
  }
  EXPECT_EQ(Snapshot(file), before);
}

TEST(InitCommand, TheRulesOptionUsesAnotherStoreForThisRunOnly) {
  testing::TempDir home;
  const auto other = home.Path() / "elsewhere.sqlite";
  Result r =
      RunCli(home.Path(), "--rules 'Provider=SQLite;Data Source=" + other.string() + "' init");
  ASSERT_EQ(r.status, 0) << r.output;
  EXPECT_NE(r.output.find(other.string()), std::string::npos) << r.output;
  EXPECT_TRUE(std::filesystem::exists(other));
  EXPECT_FALSE(std::filesystem::exists(home.Path() / "ZentrovoDB.sqlite"));
  // Nothing was stored: the next run without the option uses the default store.
  const std::string registry = std::filesystem::exists(home.Path() / "registry.txt")
                                   ? gw::testing::ReadFile(home.Path() / "registry.txt")
                                   : std::string();
  EXPECT_EQ(registry.find("CnStr"), std::string::npos);
}

TEST(ListCommands, ShowDatapagesAndPackagesByCategory) {
  testing::TempDir home;
  const auto file = home.Path() / "ZentrovoDB.sqlite";
  SetRulesConnectionOverride("Provider=SQLite;Data Source=" + file.string());
  D_DataPage().Save("p1", "Prices\\Daily", "Daily prices");
  D_DataPage().Save("p2", "Loose");
  DJob().Save("j1", NoAction(), NoAction(), "Nightly\\Fetch all");
  SetRulesConnectionOverride({});

  Result pages = RunCli(home.Path(), "datapages");
  ASSERT_EQ(pages.status, 0) << pages.output;
  EXPECT_EQ(pages.output,
            "(Default)\n"
            "  Loose  p2\n"
            "Prices\n"
            "  Daily  p1  Daily prices\n");
  Result packages = RunCli(home.Path(), "packages");
  ASSERT_EQ(packages.status, 0) << packages.output;
  EXPECT_EQ(packages.output, "Nightly\n  Fetch all  j1\n");
  // An empty store's answer: log_command_test's StartUp.
}

// A store that fails is reported as log_command_test's FailedCommand shows.

}  // namespace
}  // namespace gw
