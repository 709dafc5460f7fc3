// The same page written into every kind of target the database layer serves: rows, widths and
// lost rows must not depend on the store.
#include <gtest/gtest.h>

#include <cstdio>

#include "extraction_fixture.h"
#include "support/mariadb_server.h"
#include "targets/database.h"

namespace gw::extraction_test {
namespace {

using RowList = std::vector<std::vector<std::string>>;

struct Store {
  const char* name;
  std::function<std::string(const gw::testing::TempDir&)> connection_string;
  // What a value longer than VARCHAR(4) becomes: a workbook's columns all hold 255 characters.
  const char* long_name;
};

const Store kStores[] = {
    {"SQLite",
     [](const gw::testing::TempDir& dir) {
       return "Provider=SQLite;Data Source=" + (dir / "t.db").string();
     },
     "Gear"},
    {"Access",
     [](const gw::testing::TempDir& dir) {
       return "Provider=Microsoft.Jet.OLEDB.4.0;Data Source=" + (dir / "t.mdb").string();
     },
     "Gear"},
    {"Excel",
     [](const gw::testing::TempDir& dir) {
       return "Provider=Microsoft.Jet.OLEDB.4.0;Data Source=" + (dir / "t.xlsx").string() +
              ";Extended Properties=\"Excel 8.0;HDR=Yes\"";
     },
     "Gearwheel"},
    {"MariaDB",
     [](const gw::testing::TempDir&) {
       auto& server = gw::testing::MariaDbServer::Shared();
       return server.ConnectionString(server.CreateDatabase("gwextract"));
     },
     "Gear"},
    {"MySqlThroughOdbc",
     [](const gw::testing::TempDir&) {
       auto& server = gw::testing::MariaDbServer::Shared();
       return "Provider=MSDASQL;Initial Catalog=" + server.CreateDatabase("gwodbc") +
              ";Extended Properties=\"DRIVER={MySQL ODBC 3.51 Driver};SERVER=127.0.0.1;PORT=" +
              std::to_string(server.Port()) + ";UID=root;PWD=;\"";
     },
     "Gear"},
};

class TargetStores : public ExtractionTest, public ::testing::WithParamInterface<Store> {
 protected:
  // The rows with nulls read as "": a workbook does not tell an empty cell from a missing value.
  RowList Texts(const std::string& sql) {
    RowList rows = Rows(sql);
    for (auto& row : rows) {
      for (auto& value : row) {
        if (value == "NULL") value.clear();
      }
    }
    return rows;
  }
};

TEST_P(TargetStores, RowsWidthsAndLostRowsAreTheSameInEveryStore) {
  cn_str_ = GetParam().connection_string(dir_);
  Exec("CREATE TABLE prods (name VARCHAR(4), price VARCHAR(10))");
  auto prods = AddRoot("Products", "<tr>", "prods");
  auto name = AddField(prods, "name", "<n>", "</n>");
  AddField(prods, "price", "<p>", "</p>");
  std::string text = "<tr><n>Nut</n><p>1</p><tr><n>Gearwheel</n><tr><p>3</p>";
  page_->Extract(text, false);
  // (A workbook answers only "SELECT * FROM": the columns are name, price in every store.)
  EXPECT_EQ(Texts("SELECT * FROM prods"),
            (RowList{{"Nut", "1"}, {GetParam().long_name, ""}, {"", "3"}}));

  // A column the table lacks loses every row.
  name->SetColumnName("title");
  text = "<tr><n>Bolt</n><p>2</p>";
  page_->Extract(text, false);
  EXPECT_EQ(Rows("SELECT * FROM prods").size(), 3u);
  EXPECT_EQ(prods->PendingFailure().Number(), exerr::kColumnMismatch);
}

TEST_P(TargetStores, TheSameTemplateMakesItsTablesAndWritesTheSameRows) {
  cn_str_ = GetParam().connection_string(dir_);
  auto orders = AddRoot("Orders", "<order>", "orders");
  AddField(orders, "ref", "<ref>", "</ref>", false, 20);
  AddField(orders, "city", "<city>", "</city>", true, 20);
  auto lines = AddChild(orders, "Lines", "<line>", "order_lines");
  AddField(lines, "item", "<item>", "</item>", false, 30);
  AddField(lines, "qty", "<qty>", "</qty>", false, 5);
  page_->CreateDB(false);
  page_->CreateDB(false);  // again: the tables are there, nothing fails

  std::string first =
      "<order><ref>A-1</ref><city>Zürich</city><line><item>Écrou</item><qty>2</qty>"
      "<line><item>Gear 齿轮</item><qty>10</qty>";
  std::string second =
      "<order><ref>B-2</ref><line><item>Bolt</item><qty>1</qty><order><ref>C-3</ref>";
  page_->Extract(first, false);
  page_->Extract(second, false);

  // A workbook answers only "SELECT * FROM": the columns come in the order the tables were made.
  EXPECT_EQ(Texts("SELECT * FROM orders"), (RowList{{"A-1", "Zürich"}, {"B-2", ""}, {"C-3", ""}}));
  EXPECT_EQ(Texts("SELECT * FROM order_lines"),
            (RowList{{"Écrou", "2"}, {"Gear 齿轮", "10"}, {"Bolt", "1"}}));
}

// Names that are names, whatever they hold: each table and column is made and written as
// named, and nothing else is touched; a name a store cannot hold is refused before anything is
// written to it.
TEST_P(TargetStores, HostileNamesAreNamesOrAreRefusedBeforeAnythingIsWritten) {
  const std::string store = GetParam().name;
  const bool workbook = store == "Excel";
  const bool mariadb = store == "MariaDB" || store == "MySqlThroughOdbc";
  cn_str_ = GetParam().connection_string(dir_);
  // A table that a crafted name once sent the rows into.
  Exec("CREATE TABLE victim (name VARCHAR(40), price VARCHAR(40))");
  auto cn = db::Connection::Create();
  cn->Open(cn_str_);
  {
    auto seed = db::Recordset::Create();
    seed->Open("SELECT * FROM victim", cn, db::CursorType::Keyset, db::LockType::Optimistic);
    seed->AddNew();
    seed->GetFields().Item("name").SetValue(Variant(std::string("kept")));
    seed->Update();
  }
  db::FlushBufferedStores();

  struct Case {
    std::string table;
    std::string column;
    bool refused;  // the store cannot hold the name
  };
  const std::string long_name(65, 'x');
  const Case cases[] = {
      {"victim where 0 union select * from victim --", "name", workbook},
      {"with space", "a column", false},
      {"quo\"te", "apo'strophe", false},
      {"back`tick", "semi;colon", false},
      {"brack]et", "brack]et col", workbook},
      {"order", "select", false},
      {"naïve 表", "prix €", false},
      {"slash/name", "price", workbook},
      {"sqlite_mine", "price", store == "SQLite" || store == "Access"},
      {long_name, "price", mariadb || workbook},
      {"ends with space ", "price", mariadb},
      {"t_emoji", "grin 😀", mariadb},
      {"line\nbreak", "price", true},
      {"History", "price", workbook},
  };
  int k = 0;
  for (const Case& c : cases) {
    SCOPED_TRACE(store + ": table \"" + c.table + "\", column \"" + c.column + "\"");
    page_ = DataPage::Create();
    page_->SetDisplayName("Listing " + std::to_string(++k));
    page_->SetDoc(doc_);
    auto prods = AddRoot("Products", "<tr>", c.table);
    AddField(prods, c.column, "<n>", "</n>", false, 20);
    AddField(prods, "other", "<p>", "</p>", false, 20);
    // A name the store can hold makes no failure (number 0).
    Error failure(0, "", "");
    try {
      page_->CreateDB(false);
    } catch (const Error& e) {
      failure = e;
    }
    auto check = db::Connection::Create();
    check->Open(cn_str_);
    if (c.refused) {
      EXPECT_EQ(failure.Number(), targeterr::kUnusableName) << failure.Description();
      EXPECT_FALSE(check->GetDriver().TableExists(c.table)) << "nothing was made";
      continue;
    }
    ASSERT_EQ(failure.Number(), 0u) << failure.Description();
    std::string text = "<tr><n>Nut</n><p>1</p><tr><n>Bolt</n><p>2</p>";
    page_->Extract(text, false);
    EXPECT_EQ(prods->PendingFailure().Number(), 0u) << prods->PendingFailure().Description();
    ASSERT_TRUE(check->GetDriver().TableExists(c.table));
    auto rs = check->Execute("SELECT * FROM " + check->GetDriver().QuoteIdentifier(c.table));
    ASSERT_EQ(rs->RecordCount(), 2);
    EXPECT_EQ(rs->GetFields().Item(c.column).Value().ToText(), "Nut");
  }
  // The crafted name sent nothing into the table it named.
  auto victim = cn->Execute("SELECT * FROM victim");
  EXPECT_EQ(victim->RecordCount(), 1);
}

// The datapage's database is made on the server and written into, named as a person names it.
TEST_F(ExtractionTest, TheDatapagesDatabaseIsMadeOnTheServerAndWrittenWhateverItsName) {
  auto& server = gw::testing::MariaDbServer::Shared();
  // The connection string names another database: the datapage's name wins.
  const std::string other = server.CreateDatabase("x");
  const std::string name = "shop-" + other + " 2";
  cn_str_ = server.ConnectionString(other);
  page_->SetDBName(name);
  auto prods = AddRoot("Products", "<tr>", "prods");
  AddField(prods, "name", "<n>", "</n>", false, 20);
  page_->CreateDB(false);
  EXPECT_EQ(prods->DBConnStr(), cn_str_) << "the name is the datapage's, not the dataset's";
  std::string text = "<tr><n>Nut</n><tr><n>Bolt</n>";
  page_->Extract(text, false);
  cn_str_ = server.ConnectionString(name);
  EXPECT_EQ(Rows("SELECT name FROM prods"), (RowList{{"Nut"}, {"Bolt"}}));
  // One the server cannot hold is refused before anything is made.
  page_->SetDBName(std::string(65, 'd'));
  EXPECT_EQ(testing::CaughtError([&] { page_->CreateDB(false); }).Number(),
            targeterr::kUnusableName);
}

TEST_F(ExtractionTest, AWorkbookWrittenByADocumentOpensInAnotherReader) {
  const auto book = dir_ / "rows.xlsx";
  cn_str_ = "Provider=Microsoft.Jet.OLEDB.4.0;Data Source=" + book.string() +
            ";Extended Properties=\"Excel 8.0;HDR=Yes\"";
  auto prods = AddRoot("Products", "<tr>", "prods");
  AddField(prods, "name", "<n>", "</n>", false, 20);
  AddField(prods, "price", "<p>", "</p>", false, 20);
  page_->CreateDB(false);
  std::string text = "<tr><n>Écrou</n><p>1.50</p><tr><n>Gear 齿轮</n><p>12</p>";
  page_->Extract(text, false);
  // On disk when the document ends, without waiting for the program to exit.
  EXPECT_EQ(testing::RunOpenpyxlScript(
                "import openpyxl\n"
                "ws = openpyxl.load_workbook('" +
                book.string() +
                "')['prods']\n"
                "for row in ws.iter_rows(values_only=True): print('|'.join(row))\n"),
            "name|price\nÉcrou|1.50\nGear 齿轮|12\n");
}

INSTANTIATE_TEST_SUITE_P(Extraction, TargetStores, ::testing::ValuesIn(kStores),
                         [](const ::testing::TestParamInfo<Store>& info) {
                           return std::string(info.param.name);
                         });

}  // namespace
}  // namespace gw::extraction_test
