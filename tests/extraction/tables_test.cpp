// Datasets and datapages make, check and empty their target tables, and write each document's
// rows in one batch.
#include <gtest/gtest.h>

#include "extraction_fixture.h"
#include "platform/db/connection_string.h"
#include "platform/db/driver.h"
#include "platform/db/write_batch.h"
#include "rules/connection_string.h"
#include "support/mariadb_server.h"
#include "targets/database.h"
#include "targets/temporary_tables.h"

namespace gw::extraction_test {
namespace {

using RowList = std::vector<std::vector<std::string>>;

class TablesTest : public ExtractionTest {
 protected:
  // Orders (with a surrogate key when `keyed`) with Lines on the page.
  void MakeOrders(bool keyed = true) {
    orders_ = AddRoot("Orders", "<order>", "orders");
    AddField(orders_, "ref", "<ref>", "</ref>", false, 10);
    if (keyed) {
      orders_->SetPKColumn("order_id");
      orders_->SetIsPKSurrogate(true);
    }
    lines_ = AddChild(orders_, "Lines", "<line>", "lines");
    page_->GetEntities().Add(lines_, lines_->Id());
    AddField(lines_, "qty", "<qty>", "</qty>", false, 5);
  }
  std::vector<std::string> ColumnNames(const std::string& table) {
    auto cn = db::Connection::Create();
    cn->Open(cn_str_);
    std::vector<std::string> out;
    const auto rs = cn->Execute("SELECT * FROM " + table);
    for (const auto& c : rs->Columns()) out.push_back(c.name);
    return out;
  }
  EntityPtr orders_;
  EntityPtr lines_;
};

TEST_F(TablesTest, ARootMakesItsTableAndItsChildrensWithTheParentKey) {
  MakeOrders();
  ASSERT_TRUE(orders_->CreateTable(false));
  EXPECT_EQ(ColumnNames("orders"), (std::vector<std::string>{"ref", "order_id"}));
  EXPECT_EQ(ColumnNames("lines"), (std::vector<std::string>{"qty", "order_id"}));
  // Without overrides the template remembers the database it was made in; children take it.
  const std::string made = Database::Create(cn_str_);
  EXPECT_EQ(orders_->DBConnStr(), made);
  EXPECT_EQ(lines_->DBConnStr(), made);
  // Again: nothing fails, nothing changes.
  ASSERT_TRUE(orders_->CreateTable(false));
  EXPECT_EQ(ColumnNames("lines"), (std::vector<std::string>{"qty", "order_id"}));
}

TEST_F(TablesTest, AChildMakesItsParentsTableFirst) {
  MakeOrders();
  ASSERT_TRUE(lines_->CreateTable(false, cn_str_));
  EXPECT_EQ(ColumnNames("orders"), (std::vector<std::string>{"ref", "order_id"}));
  EXPECT_EQ(ColumnNames("lines"), (std::vector<std::string>{"qty", "order_id"}));
  // An override leaves the dataset's own string alone.
  EXPECT_EQ(lines_->DBConnStr(), cn_str_);
}

TEST_F(TablesTest, AFailureSaysWhichTableAndKeepsItsNumber) {
  auto prods = AddRoot("Products", "<tr>", "prods");
  AddField(prods, "name", "<n>", "</n>", false, 20);
  prods->CreateTable(false);
  Exec("INSERT INTO prods (name) VALUES ('Gearwheel')");
  prods->GetAttributes().Item(1L)->SetColumnSize(4);
  const Error e = CaughtError([&] { prods->CreateTable(false); });
  EXPECT_EQ(e.Number(), db::dberr::kDataTruncated);
  EXPECT_EQ(e.Description().rfind("Error creating table for Listing.Products:  \n\t", 0), 0u)
      << e.Description();
  EXPECT_EQ(e.CallStack().back(),
            "Entity.CreateTable(UseTmpTbls,OverrideConnStr,OverrideDBName,UniqueTblPrefix)");

  prods->SetDBConnStr("");
  const Error none = CaughtError([&] { prods->CreateTable(false); });
  EXPECT_EQ(none.Number(), targeterr::kNoConnectionString);
  EXPECT_EQ(none.Source(), "Entity.CreateTable");
}

TEST_F(TablesTest, AParentWithAKeyFieldButNoSuchFieldCannotBeDescribed) {
  MakeOrders();
  orders_->SetIsPKSurrogate(false);  // the key is "order_id", which no field carries
  EXPECT_EQ(CaughtError([&] { lines_->CreateTable(false, cn_str_); }).Number(),
            errnum::kObjectNotSet);
}

// ---- Validate ----------------------------------------------------------------------------------

// The failures of Validate end with the same paragraph of advice; what is checked here is the
// number and the names, connection string and original error the text carries.
TEST_F(TablesTest, ValidateNamesTheFirstThingMissing) {
  const struct {
    const char* what;
    std::function<void(Entity&)> spoil;
    ErrorNumber number;
    std::string text;           // the whole text, or its start when the advice follows
    std::string original = {};  // the original error that ends a text with advice
  } cases[] = {
      {"init string", [](Entity& e) { e.SetInitString(""); }, 0x8524E4F5,
       "No intialization string was specified for dataset Products in datapage Listing."},
      {"fields", [](Entity& e) { e.GetAttributes().Remove(1L); }, 0x8524E4F6,
       "There are no fields specified for dataset Products in datapage Listing."},
      {"connection", [](Entity& e) { e.SetDBConnStr(""); }, 0x8524E4F7,
       "There is no connection string specified for dataset Products in datapage Listing."},
      {"table", [](Entity& e) { e.SetTableName(""); }, 0x8524E4F8,
       "There is no table name specified for dataset Products in datapage Listing."},
      {"creation", [](Entity& e) { e.SetDBConnStr("Provider=Foo;Data Source=x"); }, 0x8524E4F8,
       "Could not create the table prods for dataset Products in datapage Listing.  ",
       "Original Error: Error creating table for Listing.Products:  \n\tThe Database provider Foo "
       "not supported for automatic creation.  You may still be able to extract to it, but you "
       "must create it yourself."},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    page_ = DataPage::Create();
    page_->SetDisplayName("Listing");
    auto prods = AddRoot("Products", "<tr>", "prods");
    AddField(prods, "name", "<n>", "</n>", false, 20);
    c.spoil(*prods);
    const Error e = CaughtError([&] { prods->Validate(); });
    EXPECT_EQ(e.Number(), c.number);
    EXPECT_EQ(e.Source(), "Entity.Validate");
    if (c.original.empty()) {
      EXPECT_EQ(e.Description(), c.text);
    } else {
      EXPECT_EQ(e.Description().rfind(c.text, 0), 0u) << e.Description();
      EXPECT_TRUE(e.Description().ends_with(c.original)) << e.Description();
    }
  }
  // A dataset on no datapage.
  auto alone = Entity::Create();
  alone->SetEntityName("Loose");
  const Error e = CaughtError([&] { alone->Validate(); });
  EXPECT_EQ(e.Number(), exerr::kNoDatapageOrInitString);
  EXPECT_EQ(e.Description(), "No datapage associated with Loose.");
}

TEST_F(TablesTest, ValidateMakesTheTableAndPassesAgainOnceItExists) {
  auto prods = AddRoot("Products", "<tr>", "prods");
  AddField(prods, "name", "<n>", "</n>", false, 20);
  prods->Validate();
  prods->Validate();
  EXPECT_EQ(ColumnNames("prods"), (std::vector<std::string>{"name"}));
}

TEST_F(TablesTest, ValidateReportsATableThatCannotBeOpened) {
  // A server user who may make and fill tables but not read them.
  auto& server = gw::testing::MariaDbServer::Shared();
  const std::string database = server.CreateDatabase("noread");
  auto root = db::Connection::Create();
  root->Open(server.ConnectionString(database));
  root->ExecuteScript(
      "CREATE USER IF NOT EXISTS 'writer'@'127.0.0.1' IDENTIFIED BY 'pw';"
      "GRANT CREATE, ALTER, INSERT ON `" +
      database + "`.* TO 'writer'@'127.0.0.1'");
  cn_str_ = "Provider=MySQLProv;Server=127.0.0.1;Port=" + std::to_string(server.Port()) +
            ";Initial Catalog=" + database + ";User ID=writer;Password=pw";
  auto prods = AddRoot("Products", "<tr>", "my prods");
  AddField(prods, "name", "<n>", "</n>", false, 20);
  const Error e = CaughtError([&] { prods->Validate(); });
  EXPECT_EQ(e.Number(), exerr::kCannotOpenTable);
  EXPECT_EQ(e.Description().rfind("Could not connect to the table my prodsusing the following "
                                  "connection string: " +
                                      db::MaskPasswords(prods->DBConnStr()) +
                                      " for dataset Products in datapage Listing.  ",
                                  0),
            0u)
      << e.Description();
  EXPECT_NE(e.Description().find("Original Error: "), std::string::npos);
}

// A store that takes its tables and then goes away: no server here can be made to do that.
int g_vanishing_opens = 0;

TEST_F(TablesTest, ValidateReportsAStoreThatCannotBeReached) {
  static bool registered = false;
  if (!registered) {
    registered = true;
    db::RegisterDriver(
        "Vanishing",
        [](const db::ConnectionProperties& p) { return p.Get("Provider") == "Vanishing"; },
        [](const db::ConnectionProperties& p) -> std::unique_ptr<db::Driver> {
          if (++g_vanishing_opens > 2) {
            throw Error(db::dberr::kProvider, "Vanishing", "The server has gone away");
          }
          return db::OpenDriver(db::ConnectionProperties::Parse("Provider=SQLite;Data Source=" +
                                                                p.Get("Data Source")));
        });
  }
  g_vanishing_opens = 0;
  // "MySQL" in the string: made by the MySQL statements, through the store above.
  cn_str_ = "Provider=Vanishing;Data Source=" + (dir_ / "g.db").string() +
            ";Server=MySQL;Password=s3cret";
  auto prods = AddRoot("Products", "<tr>", "prods");
  AddField(prods, "name", "<n>", "</n>", false, 20);
  const Error e = CaughtError([&] { prods->Validate(); });
  EXPECT_EQ(e.Number(), exerr::kCannotConnect);
  // The connection string is shown with its password hidden.
  const std::string& text = e.Description();
  EXPECT_EQ(text.find("s3cret"), std::string::npos) << text;
  EXPECT_EQ(text.rfind("Could not connect using the following connection string: " +
                           db::MaskPasswords(prods->DBConnStr()) +
                           " for dataset Products in datapage Listing.  ",
                       0),
            0u)
      << text;
  EXPECT_TRUE(text.ends_with("Original Error: The server has gone away")) << text;
}

TEST_F(TablesTest, ADatapageNeedsDatasetsAndAnId) {
  Error e = CaughtError([&] { page_->Validate(); });
  EXPECT_EQ(e.Number(), exerr::kNoDatasets);
  EXPECT_EQ(e.Source(), "Datapage.Validate");
  EXPECT_EQ(e.Description(), "The datapage Listing does not have a dataset associated with it.");
  auto prods = AddRoot("Products", "<tr>", "prods");
  page_->SetId("");
  e = CaughtError([&] { page_->Validate(); });
  EXPECT_EQ(e.Number(), exerr::kNoDatapageId);
  EXPECT_EQ(e.Description(), "The datapage Listing does not have an Id.");
  page_->SetId("some-id");
  EXPECT_EQ(CaughtError([&] { page_->Validate(); }).Number(),
            exerr::kNoFields);  // the root's check
  AddField(prods, "name", "<n>", "</n>", false, 20);
  page_->Validate();
}

// ---- CreateDB, DeleteExistingTableData, DropDB --------------------------------------------------

TEST_F(TablesTest, CreateDBMakesEveryTableInTheDatasetsStoresOrInTheOverride) {
  MakeOrders();
  auto prods = AddRoot("Products", "<tr>", "prods");
  AddField(prods, "name", "<n>", "</n>", false, 20);
  EXPECT_EQ(page_->CreateDB(false), "");
  EXPECT_EQ(ColumnNames("lines"), (std::vector<std::string>{"qty", "order_id"}));
  EXPECT_EQ(ColumnNames("prods"), (std::vector<std::string>{"name"}));

  const std::string other = "Provider=SQLite;Data Source=" + (dir_ / "other.db").string();
  const std::string before = prods->DBConnStr();
  EXPECT_EQ(page_->CreateDB(false, other), Database::Create(other));
  EXPECT_EQ(prods->DBConnStr(), before);
  auto cn = db::Connection::Create();
  cn->Open(other);
  EXPECT_FALSE(cn->Execute("SELECT * FROM lines")->Columns().empty());
}

TEST_F(TablesTest, AChildOfAKeyedParentCannotStoreRowsWithoutTheKey) {
  MakeOrders();
  page_->CreateDB(false);
  std::string text = "<order><ref>A1</ref><line><qty>2</qty>";
  page_->Extract(text, false);
  // Nothing fills the parent's key in a child row, and the key column takes no null.
  EXPECT_EQ(Rows("SELECT ref, order_id FROM orders"), (RowList{{"A1", "1"}}));
  EXPECT_TRUE(Rows("SELECT * FROM lines").empty());
  EXPECT_EQ(lines_->PendingFailure().Number(), exerr::kUpdateRefused);
}

TEST_F(TablesTest, DeleteExistingTableDataEmptiesEveryTableAndDropDBTheFile) {
  MakeOrders(false);
  page_->CreateDB(false);
  std::string text = "<order><ref>A1</ref><line><qty>2</qty><line><qty>3</qty>";
  page_->Extract(text, false);
  ASSERT_EQ(Rows("SELECT qty FROM lines"), (RowList{{"2"}, {"3"}}));
  page_->DeleteExistingTableData();
  EXPECT_TRUE(Rows("SELECT * FROM orders").empty());
  EXPECT_TRUE(Rows("SELECT * FROM lines").empty());
  page_->DropDB(orders_->DBConnStr());
  EXPECT_FALSE(std::filesystem::exists(dir_ / "target.db"));
}

// How a connection string names its provider is checked in platform/db_test.
TEST_F(TablesTest, TheProviderNameIsWhatTheConnectionStringSays) {
  auto prods = AddRoot("Products", "<tr>", "prods");
  EXPECT_EQ(prods->DataProviderName(), "SQLite");
  prods->SetDBConnStr("");
  EXPECT_EQ(prods->DataProviderName(), "");
}

// ---- temporary tables -------------------------------------------------------------------------

TEST_F(TablesTest, RowsOfATryOutGoToTemporaryTablesThatLastWithTheDatasets) {
  // The dataset's own target is never touched.
  cn_str_ = "Provider=Microsoft.Jet.OLEDB.4.0;Data Source=" + (dir_ / "never.xlsx").string() +
            ";Extended Properties=\"Excel 8.0;HDR=Yes\"";
  MakeOrders(false);
  page_->CreateDB(true, "", "", "t1_");
  ASSERT_TRUE(IsLiveTemporaryTable("##t1_orders"));
  ASSERT_TRUE(IsLiveTemporaryTable("##t1_lines"));
  std::string text = "<order><ref>A1</ref><line><qty>2</qty><order><ref>B2</ref>";
  page_->Extract(text, true, nullptr, "", "t1_");
  const std::string temp = TemporaryStoreConnectionString();
  auto cn = db::Connection::Create();
  cn->Open(temp);
  const auto rows = [&](const std::string& sql) {
    RowList out;
    for (auto rs = cn->Execute(sql); !rs->IsEOF(); rs->MoveNext()) {
      out.push_back({rs->GetFields().Item(0L).Value().ToText()});
    }
    return out;
  };
  EXPECT_EQ(rows("SELECT ref FROM \"##t1_orders\""), (RowList{{"A1"}, {"B2"}}));
  EXPECT_EQ(rows("SELECT qty FROM \"##t1_lines\""), (RowList{{"2"}}));
  EXPECT_FALSE(std::filesystem::exists(dir_ / "never.xlsx"));
  // Making the tables for real, and letting the datasets go, lets the temporary ones go.
  cn_str_ = "Provider=SQLite;Data Source=" + (dir_ / "real.db").string();
  for (const auto& e : page_->RootEntities()) e->SetDBConnStr(cn_str_);
  for (const auto& e : orders_->AllChildren()) e->SetDBConnStr(cn_str_);
  page_->CreateDB(false);
  orders_.reset();
  lines_.reset();
  page_.reset();
  EXPECT_FALSE(IsLiveTemporaryTable("##t1_orders"));
  EXPECT_EQ(rows("SELECT count(*) FROM sqlite_master WHERE name LIKE '##t1_%'"), (RowList{{"0"}}));
}

// ---- one batch per document -----------------------------------------------------------------

TEST_F(TablesTest, EveryRowOfADocumentIsCommittedWhenItEnds) {
  auto prods = AddRoot("Products", "<tr>", "prods");
  AddField(prods, "name", "<n>", "</n>", false, 20);
  page_->CreateDB(false);
  std::vector<long> seen_while_running;
  std::vector<std::size_t> stores_while_running;
  auto progress = page_->OnProgressChange.Connect([&](long, long) {
    seen_while_running.push_back(static_cast<long>(Rows("SELECT * FROM prods").size()));
    stores_while_running.push_back(db::WriteBatch::OpenStoreCount());
  });
  long seen_at_end = -1;
  auto complete = page_->OnExtractionComplete.Connect(
      [&] { seen_at_end = static_cast<long>(Rows("SELECT * FROM prods").size()); });
  std::string text = "<tr><n>a</n><tr><n>b</n><tr><n>c</n>";
  page_->Extract(text, false);
  EXPECT_EQ(seen_while_running, (std::vector<long>{0, 0, 0}));
  EXPECT_EQ(stores_while_running, (std::vector<std::size_t>{1, 1, 1}));
  EXPECT_EQ(seen_at_end, 3);
}

TEST_F(TablesTest, RowsWrittenBeforeAFailureEndsTheDocumentAreKept) {
  auto prods = AddRoot("Products", "<tr>", "prods");
  AddField(prods, "name", "<n>", "</n>", false, 20);
  page_->CreateDB(false);
  auto progress = page_->OnProgressChange.Connect(
      [&](long, long) { throw Error(errnum::kProviderError, "Host", "the host gave up"); });
  std::string text = "<tr><n>a</n><tr><n>b</n>";
  EXPECT_EQ(CaughtError([&] { page_->Extract(text, false); }).Number(), errnum::kProviderError);
  EXPECT_FALSE(db::WriteBatch::IsActive());
  EXPECT_EQ(Rows("SELECT * FROM prods"), (RowList{{"a"}}));
}

TEST_F(TablesTest, TheRulesDatabaseIsNoTarget) {
  // The rules database in the same file, through another provider name that reaches it.
  SetRulesConnectionOverride(cn_str_);
  Exec("CREATE TABLE jobs (job_id VARCHAR(50))");
  cn_str_ = "Provider=Microsoft.Jet.OLEDB.4.0;Data Source=" + (dir_ / "target.db").string();
  auto jobs = AddRoot("Jobs", "<tr>", "jobs");
  AddField(jobs, "name", "<n>", "</n>", false, 20);
  const Error made = CaughtError([&] { page_->CreateDB(false); });
  EXPECT_EQ(made.Number(), exerr::kTargetIsRulesStore) << made.Description();
  EXPECT_EQ(CaughtError([&] { jobs->Validate(); }).Number(), exerr::kNoTableNameOrTable);
  // Nor are rows written there when the table is there already.
  std::string text = "<tr><n>a</n>";
  EXPECT_EQ(CaughtError([&] { page_->Extract(text, false); }).Number(), exerr::kTargetIsRulesStore);
  SetRulesConnectionOverride({});
  EXPECT_EQ(ColumnNames("jobs"), (std::vector<std::string>{"job_id"})) << "no column was added";
  EXPECT_EQ(Rows("SELECT count(*) FROM jobs"), (RowList{{"0"}}));
}

}  // namespace
}  // namespace gw::extraction_test
