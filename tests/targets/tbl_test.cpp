// Target tables on real stores: built idempotently, widened, keyed, emptied, and temporary.
#include "targets/tbl.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "support/mariadb_server.h"
#include "support/test_support.h"
#include "targets/database.h"
#include "targets/temporary_tables.h"
#include "targets_fixture.h"

namespace gw::targets_test {
namespace {

using Cols = std::vector<std::pair<std::string, long>>;
using RowList = std::vector<std::vector<std::string>>;

// ---- the stores that build tables column by column ------------------------------------------

struct AlteringStore {
  const char* name;
  std::function<std::string(const gw::testing::TempDir&)> connection_string;
};

const AlteringStore kAlteringStores[] = {
    {"SQLite",
     [](const gw::testing::TempDir& dir) {
       return "Provider=SQLite;Data Source=" + (dir / "t.db").string();
     }},
    {"MariaDB",
     [](const gw::testing::TempDir&) {
       auto& server = gw::testing::MariaDbServer::Shared();
       return server.ConnectionString(server.CreateDatabase("gwtbl"));
     }},
};

class AlteredTables : public ::testing::TestWithParam<AlteringStore> {
 protected:
  void SetUp() override { cn_ = GetParam().connection_string(dir_); }
  gw::testing::TempDir dir_;
  std::string cn_;
};

TEST_P(AlteredTables, BuildingTwiceLeavesTheTableAsItWas) {
  const auto d = Describe("Prods", {{"name", 20}, {"price", 10}}, {{"DocUrl", 200}});
  Tbl().Create(cn_, d, false);
  const Cols built = Columns(cn_, "Prods");
  EXPECT_EQ(built, (Cols{{"name", 20}, {"price", 10}, {"DocUrl", 200}}));
  Tbl().Create(cn_, d, false);
  EXPECT_EQ(Columns(cn_, "Prods"), built);
}

TEST_P(AlteredTables, AGrownFieldWidensItsColumnAndTheRowsStay) {
  Tbl().Create(cn_, Describe("Prods", {{"name", 4}, {"price", 10}}), false);
  Exec(cn_, "INSERT INTO Prods (name, price) VALUES ('Nut', '1')");
  Tbl().Create(cn_, Describe("Prods", {{"name", 40}, {"price", 10}, {"sku", 8}}), false);
  EXPECT_EQ(Columns(cn_, "Prods"), (Cols{{"name", 40}, {"price", 10}, {"sku", 8}}));
  EXPECT_EQ(Rows(cn_, "Prods"), (RowList{{"Nut", "1", ""}}));
}

TEST_P(AlteredTables, AnExistingTableGetsTheColumnsItLacks) {
  Exec(cn_, "CREATE TABLE Prods (legacy VARCHAR(5))");
  Exec(cn_, "INSERT INTO Prods (legacy) VALUES ('old')");
  Tbl().Create(cn_, Describe("Prods", {{"name", 10}}), false);
  EXPECT_EQ(Columns(cn_, "Prods"), (Cols{{"legacy", 5}, {"name", 10}}));
  EXPECT_EQ(Rows(cn_, "Prods"), (RowList{{"old", ""}}));
}

INSTANTIATE_TEST_SUITE_P(Targets, AlteredTables, ::testing::ValuesIn(kAlteringStores),
                         [](const auto& info) { return std::string(info.param.name); });

// ---- SQLite ---------------------------------------------------------------------------------

class SqliteTables : public ::testing::Test {
 protected:
  std::string Schema(const std::string& table) {
    auto cn = db::Connection::Create();
    cn->Open(cn_);
    const std::vector<Variant> params{Variant(table)};
    return cn->Execute("SELECT sql FROM sqlite_master WHERE name = ?", params)
        ->GetFields()
        .Item(0L)
        .Value()
        .ToText();
  }
  gw::testing::TempDir dir_;
  std::string cn_ = "Provider=SQLite;Data Source=" + (dir_ / "t.db").string();
};

TEST_F(SqliteTables, AWideningRebuildKeepsIndexesTriggersAndOtherConstraints) {
  Exec(cn_,
       "CREATE TABLE \"Prods\" (\"name\" VARCHAR(4) NULL, code VARCHAR(3) NOT NULL DEFAULT 'x' "
       "CHECK (length(code) < 9), \"odd, name\" TEXT);"
       "CREATE INDEX prods_code ON Prods (code);"
       "CREATE TABLE log (n INT);"
       "CREATE TRIGGER prods_log AFTER INSERT ON Prods BEGIN INSERT INTO log VALUES (1); END;"
       "INSERT INTO Prods (name, code) VALUES ('Nut', 'a1')");
  Tbl().Create(cn_, Describe("Prods", {{"name", 30}, {"code", 6}}), false);
  EXPECT_EQ(Columns(cn_, "Prods"), (Cols{{"name", 30}, {"code", 6}, {"odd, name", 1073741823}}));
  EXPECT_EQ(Rows(cn_, "Prods"), (RowList{{"Nut", "a1", ""}}));
  EXPECT_NE(Schema("Prods").find("NOT NULL DEFAULT 'x' CHECK (length(code) < 9)"),
            std::string::npos)
      << Schema("Prods");
  EXPECT_FALSE(Schema("prods_code").empty());
  Exec(cn_, "INSERT INTO Prods (name, code) VALUES ('Bolt', 'b2')");
  EXPECT_EQ(Rows(cn_, "log").size(), 2u);  // the trigger came back
}

TEST_F(SqliteTables, ANewFileGetsLargePagesAndAFileInUseKeepsItsOwn) {
  const auto page_size = [](const std::string& cn_str) {
    auto cn = db::Connection::Create();
    cn->Open(cn_str);
    return cn->Execute("PRAGMA page_size")->GetFields()[0L].Value().ToLong();
  };
  // A file that does not exist yet, and one that exists but holds nothing (as an empty file made
  // for a target does).
  Tbl().Create(cn_, Describe("Prods", {{"name", 20}}), false);
  EXPECT_EQ(page_size(cn_), 16384);
  const std::string empty = "Provider=SQLite;Data Source=" + (dir_ / "empty.db").string();
  { std::ofstream(dir_ / "empty.db"); }
  Tbl().Create(empty, Describe("Prods", {{"name", 20}}), false);
  EXPECT_EQ(page_size(empty), 16384);
  // A file that holds a table keeps its pages; the new table and its rows go in as they are.
  const std::string used = "Provider=SQLite;Data Source=" + (dir_ / "used.db").string();
  Exec(used, "CREATE TABLE log (n INT); INSERT INTO log VALUES (1)");
  Tbl().Create(used, Describe("Prods", {{"name", 20}}), false);
  Exec(used, "INSERT INTO Prods (name) VALUES ('Nut')");
  EXPECT_EQ(page_size(used), 4096);
  EXPECT_EQ(Rows(used, "Prods"), (RowList{{"Nut"}}));
  EXPECT_EQ(Rows(used, "log"), (RowList{{"1"}}));
}

TEST_F(SqliteTables, AColumnIsNotNarrowedBelowAStoredValue) {
  Tbl().Create(cn_, Describe("Prods", {{"name", 20}}), false);
  Exec(cn_, "INSERT INTO Prods (name) VALUES ('Gearwheel')");
  const Error e = CaughtError([&] { Tbl().Create(cn_, Describe("Prods", {{"name", 4}}), false); });
  EXPECT_EQ(e.Number(), db::dberr::kDataTruncated);
  EXPECT_EQ(Columns(cn_, "Prods"), (Cols{{"name", 20}}));
  // Values that fit allow it.
  Exec(cn_, "DELETE FROM Prods; INSERT INTO Prods (name) VALUES ('Nut')");
  Tbl().Create(cn_, Describe("Prods", {{"name", 4}}), false);
  EXPECT_EQ(Columns(cn_, "Prods"), (Cols{{"name", 4}}));
}

TEST_F(SqliteTables, ANegativeSizeIsATextWithoutLimit) {
  Tbl().Create(cn_, Describe("Prods", {{"notes", -1}}), false);
  EXPECT_EQ(Columns(cn_, "Prods"), (Cols{{"notes", db::kUnboundedTextSize}}));
}

TEST_F(SqliteTables, ASurrogateKeyIsGeneratedForEveryRow) {
  TableDescription d = Describe("Orders", {{"ref", 10}});
  d.pk_column = "order_id";
  d.is_pk_surrogate = true;
  Tbl().Create(cn_, d, false);
  Tbl().Create(cn_, d, false);
  Exec(cn_, "INSERT INTO Orders (ref) VALUES ('a'); INSERT INTO Orders (ref) VALUES ('b')");
  EXPECT_EQ(Rows(cn_, "Orders"), (RowList{{"a", "1"}, {"b", "2"}}));
  EXPECT_NE(Schema("Orders").find("INTEGER PRIMARY KEY AUTOINCREMENT"), std::string::npos);
}

TEST_F(SqliteTables, AKeyFieldBecomesThePrimaryKey) {
  TableDescription d = Describe("Prods", {{"sku", 10}, {"name", 10}});
  d.pk_column = "sku";
  Tbl().Create(cn_, d, false);
  Tbl().Create(cn_, d, false);
  EXPECT_NE(Schema("Prods").find("CONSTRAINT \"PK_Prods\" PRIMARY KEY (\"sku\")"),
            std::string::npos)
      << Schema("Prods");
  Exec(cn_, "INSERT INTO Prods (sku) VALUES ('A')");
  EXPECT_EQ(CaughtError([&] { Exec(cn_, "INSERT INTO Prods (sku) VALUES ('A')"); }).Number(),
            db::dberr::kIntegrity);
}

TEST_F(SqliteTables, AChildTableCarriesItsParentsKeyAndNeverThePlaceholder) {
  TableDescription lines = Describe("Lines", {{"qty", 5}});
  lines.parent = ParentKey{"Orders", "order_id", true, 0};
  Tbl().Create(cn_, lines, false);
  TableDescription items = Describe("Items", {{"qty", 5}});
  items.parent = ParentKey{"Prods", "sku", false, 12};
  Tbl().Create(cn_, items, false);
  Tbl().Create(cn_, items, false);
  EXPECT_EQ(Columns(cn_, "Lines"), (Cols{{"qty", 5}, {"order_id", 4}}));
  EXPECT_EQ(Columns(cn_, "Items"), (Cols{{"qty", 5}, {"sku", 12}}));
  EXPECT_NE(Schema("Items").find("\"sku\" VARCHAR(12) NOT NULL"), std::string::npos);
  // A parent without a key adds nothing.
  TableDescription notes = Describe("Notes", {{"text", 5}});
  notes.parent = ParentKey{"Prods", "", false, 0};
  Tbl().Create(cn_, notes, false);
  EXPECT_EQ(Columns(cn_, "Notes"), (Cols{{"text", 5}}));
}

TEST_F(SqliteTables, AParentKeyCannotBeAddedToATableWithRows) {
  Tbl().Create(cn_, Describe("Lines", {{"qty", 5}}), false);
  Exec(cn_, "INSERT INTO Lines (qty) VALUES ('1')");
  TableDescription lines = Describe("Lines", {{"qty", 5}});
  lines.parent = ParentKey{"Orders", "order_id", true, 0};
  EXPECT_EQ(CaughtError([&] { Tbl().Create(cn_, lines, false); }).Number(), db::dberr::kIntegrity);
  EXPECT_EQ(Rows(cn_, "Lines"), (RowList{{"1"}}));
}

TEST_F(SqliteTables, DeletingAllRowsEmptiesTheTable) {
  Tbl().Create(cn_, Describe("Prods", {{"name", 10}}), false);
  Exec(cn_, "INSERT INTO Prods (name) VALUES ('a'); INSERT INTO Prods (name) VALUES ('b')");
  Tbl().DeleteAllRows(cn_, Describe("Prods", {{"name", 10}}));
  EXPECT_TRUE(Rows(cn_, "Prods").empty());
}

// ---- MySQL ----------------------------------------------------------------------------------

TEST(MySqlTables, ANegativeSizeIsRefusedAndRowsAreDeleted) {
  auto& server = gw::testing::MariaDbServer::Shared();
  const std::string cn = server.ConnectionString(server.CreateDatabase("gwtbl"));
  EXPECT_EQ(CaughtError([&] {
              Tbl().Create(cn, Describe("Prods", {{"notes", -1}}), false);
            })
                .CallStack()
                .front(),
            "Tbl.CreateMySQL(CnStr,Ent)");
  Tbl().Create(cn, Describe("Prods", {{"name", 10}}), false);
  Exec(cn, "INSERT INTO Prods (name) VALUES ('a')");
  Tbl().DeleteAllRows(cn, Describe("Prods", {{"name", 10}}));
  EXPECT_TRUE(Rows(cn, "Prods").empty());
}

// ---- Jet: Access and Excel ------------------------------------------------------------------

class JetTables : public ::testing::Test {
 protected:
  gw::testing::TempDir dir_;
  std::string access_ = "Provider=Microsoft.Jet.OLEDB.4.0;Data Source=" + (dir_ / "t.mdb").string();
  std::string excel_ =
      "Provider=Microsoft.Jet.OLEDB.4.0;Data Source=" + (dir_ / "t.xlsx").string() +
      ";Extended Properties=\"Excel 8.0;HDR=Yes\"";
};

TEST_F(JetTables, OneStatementMakesTheTableAndAnExistingOneIsLeftAlone) {
  for (const std::string& cn : {access_, excel_}) {
    SCOPED_TRACE(cn);
    Tbl().Create(cn, Describe("Prods", {{"name", 4}, {"price", 10}}, {{"DocUrl", 20}}), false);
    const Cols made = Columns(cn, "Prods");
    ASSERT_EQ(made.size(), 3u);
    EXPECT_EQ(made[0].first, "name");
    EXPECT_EQ(made[2].first, "DocUrl");
    // Jet tables are not altered: a later field does not reach an existing table.
    Tbl().Create(cn, Describe("Prods", {{"name", 4}, {"price", 10}, {"sku", 5}}), false);
    EXPECT_EQ(Columns(cn, "Prods"), made);
  }
  EXPECT_EQ(Columns(excel_, "Prods")[0].second, 255);  // every workbook column is 255 wide
}

TEST_F(JetTables, DeletingTheRowsOfAWorkbookMakesItAgainWithThatSheetOnly) {
  Tbl().Create(excel_, Describe("Prods", {{"name", 4}}), false);
  Tbl().Create(excel_, Describe("Shops", {{"city", 4}}), false);
  {
    auto cn = db::Connection::Create();
    cn->Open(excel_);
    const std::vector<Variant> params{Variant("Nut")};
    cn->Execute("INSERT INTO Prods (name) VALUES (?)", params);
  }
  db::FlushBufferedStores();
  Tbl().DeleteAllRows(excel_, Describe("Prods", {{"name", 4}}));
  EXPECT_TRUE(std::filesystem::exists(dir_ / "t.xlsx"));
  EXPECT_TRUE(Rows(excel_, "Prods").empty());
  EXPECT_EQ(Columns(excel_, "Prods"), (Cols{{"name", 255}}));
  EXPECT_EQ(CaughtError([&] { Rows(excel_, "Shops"); }).Number(), db::dberr::kNoSuchTable);
  // Without a workbook there is nothing to delete.
  std::filesystem::remove(dir_ / "t.xlsx");
  EXPECT_EQ(CaughtError([&] {
              Tbl().DeleteAllRows(excel_, Describe("Prods", {{"name", 4}}));
            }).Number(),
            errnum::kFileNotFound);
}

// ---- providers without tables, and temporary tables ---------------------------------------

TEST(Tables, AProviderWithoutTablesIsRefused) {
  const Error e =
      CaughtError([] { Tbl().Create("Provider=Foo;Data Source=x", Describe("T", {}), false); });
  EXPECT_EQ(e.Number(), targeterr::kTableNotSupported);
  EXPECT_EQ(e.Source(), "Table.Create");
  EXPECT_EQ(e.Description(),
            "The Database provider Foo not supported for automatic creation.  You may still be "
            "able to extract to it, but you must create it yourself.");
  EXPECT_EQ(e.CallStack(),
            (std::vector<std::string>{"Tbl.Create(CnStr,ent,UseTmpTbls,UniqueTblPrefix)"}));
}

TEST(Tables, ATemporaryTableLivesAsLongAsTheTblThatMadeIt) {
  // Kept open by the test, so the store outlives the table and can be looked into.
  auto watcher = db::Connection::Create();
  watcher->Open(TemporaryStoreConnectionString());
  const auto tables = [&] {
    return watcher->Execute("SELECT name FROM sqlite_master WHERE type = 'table'")->RecordCount();
  };
  {
    auto tbl = std::make_unique<Tbl>();
    // Whatever the target, even one that cannot make tables.
    tbl->Create("Provider=Foo;Data Source=x", Describe("Prods", {{"name", 7}}), true, "t1_");
    EXPECT_TRUE(IsLiveTemporaryTable("##t1_Prods"));
    EXPECT_TRUE(IsLiveTemporaryTable("##T1_PRODS"));
    EXPECT_FALSE(IsLiveTemporaryTable("##t2_Prods"));
    EXPECT_EQ(Columns(TemporaryStoreConnectionString(), "\"##t1_Prods\""), (Cols{{"name", 7}}));
    // A second Tbl for the same table shares it.
    {
      Tbl second;
      second.Create("Provider=SQLite;Data Source=:memory:", Describe("Prods", {{"name", 9}}), true,
                    "t1_");
      EXPECT_EQ(Columns(TemporaryStoreConnectionString(), "\"##t1_Prods\""), (Cols{{"name", 9}}));
    }
    EXPECT_TRUE(IsLiveTemporaryTable("##t1_Prods"));
    EXPECT_EQ(tables(), 1);
  }
  EXPECT_FALSE(IsLiveTemporaryTable("##t1_Prods"));
  EXPECT_EQ(tables(), 0);
}

}  // namespace
}  // namespace gw::targets_test
