#include "rules/c_disconn_rs.h"

#include <gtest/gtest.h>

#include "infra/error_report.h"
#include "platform/db/report_capture.h"
#include "rules/package_data_access.h"
#include "rules/rules_transaction.h"
#include "rules_fixture.h"

namespace gw {
namespace {

using testing::FailureNumber;
using testing::RulesStoreTest;

class CDisconnRSTest : public RulesStoreTest {
 protected:
  void SetUp() override {
    RulesStoreTest::SetUp();
    Exec("INSERT INTO jobs (job_id, job_name) VALUES ('j1', 'b'), ('j2', 'a'), ('j''3', 'c')");
  }
};

TEST_F(CDisconnRSTest, ReadOnlyResultOutlivesItsConnectionWithTheRightCount) {
  const CDisconnRS q(cn_str_);
  auto rs = q.RunQuery("SELECT [job_id], [job_name] FROM [jobs] ORDER BY [job_name]", true);
  EXPECT_EQ(rs->ActiveConnection(), nullptr);
  EXPECT_EQ(rs->RecordCount(), 3);
  EXPECT_EQ((*rs)["job_name"].Value().ToString(), "a");
  rs->MoveNext();
  rs->MoveNext();
  EXPECT_EQ((*rs)["job_id"].Value().ToString(), "j'3");
  // The file is not held: another writer is not kept waiting by the recordset.
  Exec("DELETE FROM jobs");
  EXPECT_EQ(rs->RecordCount(), 3);
}

TEST_F(CDisconnRSTest, AnIdWithAQuoteIsSimplyNotFound) {
  const CDisconnRS q(cn_str_);
  for (const char* crafted : {"x' OR '1'='1", "j1'--", "'"}) {
    SCOPED_TRACE(crafted);
    EXPECT_EQ(
        q.RunQuery("SELECT * FROM jobs WHERE job_id = ?", true, {Variant(crafted)})->RecordCount(),
        0);
    EXPECT_EQ(q.RunQuery("Exec usp_GetTasks ?", true, {Variant(crafted)})->RecordCount(), 0);
  }
  EXPECT_EQ(
      q.RunQuery("SELECT * FROM jobs WHERE job_id = ?", true, {Variant("j'3")})->RecordCount(), 1);
  EXPECT_EQ(Count("SELECT COUNT(*) FROM jobs"), 3);
}

TEST_F(CDisconnRSTest, UpdatableResultWritesThroughUntilDetached) {
  const CDisconnRS q(cn_str_);
  auto rs = q.RunQuery("SELECT * FROM jobs WHERE job_id = ?", false, {Variant("j1")});
  ASSERT_NE(rs->ActiveConnection(), nullptr);
  (*rs)["job_name"] = Variant("renamed");
  rs->Update();
  EXPECT_EQ(Count("SELECT COUNT(*) FROM jobs WHERE job_name = 'renamed'"), 1);
  rs->SetActiveConnection(nullptr);
  (*rs)["job_name"] = Variant("only in memory");
  rs->Update();
  EXPECT_EQ(Count("SELECT COUNT(*) FROM jobs WHERE job_name = 'renamed'"), 1);
}

TEST_F(CDisconnRSTest, ExecRunsTheProcedureWithLiteralOrBoundArgumentsAndStatementsRunToo) {
  Exec("INSERT INTO tasks (task_id, job_id, step) VALUES ('t2', 'j1', 2), ('t1', 'j1', 1)");
  const CDisconnRS q(cn_str_);
  for (auto rs : {q.RunQuery("Exec usp_GetTasks 'j1'", true),
                  q.RunQuery("Exec usp_GetTasks ?", true, {Variant("j1")})}) {
    ASSERT_EQ(rs->RecordCount(), 2);
    EXPECT_EQ((*rs)["TaskId"].Value().ToString(), "t1");
  }
  // An inserting procedure, like any statement without rows, gives a closed recordset.
  EXPECT_FALSE(q.RunQuery("Exec usp_CustCol_InsForEnt 'e1', 24")->IsOpen());
  EXPECT_EQ(Count("SELECT COUNT(*) FROM entity_custom_columns WHERE entity_id = 'e1'"), 1);
  EXPECT_FALSE(q.RunQuery("UPDATE jobs SET description = ? WHERE job_id = ?", false,
                          {Variant("d"), Variant("j2")})
                   ->IsOpen());
  EXPECT_EQ(Count("SELECT COUNT(*) FROM jobs WHERE description = 'd'"), 1);
}

TEST_F(CDisconnRSTest, FailuresCarryTheStoresNumberAndTheLogName) {
  const CDisconnRS q(cn_str_);
  const Error e = testing::CaughtError([&] { q.RunQuery("SELECT * FROM nowhere", true); });
  EXPECT_EQ(e.Number(), db::dberr::kNoSuchTable);
  ASSERT_FALSE(e.CallStack().empty());
  EXPECT_EQ(e.CallStack().front(), "CDisconnRS.RunQuery(SQLStatement,ReadOnly)");
  EXPECT_EQ(FailureNumber([&] { q.RunQuery("Exec usp_DoesNotExist", true); }), 0x80040E14u);
  EXPECT_EQ(FailureNumber([&] { CDisconnRS("Provider=Nothing").RunQuery("SELECT 1", true); }),
            db::dberr::kProviderNotFound);
}

TEST_F(CDisconnRSTest, AFailedQueryThreeCallsDeepReportsEveryCallersValuesAndTheStore) {
  // The package's tasks are gone from the store: removing one fails in the query its row is
  // looked up with, two calls below.
  Exec("DROP TABLE tasks");
  const Error e = testing::CaughtError([] { DTask().Delete("t-9"); });
  EXPECT_EQ(e.Number(), db::dberr::kNoSuchTable);
  const std::string r = BuildErrorReport(e);
  EXPECT_EQ(r.rfind(e.Description(), 0), 0u) << r;
  EXPECT_NE(r.find("  Method: CDisconnRS.RunQuery \n"), std::string::npos) << r;
  // The store, and the connection the query opened for itself is closed as the failure passes.
  EXPECT_NE(r.find("  ADO Info: \n    ADO Version:   " + db::DatabaseLayerVersion() +
                   "\n    DbObject:      Connection\n    Conn. String: '" + cn_str_),
            std::string::npos)
      << r;
  EXPECT_NE(r.find("'\n    Conn. State:   adStateOpen\n  Call Stack: \n"), std::string::npos) << r;
  EXPECT_NE(r.find("no such table: tasks"), std::string::npos) << r;
  // The three frames, innermost first, each with its own values.
  const std::string dashes(100, '-');
  const std::size_t query = r.find(
      "  Call Stack: \n    CDisconnRS.RunQuery(SQLStatement,ReadOnly)\n"
      "    Value Of SQLStatement:'SELECT task_id as TaskId, job_id AS JobId");
  ASSERT_NE(query, std::string::npos) << r;
  const std::size_t read_only =
      r.find("From tasks Where task_id = ?'\n    Value Of ReadOnly:False\n" + dashes +
                 "\n    Connection: Attempt to call Close succeeded\n",
             query);
  ASSERT_NE(read_only, std::string::npos) << r;
  const std::size_t selectx = r.find(
      "    DTask.Selectx(TaskId,ReadOnly)\n    Value Of TaskId:'t-9'\n"
      "    Value Of ReadOnly:False\n" +
          dashes + "\n",
      read_only);
  ASSERT_NE(selectx, std::string::npos) << r;
  EXPECT_NE(
      r.find("    DTask.Delete(TaskId)\n    Value Of TaskId:'t-9'\n" + dashes + "\n", selectx),
      std::string::npos)
      << r;
}

TEST_F(CDisconnRSTest, AFailedQueryInsideATransactionLeavesTheTransactionToItsOwner) {
  const CDisconnRS q(cn_str_);
  RulesTransaction t(cn_str_);
  q.RunQuery("INSERT INTO jobs (job_id, job_name) VALUES ('j4', 'd')", false);
  const Error e = testing::CaughtError([&] { q.RunQuery("SELECT * FROM nowhere", true); });
  const std::string r = BuildErrorReport(e);
  // The transaction's connection is described, neither rolled back nor closed.
  EXPECT_NE(r.find("    Conn. State:   adStateOpen\n"), std::string::npos) << r;
  EXPECT_NE(r.find("no such table: nowhere"), std::string::npos) << r;
  EXPECT_EQ(r.find("RollbackTrans"), std::string::npos) << r;
  EXPECT_EQ(r.find("Attempt to call Close"), std::string::npos) << r;
  // The caller took the failure in its stride: what the transaction wrote is committed.
  t.Commit();
  EXPECT_EQ(Count("SELECT COUNT(*) FROM jobs WHERE job_id = 'j4'"), 1);
}

}  // namespace
}  // namespace gw
