// The statements that SQL Server targets get. No SQL Server can run on this platform, so a driver
// registered for one server name records what it is sent and refuses what a real server would.
#include <gtest/gtest.h>

#include <algorithm>

#include "platform/db/driver.h"
#include "targets/database.h"
#include "targets/tbl.h"
#include "targets_fixture.h"

namespace gw::targets_test {
namespace {

struct Recorder {
  std::vector<std::string> statements;
  std::string opened_catalog;
  // Statements starting with one of these fail, as a server refuses an existing column.
  std::vector<std::string> refused;
};

Recorder& TheRecorder() {
  static Recorder recorder;
  return recorder;
}

class RecordingDriver final : public db::Driver {
 public:
  std::string_view Dialect() const override { return "sqlserver"; }
  db::ResultSet Execute(std::string_view sql, std::span<const Variant>, long) override {
    TheRecorder().statements.emplace_back(sql);
    for (const auto& prefix : TheRecorder().refused) {
      if (sql.starts_with(prefix)) throw Error(db::dberr::kSyntax, "Recorder", "refused");
    }
    return {};
  }
  void ExecuteScript(std::string_view sql) override { Execute(sql, {}, 0); }
  long long LastInsertId() override { return 0; }
  void Begin() override {}
  void Commit() override {}
  void Rollback() override {}
  bool InTransaction() const override { return false; }
  std::vector<db::ColumnInfo> TableColumns(std::string_view) override { return {}; }
  bool TableExists(std::string_view) override { return true; }
  std::string QuoteIdentifier(std::string_view name) const override {
    return "[" + std::string(name) + "]";
  }
};

constexpr const char* kServer = "Provider=SQLOLEDB.1;Data Source=recorder;Initial Catalog=shop";

class SqlServerStatements : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    db::RegisterDriver(
        "Recorder",
        [](const db::ConnectionProperties& p) { return p.Get("Data Source") == "recorder"; },
        [](const db::ConnectionProperties& p) {
          TheRecorder().opened_catalog = p.Get("Initial Catalog");
          return std::make_unique<RecordingDriver>();
        });
  }
  void SetUp() override { TheRecorder() = Recorder(); }
  const std::vector<std::string>& Sent() { return TheRecorder().statements; }
};

TEST_F(SqlServerStatements, ATableIsBuiltByAddingOrAlteringEveryColumn) {
  TableDescription d = Describe("Prods", {{"name", 40}, {"notes", -1}}, {{"DocUrl", 255}});
  d.pk_column = "id";
  d.is_pk_surrogate = true;
  d.parent = ParentKey{"Shops", "shop_id", false, 12};
  TheRecorder().refused = {"ALTER TABLE [t1_Prods] ADD [notes]",
                           "ALTER TABLE [t1_Prods] DROP CONSTRAINT",
                           "ALTER TABLE [t1_Prods] ADD CONSTRAINT [FK_"};
  Tbl().Create(kServer, d, false, "t1_");
  EXPECT_EQ(Sent(),
            (std::vector<std::string>{
                "CREATE TABLE [t1_Prods]([xxx_temp_column_delete_later_xxx] [int])",
                "ALTER TABLE [t1_Prods] ADD [name] VARCHAR(40) NULL",
                "ALTER TABLE [t1_Prods] ADD [notes] VARCHAR(Max) NULL",
                "ALTER TABLE [t1_Prods] ALTER COLUMN [notes] VARCHAR(Max) NULL",
                "ALTER TABLE [t1_Prods] DROP COLUMN [xxx_temp_column_delete_later_xxx]",
                "ALTER TABLE [t1_Prods] ADD [DocUrl] VARCHAR(255) NULL",
                "ALTER TABLE [t1_Prods] ADD [id] INT IDENTITY",
                "ALTER TABLE [t1_Prods] ADD CONSTRAINT [PK_t1_Prods] PRIMARY KEY ([id])",
                "ALTER TABLE [t1_Prods] ADD [shop_id] VARCHAR(12) NOT NULL",
                "ALTER TABLE [t1_Prods] DROP CONSTRAINT [FK_Shops_t1_Prods]",
                "ALTER TABLE [t1_Prods] ADD CONSTRAINT [FK_Shops_t1_Prods]FOREIGN KEY ([shop_id]) "
                "REFERENCES [t1_Prods]([shop_id])",
            }));
}

TEST_F(SqlServerStatements, ABracketInANameIsDoubled) {
  Tbl().Create(kServer, Describe("a]b; DROP TABLE x --", {{"c]d", 4}}), false);
  EXPECT_EQ(Sent().at(0),
            "CREATE TABLE [a]]b; DROP TABLE x --]([xxx_temp_column_delete_later_xxx] [int])");
  EXPECT_EQ(Sent().at(1), "ALTER TABLE [a]]b; DROP TABLE x --] ADD [c]]d] VARCHAR(4) NULL");
}

TEST_F(SqlServerStatements, ASurrogateParentKeyIsAnInteger) {
  TableDescription d = Describe("Lines", {{"qty", 5}});
  d.parent = ParentKey{"Orders", "order_id", true, 0};
  Tbl().Create(kServer, d, false);
  EXPECT_NE(
      std::find(Sent().begin(), Sent().end(), "ALTER TABLE [Lines] ADD [order_id] INT NOT NULL"),
      Sent().end());
}

TEST_F(SqlServerStatements, AColumnThatCanNeitherBeAddedNorAlteredFailsTheTable) {
  TheRecorder().refused = {"ALTER TABLE [Prods] ADD [name]", "ALTER TABLE [Prods] ALTER COLUMN"};
  const Error e = CaughtError([] {
    Tbl().Create(kServer, Describe("Prods", {{"name", 4}}), false);
  });
  EXPECT_EQ(e.Number(), db::dberr::kSyntax);
  EXPECT_EQ(e.CallStack(),
            (std::vector<std::string>{"Tbl.CreateSQL(CnStr,Ent,UseTmpTbls,UniqueTblPrefix)",
                                      "Tbl.Create(CnStr,ent,UseTmpTbls,UniqueTblPrefix)"}));
}

TEST_F(SqlServerStatements, DatabasesAreMadeAndDroppedFromMaster) {
  Database::Create("Provider=SQLOLEDB.1;Data Source=recorder", "shop");
  EXPECT_EQ(TheRecorder().opened_catalog, "Master");
  EXPECT_EQ(Sent(), (std::vector<std::string>{"CREATE DATABASE [shop]"}));
  // It may exist already.
  TheRecorder() = Recorder();
  TheRecorder().refused = {"CREATE DATABASE"};
  const std::string cn = Database::Create("Provider=SQLOLEDB.1;Data Source=recorder", "shop");
  EXPECT_EQ(db::ConnectionProperties::Parse(cn).Get("Initial Catalog"), "shop");

  TheRecorder() = Recorder();
  Database::Drop("Provider=SQLOLEDB.1;Data Source=recorder;Initial Catalog=old", "shop");
  EXPECT_EQ(TheRecorder().opened_catalog, "Master");
  EXPECT_EQ(Sent(), (std::vector<std::string>{"DROP DATABASE [shop]"}));
}

}  // namespace
}  // namespace gw::targets_test
