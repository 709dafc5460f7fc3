#include <gtest/gtest.h>

#include "support/test_support.h"

#include "platform/db/connection.h"
#include "platform/db/recordset.h"
#include "platform/rows_one_by_one.h"
#include "platform/store_test.h"
#include "support/mariadb_server.h"

namespace gw::db {
namespace {

using testing::FailureNumber;

using gw::testing::MariaDbServer;

class MariaDbTest : public test::StoreTest {
 protected:
  void SetUp() override {
    auto& server = MariaDbServer::Shared();
    database_ = server.CreateDatabase();
    MakeStore(
        server.ConnectionString(database_),
        "CREATE TABLE items (id VARCHAR(36) PRIMARY KEY, name VARCHAR(10), qty INT, seen DATETIME,"
        " notes TEXT);"
        "CREATE TABLE auto_rows (n INT AUTO_INCREMENT PRIMARY KEY, v VARCHAR(5));"
        "INSERT INTO items VALUES ('a', 'Äpfel', 3, '2026-01-02 03:04:05', NULL)");
  }
  std::string database_;
};

TEST_F(MariaDbTest, ReadsTypedValuesAndCharacterWidths) {
  auto rs = Recordset::Create();
  rs->Open("SELECT * FROM items", Open());
  EXPECT_EQ(rs->RecordCount(), 1);
  EXPECT_EQ((*rs)["name"].Value().ToString(), "Äpfel");
  EXPECT_EQ((*rs)["name"].DefinedSize(), 10);  // characters, not bytes
  EXPECT_EQ((*rs)["qty"].Value().ToLong(), 3);
  EXPECT_EQ((*rs)["seen"].Value().ToDate(), DateTime::FromParts(2026, 1, 2, 3, 4, 5));
  EXPECT_TRUE((*rs)["notes"].Value().IsNull());
  EXPECT_EQ(FailureNumber([&] { (*rs)["missing"]; }), dberr::kItemNotFound);
}

TEST_F(MariaDbTest, AppendsUpdatesAndDeletesThroughTheRecordset) {
  auto cn = Open();
  auto rs = Recordset::Create();
  rs->SetMaxRecords(2);
  rs->Open("SELECT * FROM items", cn, CursorType::Keyset, LockType::Optimistic);
  rs->AddNew();
  (*rs)["id"] = Variant("b");
  (*rs)["name"] = Variant("O'Brien");  // a quote travels as data
  (*rs)["qty"] = Variant("7");
  rs->Update();
  (*rs)["qty"] = Variant(8);
  rs->Update();

  auto check =
      cn->Execute("SELECT name, qty FROM items WHERE id = ?", std::vector<Variant>{Variant("b")});
  EXPECT_EQ((*check)["name"].Value().ToString(), "O'Brien");
  EXPECT_EQ((*check)["qty"].Value().ToLong(), 8);

  rs->Delete();
  EXPECT_EQ((*cn->Execute("SELECT COUNT(*) FROM items"))[0L].Value().ToLong(), 1);
}

TEST_F(MariaDbTest, GeneratedKeysComeBackAndLongValuesAreRefused) {
  auto cn = Open();
  auto rs = Recordset::Create();
  rs->Open("SELECT * FROM auto_rows", cn, CursorType::Keyset, LockType::Optimistic);
  rs->AddNew();
  (*rs)["v"] = Variant("x");
  rs->Update();
  EXPECT_EQ((*rs)["n"].Value().ToLong(), 1);
  rs->AddNew();
  (*rs)["v"] = Variant("toolong");
  EXPECT_EQ(FailureNumber([&] { rs->Update(); }), dberr::kDataTruncated);
}

TEST_F(MariaDbTest, OdbcStyleStringsWithExtendedPropertiesConnect) {
  auto& server = MariaDbServer::Shared();
  auto cn = Connection::Create();
  cn->Open(
      "Provider=MSDASQL;Extended Properties=\"DRIVER={MySQL ODBC 3.51 "
      "Driver};SERVER=127.0.0.1;PORT=" +
      std::to_string(server.Port()) + ";DATABASE=" + database_ + ";UID=root;PWD=;OPTION=18475\"");
  EXPECT_EQ(cn->DefaultDatabase(), database_);
  EXPECT_EQ(FailureNumber([&] { cn->Execute("SELECT * FROM nowhere"); }), dberr::kNoSuchTable);
}

TEST(MariaDbDriver, RefusedConnectionIsANumberedFailure) {
  auto cn = Connection::Create();
  EXPECT_EQ(
      FailureNumber([&] { cn->Open("Provider=MySQLProv;Server=127.0.0.1;Port=1;User ID=x"); }),
      dberr::kProvider);
}

TEST_F(MariaDbTest, RowsReadFromTheServerOneByOneLeaveTheConnectionReadyWhereverTheyStop) {
  auto cn = Open();
  cn->ExecuteScript(
      "CREATE TABLE numbers (n INT PRIMARY KEY);"
      "SET SESSION max_recursive_iterations = 5000;"
      "INSERT INTO numbers WITH RECURSIVE k(n) AS (SELECT 1 UNION ALL SELECT n + 1 FROM k "
      "WHERE n < 3000) SELECT n FROM k");
  // Rows left unread are dropped, so the connection's next statement runs.
  test::CheckRowsHandedOnOneByOne(
      *cn, "SELECT n, CONCAT('p', n) FROM numbers ORDER BY n", [&](const char* what) {
        SCOPED_TRACE(what);
        EXPECT_EQ((*cn->Execute("SELECT COUNT(*) FROM numbers"))[0L].Value().ToLong(), 3000);
      });
  EXPECT_EQ(FailureNumber(
                [&] { cn->ExecuteEach("SELECT * FROM nowhere", {}, [](Row&) { return true; }); }),
            FailureNumber([&] { cn->Execute("SELECT * FROM nowhere"); }));
}

}  // namespace
}  // namespace gw::db
