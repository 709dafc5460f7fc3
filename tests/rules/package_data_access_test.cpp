#include "rules/package_data_access.h"

#include <gtest/gtest.h>

#include "rules/failures.h"
#include "rules/settings.h"
#include "rules_fixture.h"

namespace gw {
namespace {

using testing::CaughtError;
using testing::RulesStoreTest;

Variant Col(const db::RecordsetPtr& rs, const char* name) { return (*rs)[name].Value(); }

// One column of every row, in order.
std::vector<std::string> Ids(const db::RecordsetPtr& rs, const char* column = "doc_id") {
  std::vector<std::string> ids;
  for (; !rs->IsEOF(); rs->MoveNext()) ids.push_back(Col(rs, column).ToString());
  return ids;
}

const DateTime kRun = DateTime::FromParts(2026, 3, 4, 5, 6, 7);

class PackageDataTest : public RulesStoreTest {
 protected:
  // Package j1 with task t1, a run at kRun and its task run.
  void SetUp() override {
    RulesStoreTest::SetUp();
    job_.Save("j1", DateTime::FromParts(2026, 1, 1), DateTime::FromParts(2026, 1, 2),
              "Prices\\Daily", "d");
    task_.Save("t1", "j1", "Fetch", "[!TSK!]x[iTSKi]", 1, 0, 250, "");
    job_.SaveInstance("j1", kRun);
    task_.SaveInstance("t1", "j1", kRun, kRun);
  }
  // A queued document of the run with a try count and a copy code.
  void AddDoc(const std::string& id, const std::string& code, int tries,
              const std::string& temp_uri = "") {
    D_Doc().SaveDocument(id, "t1", "j1", kRun, "http://x/" + id, temp_uri, code);
    if (tries > 0) {
      Exec("UPDATE task_instance_docs SET copy_try_count = ? WHERE doc_id = ?",
           {Variant(tries), Variant(id)});
    }
  }
  DJob job_;
  DTask task_;
};

// What Selectx gives a package or a task is checked through Job::Load and Task::Load in
// package_persistence_test.
TEST_F(PackageDataTest, TheListOfPackagesNamesItsColumnsForDisplay) {
  auto all = job_.GetAllJobs();
  ASSERT_EQ(all->RecordCount(), 1);
  EXPECT_EQ(Col(all, "Name").ToString(), "Prices\\Daily");
  EXPECT_EQ(Col(all, "Create Date").ToDate(), DateTime::FromParts(2026, 1, 1));
}

TEST_F(PackageDataTest, TaskSaveStoresAnEmptyDatapageAsNull) {
  auto rs = task_.Selectx("t1", true);
  EXPECT_EQ(Col(rs, "Description").ToString(), "[!TSK!]x[iTSKi]");
  EXPECT_TRUE(Col(rs, "DatapageId").IsNull());
  task_.Save("t1", NoAction(), NoAction(), NoAction(), NoAction(), NoAction(), NoAction(), "p9");
  EXPECT_EQ(Col(task_.Selectx("t1", true), "DatapageId").ToString(), "p9");
  EXPECT_EQ(Col(task_.Selectx("t1", true), "TaskName").ToString(), "Fetch");
}

TEST_F(PackageDataTest, JobRunKeepsWhatIsNotGivenAndStartsWithNulls) {
  auto run = [&] { return Open()->Execute("SELECT * FROM job_instances WHERE job_id = 'j1'"); };
  EXPECT_TRUE(Col(run(), "job_completion_time").IsNull());
  EXPECT_TRUE(Col(run(), "completion_code").IsNull());
  job_.SaveInstance("j1", kRun, Variant(), Variant(std::int16_t{0}));  // code 0 is "not given"
  EXPECT_TRUE(Col(run(), "completion_code").IsNull());

  const DateTime done = kRun.AddSeconds(30);
  job_.SaveInstance("j1", kRun, Variant(done), Variant(std::int16_t{5}));
  job_.SaveInstance("j1", kRun, Variant(DateTime()), Variant());
  EXPECT_EQ(Col(run(), "job_completion_time").ToDate(), done);
  EXPECT_EQ(Col(run(), "completion_code").ToLong(), 5);
  job_.SaveInstance("j1", kRun, Variant(), Variant(std::int16_t{3}));
  EXPECT_EQ(Col(run(), "job_completion_time").ToDate(), done);
  EXPECT_EQ(Col(run(), "completion_code").ToLong(), 3);
  EXPECT_EQ(Count("SELECT COUNT(*) FROM job_instances"), 1);
}

TEST_F(PackageDataTest, TaskRunStoresEmptyCompletionAsNullEvenOverAValue) {
  task_.SaveInstance("t1", "j1", kRun, kRun, Variant(kRun.AddSeconds(9)), Variant(5));
  EXPECT_EQ(Count("SELECT completion_code FROM task_instances"), 5);
  // The same task run again in the same package run (a goto): one row, under way again.
  task_.SaveInstance("t1", "j1", kRun, kRun.AddSeconds(10), Variant(DateTime()), Variant(""));
  EXPECT_EQ(Count("SELECT COUNT(*) FROM task_instances"), 1);
  EXPECT_EQ(Count("SELECT COUNT(*) FROM task_instances WHERE task_completion_time IS NULL AND "
                  "completion_code IS NULL AND task_start_time = ?",
                  {Variant(kRun.AddSeconds(10))}),
            1);
}

TEST_F(PackageDataTest, RunningPackageCannotBeDeletedUntilClosed) {
  ASSERT_EQ(job_.GetRunningInstances("j1")->RecordCount(), 1);
  const Error e = CaughtError([&] { job_.Delete("j1"); });
  EXPECT_EQ(e.Number(), ruleserr::kPackageRunning);
  EXPECT_EQ(e.Source(), "DJob.Delete");
  EXPECT_EQ(e.Description(),
            "One or more instances of this package is currently executing.  Deletion of the "
            "package is not allowed during execution.  Delete cancelled.  This may be because a "
            "package terminated abnormally.  You can force all running packages to complete with "
            "the command 'gleanwright close-instances'.");
  const Error e2 = CaughtError([&] { job_.DeleteAllTasks("j1"); });
  EXPECT_EQ(e2.Number(), ruleserr::kPackageRunning);
  EXPECT_EQ(e2.Source(), "DJob.DeleteAllTasks");
  EXPECT_EQ(e2.Description(),
            "One or more instances of this package is currently executing.  Deletion of the "
            "package is not allowed during execution.  Delete cancelled.");
  EXPECT_EQ(Count("SELECT COUNT(*) FROM tasks"), 1);

  job_.CloseInstances("j1");
  EXPECT_EQ(job_.GetRunningInstances("j1")->RecordCount(), 0);
  job_.Delete("j1");  // what goes with the package is checked in schema_test
  EXPECT_EQ(Count("SELECT COUNT(*) FROM jobs"), 0);
}

TEST_F(PackageDataTest, CloseInstancesClosesOnlyOpenRunsOfTheGivenPackage) {
  job_.Save("j2", NoAction(), NoAction(), "Other");
  const DateTime old_end = DateTime::FromParts(2020, 1, 1);
  job_.SaveInstance("j1", kRun.AddDays(-1), Variant(old_end), Variant(5));
  job_.SaveInstance("j2", kRun);
  job_.SaveInstance("j2", kRun.AddDays(-3), Variant(old_end), Variant(5));
  job_.CloseInstances("j1");
  EXPECT_EQ(job_.GetRunningInstances("j1")->RecordCount(), 0);
  EXPECT_EQ(job_.GetRunningInstances("j2")->RecordCount(), 1);
  // A finished run keeps its real completion time.
  EXPECT_EQ(Count("SELECT COUNT(*) FROM job_instances WHERE job_completion_time = "
                  "'2020-01-01 00:00:00'"),
            2);
  job_.CloseInstances();
  EXPECT_EQ(Count("SELECT COUNT(*) FROM job_instances WHERE job_completion_time IS NULL"), 0);
  EXPECT_EQ(Count("SELECT COUNT(*) FROM job_instances WHERE job_completion_time = "
                  "'2020-01-01 00:00:00'"),
            2);
}

TEST_F(PackageDataTest, DeleteAllTasksRemovesEveryTaskAndKeepsThePackage) {
  job_.CloseInstances();
  task_.Save("t2", "j1", "Second", NoAction(), 2);
  job_.DeleteAllTasks("j1");
  EXPECT_EQ(Count("SELECT COUNT(*) FROM tasks"), 0);
  EXPECT_EQ(Count("SELECT COUNT(*) FROM jobs"), 1);
}

TEST_F(PackageDataTest, RunHierarchyLeavesOutRunsWithoutACode) {
  job_.SaveInstance("j1", kRun.AddDays(-2), Variant(kRun.AddDays(-2)), Variant(5));
  job_.SaveInstance("j1", kRun.AddDays(-1), Variant(kRun.AddDays(-1)), Variant(2));
  // kRun itself is under way: no code.
  auto tree = job_.GetJobInstanceHierarchy();
  ASSERT_EQ(tree->RecordCount(), 1);
  EXPECT_EQ(Col(tree, "category").ToString(), "Prices");
  auto jobs = Col(tree, "Chapter1").As<db::Recordset>();
  ASSERT_EQ(jobs->RecordCount(), 1);
  EXPECT_EQ(Col(jobs, "Name").ToString(), "Daily");
  auto runs = Col(jobs, "rsJob").As<db::Recordset>();
  ASSERT_EQ(runs->RecordCount(), 2);
  EXPECT_EQ(Col(runs, "Start Time").ToDate(), kRun.AddDays(-1)) << "newest first";
  EXPECT_EQ(Col(runs, "Code").ToString(), "Poor");
  runs->MoveNext();
  EXPECT_EQ(Col(runs, "Code").ToString(), "Success");
}

TEST_F(PackageDataTest, PackageTreesByCategoryAndByTask) {
  job_.Save("j2", NoAction(), NoAction(), "Loose");
  task_.Save("t0", "j1", "First", NoAction(), 0);
  auto tree = job_.GetPkgCategoryHierarchy();
  ASSERT_EQ(tree->RecordCount(), 2);
  EXPECT_EQ(Col(tree, "category").ToString(), "(Default)");
  EXPECT_EQ(Col(Col(tree, "Chapter1").As<db::Recordset>(), "Name").ToString(), "Loose");

  auto jobs = job_.GetJobTaskHierarchy();
  ASSERT_EQ(jobs->RecordCount(), 2);
  EXPECT_EQ(Col(jobs, "job_name").ToString(), "Loose");
  EXPECT_EQ(Col(jobs, "Chapter1").As<db::Recordset>()->RecordCount(), 0);
  jobs->MoveNext();
  auto tasks = Col(jobs, "Chapter1").As<db::Recordset>();
  ASSERT_EQ(tasks->RecordCount(), 2);
  EXPECT_EQ(Col(tasks, "task_name").ToString(), "First");
}

TEST_F(PackageDataTest, ProgressOfARunHasTasksDocumentsAndResults) {
  AddDoc("d1", "Success", 1, "/tmp/d1.htm");
  AddDoc("d2", "Queued", 0);
  D_Metabase().SaveMetaEnt("d1", "e1", 3, 2, 0.5f, 3, 1, 0.5f);
  auto tasks = job_.GetJobProgress("j1", kRun);
  ASSERT_EQ(tasks->RecordCount(), 1);
  EXPECT_EQ(Col(tasks, "task_id").ToString(), "t1");
  auto docs = Col(tasks, "Chapter1").As<db::Recordset>();
  ASSERT_EQ(docs->RecordCount(), 2);
  EXPECT_EQ(Col(docs, "doc_id").ToString(), "d1");
  auto results = Col(docs, "rsEntDetail").As<db::Recordset>();
  ASSERT_EQ(results->RecordCount(), 1);
  EXPECT_EQ(Col(results, "ent_extract_count").ToLong(), 2);
  EXPECT_EQ(Col(results, "status").ToString(), "Partial Success");
  docs->MoveNext();
  EXPECT_EQ(Col(docs, "rsEntDetail").As<db::Recordset>()->RecordCount(), 0);
  EXPECT_EQ(job_.GetJobProgress("j1", kRun.AddSeconds(1))->RecordCount(), 0);
}

TEST_F(PackageDataTest, DocumentSavesFillOnlyWhatIsGiven) {
  D_Doc d;
  d.SaveDocument("d1", "t1", "j1", kRun, "http://x", "", "Queued");
  Exec(
      "UPDATE task_instance_docs SET copy_try_count = 4, copy_completion_time = ? WHERE doc_id = "
      "'d1'",
      {Variant(kRun.AddSeconds(1))});
  // As run metadata saves a document: no task, job or run given.
  d.SaveDocument("d1", "", "", DateTime(), "http://x", "/tmp/x.htm", "", kRun.AddSeconds(2),
                 kRun.AddSeconds(3), 0, 5);
  auto rs = d.GetDoc("d1");
  EXPECT_EQ(Col(rs, "task_id").ToString(), "t1");
  EXPECT_EQ(Col(rs, "job_start_time").ToDate(), kRun);
  EXPECT_EQ(Col(rs, "temp_uri").ToString(), "/tmp/x.htm");
  EXPECT_EQ(Col(rs, "copy_completion_code").ToString(), "Queued");
  EXPECT_EQ(Col(rs, "copy_try_count").ToLong(), 4) << "0 cannot be written back";
  EXPECT_EQ(Col(rs, "copy_completion_time").ToDate(), kRun.AddSeconds(1)) << "not written here";
  EXPECT_EQ(Col(rs, "doc_completion_time").ToDate(), kRun.AddSeconds(3));
  EXPECT_EQ(Col(rs, "extraction_completion_code").ToLong(), 5);
}

TEST_F(PackageDataTest, TheTenthTryEndsRetriesAndTheDontCopyMode) {
  AddDoc("ok", "Success", 1, "/tmp/ok.htm");
  AddDoc("nine", "404 Not Found", 9);
  AddDoc("ten", "404 Not Found", 10);
  AddDoc("queued", "Queued", 0);
  D_DownloadMgr m;
  EXPECT_EQ(Ids(m.GetNonDownloadedFiles("j1", "t1", kRun)),
            (std::vector<std::string>{"nine", "queued"}));
  EXPECT_EQ(m.GetTotalDocCount("j1", "t1", kRun), 4);

  m.SetCachePathToSrcPath("j1", "t1", kRun);
  auto uri_of = [&](const char* id) { return Col(D_Doc().GetDoc(id), "temp_uri").ToText(); };
  EXPECT_EQ(uri_of("nine"), "http://x/nine");
  EXPECT_EQ(uri_of("queued"), "http://x/queued");
  EXPECT_EQ(uri_of("ten"), "");
  EXPECT_EQ(uri_of("ok"), "/tmp/ok.htm");

  EXPECT_EQ(Ids(task_.GetDownloadedDocs("j1", "t1", kRun)),
            (std::vector<std::string>{"ok", "nine", "queued"}));
}

TEST_F(PackageDataTest, NonDownloadedRowsAreUpdatableByTheCaller) {
  AddDoc("d1", "Queued", 0);
  auto rs = D_DownloadMgr().GetNonDownloadedFiles("j1", "t1", kRun);
  ASSERT_EQ(rs->RecordCount(), 1);
  const std::vector<std::string> names{"copy_completion_code", "copy_try_count", "temp_uri"};
  rs->Update(names, std::vector<Variant>{Variant("Success"), Variant(1), Variant("/tmp/d1")});
  EXPECT_EQ(D_DownloadMgr().GetNonDownloadedFiles("j1", "t1", kRun)->RecordCount(), 0);
}

TEST_F(PackageDataTest, OpenRowsReadInSlicesWhileOutcomesAreWrittenComeOnceEach) {
  // A pass reads its rows a slice at a time and writes outcomes as it goes: a failure keeps its
  // row open, a success closes it, and neither may bring a row back or make one be passed over.
  AddDoc("done", "Success", 1, "/tmp/done.htm");
  for (const char* id : {"a", "b", "c", "d", "e"}) AddDoc(id, "Queued", 0);
  AddDoc("tenth", "Not Found", 10);
  D_DownloadMgr m;
  EXPECT_EQ(m.CountNonDownloadedFiles("j1", "t1", kRun), 5);
  const db::ConnectionPtr cn = m.OutcomeConnection();
  std::vector<std::string> seen;
  long long after = 0;
  for (int slice = 0; slice < 10; ++slice) {
    auto rs = m.GetNonDownloadedFilesAfter("j1", "t1", kRun, after, 2);
    if (rs->IsEOF()) break;
    for (; !rs->IsEOF(); rs->MoveNext()) {
      const std::string id = Col(rs, "doc_id").ToString();
      seen.push_back(id);
      after = Col(rs, "row_no").ToLongLong();
      const std::string file = "/tmp/" + id;
      const DateTime now = DateTime::Now();
      if (id == "b" || id == "d") {
        D_DownloadMgr::SetCopyOutcome(*cn, id, "Not Found", Col(rs, "copy_try_count").ToLong() + 1,
                                      nullptr, nullptr);
      } else {
        D_DownloadMgr::SetCopyOutcome(*cn, id, "Success", 1, &file, &now);
      }
    }
  }
  EXPECT_EQ(seen, (std::vector<std::string>{"a", "b", "c", "d", "e"}));
  EXPECT_EQ(Ids(m.GetNonDownloadedFiles("j1", "t1", kRun)), (std::vector<std::string>{"b", "d"}));
  const auto doc = [](const char* id) { return D_Doc().GetDoc(id); };
  EXPECT_EQ(Col(doc("b"), "copy_try_count").ToLong(), 1);
  EXPECT_EQ(Col(doc("b"), "temp_uri").ToString(), "");
  EXPECT_EQ(Col(doc("c"), "temp_uri").ToString(), "/tmp/c");
  EXPECT_FALSE(Col(doc("c"), "copy_completion_time").IsNull());
  EXPECT_TRUE(Col(doc("d"), "copy_completion_time").IsNull());
}

TEST_F(PackageDataTest, FileExtensionsByAddressMimeTypeAndResourceType) {
  D_DownloadMgr m;
  EXPECT_EQ(m.GetSaveAsFileExt("asp"), "htm");
  EXPECT_EQ(m.GetSaveAsFileExt("PDF"), "pdf");
  EXPECT_EQ(m.GetSaveAsFileExt("nothing"), "");
  EXPECT_EQ(m.GetFileExtFromMimeType("text/html; charset=utf-8"), "htm");
  EXPECT_EQ(m.GetFileExtFromMimeType("TEXT/PLAIN"), "txt");
  EXPECT_EQ(m.GetFileExtFromMimeType("application/x-unknown"), "");
  EXPECT_EQ(m.GetDefaultFileExt(0), "htm");
  EXPECT_EQ(m.GetDefaultFileExt(1), "txt");
  EXPECT_EQ(m.GetDefaultFileExt(2), "txt");
  EXPECT_EQ(m.GetDefaultFileExt(3), "");
  EXPECT_EQ(m.GetDefaultFileExt(4), "htm");
  EXPECT_EQ(m.GetDefaultFileExt(5), "txt");
  for (const char* flag : {"http_default", "file_system_default", "ftp_default", "unknown_default",
                           "invalid_default"}) {
    EXPECT_EQ(Count(std::string("SELECT COUNT(*) FROM file_extensions WHERE ") + flag + " = 1"), 1)
        << flag;
  }
}

TEST_F(PackageDataTest, ResultsByDatasetInsertThenUpdate) {
  AddDoc("d1", "Success", 1, "/tmp/d1");
  D_Metabase mb;
  EXPECT_TRUE(mb.SaveMetaEnt("d1", "e1", 4, 1, 0.25f, 2, 3, 3.0f));
  EXPECT_TRUE(mb.SaveMetaEnt("d1", "e1", 4, 4, 1.0f, 5, 0, 0.0f));
  EXPECT_EQ(Count("SELECT COUNT(*) FROM task_inst_doc_results_by_ent"), 1);
  EXPECT_EQ(Count("SELECT ent_extract_count FROM task_inst_doc_results_by_ent"), 4);
  EXPECT_EQ(Count("SELECT success_code FROM task_inst_doc_results_by_ent"), 5);
  // The codes of each level are asked for through the metadata classes in meta_store_test.
}

TEST_F(PackageDataTest, DocumentSourcesSaveLoadAndGoTogether) {
  DDocSource s;
  s.Save("s2", "db", "cipher", "t1", "select uri from t", 1);
  s.Save("s1", NoAction(), NoAction(), "t1", "C:/docs", 0);
  s.Save("s2", NoAction(), NoAction(), NoAction(), "select 2");
  auto rs = s.Selectx("s2", true);
  ASSERT_EQ(rs->RecordCount(), 1);
  EXPECT_EQ(Col(rs, "doc_location_id").ToString(), "s2");
  EXPECT_EQ(Col(rs, "conn_str").ToString(), "cipher");
  EXPECT_EQ(Col(rs, "source").ToString(), "select 2");
  EXPECT_EQ(Col(rs, "source_type").ToLong(), 1);
  EXPECT_EQ(Ids(task_.GetDocSources("t1"), "DocSrcId"), (std::vector<std::string>{"s2", "s1"}));
  s.Delete("s1");  // does nothing
  EXPECT_EQ(task_.GetDocSources("t1")->RecordCount(), 2);
  s.DeleteAll("t1");
  EXPECT_EQ(task_.GetDocSources("t1")->RecordCount(), 0);
}

using SettingsTest = RulesStoreTest;

TEST_F(SettingsTest, OptionsKeepTheirTypeAndAreReplaced) {
  Settings s;
  EXPECT_TRUE(s.GetOption("Missing").IsEmpty());
  s.PutOption("DefaultDownloadPath", "/data/dl/", DataType::Str);
  s.PutOption("Retries", 5, DataType::Dword);
  s.PutOption("EnableWebErrorReporting", true, DataType::Bool);
  EXPECT_EQ(s.GetOption("defaultdownloadpath").ToString(), "/data/dl/");
  EXPECT_EQ(s.GetOption("Retries").Type(), VarType::Long);
  EXPECT_EQ(s.GetOption("Retries").ToLong(), 5);
  EXPECT_EQ(s.GetOption("EnableWebErrorReporting").Type(), VarType::Boolean);
  EXPECT_TRUE(s.GetOption("EnableWebErrorReporting").ToBool());

  s.PutOption("Retries", "many", DataType::Str);
  EXPECT_EQ(s.GetOption("Retries").ToString(), "many");
  EXPECT_EQ(Count("SELECT COUNT(*) FROM settings WHERE name = 'Retries'"), 1);
  EXPECT_EQ(Count("SELECT COUNT(*) FROM settings WHERE name = 'Retries' AND datatype = 'string'"),
            1);

  Exec("INSERT INTO settings VALUES ('Odd', '7', 'other'), ('Nothing', NULL, 'string')");
  EXPECT_EQ(s.GetOption("Odd").ToString(), "7");
  EXPECT_TRUE(s.GetOption("Nothing").IsEmpty());
  EXPECT_TRUE(s.GetOption("x' OR '1'='1").IsEmpty());
}

}  // namespace
}  // namespace gw
