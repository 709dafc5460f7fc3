// Task runs: documents from their sources into a SQLite target, with the run history.
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <map>

#include "acquire/components.h"
#include "design/components.h"
#include "design/html_plugin.h"
#include "engine/components.h"
#include "engine/doc.h"
#include "engine/run_fixture.h"
#include "meta/meta_job.h"
#include "meta/meta_task.h"
#include "platform/db/connection.h"
#include "platform/db/connection_string.h"
#include "platform/db/write_batch.h"
#include "platform/event_loop.h"
#include "rules/package_data_access.h"

namespace gw::engine_test {
namespace {

using testing::CaughtError;
using testing::ReadFile;
using testing::WriteFile;
namespace fs = std::filesystem;

class TaskRunTest : public RunTest {
 protected:
  // A package with one extracting task over `source`.
  TaskPtr ExtractingTask(const std::string& source) {
    job_ = NewJob("Listing run");
    auto task = AddTask(job_, "Extract", 1, TaskTypes::DownloadAndExtract, SaveListingPage());
    AddSource(task, source);
    job_->SaveAll();
    return task;
  }
  // Starts a run of the package the way `Job::Execute` does, without running its tasks.
  void BeginRun() {
    job_->SetIsInstance(true);
    job_->SetStartTime(DateTime::Now());
    job_->Save();
    auto meta = job_->Metadata();
    meta->SetJobId(job_->JobId());
    meta->SetJobName(job_->JobName());
    meta->SetJobStartTime(job_->StartTime());
  }
  std::vector<std::string> Docs(const std::string& columns) {
    return RulesRows("SELECT " + columns + " FROM task_instance_docs ORDER BY rowid");
  }
  // The id of the success code that `level` gives a determinant of `pct`.
  std::string CodeFor(const std::string& level, int pct) {
    return RulesRows("SELECT " + level + "_success_code_id FROM " + level +
                         "_success_codes WHERE ? >= min_determinant AND ? < max_determinant",
                     {Variant(pct), Variant(pct)})
        .at(0);
  }

