#include <gtest/gtest.h>

#include <functional>

#include "platform/db/connection.h"
#include "platform/db/recordset.h"
#include "platform/db/row_appender.h"
#include "platform/rows_one_by_one.h"
#include "platform/store_test.h"
#include "support/test_support.h"

namespace gw::db {
namespace {

using testing::CaughtError;
using testing::FailureNumber;

TEST(ConnectionProperties, MaskPasswordsHidesEverySecretAndKeepsTheRest) {
  const struct {
    const char* given;
    const char* shown;
  } cases[] = {
      {"Provider=MySQLProv;Server=h;User ID=u;Password=secret",
       "Provider=MySQLProv;Server=h;User ID=u;Password=*****"},
      {"pwd = 'a;b''c' ;Data Source=x", "pwd = '*****' ;Data Source=x"},
      {"Provider=MSDASQL;Extended Properties=\"DRIVER={MySQL};SERVER=h;UID=u;PWD=secret\"",
       "Provider=MSDASQL;Extended Properties=\"DRIVER={MySQL};SERVER=h;UID=u;PWD=*****\""},
      {"Provider=Microsoft.Jet.OLEDB.4.0;Data Source=/d/x.xlsx;Extended Properties=\"Excel "
       "8.0;HDR=Yes\"",
       "Provider=Microsoft.Jet.OLEDB.4.0;Data Source=/d/x.xlsx;Extended Properties=\"Excel "
       "8.0;HDR=Yes\""},
      {"Provider=SQLite;Data Source=/a;Password=", "Provider=SQLite;Data Source=/a;Password="},
      {"not a connection string", "not a connection string"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.given);
    EXPECT_EQ(gw::db::MaskPasswords(c.given), c.shown);
  }
}

TEST(ConnectionProperties, ParsesQuotedValuesAndRendersThemBack) {
  const auto p = ConnectionProperties::Parse(
      "Provider=Microsoft.Jet.OLEDB.4.0; Data Source = /tmp/a b.xls ;"
      "Extended Properties=\"Excel 8.0;HDR=Yes\";Password='it''s'");
  EXPECT_EQ(p.Get("provider"), "Microsoft.Jet.OLEDB.4.0");
  EXPECT_EQ(p.Get("DATA SOURCE"), "/tmp/a b.xls");
  EXPECT_EQ(p.Get("Extended Properties"), "Excel 8.0;HDR=Yes");
  EXPECT_EQ(p.Get("Password"), "it's");
  EXPECT_EQ(p.Get("Missing"), "");
  const auto again = ConnectionProperties::Parse(p.ToString());
  EXPECT_EQ(again.Items(), p.Items());
}

class SqliteTest : public test::StoreTest {
 protected:
  void SetUp() override {
    MakeStore("Provider=SQLite;Data Source=" + (dir_ / "t.db").string(),
              "CREATE TABLE items (id VARCHAR(36) PRIMARY KEY, name VARCHAR(10), qty INT, "
              "price REAL, seen DATETIME, flag BIT, notes TEXT);"
              "CREATE TABLE log (line VARCHAR(20));"
              "INSERT INTO items VALUES ('a', 'Apple', 3, 1.5, '2026-01-02 03:04:05', 1, NULL);"
              "INSERT INTO items VALUES ('b', 'Banana', 5, 0.25, NULL, 0, 'x');");
  }

