// Package runs: the order of tasks, gotos, cancel and failure.
#include <gtest/gtest.h>

#include <algorithm>

#include "engine/run_fixture.h"
#include "meta/meta_job.h"
#include "meta/meta_task.h"
#include "platform/db/connection.h"
#include "rules/connection_string.h"
#include "rules/rules_schema.h"

namespace gw::engine_test {
namespace {

using testing::CaughtError;
using testing::WriteFile;

class JobRunTest : public RunTest {
 protected:
  JobRunTest() {
    TargetScript(
        "CREATE TABLE log (what TEXT);"
        "CREATE TABLE counter (n INT); INSERT INTO counter VALUES (0);");
  }
  // A task that writes its name into the target's log.
  TaskPtr LogTask(const JobPtr& job, const std::string& name, std::int32_t step) {
    auto task = AddTask(job, name, step, TaskTypes::SQLStatement);
    AddSource(task, "INSERT INTO log VALUES ('" + name + "')", SrcType::path, target_cn_);
    return task;
  }
  TaskPtr GotoTask(const JobPtr& job, std::int32_t step, const std::string& target,
                   SrcType type = SrcType::path) {
    auto task = AddTask(job, "goto", step, TaskTypes::GotoTask);
    AddSource(task, target, type, type == SrcType::sql ? target_cn_ : std::string());
    return task;
  }
  std::vector<std::string> Log() { return TargetRows("SELECT what FROM log ORDER BY rowid"); }
  // Answers "Task Complete" with a cancel the `n`th time it comes.
  void CancelAtTaskComplete(Job& job, int n) {
    cancel_ = job.OnStatusChange.Connect([this, n](const std::string& s, bool& cancel) {
      if (s == "Task Complete" && ++task_completes_ == n) cancel = true;
    });
  }
  std::string JobRun() {
    return RulesRows(
               "SELECT job_completion_time IS NOT NULL, completion_code FROM "
               "job_instances")
        .at(0);
  }
  std::string JobCode(int pct) {
    return RulesRows(
               "SELECT job_success_code_id FROM job_success_codes WHERE ? >= "
               "min_determinant AND ? < max_determinant",
               {Variant(pct), Variant(pct)})
        .at(0);
  }