  JobPtr job_;
};

// Two listing pages in the folder (and one in a subfolder, which is not read), extracted by one
// run of a one-task package.
class TwoListingsRun : public TaskRunTest {
 protected:
  TwoListingsRun() {
    WriteFile(docs_ / "p1.htm", p1_);
    WriteFile(docs_ / "p2.htm", ListingHtml({{"Gamma", "", {"z"}}}));
    WriteFile(docs_ / "sub" / "p3.htm", ListingHtml({{"Hidden", "", {}}}));
    task_ = ExtractingTask(docs_.Path().string());
    Listen(*job_, log_);
    job_->Execute();
  }
  const std::string p1_ = ListingHtml({{"Alpha", "first", {"x", "y"}}, {"Beta", "", {}}});
  TaskPtr task_;
  EventLog log_;
};

TEST_F(TwoListingsRun, RowsOfEveryDocumentReachTheTarget) {
  EXPECT_EQ(TargetRows("SELECT name, note FROM items ORDER BY rowid"),
            (std::vector<std::string>{"Alpha|first", "Beta|NULL", "Gamma|NULL"}));
  EXPECT_EQ(TargetRows("SELECT tag FROM tags ORDER BY rowid"),
            (std::vector<std::string>{"x", "y", "z"}));
  EXPECT_FALSE(task_->IsInstance());
}

TEST_F(TwoListingsRun, EachDocumentIsCopiedCleansedAndExtractedFromTheCopy) {
  const auto docs = Docs("uri, copy_completion_code, copy_try_count, temp_uri");
  ASSERT_EQ(docs.size(), 2u);
  // A task whose saver says nothing saves "default.htm" in the default folder, never over an
  // older file.
  const std::string copies = (home_.Path() / "downloads").string();
  EXPECT_EQ(docs[0], (docs_ / "p1.htm").string() + "|Success|1|" + copies + "/default.htm");
  EXPECT_EQ(docs[1], (docs_ / "p2.htm").string() + "|Success|1|" + copies + "/default(1).htm");
  const std::string copy1 = docs[0].substr(docs[0].rfind('|') + 1);
  EXPECT_EQ(ReadFile(copy1).rfind("<HTML>", 0), 0u) << "the copy was cleansed";
  EXPECT_EQ(ReadFile(docs_ / "p1.htm"), p1_) << "the user's file was not";
}

TEST_F(TwoListingsRun, TheHistoryHasAResultAtEveryLevel) {
  const std::string doc_code = CodeFor("doc", 100);
  EXPECT_EQ(Docs("extraction_completion_code, doc_start_time IS NOT NULL, "
                 "doc_completion_time IS NOT NULL"),
            (std::vector<std::string>{doc_code + "|1|1", doc_code + "|1|1"}));
  // One result per dataset and document. (A nested dataset's counters start again with every
  // row of its parent, so only the root's counts say much.)
  const std::string ent_code = CodeFor("entity", 100);
  EXPECT_EQ(RulesRows("SELECT e.entity_name, r.ent_occur_count, r.ent_extract_count, "
                      "r.success_code FROM task_inst_doc_results_by_ent r JOIN entities e ON "
                      "e.entity_id = r.entity_id JOIN task_instance_docs d ON d.doc_id = r.doc_id "
                      "WHERE e.entity_name = 'items' ORDER BY d.rowid"),
            (std::vector<std::string>{"items|2|2|" + ent_code, "items|1|1|" + ent_code}));
  EXPECT_EQ(RulesRows("SELECT COUNT(*) FROM task_inst_doc_results_by_ent r JOIN entities e ON "
                      "e.entity_id = r.entity_id WHERE e.entity_name = 'tags'"),
            (std::vector<std::string>{"2"}));
  // The task's and the package's rows are checked by the other task runs and in job_run_test.
}

TEST_F(TwoListingsRun, TheHostHearsOfPagesExtractionAndProgress) {
  // The datapage's completion reaches the host as a second begin, per document.
  EXPECT_EQ(log_.Count("page begin"), 4);
  EXPECT_EQ(log_.Count("page complete"), 0);
  // The pair around nothing, then around the documents.
  EXPECT_EQ(log_.Count("extraction begin"), 2);
  EXPECT_EQ(log_.Count("extraction complete"), 2);
  EXPECT_TRUE(log_.Has("status:Creating Database"));
  EXPECT_EQ(log_.Count("status:Datapage Extraction Complete"), 2);
  // Fetching weighs 1 and extracting 3, against four times the manager's range.
  EXPECT_EQ(log_.Count("major:1/40"), 2);
  EXPECT_EQ(log_.Count("major:3/40"), 2);
}

TEST_F(TaskRunTest, DocumentsThatCannotBeReadDoNotStopTheRun) {
  WriteFile(docs_ / "a_good.htm", ListingHtml({{"Good", "", {}}}));
  WriteFile(docs_ / "b_vanishes.htm", ListingHtml({{"Never", "", {}}}));
  WriteFile(docs_ / "c_empty.htm", "");
  // Declared UTF-8, written in a Latin set (é is the same byte in all of them).
  WriteFile(docs_ / "d_latin.htm",
            "<meta charset=utf-8>" + ListingHtml({{"Caf\xE9", "\xE9t\xE9", {}}}));
  WriteFile(docs_ / "e_folder.htm", ListingHtml({{"Replaced", "", {}}}));
  auto task = ExtractingTask(docs_.Path().string());
  task->SetDisableLocalFileCopy(true);  // the files are read where they are
  job_->SaveAll();
  // Between queuing and extraction one file goes, and another becomes a folder.
  ScopedConnection vanish = task->OnAllDownloadsComplete.Connect([&] {
    fs::remove(docs_ / "b_vanishes.htm");
    fs::remove(docs_ / "e_folder.htm");
    fs::create_directories(docs_ / "e_folder.htm");
  });

  job_->Execute();

  // The declaration wins over the look of the bytes: a byte that is no UTF-8 is U+FFFD.
  EXPECT_EQ(TargetRows("SELECT name, note FROM items ORDER BY rowid"),
            (std::vector<std::string>{"Good|NULL", "Caf\xEF\xBF\xBD|\xEF\xBF\xBDt\xEF\xBF\xBD"}));
  const std::string full = CodeFor("doc", 100), none = CodeFor("doc", 0);
  EXPECT_EQ(Docs("copy_completion_code, extraction_completion_code"),
            (std::vector<std::string>{"Queued|" + full,
                                      "The document " + (docs_ / "b_vanishes.htm").string() +
                                          " could not be read: the file does not exist.|" + none,
                                      "The document " + (docs_ / "c_empty.htm").string() +
                                          " is empty: there is nothing to extract.|" + none,
                                      "Queued|" + full,
                                      "The document " + (docs_ / "e_folder.htm").string() +
                                          " could not be read: it is a folder.|" + none}));
  EXPECT_EQ(RulesRows("SELECT job_completion_time IS NOT NULL FROM job_instances"),
            (std::vector<std::string>{"1"}));
  // With copies switched off the sources themselves are cleansed.
  EXPECT_EQ(ReadFile(docs_ / "a_good.htm").rfind("<HTML>", 0), 0u);
  // The run's totals count the documents that could not be read as failed.
  const auto totals = DJob().GetRunTotals(job_->JobId(), job_->StartTime());
  EXPECT_EQ((*totals)["documents"].Value().ToLong(), 5);
  EXPECT_EQ((*totals)["failed"].Value().ToLong(), 3);
  EXPECT_EQ((*totals)["rows_written"].Value().ToLong(), 2);
}

TEST_F(TaskRunTest, RowsATargetRefusesAreCountedPerDocumentWithTheTargetsReason) {
  WriteFile(docs_ / "p1.htm", ListingHtml({{"Alpha", "first", {"x", "y"}}, {"Beta", "", {}}}));
  WriteFile(docs_ / "p2.htm", ListingHtml({{"Gamma", "third", {}}}));
  // A target that takes no item without a note.
  TargetScript("CREATE TABLE items (name TEXT, note TEXT NOT NULL)");
  ExtractingTask(docs_.Path().string());

  job_->Execute();

  EXPECT_EQ(TargetRows("SELECT name FROM items ORDER BY rowid"),
            (std::vector<std::string>{"Alpha", "Gamma"}));
  const std::string reason = "NOT NULL constraint failed: items.note";
  EXPECT_EQ(Docs("rows_written, rows_refused, refusal"),
            (std::vector<std::string>{"3|1|" + reason, "1|0|NULL"}));
  EXPECT_EQ(RulesRows("SELECT r.rows_refused, r.refusal FROM task_inst_doc_results_by_ent r "
                      "JOIN entities e ON e.entity_id = r.entity_id JOIN task_instance_docs d ON "
                      "d.doc_id = r.doc_id WHERE e.entity_name = 'items' ORDER BY d.rowid"),
            (std::vector<std::string>{"1|" + reason, "0|NULL"}));
  const auto totals = DJob().GetRunTotals(job_->JobId(), job_->StartTime());
  EXPECT_EQ((*totals)["documents"].Value().ToLong(), 2);
  EXPECT_EQ((*totals)["failed"].Value().ToLong(), 0);
  EXPECT_EQ((*totals)["rows_written"].Value().ToLong(), 4);
  EXPECT_EQ((*totals)["rows_refused"].Value().ToLong(), 1);
}

TEST_F(TaskRunTest, UnreadableFilesAreNotCopiedAndSaySo) {
  const gw::testing::PermissionsBind permissions_bind;
  WriteFile(docs_ / "a.htm", ListingHtml({{"A", "", {}}}));
  WriteFile(docs_ / "secret.htm", ListingHtml({{"S", "", {}}}));
  auto task = ExtractingTask((docs_ / "secret.htm").string());
  AddSource(task, (docs_ / "a.htm").string());
  job_->SaveAll();
  fs::permissions(docs_ / "secret.htm", fs::perms::none);
  job_->Execute();
  EXPECT_EQ(TargetRows("SELECT name FROM items"), (std::vector<std::string>{"A"}));
  const auto docs = Docs("copy_completion_code, copy_try_count");
  ASSERT_EQ(docs.size(), 2u);
  EXPECT_NE(docs[0].find("Permission denied"), std::string::npos) << docs[0];
  EXPECT_EQ(docs[1], "Success|1");
}

TEST_F(TaskRunTest, BothCleansingPassesRewriteTheCopyBeforeItIsRead) {
  WriteFile(docs_ / "a.htm", ListingHtml({{"Alpha", "remark", {"t"}}}));
  auto task = ExtractingTask(docs_.Path().string());
  // The second pass works on what the first one wrote.
  task->SetDocCleanseMethod("replace");
  task->SetDocCleanseParams("Alpha,Omega<i>gone</i>");
  task->SetDocCleanseMethod2("REMOVETAGS");
  task->SetDocCleanseParams2("<i>,</i>");
  job_->SaveAll();
  job_->Execute();
  EXPECT_EQ(TargetRows("SELECT name, note FROM items"), (std::vector<std::string>{"Omega|NULL"}));
  EXPECT_EQ(ReadFile(docs_ / "a.htm"), ListingHtml({{"Alpha", "remark", {"t"}}}));
}

TEST_F(TaskRunTest, ClearingTheTablesFirstKeepsOneRunsRows) {
  WriteFile(docs_ / "a.htm", ListingHtml({{"Alpha", "", {"t"}}}));
  auto task = ExtractingTask(docs_.Path().string());
  job_->Execute();
  job_->Execute();
  EXPECT_EQ(TargetRows("SELECT COUNT(*) FROM items"), (std::vector<std::string>{"2"}));
  task->SetClearTableBeforeExtraction(true);
  EventLog log;
  Listen(*job_, log);
  job_->Execute();
  EXPECT_EQ(TargetRows("SELECT COUNT(*) FROM items"), (std::vector<std::string>{"1"}));
  EXPECT_EQ(TargetRows("SELECT COUNT(*) FROM tags"), (std::vector<std::string>{"1"}));
  EXPECT_TRUE(log.Has("status:Deleting Existing Data..."));

  // A cancel answered there leaves the tables as they were.
  ScopedConnection cancel = task->OnStatusChange.Connect([](const std::string& s, bool& c) {
    if (s == "Deleting Existing Data...") c = true;
  });
  job_->Execute();
  EXPECT_EQ(TargetRows("SELECT COUNT(*) FROM items"), (std::vector<std::string>{"1"}));
}

TEST_F(TaskRunTest, BothUriAndSourceTextFailAfterTheInstanceRowIsWritten) {
  auto task = ExtractingTask(docs_.Path().string());
  BeginRun();
  const Error e = CaughtError([&] { task->Execute("/x.htm", "<li class=item><b>A</b>"); });
  EXPECT_EQ(e.Number(), engineerr::kUriAndSourceText);
  EXPECT_EQ(e.Description(),
            "Both the URI and the SourceText Parameters were specified.  Please choose only one "
            "or the other, or neither.");
  EXPECT_EQ(RulesRows("SELECT task_completion_time FROM task_instances"),
            (std::vector<std::string>{"NULL"}));
  EXPECT_TRUE(Docs("doc_id").empty());
  EXPECT_TRUE(task->IsInstance()) << "a failed run stays an instance";
}

TEST_F(TaskRunTest, SourceTextBecomesAFileThatStays) {
  auto task = ExtractingTask("/nowhere/at/all");
  BeginRun();
  task->Execute({}, ListingHtml({{"From text", "", {"t"}}}));
  EXPECT_EQ(TargetRows("SELECT name FROM items"), (std::vector<std::string>{"From text"}));
  std::vector<fs::path> files;
  for (const auto& entry : fs::directory_iterator(home_.Path() / "strings")) {
    files.push_back(entry.path());
  }
  ASSERT_EQ(files.size(), 1u);
  EXPECT_EQ(files[0].extension(), ".txt");
  // Written as Unicode text; the task's own source was not queued.
  EXPECT_EQ(ReadFile(files[0]).substr(0, 2), "\xFF\xFE");
  EXPECT_EQ(Docs("uri"), (std::vector<std::string>{files[0].string()}));
}

TEST_F(TaskRunTest, AUriStandsInForTheTasksSources) {
  WriteFile(docs_ / "one.htm", ListingHtml({{"One", "", {}}}));
  WriteFile(docs_ / "two.htm", ListingHtml({{"Two", "", {}}}));
  auto task = ExtractingTask(docs_.Path().string());
  BeginRun();
  task->Execute((docs_ / "two.htm").string());
  EXPECT_EQ(TargetRows("SELECT name FROM items"), (std::vector<std::string>{"Two"}));
}

TEST_F(TaskRunTest, ADisabledTaskStillLeavesItsTraces) {
  WriteFile(docs_ / "one.htm", ListingHtml({{"One", "", {}}}));
  auto task = ExtractingTask(docs_.Path().string());
  task->SetIsDisabled(true);
  BeginRun();
  EventLog log;
  Listen(*task, log);
  task->Execute();
  EXPECT_EQ(log.events, (std::vector<std::string>{"extraction complete", "task complete"}));
  EXPECT_EQ(RulesRows("SELECT task_completion_time IS NOT NULL, completion_code FROM "
                      "task_instances"),
            (std::vector<std::string>{"1|" + CodeFor("task", 100)}));
  EXPECT_TRUE(Docs("doc_id").empty());
  EXPECT_FALSE(fs::exists(target_)) << "no database was made";
}

TEST_F(TaskRunTest, NoDocumentsStillMakesTheTablesAndFinishes) {
  fs::create_directories(docs_ / "empty");
  auto task = ExtractingTask((docs_ / "empty").string());
  BeginRun();
  EventLog log;
  Listen(*task, log);
  task->Execute();
  EXPECT_TRUE(TargetRows("SELECT name FROM items").empty()) << "the table exists";
  EXPECT_TRUE(log.Has("task complete"));
  EXPECT_EQ(log.Count("extraction begin"), 2);
  EXPECT_FALSE(task->IsInstance());
}

TEST_F(TaskRunTest, CancellingAtTheFirstDocumentLeavesTheOthersUntouched) {
  for (const char* name : {"a.htm", "b.htm", "c.htm"}) {
    WriteFile(docs_ / name, ListingHtml({{name, "", {}}}));
  }
  auto task = ExtractingTask(docs_.Path().string());
  BeginRun();
  EventLog log;
  Listen(*task, log);
  ScopedConnection cancel = task->OnStatusChange.Connect([](const std::string& s, bool& c) {
    if (s == "Datapage Extraction Complete") c = true;
  });
  task->Execute();
  EXPECT_EQ(TargetRows("SELECT name FROM items"), (std::vector<std::string>{"a.htm"}));
  EXPECT_EQ(Docs("doc_start_time IS NOT NULL"), (std::vector<std::string>{"1", "0", "0"}));
  EXPECT_EQ(RulesRows("SELECT COUNT(*) FROM task_inst_doc_results_by_ent"),
            (std::vector<std::string>{"0"}));
  EXPECT_EQ(RulesRows("SELECT task_completion_time FROM task_instances"),
            (std::vector<std::string>{"NULL"}));
  EXPECT_TRUE(task->IsInstance());
  EXPECT_FALSE(log.Has("task complete"));
}

TEST_F(TaskRunTest, CancellingAtCreatingTheDatabaseMakesNoTables) {
  WriteFile(docs_ / "a.htm", ListingHtml({{"A", "", {}}}));
  auto task = ExtractingTask(docs_.Path().string());
  BeginRun();
  ScopedConnection cancel = task->OnStatusChange.Connect([](const std::string& s, bool& c) {
    if (s == "Creating Database") c = true;
  });
  task->Execute();
  EXPECT_FALSE(fs::exists(target_));
  EXPECT_EQ(Docs("copy_completion_code"), (std::vector<std::string>{"Success"}));
}

TEST_F(TaskRunTest, ATaskWithoutADatapageDownloadsOnceValidated) {
  job_ = NewJob("No page");
  auto task = AddTask(job_, "Fetch", 1, TaskTypes::DownloadAndExtract);
  AddSource(task, docs_.Path().string());
  job_->SaveAll();
  task->Validate();
  EXPECT_EQ(task->TaskType(), TaskTypes::DownloadOnly);
  task->Save();
  auto loaded = Task::Create();
  loaded->Load(task->TaskId());
  EXPECT_EQ(loaded->TaskType(), TaskTypes::DownloadOnly);
}

TEST_F(TaskRunTest, WithoutACrawlerACrawlIsRecordedAsNotAvailableAndTheRunGoesOn) {
  // A host that registers no crawler.
  RegisterCrawlerFactory({});
  struct Restore {
    ~Restore() { RegisterAcquireComponents(); }
  } restore;
  WriteFile(docs_ / "start.htm", "<a href=next.htm>next</a>");
  job_ = NewJob("Crawl");
  auto task = AddTask(job_, "Crawl", 1, TaskTypes::CrawlOnly);
  AddSource(task, (docs_ / "start.htm").string());
  job_->SaveAll();
  job_->Execute();
  EXPECT_EQ(Docs("copy_completion_code, copy_try_count"),
            (std::vector<std::string>{"Crawling is not available yet.|1"}));
  EXPECT_EQ(RulesRows("SELECT job_completion_time IS NOT NULL FROM job_instances"),
            (std::vector<std::string>{"1"}));
}

TEST(Components, AHostThatRegistersNoFactoryGetsTheRuntimesFailure) {
  RegisterDocPluginFactory({});
  RegisterDownloadMgrFactory({});
  struct Restore {
    ~Restore() {
      RegisterDesignComponents();
      RegisterAcquireComponents();
    }
  } restore;
  testing::ExpectFailures({
      {[] { CreateDocPlugin(); }, errnum::kCannotCreateObject, "CreateDocPlugin",
       "ActiveX component can't create object: no document plug-in is registered (the host "
       "calls RegisterDesignComponents at start)."},
      {[] { CreateDownloadMgr(); }, errnum::kCannotCreateObject, "CreateDownloadMgr",
       "ActiveX component can't create object: no download manager is registered (the host "
       "calls RegisterAcquireComponents at start)."},
  });
}

TEST_F(TaskRunTest, ValidationTexts) {
  job_ = NewJob("Checks");
  auto task = AddTask(job_, "Lonely", 1, TaskTypes::CmdLine);
  job_->SaveAll();
  Error e = CaughtError([&] { task->Validate(); });
  EXPECT_EQ(e.Number(), engineerr::kNoDocSources);
  EXPECT_EQ(e.Description(), "There are no files or file sources listed for the task Lonely.");
  task->SetDoValidation(0);
  EXPECT_NO_THROW(task->Validate());

  auto sql = AddTask(job_, "Query", 2, TaskTypes::DownloadOnly);
  AddSource(sql, "SELECT uri FROM nowhere", SrcType::sql, target_cn_ + ";Password=s3cret");
  e = CaughtError([&] { sql->Validate(); });
  EXPECT_EQ(e.Number(), engineerr::kSqlSourceUnreachable);
  // The connection string is shown with its password hidden, and no credential of the product's.
  EXPECT_NE(e.Description().find("The connection string that you are using is (passwords "
                                 "hidden): " +
                                 db::MaskPasswords(target_cn_ + ";Password=s3cret") +
                                 " Additional Error Info: "),
            std::string::npos)
      << e.Description();
  EXPECT_EQ(e.Description().find("s3cret"), std::string::npos);
  EXPECT_EQ(e.Description().find("password is '"), std::string::npos);
}

TEST_F(TaskRunTest, StatementsAndCommandLines) {
  job_ = NewJob("Chores");
  auto sql = AddTask(job_, "Prepare", 1, TaskTypes::SQLStatement);
  AddSource(sql, "CREATE TABLE chores (what TEXT)", SrcType::path, target_cn_);
  AddSource(sql, "INSERT INTO chores VALUES ('swept')", SrcType::path, target_cn_);
  auto cmd = AddTask(job_, "Shell", 2, TaskTypes::CmdLine);
  const fs::path marker = docs_ / "ran.txt";
  AddSource(cmd, "sleep 0.3; echo done > '" + marker.string() + "'");
  job_->SaveAll();
  BeginRun();

  sql->Execute();
  EXPECT_EQ(TargetRows("SELECT what FROM chores"), (std::vector<std::string>{"swept"}));
  // The host keeps running while the command does.
  int ticks = 0;
  const auto timer =
      EventLoop::Current().StartTimer(std::chrono::milliseconds(20), [&] { ++ticks; });
  cmd->Execute();
  EventLoop::Current().StopTimer(timer);
  EXPECT_EQ(ReadFile(marker), "done\n");
  EXPECT_GE(ticks, 3);
  EXPECT_TRUE(Docs("doc_id").empty()) << "no documents take part";
}

// A run keeps one connection per store for all its documents: the target and the rules store are
// opened as often for 200 documents as for 20 (never per row or per document), every row arrives,
// and the target is left in the journal mode it had, without a log beside it.
// Also what such a run leaves: every document's cleansed copy.
TEST_F(TaskRunTest, ARunOpensItsStoresAsOftenForTwoHundredDocumentsAsForTwenty) {
  std::map<int, std::size_t> target_opens;
  std::map<int, std::size_t> rules_opens;
  long rows = 0;
  for (const int count : {20, 200}) {
    SCOPED_TRACE(std::to_string(count) + " documents");
    testing::TempDir folder;
    for (int k = 0; k < count; ++k) {
      WriteFile(folder / ("p" + std::to_string(k) + ".htm"),
                ListingHtml({{"A" + std::to_string(k), "", {"x", "y"}}, {"B", "n", {}}}));
    }
    ExtractingTask(folder.Path().string());
    const std::size_t target_before = db::PhysicalOpenCount(target_cn_);
    const std::size_t rules_before = db::PhysicalOpenCount(cn_str_);
    job_->Execute();
    target_opens[count] = db::PhysicalOpenCount(target_cn_) - target_before;
    rules_opens[count] = db::PhysicalOpenCount(cn_str_) - rules_before;
    rows += 2 * count;
    EXPECT_EQ(TargetRows("SELECT count(*) FROM items"),
              (std::vector<std::string>{std::to_string(rows)}));
    EXPECT_EQ(TargetRows("SELECT count(*) FROM tags"),
              (std::vector<std::string>{std::to_string(rows)}));
    EXPECT_EQ(TargetRows("PRAGMA journal_mode"), (std::vector<std::string>{"delete"}));
    EXPECT_FALSE(fs::exists(target_.string() + "-wal"));
    // (Each document's history is checked by the run of more documents than a slice.)
    const std::string like = folder.Path().string() + "/%";
    // Each copy is byte for byte what the two cleansing passes on a file make of its source.
    const auto copies =
        RulesRows("SELECT uri, temp_uri FROM task_instance_docs WHERE uri LIKE ?", {Variant(like)});
    ASSERT_EQ(copies.size(), static_cast<std::size_t>(count));
    const auto plugin = CHTMLPlugin::Create();
    const fs::path scratch = folder / "scratch.htm";
    for (const std::string& pair : copies) {
      const std::string source = pair.substr(0, pair.find('|'));
      fs::copy_file(source, scratch, fs::copy_options::overwrite_existing);
      plugin->CleanseDocument(scratch.string());
      plugin->CleanseDocument(scratch.string());
      ASSERT_EQ(ReadFile(pair.substr(pair.find('|') + 1)), ReadFile(scratch)) << source;
    }
  }
  EXPECT_GT(target_opens[20], 0u);
  EXPECT_EQ(target_opens[200], target_opens[20]);
  EXPECT_LE(target_opens[200], 8u);
  EXPECT_EQ(rules_opens[200], rules_opens[20]);
}

// The documents of a run are read and let go of a slice at a time: a run of more documents than a
// slice (a thousand) extracts each document once, in the order they were queued, and writes each
// one's history at the end.
TEST_F(TaskRunTest, ARunOfMoreDocumentsThanASliceExtractsEachOnceInQueueOrder) {
  constexpr int kCount = 1203;
  testing::TempDir folder;
  for (int k = 0; k < kCount; ++k) {
    WriteFile(folder / ("p" + std::to_string(k) + ".htm"),
              ListingHtml({{"N" + std::to_string(k), "", {}}}));
  }
  ExtractingTask(folder.Path().string());
  job_->Execute();
  // Each document's one row, in the order of the documents' rows.
  std::vector<std::string> expected;
  for (const std::string& uri : RulesRows("SELECT uri FROM task_instance_docs ORDER BY rowid")) {
    const std::string name = fs::path(uri).stem().string();
    expected.push_back("N" + name.substr(1));
  }
  ASSERT_EQ(expected.size(), static_cast<std::size_t>(kCount));
  EXPECT_EQ(TargetRows("SELECT name FROM items ORDER BY rowid"), expected);
  EXPECT_EQ(RulesRows("SELECT count(*) FROM task_instance_docs WHERE "
                      "extraction_completion_code = ? AND rows_written = 1 AND "
                      "doc_completion_time IS NOT NULL",
                      {Variant(CodeFor("doc", 100))}),
            (std::vector<std::string>{std::to_string(kCount)}));
  EXPECT_EQ(RulesRows("SELECT count(DISTINCT doc_id) FROM task_inst_doc_results_by_ent WHERE "
                      "ent_extract_count = 1"),
            (std::vector<std::string>{std::to_string(kCount)}));
  EXPECT_EQ(RulesRows("SELECT completion_code FROM task_instances"),
            (std::vector<std::string>{CodeFor("task", 100)}));
}

}  // namespace
}  // namespace gw::engine_test
