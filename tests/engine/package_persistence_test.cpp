#include <gtest/gtest.h>

#include "engine/doc_source.h"
#include "engine/job.h"
#include "engine/task.h"
#include "extraction/data_page.h"
#include "infra/c_crypto.h"
#include "rules/package_data_access.h"
#include "rules/rules_fixture.h"

namespace gw {
namespace {

using testing::CaughtError;
using testing::RulesStoreTest;

class PackagePersistenceTest : public RulesStoreTest {
 protected:
  // A package "Prices\Nightly" with task B (step 2, one path source) and task A (step 1, a path
  // source and a query source with a connection string).
  JobPtr MakePackage() {
    auto job = Job::Create();
    job->SetJobName("Prices\\Nightly");
    job->SetDescription("Every night");
    job->SetDateCreated(DateTime::FromParts(2026, 2, 3, 4, 5, 6));
    auto b = Task::Create();
    b->SetTaskName("B");
    b->SetStep(2);
    b->SetThrottleWaitMSecs(500);
    b->SetDisplaySrcType(TaskSrcType::SQLGroup);
    auto a = Task::Create();
    a->SetTaskName("A");
    a->SetStep(1);
    a->SetDataPageId("page-1");
    job->GetTasks().Add(b);
    job->GetTasks().Add(a);
    AddSource(*b, SrcType::path, "/data/in", "", "");
    AddSource(*a, SrcType::path, "http://example.test/list", "", "");
    AddSource(*a, SrcType::sql, "SELECT uri FROM pages", "Provider=SQLite;Data Source=/x.db",
              "db1");
    return job;
  }
  static void AddSource(Task& task, SrcType type, std::string source, std::string cn,
                        std::string db) {
    auto s = DocSource::Create();
    s->SetSourceType(type);
    s->SetSource(std::move(source));
    s->SetConnStr(std::move(cn));
    s->SetDBName(std::move(db));
    task.GetDocSources().Add(s, s->DocSrcId());
  }
  static void ExpectSameSources(Task& a, Task& b) {
    ASSERT_EQ(a.GetDocSources().Count(), b.GetDocSources().Count());
    for (long k = 1; k <= a.GetDocSources().Count(); ++k) {
      SCOPED_TRACE(k);
      auto x = a.GetDocSources().Item(k);
      auto y = b.GetDocSources().Item(k);
      EXPECT_EQ(x->DocSrcId(), y->DocSrcId());
      EXPECT_EQ(x->SourceType(), y->SourceType());
      EXPECT_EQ(x->Source(), y->Source());
      EXPECT_EQ(x->ConnStr(), y->ConnStr());
      EXPECT_EQ(x->DBName(), y->DBName());
      EXPECT_EQ(y->TaskId(), b.TaskId());
    }
  }
  static void ExpectSamePackage(Job& saved, Job& loaded) {
    EXPECT_EQ(loaded.JobId(), saved.JobId());
    EXPECT_EQ(loaded.JobName(), saved.JobName());
    EXPECT_EQ(loaded.Description(), saved.Description());
    EXPECT_EQ(loaded.DateCreated(), saved.DateCreated());
    ASSERT_EQ(loaded.GetTasks().Count(), saved.GetTasks().Count());
    for (long k = 1; k <= saved.GetTasks().Count(); ++k) {
      SCOPED_TRACE(k);
      auto x = saved.GetTasks().Item(k);
      auto y = loaded.GetTasks().Item(k);
      EXPECT_EQ(y->TaskId(), x->TaskId());
      EXPECT_EQ(y->TaskName(), x->TaskName());
      EXPECT_EQ(y->Step(), x->Step());
      EXPECT_EQ(y->DataPageId(), x->DataPageId());
      EXPECT_EQ(y->ThrottleWaitMSecs(), x->ThrottleWaitMSecs());
      EXPECT_EQ(y->DisplaySrcType(), x->DisplaySrcType());
      EXPECT_EQ(y->JobId(), saved.JobId());
      EXPECT_EQ(y->GetJob().get(), &loaded);
      EXPECT_FALSE(y->IsDirty());
      ExpectSameSources(*x, *y);
    }
  }
};

TEST_F(PackagePersistenceTest, APackageWithTasksAndSourcesComesBackEqual) {
  auto job = MakePackage();
  job->SaveAll();
  auto loaded = Job::Create();
  loaded->Load(job->JobId(), true);
  ExpectSamePackage(*job, *loaded);
  // The stored connection string is enciphered, and deciphers to what was saved.
  auto row = Open()->Execute("SELECT conn_str FROM doc_locations WHERE db_name = 'db1'");
  const std::string stored = (*row)["conn_str"].Value().ToString();
  EXPECT_EQ(stored.find("rovider"), std::string::npos);
  EXPECT_EQ(CCrypto().DecryptText(stored), "Provider=SQLite;Data Source=/x.db");
}

TEST_F(PackagePersistenceTest, AClearTextConnectionStringStillLoads) {
  auto job = MakePackage();
  job->SaveAll();
  Exec(
      "UPDATE doc_locations SET conn_str = 'Provider=SQLite;Data Source=/old.db' WHERE db_name = "
      "'db1'");
  auto loaded = Job::Create();
  loaded->Load(job->JobId(), true);
  auto source = loaded->GetTasks().Item(1)->GetDocSources().Item(2);
  EXPECT_EQ(source->ConnStr(), "Provider=SQLite;Data Source=/old.db");
  EXPECT_FALSE(source->IncludeSubFolders());
}

TEST_F(PackagePersistenceTest, UnknownIdsFailWithTheirNumberedTexts) {
  testing::ExpectFailures({
      {[] { Job::Create()->Load("nope"); }, engineerr::kNoSuchJob, "Job.Load",
       "The specified Job Id does not exist."},
      {[] { Task::Create()->Load("nope"); }, engineerr::kNoSuchTask, "Task.Load",
       "The specified Task Id nope does not exist."},
      {[] { DocSource::Create()->Load("nope"); }, engineerr::kNoSuchDocSource, "DocSource.Load",
       "The specified Document Source Id does not exist."},
  });
}

TEST_F(PackagePersistenceTest, TwoTasksWithOneStepMakeTheTasksFailToLoad) {
  DJob().Save("j1", NoAction(), NoAction(), "Twins");
  DTask().Save("t1", "j1", "one", NoAction(), 3);
  DTask().Save("t2", "j1", "two", NoAction(), 3);
  auto job = Job::Create();
  job->Load("j1");
  EXPECT_EQ(testing::FailureNumber([&] { job->GetTasks(); }), errnum::kDuplicateKey);
}

TEST_F(PackagePersistenceTest, TasksAreSortedAtEveryRead) {
  auto job = MakePackage();
  job->SaveAll();
  auto loaded = Job::Create();
  loaded->Load(job->JobId());
  EXPECT_EQ(loaded->GetTasks().Item(1)->TaskName(), "A");
  loaded->GetTasks().Item(1)->SetStep(9);
  EXPECT_EQ(loaded->GetTasks().Item(1)->TaskName(), "B");
  EXPECT_EQ(loaded->GetTasks().Item(2)->TaskName(), "A");
  EXPECT_EQ(loaded->GetTasks().GetMaxStep(), 9);
  EXPECT_EQ(loaded->GetTasks().Find(job->GetTasks().Item(2)->TaskId()), 1);
  EXPECT_EQ(loaded->GetTasks().Find("nothing"), 0);
}

TEST(Tasks, SortKeepsEqualStepsInOrderAndDropsKeys) {
  Tasks tasks;
  const std::pair<const char*, int> items[] = {{"c", 2}, {"a", 1}, {"d", 2}, {"b", 1}};
  for (const auto& [name, step] : items) {
    auto t = Task::Create();
    t->SetTaskName(name);
    t->SetStep(step);
    tasks.Add(t, name);
  }
  tasks.Sort();
  std::string order;
  for (const auto& t : tasks) order += t->TaskName();
  EXPECT_EQ(order, "abcd");
  EXPECT_EQ(testing::FailureNumber([&] { tasks.Item("a"); }), errnum::kInvalidProcedureCall);
}

TEST(Tasks, DefaultNamesAndMaxStep) {
  Tasks tasks;
  EXPECT_EQ(tasks.GetDefaultName(), "NewTask");
  EXPECT_EQ(testing::FailureNumber([&] { tasks.GetMaxStep(); }), errnum::kSubscriptOutOfRange);
  for (const char* name : {"newtask", "NewTask (2)"}) {
    auto t = Task::Create();
    t->SetTaskName(name);
    tasks.Add(t);
  }
  EXPECT_EQ(tasks.GetDefaultName(), "NewTask (3)");
}

// The method's form, a negative validation setting and the defaults a copy falls back to are
// checked through the text form in task_text_form_test.
TEST(TaskProperties, ANewTaskIsCleanUntilChangedAndGetsAnIdWhenAsked) {
  auto t = Task::Create();
  EXPECT_FALSE(t->IsDirty());
  EXPECT_EQ(t->TaskType(), TaskTypes::DownloadAndExtract);
  t->SetDoValidation(5);
  EXPECT_EQ(t->DoValidation(), 1);
  EXPECT_TRUE(t->IsDirty());
  t->SetTaskId("");
  EXPECT_EQ(t->TaskId().size(), 36u) << "an empty id is replaced when read";
}

TEST_F(PackagePersistenceTest, NothingIsEditedWhileARunIsUnderWay) {
  auto job = MakePackage();
  job->SaveAll();
  DJob().SaveInstance(job->JobId(), DateTime::FromParts(2026, 5, 5));
  auto task = job->GetTasks().Item(1);
  struct Case {
    std::function<void()> act;
    ErrorNumber number;
    const char* source;
  } cases[] = {
      {[&] { job->Save(); }, engineerr::kJobSaveWhileRunning, "Job.Save"},
      {[&] { job->SaveAll(); }, engineerr::kJobSaveAllWhileRunning, "Job.SaveAll"},
      {[&] { job->Delete(); }, engineerr::kJobDeleteWhileRunning, "Job.Delete"},
      {[&] { task->Save(); }, engineerr::kTaskSaveWhileRunning, "Task.Save"},
      {[&] { task->Delete(); }, engineerr::kTaskDeleteWhileRunning, "Task.Delete"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.source);
    const Error e = CaughtError(c.act);
    EXPECT_EQ(e.Number(), c.number);
    EXPECT_EQ(e.Source(), c.source);
    // The way out that the text names is a command of this program.
    if (c.number != engineerr::kTaskDeleteWhileRunning) {
      EXPECT_TRUE(e.Description().ends_with(
          "You can force all running packages to complete with the command "
          "'gleanwright close-instances'."))
          << e.Description();
    }
  }
  EXPECT_EQ(Count("SELECT COUNT(*) FROM tasks"), 2);

  DJob().CloseInstances(job->JobId());
  task->Delete();  // what goes with a task or a package is checked in schema_test
  EXPECT_EQ(Count("SELECT COUNT(*) FROM tasks"), 1);
  job->Delete();
  EXPECT_EQ(Count("SELECT COUNT(*) FROM jobs"), 0);
}

TEST_F(PackagePersistenceTest, AnInstanceSavesItsRunRows) {
  auto job = MakePackage();
  job->SaveAll();
  job->SetIsInstance(true);
  job->SetStartTime(DateTime::FromParts(2026, 6, 1, 12, 0, 0));
  job->Save();
  EXPECT_TRUE(job->IsAnyInstanceRunning());
  auto task = job->GetTasks().Item(1);
  task->SetIsInstance(true);
  task->SetStartTime(job->StartTime());
  task->Save();
  task->SetCompleteTime(job->StartTime().AddSeconds(5));
  task->SetCompleteCode("5");
  task->Save();
  job->SetCompleteTime(job->StartTime().AddSeconds(6));
  job->SetCompleteCode(5);
  job->Save();
  EXPECT_FALSE(job->IsAnyInstanceRunning());
  EXPECT_EQ(Count("SELECT completion_code FROM task_instances"), 5);
  EXPECT_EQ(Count("SELECT completion_code FROM job_instances"), 5);
  EXPECT_EQ(Count("SELECT COUNT(*) FROM jobs"), 1);
}

TEST_F(PackagePersistenceTest, ACopySavesAsASecondPackage) {
  auto job = MakePackage();
  job->SaveAll();
  const std::string old_id = job->JobId();
  const std::string old_task = job->GetTasks().Item(1)->TaskId();
  job->Copy();
  EXPECT_NE(job->JobId(), old_id);
  EXPECT_NE(job->GetTasks().Item(1)->TaskId(), old_task);
  EXPECT_EQ(job->GetTasks().Item(1)->GetDocSources().Count(), 2);
  job->SaveAll();
  EXPECT_EQ(Count("SELECT COUNT(*) FROM jobs"), 2);
  EXPECT_EQ(Count("SELECT COUNT(*) FROM tasks"), 4);
  EXPECT_EQ(Count("SELECT COUNT(*) FROM doc_locations"), 6);
  auto original = Job::Create();
  original->Load(old_id, true);
  EXPECT_EQ(original->GetTasks().Item(1)->TaskId(), old_task);
  EXPECT_EQ(original->GetTasks().Item(1)->GetDocSources().Count(), 2);
}

TEST_F(PackagePersistenceTest, ATaskLoadedAloneFindsItsPackage) {
  auto job = MakePackage();
  job->SaveAll();
  auto task = Task::Create();
  task->Load(job->GetTasks().Item(2)->TaskId());
  EXPECT_EQ(task->TaskName(), "B");
  EXPECT_EQ(task->GetJob()->JobName(), "Prices\\Nightly");
  EXPECT_EQ(task->GetDocSources().Count(), 1);
  task->SetTaskName("B2");
  task->Save();
  EXPECT_EQ(Count("SELECT COUNT(*) FROM tasks WHERE task_name = 'B2'"), 1);
}

TEST_F(PackagePersistenceTest, ATaskLoadsItsDatapageOnFirstUse) {
  auto page = DataPage::Create();
  page->SetDisplayName("Listing");
  page->Save();
  auto task = Task::Create();
  EXPECT_EQ(task->GetDataPage(), nullptr);
  task->SetDataPageId(page->Id());
  auto loaded = task->GetDataPage();
  ASSERT_NE(loaded, nullptr);
  EXPECT_EQ(loaded->DisplayName(), "Listing");
  EXPECT_EQ(loaded->GetTask(), task);
  EXPECT_EQ(task->GetDataPage(), loaded) << "held";
  task->SetDataPage(nullptr);
  EXPECT_EQ(task->DataPageId(), "");
  EXPECT_EQ(task->GetDataPage(), nullptr);
  task->SetDataPage(page);
  EXPECT_EQ(task->DataPageId(), page->Id());
  task->SetDataPageId("missing");
  EXPECT_EQ(CaughtError([&] { task->GetDataPage(); }).Number(), 0x8004285Cu);
}

}  // namespace
}  // namespace gw