  int task_completes_ = 0;
  ScopedConnection cancel_;
};

TEST_F(JobRunTest, AGotoLoopRunsUntilTheHostCancels) {
  WriteFile(docs_ / "page.htm", ListingHtml({{"Looped", "", {}}}));
  auto job = NewJob("Loop");
  auto extract = AddTask(job, "Extract", 1, TaskTypes::DownloadAndExtract, SaveListingPage());
  AddSource(extract, docs_.Path().string());
  GotoTask(job, 2, "1");
  job->SaveAll();
  // Extract, goto, Extract: the third "Task Complete" stops it.
  CancelAtTaskComplete(*job, 3);
  EventLog log;
  Listen(*job, log);

  const std::string code = job->Execute();

  EXPECT_EQ(task_completes_, 3);
  // The task ran twice in one run: one row, updated; one entry per task in the metadata.
  EXPECT_EQ(RulesRows("SELECT COUNT(*), MIN(task_completion_time IS NOT NULL) FROM "
                      "task_instances"),
            (std::vector<std::string>{"1|1"}));
  EXPECT_EQ(job->Metadata()->GetMetaTasks().Count(), 2);
  // Each pass queues the folder again, and extracts every copy the run has so far.
  EXPECT_EQ(RulesRows("SELECT COUNT(*) FROM task_instance_docs"), (std::vector<std::string>{"2"}));
  EXPECT_EQ(TargetRows("SELECT COUNT(*) FROM items"), (std::vector<std::string>{"3"}));
  // A cancel is no failure: the run is closed and its code returned.
  EXPECT_EQ(JobRun(), "1|" + JobCode(100));
  EXPECT_FALSE(code.empty());
  EXPECT_EQ(log.events.back(), "job complete");
  EXPECT_TRUE(log.Has("status:Saving package results.  This could take a few minutes..."));
  EXPECT_TRUE(log.Has("status:" + code));
}

TEST_F(JobRunTest, GotoTargetsArePositionsInTheSortedList) {
  struct Case {
    const char* what;
    std::string target;
    int cancel_at;  // 0: the run ends by itself
    std::vector<std::string> want;
  };
  const Case cases[] = {
      {"back to position 3", "3", 7, {"t1", "t2", "t3", "t4", "t3", "t4"}},
      {"the last task can't be a target", "5", 0, {"t1", "t2", "t3", "t4"}},
      {"out of range goes on", "17", 0, {"t1", "t2", "t3", "t4"}},
      {"negative goes on", "-1", 0, {"t1", "t2", "t3", "t4"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    auto job = NewJob(std::string("Goto ") + c.what);
    for (int k = 1; k <= 4; ++k) LogTask(job, "t" + std::to_string(k), k * 10);
    GotoTask(job, 50, c.target);
    job->SaveAll();
    task_completes_ = 0;
    if (c.cancel_at > 0) CancelAtTaskComplete(*job, c.cancel_at);
    job->Execute();
    cancel_.Disconnect();
    EXPECT_EQ(Log(), c.want);
    TargetScript("DELETE FROM log");
  }
}

TEST_F(JobRunTest, AQueryTargetIsAskedThreeTimes) {
  auto job = NewJob("Counting goto");
  LogTask(job, "t1", 1);
  // Answers 1, 2, 3: at least 0, below the count, and then the target is position 3.
  GotoTask(job, 2, "UPDATE counter SET n = n + 1 RETURNING n", SrcType::sql);
  LogTask(job, "t3", 3);
  LogTask(job, "t4", 4);
  job->SaveAll();
  job->Execute();
  EXPECT_EQ(Log(), (std::vector<std::string>{"t1", "t3", "t4"}));
  EXPECT_EQ(TargetRows("SELECT n FROM counter"), (std::vector<std::string>{"3"}));
}

TEST_F(JobRunTest, AGotoToNothingEndsThePackageThroughItsErrorPath) {
  auto job = NewJob("Bad goto");
  LogTask(job, "t1", 1);
  GotoTask(job, 2, "abc");
  LogTask(job, "t3", 3);
  job->SaveAll();
  EventLog log;
  Listen(*job, log);
  const Error e = CaughtError([&] { job->Execute(); });
  // "abc" counts as 0: the next position asked for is 0.
  EXPECT_EQ(e.Number(), 9u);
  ASSERT_FALSE(e.CallStack().empty());
  EXPECT_EQ(e.CallStack().back(), "Job.Execute(URI,SourceText)");
  EXPECT_EQ(Log(), (std::vector<std::string>{"t1"}));
  EXPECT_EQ(JobRun().substr(0, 1), "1") << "the run's row is closed";
  EXPECT_EQ(log.events.back(), "job complete");
  EXPECT_TRUE(log.Has("status:" + e.Description()));
}

TEST_F(JobRunTest, ARunThatCannotBeClosedStillReportsTheFailureThatEndedIt) {
  auto job = NewJob("Unclosable");
  LogTask(job, "t1", 1);
  GotoTask(job, 2, "abc");
  job->SaveAll();
  // From the first "Task Complete" on, the rules store refuses to close the run's row.
  ScopedConnection refuse = job->OnStatusChange.Connect([this](const std::string& s, bool&) {
    if (s != "Task Complete") return;
    Exec(
        "CREATE TRIGGER IF NOT EXISTS refuse_close BEFORE UPDATE ON job_instances "
        "BEGIN SELECT RAISE(ABORT, 'refused for the test'); END");
  });
  const Error e = CaughtError([&] { job->Execute(); });
  EXPECT_EQ(e.Number(), 9u) << "the goto's failure, not the refused save's";
  const auto& stack = e.CallStack();
  ASSERT_GE(stack.size(), 2u);
  EXPECT_NE(stack[stack.size() - 2].find("the run could not be closed"), std::string::npos);
  EXPECT_NE(stack[stack.size() - 2].find("refused for the test"), std::string::npos);
  EXPECT_EQ(JobRun().substr(0, 1), "0") << "the row stays open";
}

TEST_F(JobRunTest, AGotoWithoutASourceIsRefusedOrFails) {
  auto job = NewJob("Empty goto");
  LogTask(job, "t1", 1);
  auto go = AddTask(job, "goto", 2, TaskTypes::GotoTask);
  job->SaveAll();
  EXPECT_EQ(CaughtError([&] { job->Execute(); }).Number(), engineerr::kNoDocSources);
  EXPECT_TRUE(Log().empty()) << "validation comes before any task";
  go->SetDoValidation(0);
  EXPECT_EQ(CaughtError([&] { job->Execute(); }).Number(), 9u);
  EXPECT_EQ(Log(), (std::vector<std::string>{"t1"}));
}

TEST_F(JobRunTest, APackageWithoutTasksFailsAfterItsRunBegan) {
  auto job = NewJob("Nothing");
  EventLog log;
  Listen(*job, log);
  const Error e = CaughtError([&] { job->Execute(); });
  EXPECT_EQ(e.Number(), engineerr::kPackageWithoutTasks);
  EXPECT_EQ(e.Description(), "Package Nothing does not have any tasks associated with it.");
  EXPECT_EQ(log.events.front(), "job begin");
  EXPECT_EQ(log.events.back(), "job complete");
  // Closed, with the code of a run in which no task ran.
  EXPECT_EQ(JobRun(), "1|" + JobCode(0));
  EXPECT_TRUE(job->IsInstance());
}

TEST_F(JobRunTest, CancellingAtValidationStillRunsTheFirstTask) {
  auto job = NewJob("Three");
  for (int k = 1; k <= 3; ++k) LogTask(job, "t" + std::to_string(k), k);
  job->SaveAll();
  ScopedConnection cancel = job->OnStatusChange.Connect([](const std::string& s, bool& c) {
    if (s == "Validating Task t1...") c = true;
  });
  EventLog log;
  Listen(*job, log);
  job->Execute();
  EXPECT_EQ(Log(), (std::vector<std::string>{"t1"}));
  EXPECT_FALSE(log.Has("status:Validating Task t2...")) << "validation stopped there";
  EXPECT_EQ(log.Count("status:Task Complete"), 1);
  EXPECT_EQ(JobRun(), "1|" + JobCode(100));
}

TEST_F(JobRunTest, AFailingTaskEndsThePackageWithItsNumber) {
  auto job = NewJob("Failing");
  LogTask(job, "t1", 1);
  auto bad = AddTask(job, "bad", 2, TaskTypes::SQLStatement);
  AddSource(bad, "INSERT INTO no_such_table VALUES (1)", SrcType::path, target_cn_);
  LogTask(job, "t3", 3);
  job->SaveAll();
  const Error e = CaughtError([&] { job->Execute(); });
  EXPECT_NE(e.Number(), 0u);
  const auto& stack = e.CallStack();
  EXPECT_NE(std::find(stack.begin(), stack.end(), "Task.Execute(URI,SourceText)"), stack.end());
  EXPECT_EQ(stack.back(), "Job.Execute(URI,SourceText)");
  EXPECT_EQ(Log(), (std::vector<std::string>{"t1"}));
  EXPECT_EQ(JobRun().substr(0, 1), "1");
  // The failed task's row has no completion.
  EXPECT_EQ(RulesRows("SELECT t.task_name, ti.task_completion_time IS NOT NULL FROM "
                      "task_instances ti JOIN tasks t ON t.task_id = ti.task_id ORDER BY t.step"),
            (std::vector<std::string>{"t1|1", "bad|0"}));
  EXPECT_FALSE(job->IsAnyInstanceRunning());
}

TEST_F(JobRunTest, ARunStartedInTheSameMillisecondAsAnotherTakesTheNextFreeOne) {
  auto job = NewJob("Crowded");
  LogTask(job, "t1", 1);
  job->SaveAll();
  // Other processes started the package at every millisecond of the next ten seconds, so this
  // run's start collides with one of theirs, as two runs started at once do.
  const DateTime first = DateTime::Now();
  constexpr int kOthers = 10'000;
  {
    auto cn = OpenRulesConnection(modConnectionString::GetCnStr());
    cn->BeginTrans();
    for (int k = 0; k < kOthers; ++k) {
      const std::vector<Variant> run{Variant(job->JobId()), Variant(first.AddMilliseconds(k))};
      cn->ExecuteNonQuery("INSERT INTO job_instances (job_id, job_start_time) VALUES (?, ?)", run);
    }
    cn->CommitTrans();
  }

  job->Execute();

  // The run took the first free millisecond, and closed no run but its own.
  EXPECT_EQ(job->StartTime(), first.AddMilliseconds(kOthers));
  EXPECT_EQ(
      RulesRows("SELECT COUNT(*), SUM(job_completion_time IS NULL AND completion_code IS "
                "NULL) FROM job_instances"),
      (std::vector<std::string>{std::to_string(kOthers + 1) + "|" + std::to_string(kOthers)}));
  EXPECT_EQ(Log(), (std::vector<std::string>{"t1"}));
}

}  // namespace
}  // namespace gw::engine_test