  gw::testing::TempDir dir_;
};

TEST_F(SqliteTest, ReadOnlyRecordsetOutlivesItsConnection) {
  auto rs = Recordset::Create();
  {
    auto cn = Open();
    rs->Open("SELECT * FROM items ORDER BY id", cn, CursorType::Static, LockType::ReadOnly);
    cn->Close();
  }
  EXPECT_EQ(rs->RecordCount(), 2);
  EXPECT_EQ((*rs)["name"].Value().ToString(), "Apple");
  EXPECT_EQ((*rs)["qty"].Value().Type(), VarType::Long);
  EXPECT_EQ((*rs)["seen"].Value().ToDate(), DateTime::FromParts(2026, 1, 2, 3, 4, 5));
  EXPECT_TRUE((*rs)["flag"].Value().ToBool());
  rs->MoveNext();
  EXPECT_TRUE((*rs)["seen"].Value().IsNull());
  rs->MoveNext();
  EXPECT_TRUE(rs->IsEOF());
  EXPECT_EQ(FailureNumber([&] { rs->MoveNext(); }), dberr::kNoCurrentRecord);
}

TEST_F(SqliteTest, ColumnsReportDeclaredWidthsAndMissingNamesFailWith3265) {
  auto rs = Recordset::Create();
  rs->Open("SELECT * FROM items", Open());
  auto& f = rs->GetFields();
  EXPECT_EQ(f.Count(), 7);
  EXPECT_EQ(f["name"].DefinedSize(), 10);
  EXPECT_EQ(f["name"].Type(), DataType::VarWChar);
  EXPECT_EQ(f["notes"].DefinedSize(), kUnboundedTextSize);
  EXPECT_EQ(f["qty"].Type(), DataType::Integer);
  EXPECT_EQ(f[0L].Name(), "id");
  EXPECT_EQ(FailureNumber([&] { f["nope"]; }), dberr::kItemNotFound);
  EXPECT_EQ(FailureNumber([&] { f[7L]; }), dberr::kItemNotFound);
}

TEST_F(SqliteTest, AppendingThroughAnUpdatableRecordsetInsertsTheRow) {
  auto cn = Open();
  auto rs = Recordset::Create();
  rs->SetMaxRecords(2);
  rs->Open("SELECT * FROM items", cn, CursorType::Keyset, LockType::Optimistic);
  rs->AddNew();
  (*rs)["id"] = Variant("c");
  (*rs)["name"] = Variant("Cherry");
  (*rs)["qty"] = Variant("12");  // converted to the column's type
  (*rs)["seen"] = Variant("11-23-2026 08:00:00");
  rs->Update();
  cn->Close();

  auto check = Open()->Execute("SELECT qty, seen, typeof(qty) FROM items WHERE id = 'c'");
  EXPECT_EQ((*check)["qty"].Value().ToLong(), 12);
  EXPECT_EQ((*check)[2L].Value().ToString(), "integer");
  EXPECT_EQ((*check)["seen"].Value().ToDate().ToIsoText(), "2026-11-23 08:00:00");
}

TEST_F(SqliteTest, AnAppenderWritesRowsAsAnUpdatableRecordsetWouldAndKeepsTheirValues) {
  auto cn = Open();
  auto rs = Recordset::Create();
  rs->SetMaxRecords(2);
  rs->Open("SELECT * FROM items", cn, CursorType::Keyset, LockType::Optimistic);
  const RowAppender appender(rs->Source(), rs->Columns());
  Driver& d = cn->GetDriver();
  const long id = appender.Require("ID");  // names compare without regard to case
  const long name = appender.Require("name");
  const long qty = appender.Require("qty");
  EXPECT_EQ(FailureNumber([&] { appender.Require("nope"); }), dberr::kItemNotFound);

  Row row;
  appender.Start(row);
  appender.Set(row, id, Variant("c"));
  appender.Set(row, qty, Variant("12"));  // converted to the column's type
  EXPECT_EQ(FailureNumber([&] { appender.Set(row, qty, Variant("lots")); }), dberr::kMultipleStep);
  appender.Insert(d, row);
  // The row keeps what was written, unset columns null.
  EXPECT_EQ(row[static_cast<std::size_t>(qty)].ToLong(), 12);
  EXPECT_EQ(row[static_cast<std::size_t>(id)].ToText(), "c");
  EXPECT_TRUE(row[static_cast<std::size_t>(name)].IsNull());

  // The next rows set other columns; refused ones keep their values too.
  const struct {
    const char* id;
    const char* name;
    ErrorNumber failure;
  } rows[] = {{"a", "Again", dberr::kIntegrity},             // the key is taken
              {"e", "Elderberries", dberr::kDataTruncated},  // longer than VARCHAR(10)
              {"f", "ĀĒĪŌŪĀĒĪŌŪ", 0}};                       // ten characters in twenty bytes
  for (const auto& r : rows) {
    SCOPED_TRACE(r.id);
    appender.Start(row);
    appender.Set(row, id, Variant(r.id));
    appender.Set(row, name, Variant(r.name));
    if (r.failure != 0) {
      EXPECT_EQ(FailureNumber([&] { appender.Insert(d, row); }), r.failure);
    } else {
      appender.Insert(d, row);
    }
    EXPECT_EQ(row[static_cast<std::size_t>(id)].ToText(), r.id);
    EXPECT_EQ(row[static_cast<std::size_t>(name)].ToText(), r.name);
    EXPECT_TRUE(row[static_cast<std::size_t>(qty)].IsNull());
  }
  auto check = Open()->Execute(
      "SELECT id, coalesce(name, '-'), coalesce(qty, '-'), typeof(qty) FROM items "
      "WHERE id IN ('a', 'c', 'f') ORDER BY id");
  std::vector<std::string> seen;
  for (; !check->IsEOF(); check->MoveNext()) {
    seen.push_back((*check)[0L].Value().ToText() + "|" + (*check)[1L].Value().ToText() + "|" +
                   (*check)[2L].Value().ToText() + "|" + (*check)[3L].Value().ToText());
  }
  EXPECT_EQ(seen, (std::vector<std::string>{"a|Apple|3|integer", "c|-|12|integer",
                                            "f|ĀĒĪŌŪĀĒĪŌŪ|-|null"}));

  // The last row as a recordset: one row, disconnected, still editable in memory.
  auto written = appender.ToRecordset(row);
  EXPECT_EQ(written->RecordCount(), 1);
  EXPECT_EQ(written->ActiveConnection(), nullptr);
  EXPECT_EQ(written->Source(), "SELECT * FROM items");
  EXPECT_EQ((*written)["name"].Value().ToText(), "ĀĒĪŌŪĀĒĪŌŪ");
  (*written)["qty"] = Variant("7");
  EXPECT_EQ((*written)["qty"].Value().ToLong(), 7);
  EXPECT_TRUE((*written)["qty"].OriginalValue().IsNull());
}

TEST_F(SqliteTest, AKeptStatementYieldsTheColumnsAnotherConnectionAdded) {
  auto cn = Open();
  EXPECT_EQ(cn->Execute("SELECT * FROM log")->GetFields().Count(), 1);
  Open()->ExecuteScript("ALTER TABLE log ADD COLUMN said VARCHAR(5) DEFAULT 'hi'");
  Open()->ExecuteScript("INSERT INTO log (line) VALUES ('one')");
  // The same text again: the connection's kept statement, which SQLite prepares anew.
  auto rs = cn->Execute("SELECT * FROM log");
  ASSERT_EQ(rs->GetFields().Count(), 2);
  EXPECT_EQ(rs->GetFields()[1L].Name(), "said");
  EXPECT_EQ(rs->GetFields()[1L].DefinedSize(), 5);
  EXPECT_EQ((*rs)["said"].Value().ToText(), "hi");
}

TEST_F(SqliteTest, RefusedValuesFailAtSetOrAtUpdate) {
  auto cn = Open();
  auto rs = Recordset::Create();
  rs->Open("SELECT * FROM items", cn, CursorType::Keyset, LockType::Optimistic);
  rs->AddNew();
  EXPECT_EQ(FailureNumber([&] { (*rs)["qty"] = Variant("lots"); }), dberr::kMultipleStep);
  (*rs)["id"] = Variant("d");
  (*rs)["name"] = Variant("ĀĒĪŌŪĀĒĪŌŪ");  // ten characters fit VARCHAR(10), bytes do not matter
  rs->Update();
  rs->AddNew();
  (*rs)["id"] = Variant("e");
  (*rs)["name"] = Variant("Elderberries");
  EXPECT_EQ(FailureNumber([&] { rs->Update(); }), dberr::kDataTruncated);
  rs->CancelUpdate();
  auto count = cn->Execute("SELECT COUNT(*) FROM items");
  EXPECT_EQ((*count)[0L].Value().ToLong(), 3);
}

TEST_F(SqliteTest, UpdateWithNamesAndValuesAndDeleteWriteThrough) {
  auto cn = Open();
  auto rs = Recordset::Create();
  const std::vector<Variant> id{Variant("a")};
  rs->Open("SELECT * FROM items WHERE id = ?", cn, CursorType::Keyset, LockType::Optimistic, id);
  const std::vector<std::string> names{"name", "qty"};
  const std::vector<Variant> values{Variant("Apricot"), Variant(9)};
  rs->Update(names, values);
  auto check = cn->Execute("SELECT name, qty FROM items WHERE id = 'a'");
  EXPECT_EQ((*check)["name"].Value().ToString(), "Apricot");
  EXPECT_EQ((*check)["qty"].Value().ToLong(), 9);

  rs->Delete();
  rs->Update();  // nothing pending: no effect
  EXPECT_EQ((*cn->Execute("SELECT COUNT(*) FROM items"))[0L].Value().ToLong(), 1);
}

TEST_F(SqliteTest, EditsByNameCancelWhatFailsAndBadArgumentsAreRefused) {
  auto cn = Open();
  auto rs = Recordset::Create();
  rs->Open("SELECT * FROM items", cn, CursorType::Keyset, LockType::Optimistic);
  const std::vector<std::string> names{"id", "qty"};
  rs->AddNew(names, std::vector<Variant>{Variant("c"), Variant(7)});
  EXPECT_EQ(FailureNumber([&] {
              rs->AddNew(names, std::vector<Variant>{Variant("d"), Variant("lots")});
            }),
            dberr::kMultipleStep);
  EXPECT_EQ(rs->GetEditMode(), EditMode::None) << "the failed addition is cancelled";
  EXPECT_EQ(FailureNumber([&] {
              rs->Update(std::vector<std::string>{"name"},
                         std::vector<Variant>{Variant("Elderberries")});
            }),
            dberr::kDataTruncated);
  EXPECT_EQ(rs->GetEditMode(), EditMode::None) << "the failed edit is cancelled";
  EXPECT_EQ((*cn->Execute("SELECT group_concat(id || ':' || ifnull(qty, '-'), ' ') FROM items"))[0L]
                .Value()
                .ToString(),
            "a:3 b:5 c:7");

  const std::string bad =
      "Arguments are of the wrong type, are out of acceptable range, or are in conflict with one "
      "another.";
  const std::vector<Variant> one{Variant("x")};
  const struct {
    const char* source;
    std::function<void()> call;
    std::string description;
  } cases[] = {
      {"Recordset.AddNew", [&] { rs->AddNew(names, one); }, bad},
      {"Recordset.Update", [&] { rs->Update(names, one); }, bad},
      {"Recordset.AbsolutePosition", [&] { rs->SetAbsolutePosition(9); }, bad},
      {"Recordset.Bookmark", [&] { rs->SetBookmark(Variant(999)); }, bad},
      {"Recordset.Find", [&] { rs->Find("nope = 1"); }, bad + " (nope = 1)"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.source);
    const Error e = CaughtError(c.call);
    EXPECT_EQ(e.Number(), dberr::kBadArgument);
    EXPECT_EQ(e.Source(), c.source);
    EXPECT_EQ(e.Description(), c.description);
  }
}

TEST_F(SqliteTest, RowsWithoutAKeyAreFoundByTheirOriginalValues) {
  auto cn = Open();
  cn->Execute("INSERT INTO log VALUES ('one'), ('two')");
  auto rs = Recordset::Create();
  rs->Open("SELECT * FROM log ORDER BY line DESC", cn, CursorType::Keyset, LockType::Optimistic);
  (*rs)["line"] = Variant("TWO");
  rs->Update();
  auto check = cn->Execute("SELECT line FROM log ORDER BY line");
  EXPECT_EQ((*check)[0L].Value().ToString(), "TWO");
  check->MoveNext();
  EXPECT_EQ((*check)[0L].Value().ToString(), "one");
}

TEST_F(SqliteTest, BoundParametersCannotChangeAStatement) {
  auto cn = Open();
  const std::vector<Variant> crafted{Variant("x' OR '1'='1")};
  auto rs = cn->Execute("SELECT * FROM items WHERE id = ?", crafted);
  EXPECT_TRUE(rs->IsEOF());
  EXPECT_EQ(rs->RecordCount(), 0);
}

TEST_F(SqliteTest, TheEmptyDateIsStoredAsNull) {
  auto rs = Recordset::Create();
  rs->Open("SELECT * FROM items WHERE id = 'a'", Open(), CursorType::Keyset, LockType::Optimistic);
  const std::vector<std::string> names{"seen"};
  rs->Update(names, std::vector<Variant>{Variant(DateTime())});
  auto cn = Open();
  const std::vector<Variant> none{Variant(DateTime())};
  EXPECT_EQ((*cn->Execute("SELECT COUNT(*) FROM items WHERE seen IS NULL"))[0L].Value().ToLong(),
            2);
  EXPECT_EQ((*cn->Execute("SELECT COUNT(*) FROM items WHERE seen IS ?", none))[0L].Value().ToLong(),
            2);
}

TEST_F(SqliteTest, ReadOnlyRecordsetRefusesEdits) {
  auto rs = Recordset::Create();
  rs->Open("SELECT * FROM items", Open());
  EXPECT_EQ(FailureNumber([&] { rs->AddNew(); }), dberr::kNotUpdatable);
  EXPECT_EQ(FailureNumber([&] { (*rs)["name"] = Variant("x"); }), dberr::kNotUpdatable);
}

TEST_F(SqliteTest, StatementFailuresAreNumbered) {
  auto cn = Open();
  EXPECT_EQ(FailureNumber([&] { cn->Execute("SELECT * FROM nowhere"); }), dberr::kNoSuchTable);
  EXPECT_EQ(FailureNumber([&] { cn->Execute("SELEKT 1"); }), dberr::kSyntax);
  EXPECT_EQ(FailureNumber([&] { cn->Execute("INSERT INTO items (id) VALUES ('a')"); }),
            dberr::kIntegrity);
  auto unknown = Connection::Create();
  EXPECT_EQ(FailureNumber([&] { unknown->Open("Provider=Nothing;Data Source=x"); }),
            dberr::kProviderNotFound);
  EXPECT_EQ(unknown->Provider(), "Nothing");
  EXPECT_EQ(Connection::Create()->Provider(), "MSDASQL.1");
}

TEST_F(SqliteTest, TransactionsRollBackOnClose) {
  auto cn = Open();
  cn->BeginTrans();
  cn->Execute("INSERT INTO log VALUES ('pending')");
  cn->Close();
  EXPECT_EQ((*Open()->Execute("SELECT COUNT(*) FROM log"))[0L].Value().ToLong(), 0);
}

TEST_F(SqliteTest, RowsHandedOnOneByOneComeInOrderAndFreeTheFileWhereverTheReadingStops) {
  auto cn = Open();
  cn->ExecuteScript(
      "CREATE TABLE numbers (n INTEGER PRIMARY KEY);"
      "WITH RECURSIVE k(n) AS (SELECT 1 UNION ALL SELECT n + 1 FROM k WHERE n < 3000) "
      "INSERT INTO numbers SELECT n FROM k ORDER BY (n * 7919) % 3001");
  // However the reading ends, the statement lets go of the file: another connection can write.
  int written = 0;
  const auto writable = [&](const char* line) {
    auto other = Open();
    other->BeginTrans();
    other->ExecuteNonQuery("INSERT INTO log VALUES (?)", std::vector<Variant>{Variant(line)});
    other->CommitTrans();
    ++written;
  };
  // A failure of the store after some rows unwinds with the store's number, after those rows.
  const ErrorNumber overflow =
      FailureNumber([&] { cn->Execute("SELECT abs(-9223372036854775807 - 1)"); });
  int calls = 0;
  EXPECT_EQ(FailureNumber([&] {
              cn->ExecuteEach(
                  "SELECT CASE WHEN n < 2000 THEN n ELSE abs(n - n - 9223372036854775807 - 1) END "
                  "FROM numbers ORDER BY n",
                  {}, [&](Row&) { return ++calls > 0; });
            }),
            overflow);
  EXPECT_EQ(calls, 1999);
  writable("failed");

  test::CheckRowsHandedOnOneByOne(*cn, "SELECT n, 'p' || n FROM numbers ORDER BY n", writable);
  EXPECT_EQ((*Open()->Execute("SELECT COUNT(*) FROM log"))[0L].Value().ToLong(), written);
  EXPECT_EQ(written, 3);
}

TEST(FabricatedRecordset, FindBookmarkAndChildRecordsets) {
  auto rs = Recordset::Create();
  rs->AppendField("EntityId", DataType::VarWChar, 36);
  rs->AppendField("ColumnName", DataType::VarWChar, 50);
  rs->AppendField("Value", DataType::VarWChar, 255);
  rs->AppendField("Child", DataType::Chapter);
  rs->OpenFabricated();
  EXPECT_TRUE(rs->IsEOF());
  EXPECT_TRUE(rs->IsBOF());
  const char* rows[][3] = {{"E1", "Site", "a"}, {"E2", "Site", "b"}, {"E1", "Lang", "c"}};
  for (const auto& r : rows) {
    rs->AddNew();
    (*rs)["EntityId"] = Variant(r[0]);
    (*rs)["ColumnName"] = Variant(r[1]);
    (*rs)["Value"] = Variant(r[2]);
    rs->Update();
  }
  auto child = Recordset::Create();
  child->AppendField("x", DataType::Integer);
  child->OpenFabricated();
  (*rs)["Child"] = Variant(child);
  rs->Update();
  EXPECT_EQ((*rs)["Child"].Value().As<Recordset>(), child);

  rs->MoveFirst();
  rs->Find("EntityId = 'e1'", 1);  // skip the current row, compare without case
  ASSERT_FALSE(rs->IsEOF());
  EXPECT_EQ((*rs)["Value"].Value().ToString(), "c");
  const Variant mark = rs->Bookmark();
  rs->MoveFirst();
  rs->Find("ColumnName LIKE 'La*'");
  EXPECT_EQ(rs->Bookmark().ToLongLong(), mark.ToLongLong());
  rs->Find("EntityId = E3");
  EXPECT_TRUE(rs->IsEOF());
  rs->SetBookmark(mark);
  EXPECT_EQ((*rs)["Value"].Value().ToString(), "c");
  rs->MoveFirst();
  rs->Delete();
  rs->MoveNext();  // the row after the deleted one
  EXPECT_EQ((*rs)["Value"].Value().ToString(), "b");
  EXPECT_EQ(rs->RecordCount(), 2);
}

}  // namespace
}  // namespace gw::db
