// Write batches: one physical connection and transaction per store, committed when the batch
// ends, also when a failure ends it.
#include "platform/db/write_batch.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "platform/db/connection.h"
#include "platform/db/recordset.h"
#include "support/mariadb_server.h"
#include "support/test_support.h"

namespace gw::db {
namespace {

class WriteBatchTest : public ::testing::Test {
 protected:
  WriteBatchTest() {
    auto cn = Connection::Create();
    cn->Open(cn_str_);
    cn->ExecuteScript("CREATE TABLE t (a VARCHAR(10))");
  }
  // One row through a connection of its own, opened pooled as the row sink opens it.
  void InsertPooled(const std::string& cn_str, const std::string& value) {
    auto cn = Connection::Create();
    cn->OpenPooled(cn_str);
    const std::vector<Variant> params{Variant(value)};
    cn->Execute("INSERT INTO t (a) VALUES (?)", params);
    cn->Close();
  }
  // What another connection sees.
  long Count() {
    auto cn = Connection::Create();
    cn->Open(cn_str_);
    return cn->Execute("SELECT count(*) FROM t")->GetFields().Item(0L).Value().ToLong();
  }

  gw::testing::TempDir dir_;
  std::string cn_str_ = "Provider=SQLite;Data Source=" + (dir_ / "t.db").string();
};

TEST_F(WriteBatchTest, RowsOfABatchAreCommittedTogetherAtItsEnd) {
  {
    WriteBatch batch;
    InsertPooled(cn_str_, "a");
    InsertPooled(cn_str_, "b");
    EXPECT_EQ(WriteBatch::OpenStoreCount(), 1u);
    EXPECT_EQ(Count(), 0);  // not yet committed
    batch.Commit();
    EXPECT_EQ(WriteBatch::OpenStoreCount(), 0u);
  }
  EXPECT_EQ(Count(), 2);
  EXPECT_FALSE(WriteBatch::IsActive());
}

TEST_F(WriteBatchTest, AFailureEndingTheBatchKeepsTheRowsWrittenBeforeIt) {
  try {
    WriteBatch batch;
    InsertPooled(cn_str_, "a");
    throw std::runtime_error("the document failed");
  } catch (const std::runtime_error&) {
  }
  EXPECT_EQ(Count(), 1);
  EXPECT_FALSE(WriteBatch::IsActive());
}

TEST_F(WriteBatchTest, AnInnerBatchJoinsTheOuterOne) {
  WriteBatch outer;
  {
    WriteBatch inner;
    InsertPooled(cn_str_, "a");
    inner.Commit();
  }
  EXPECT_EQ(Count(), 0);
  EXPECT_TRUE(WriteBatch::IsActive());
  outer.Commit();
  EXPECT_EQ(Count(), 1);
}

TEST_F(WriteBatchTest, OneFileUnderTwoProvidersIsOneStore) {
  const std::string access =
      "Provider=Microsoft.Jet.OLEDB.4.0;Data Source=" + (dir_.Path() / "." / "t.db").string();
  EXPECT_EQ(StoreKey(access), StoreKey(cn_str_));
  EXPECT_NE(StoreKey(cn_str_), StoreKey("Provider=SQLite;Data Source=" + (dir_ / "u.db").string()));
  WriteBatch batch;
  // Two physical connections would each hold a transaction and wait for the other.
  InsertPooled(cn_str_, "a");
  InsertPooled(access, "b");
  EXPECT_EQ(WriteBatch::OpenStoreCount(), 1u);
  batch.Commit();
  EXPECT_EQ(Count(), 2);
}

TEST_F(WriteBatchTest, OutsideABatchEveryConnectionIsItsOwn) {
  InsertPooled(cn_str_, "a");
  EXPECT_EQ(Count(), 1);
  EXPECT_EQ(WriteBatch::OpenStoreCount(), 0u);
}

TEST_F(WriteBatchTest, AStoreThatCannotCommitIsReportedAndTheOthersStillCommit) {
  const std::string other = "Provider=SQLite;Data Source=" + (dir_ / "o.db").string();
  {
    auto cn = Connection::Create();
    cn->Open(other);
    cn->ExecuteScript(
        "CREATE TABLE p (id INT PRIMARY KEY);"
        "CREATE TABLE t (a VARCHAR(10) REFERENCES p(id) DEFERRABLE INITIALLY DEFERRED)");
  }
  WriteBatch batch;
  InsertPooled(cn_str_, "kept");
  InsertPooled(other, "orphan");  // its foreign key is checked at commit
  EXPECT_THROW(batch.Commit(), Error);
  EXPECT_FALSE(WriteBatch::IsActive());
  EXPECT_EQ(Count(), 1);
  auto cn = Connection::Create();
  cn->Open(other);
  EXPECT_EQ(cn->Execute("SELECT count(*) FROM t")->GetFields().Item(0L).Value().ToLong(), 0);
}

// A session (a run) keeps one physical connection per store for all its batches (documents);
// each batch still commits at its end, a batch that fails to commit costs its connection, and
// the file is left as the session found it.
TEST_F(WriteBatchTest, ASessionKeepsOneConnectionPerStoreAcrossItsBatches) {
  auto cn = Connection::Create();
  cn->Open(cn_str_);
  cn->ExecuteScript(
      "CREATE TABLE p (id INT PRIMARY KEY);"
      "CREATE TABLE c (a VARCHAR(10) REFERENCES p(id) DEFERRABLE INITIALLY DEFERRED)");
  cn->Close();
  const std::size_t opens_before = PhysicalOpenCount(cn_str_);
  std::size_t counted = 0;  // the connections `Count` opened
  {
    StoreSession session;
    for (int k = 1; k <= 3; ++k) {
      SCOPED_TRACE(k);
      WriteBatch batch;
      InsertPooled(cn_str_, "a");
      InsertPooled(cn_str_, "b");
      EXPECT_EQ(WriteBatch::OpenStoreCount(), 1u);
      batch.Commit();
      EXPECT_EQ(WriteBatch::OpenStoreCount(), 0u);
      EXPECT_EQ(StoreSession::KeptStoreCount(), 1u);
      EXPECT_EQ(Count(), 2 * k);  // committed, readable by another connection
      ++counted;
    }
    EXPECT_EQ(PhysicalOpenCount(cn_str_) - opens_before, 1 + counted);
    {
      WriteBatch batch;
      auto orphan = Connection::Create();
      orphan->OpenPooled(cn_str_);
      orphan->Execute("INSERT INTO c (a) VALUES ('x')");
      orphan->Close();
      EXPECT_THROW(batch.Commit(), Error);
    }
    EXPECT_EQ(StoreSession::KeptStoreCount(), 0u)
        << "a connection that failed to commit is dropped";
    WriteBatch batch;
    InsertPooled(cn_str_, "c");
    batch.Commit();
    EXPECT_EQ(Count(), 7);
    ++counted;
    EXPECT_EQ(PhysicalOpenCount(cn_str_) - opens_before, 2 + counted);
  }
  EXPECT_EQ(StoreSession::KeptStoreCount(), 0u);
  auto check = Connection::Create();
  check->Open(cn_str_);
  EXPECT_EQ(check->Execute("PRAGMA journal_mode")->GetFields().Item(0L).Value().ToText(), "delete");
  EXPECT_FALSE(std::filesystem::exists((dir_ / "t.db").string() + "-wal"));
}

TEST(MariaDbRowLimit, OnlyTheRowsAskedForComeBackAndTheLimitEndsWithIt) {
  auto& server = gw::testing::MariaDbServer::Shared();
  auto cn = Connection::Create();
  cn->Open(server.ConnectionString(server.CreateDatabase("gwlimit")));
  cn->ExecuteScript("CREATE TABLE t (a INT); INSERT INTO t VALUES (1), (2), (3), (4)");
  auto two = Recordset::Create();
  two->SetMaxRecords(2);
  two->Open("SELECT * FROM t", cn, CursorType::Keyset, LockType::Optimistic);
  EXPECT_EQ(two->RecordCount(), 2);
  EXPECT_EQ(cn->Execute("SELECT * FROM t")->RecordCount(), 4);
  // After a limited one, a prepared statement reads every row too.
  two = Recordset::Create();
  two->SetMaxRecords(2);
  two->Open("SELECT a FROM t ORDER BY a DESC", cn, CursorType::Keyset, LockType::Optimistic);
  EXPECT_EQ(two->GetFields().Item(0L).Value().ToLong(), 4);
  const std::vector<Variant> none_bound{Variant(0)};
  EXPECT_EQ(cn->Execute("SELECT * FROM t WHERE a > ?", none_bound)->RecordCount(), 4);
}

TEST(OpenForAppending, RowsGoToTheTableWithoutReadingIt) {
  gw::testing::TempDir dir;
  auto cn = Connection::Create();
  cn->Open("Provider=SQLite;Data Source=" + (dir / "t.db").string());
  cn->ExecuteScript("CREATE TABLE t (a VARCHAR(3)); INSERT INTO t VALUES ('old')");
  auto probe = Recordset::Create();
  probe->Open("SELECT * FROM t", cn, CursorType::Keyset, LockType::Optimistic);
  auto rs = Recordset::Create();
  rs->OpenForAppending("SELECT * FROM t", cn, probe->Columns());
  EXPECT_EQ(rs->RecordCount(), 0);
  EXPECT_EQ(rs->Source(), "SELECT * FROM t");
  rs->AddNew();
  (*rs)["a"] = Variant("new");
  rs->Update();
  rs->AddNew();
  (*rs)["a"] = Variant("long");
  EXPECT_THROW(rs->Update(), Error);  // widths are the table's
  EXPECT_EQ(cn->Execute("SELECT count(*) FROM t")->GetFields().Item(0L).Value().ToLong(), 2);
}

}  // namespace
}  // namespace gw::db
