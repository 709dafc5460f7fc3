#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>

#include "platform/db/connection.h"
#include "platform/db/recordset.h"
#include "support/test_support.h"

namespace gw::db {
namespace {

using testing::FailureNumber;

class XlsxTest : public ::testing::Test {
 protected:
  std::string CnStr() const {
    return "Provider=Microsoft.Jet.OLEDB.4.0;Data Source=" + path_.string() +
           ";Extended Properties=\"Excel 8.0;HDR=Yes\"";
  }
  ConnectionPtr Open() {
    auto cn = Connection::Create();
    cn->Open(CnStr());
    return cn;
  }
  void AppendRow(const std::string& name, const std::string& price) {
    auto cn = Open();  // a connection per row, as the row sink does
    auto rs = Recordset::Create();
    rs->SetMaxRecords(2);
    rs->Open("SELECT * FROM Products", cn, CursorType::Keyset, LockType::Optimistic);
    rs->AddNew();
    (*rs)["Name"] = Variant(name);
    (*rs)["Price"] = Variant(price);
    rs->Update();
    cn->Close();
  }

  gw::testing::TempDir dir_;
  std::filesystem::path path_ = dir_ / "out.xls";
};

TEST_F(XlsxTest, RowsAppendedOnePerConnectionOpenInAnIndependentReader) {
  Open()->Execute("CREATE TABLE Products (Name TEXT, Price TEXT)");
  AppendRow("Tea", "2.50");
  AppendRow("Coffee & <Cake>", "");
  AppendRow("Grüße", "1");
  FlushBufferedStores();
  const std::string out = testing::RunOpenpyxlScript(
      "import openpyxl\n"
      "wb = openpyxl.load_workbook(open('" +
      path_.string() +
      "', 'rb'))\n"
      "print(wb.sheetnames)\n"
      "for row in wb['Products'].iter_rows(values_only=True): print(row)\n");
  EXPECT_EQ(out,
            "['Products']\n"
            "('Name', 'Price')\n"
            "('Tea', '2.50')\n"
            "('Coffee & <Cake>', None)\n"
            "('Grüße', '1')\n");
}

TEST_F(XlsxTest, ReadsAWorkbookWrittenByAnotherProgram) {
  testing::RunOpenpyxlScript(
      "import openpyxl\n"
      "wb = openpyxl.Workbook()\n"
      "ws = wb.active\n"
      "ws.title = 'Products'\n"
      "ws.append(['Name', 'Price'])\n"
      "ws.append(['Tea', 2.5])\n"
      "ws.append(['Milk', None])\n"
      "wb.save('" +
      path_.string() + "')\n");
  auto cn = Open();
  auto rs = cn->Execute("SELECT * FROM [Products$]");
  ASSERT_EQ(rs->RecordCount(), 2);
  EXPECT_EQ((*rs)["Name"].Value().ToString(), "Tea");
  EXPECT_EQ((*rs)["Price"].Value().ToString(), "2.5");
  EXPECT_EQ((*rs)["Price"].DefinedSize(), 255);
  rs->MoveNext();
  EXPECT_TRUE((*rs)["Price"].Value().IsNull());
  // A second table goes beside the first, and the first keeps its rows.
  cn->Execute("CREATE TABLE Shops (City TEXT)");
  EXPECT_EQ(Open()->Execute("SELECT * FROM Products")->RecordCount(), 2);
}

TEST_F(XlsxTest, DeletingTheFileEmptiesTheWorkbook) {
  Open()->Execute("CREATE TABLE Products (Name TEXT, Price TEXT)");
  AppendRow("Tea", "1");
  FlushBufferedStores();
  std::filesystem::remove(path_);
  EXPECT_EQ(FailureNumber([&] { Open()->Execute("SELECT * FROM Products"); }), dberr::kNoSuchTable);
  Open()->Execute("CREATE TABLE Products (Name TEXT, Price TEXT)");
  EXPECT_EQ(Open()->Execute("SELECT * FROM Products")->RecordCount(), 0);
}

TEST_F(XlsxTest, RefusesWhatASheetCannotDo) {
  auto cn = Open();
  cn->Execute("CREATE TABLE Products (Name TEXT, Price TEXT)");
  EXPECT_EQ(FailureNumber([&] { cn->Execute("CREATE TABLE Products (Name TEXT)"); }),
            dberr::kSyntax);
  EXPECT_EQ(FailureNumber([&] { cn->Execute("DELETE FROM Products"); }), dberr::kProvider);
  auto rs = Recordset::Create();
  rs->Open("SELECT * FROM Products", cn, CursorType::Keyset, LockType::Optimistic);
  rs->AddNew();
  (*rs)["Name"] = Variant(std::string(256, 'x'));
  EXPECT_EQ(FailureNumber([&] { rs->Update(); }), dberr::kDataTruncated);
  rs->CancelUpdate();
  EXPECT_EQ(FailureNumber([&] { (*rs)["Nope"]; }), dberr::kItemNotFound);
}

TEST(AccessTarget, IsASqliteFileAtItsDataSource) {
  gw::testing::TempDir dir;
  auto cn = Connection::Create();
  cn->Open("Provider=Microsoft.Jet.OLEDB.4.0;Data Source=" + (dir / "t.mdb").string());
  cn->Execute("CREATE TABLE T (A TEXT)");
  cn->Close();
  const std::string head = gw::testing::ReadFile(dir / "t.mdb").substr(0, 15);
  EXPECT_EQ(head, "SQLite format 3");
}

}  // namespace
}  // namespace gw::db
