// The same page written into every kind of target the database layer serves: rows, widths and
// lost rows must not depend on the store.
#include <gtest/gtest.h>

#include "extraction_fixture.h"
#include "support/mariadb_server.h"

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

INSTANTIATE_TEST_SUITE_P(Extraction, TargetStores, ::testing::ValuesIn(kStores),
                         [](const ::testing::TestParamInfo<Store>& info) {
                           return std::string(info.param.name);
                         });

}  // namespace
}  // namespace gw::extraction_test
