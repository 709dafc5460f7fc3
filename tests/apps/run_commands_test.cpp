// gleanwright run, history and close-instances, run as the program a user runs: a run that is
// killed (also in the middle of its downloads), one that is interrupted with Ctrl-C, and one that
// fails.
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <filesystem>
#include <map>
#include <mutex>
#include <thread>

#include "cli.h"
#include "engine/doc_source.h"
#include "engine/job.h"
#include "engine/task.h"
#include "platform/db/connection.h"
#include "platform/process.h"
#include "rules/connection_string.h"
#include "rules/package_data_access.h"
#include "rules/settings.h"
#include "support/http_server.h"
#include "support/test_support.h"

namespace gw {
namespace {

namespace fs = std::filesystem;
using testing::ReadFile;

using testing::CliPath;
using testing::CliResult;
using testing::RunCli;
using testing::WaitFor;

class RunCommandsTest : public ::testing::Test {
 protected:
  RunCommandsTest() {
    const CliResult init = RunCli(home_.Path(), {"init"});
    EXPECT_EQ(init.status, 0) << init.output;
    SetRulesConnectionOverride("Provider=SQLite;Data Source=" +
                               (home_.Path() / "ZentrovoDB.sqlite").string());
    target_cn_ = "Provider=SQLite;Data Source=" + (home_.Path() / "target.sqlite").string();
    auto cn = db::Connection::Create();
    cn->Open(target_cn_);
    cn->ExecuteNonQuery("CREATE TABLE log (what TEXT)");
  }
  ~RunCommandsTest() override { SetRulesConnectionOverride({}); }

  // A package: first a command line, then a statement that logs `name` in the target.
  void SavePackage(const std::string& name, const std::string& command) {
    auto job = Job::Create();
    job->SetJobName(name);
    auto shell = Task::Create();
    shell->SetTaskName("Shell");
    shell->SetStep(1);
    shell->SetTaskType(TaskTypes::CmdLine);
    auto log = Task::Create();
    log->SetTaskName("Log");
    log->SetStep(2);
    log->SetTaskType(TaskTypes::SQLStatement);
    job->GetTasks().Add(shell);
    job->GetTasks().Add(log);
    auto cmd = DocSource::Create();
    cmd->SetSource(command);
    shell->GetDocSources().Add(cmd);
    auto sql = DocSource::Create();
    sql->SetSource("INSERT INTO log VALUES ('" + name + "')");
    sql->SetConnStr(target_cn_);
    log->GetDocSources().Add(sql);
    job->SaveAll();
  }
  long Logged() {
    auto cn = db::Connection::Create();
    cn->Open(target_cn_);
    return cn->Execute("SELECT COUNT(*) FROM log")->GetFields()[0L].Value().ToLong();
  }
  // Imports the demonstration's package with its paths filled in as the demo does: its pages at
  // `pages`, its target at `target`.
  void ImportBookshop(const fs::path& pages, const std::string& target) {
    std::string xml = ReadFile(testing::SourceDir() / "examples" / "bookshop" / "bookshop.xml");
    for (const auto& [from, to] :
         {std::pair<std::string, std::string>{"@PAGES@", pages.string()}, {"@TARGET@", target}}) {
      for (auto at = xml.find(from); at != std::string::npos; at = xml.find(from, at)) {
        xml.replace(at, from.size(), to);
      }
    }
    testing::WriteFile(out_ / "bookshop.xml", xml);
    const CliResult imported = RunCli(home_.Path(), {"import", (out_ / "bookshop.xml").string()});
    ASSERT_EQ(imported.status, 0) << imported.output;
  }
  // The id of the process a package's command wrote into `marker`, once it is there.
  static int WaitForMarker(const fs::path& marker) {
    EXPECT_TRUE(WaitFor([&] { return fs::exists(marker); }, std::chrono::seconds(30)));
    return std::stoi(ReadFile(marker));
  }

  testing::ScopedHome home_;
  testing::TempDir out_;
  std::string target_cn_;
};

TEST_F(RunCommandsTest, AKilledRunIsShownUnfinishedAndCanBeClosed) {
  const fs::path marker = home_.Path() / "marker";
  // The first run stops in the command; later runs pass straight through it.
  SavePackage("Killable", "if [ ! -e '" + marker.string() + "' ]; then echo $$ > '" +
                              marker.string() + ".tmp' && mv '" + marker.string() + ".tmp' '" +
                              marker.string() + "' && exec sleep 60; fi");
  auto run = ChildProcess::Start({CliPath(), "run", "Killable"}, {}, (out_ / "run.txt").string());
  const int sleeper = WaitForMarker(marker);
  run->Kill(/*force=*/true);
  EXPECT_EQ(run->Wait(), 128 + SIGKILL);
  ::kill(sleeper, SIGKILL);

  // The store opens, and the run is under way as far as it knows.
  const std::string id = DJob().GetAllJobs()->GetFields()["job_id"].Value().ToText();
  EXPECT_EQ(DJob().GetRunningInstances(id)->RecordCount(), 1);
  CliResult history = RunCli(home_.Path(), {"history", "Killable"});
  EXPECT_EQ(history.status, 0) << history.output;
  EXPECT_NE(history.output.find("unfinished"), std::string::npos) << history.output;

  CliResult close = RunCli(home_.Path(), {"close-instances", "Killable"});
  EXPECT_EQ(close.status, 0) << close.output;
  EXPECT_EQ(DJob().GetRunningInstances(id)->RecordCount(), 0);
  history = RunCli(home_.Path(), {"history", "Killable"});
  EXPECT_EQ(history.output.find("unfinished"), std::string::npos) << history.output;

  CliResult again = RunCli(home_.Path(), {"run", "Killable"});
  EXPECT_EQ(again.status, 0) << again.output;
  EXPECT_EQ(Logged(), 1);
  history = RunCli(home_.Path(), {"history", "Killable"});
  EXPECT_EQ(std::count(history.output.begin(), history.output.end(), '\n'), 2) << history.output;
  CliResult detail = RunCli(home_.Path(), {"history", "Killable", "--run", "latest"});
  EXPECT_EQ(detail.status, 0) << detail.output;
  EXPECT_NE(detail.output.find("Task Shell (step 1)"), std::string::npos) << detail.output;
  EXPECT_NE(detail.output.find("Task Log (step 2)"), std::string::npos) << detail.output;
}

// A download run killed in the middle: the store opens, every row that says "Success" names a
// whole file, every other row is still open, no file under a page's name is cut short, and the
// next run (after close-instances) fetches every page.
TEST_F(RunCommandsTest, AKilledDownloadRunLeavesRowsAndFilesThatAgree) {
  constexpr int kPages = 120;
  constexpr int kServedBeforeStall = 40;
  const auto page = [](const std::string& n) {
    return "<html><body><h1>Page " + n + "</h1>" +
           std::string(8000, static_cast<char>('a' + std::stoi(n) % 26)) + "</body></html>";
  };
  std::atomic<int> served{0};
  std::mutex mutex;
  std::condition_variable released;
  bool stall = true;
  testing::LoopbackHttpServer server;
  server.Http().Get(R"(/p/(\d+)\.htm)", [&](const httplib::Request& req, httplib::Response& res) {
    const std::string body = page(req.matches[1]);
    if (served.fetch_add(1) < kServedBeforeStall) {
      res.set_content(body, "text/html");
      return;
    }
    // After the first pages the server sends half a page and keeps the run waiting for the
    // rest, so that it is killed with transfers under way.
    res.set_chunked_content_provider("text/html", [&, body](std::size_t, httplib::DataSink& sink) {
      sink.write(body.data(), body.size() / 2);
      {
        std::unique_lock lock(mutex);
        released.wait_for(lock, std::chrono::seconds(30), [&] { return !stall; });
      }
      sink.write(body.data() + body.size() / 2, body.size() - body.size() / 2);
      sink.done();
      return true;
    });
  });
  server.Start();

  auto cn = db::Connection::Create();
  cn->Open(target_cn_);
  cn->ExecuteNonQuery("CREATE TABLE urls (uri TEXT)");
  for (int i = 0; i < kPages; ++i) {
    cn->ExecuteNonQuery("INSERT INTO urls VALUES ('" +
                        server.Url("/p/" + std::to_string(i) + ".htm") + "')");
  }
  const fs::path folder = home_.Path() / "pages";
  auto job = Job::Create();
  job->SetJobName("Pages");
  auto fetch = Task::Create();
  fetch->SetTaskName("Fetch");
  fetch->SetStep(1);
  fetch->SetTaskType(TaskTypes::DownloadOnly);
  fetch->SaveAsTemplate()->SetRootFolder(folder.string());
  fetch->SaveAsTemplate()->SetFileName("[FILENAME]");
  auto source = DocSource::Create();
  source->SetSourceType(SrcType::sql);
  source->SetConnStr(target_cn_);
  source->SetSource("SELECT uri FROM urls");
  fetch->GetDocSources().Add(source);
  job->GetTasks().Add(fetch);
  job->SaveAll();

  auto run = ChildProcess::Start({CliPath(), "run", "Pages"}, {}, (out_ / "run.txt").string());
  ASSERT_TRUE(
      WaitFor([&] { return served.load() > kServedBeforeStall + 2; }, std::chrono::seconds(120)))
      << ReadFile(out_ / "run.txt");
  // Let the pass settle while the server holds the rest back.
  std::this_thread::sleep_for(std::chrono::milliseconds(500));
  run->Kill(/*force=*/true);
  EXPECT_EQ(run->Wait(), 128 + SIGKILL);
  {
    std::lock_guard lock(mutex);
    stall = false;
  }
  released.notify_all();

  auto rules = db::Connection::Create();
  rules->Open("Provider=SQLite;Data Source=" + (home_.Path() / "ZentrovoDB.sqlite").string());
  EXPECT_EQ(rules->Execute("PRAGMA integrity_check")->GetFields()[0L].Value().ToText(), "ok");
  // The saved files of the first (MIN) or last (MAX) run by page name; checks every row.
  const auto rows_of_run = [&](const std::string& which) {
    std::map<std::string, std::string> saved;
    int open = 0;
    for (auto rs = rules->Execute(
             "SELECT uri, temp_uri, copy_completion_code, copy_try_count FROM task_instance_docs "
             "WHERE job_start_time = (SELECT " +
             which + "(job_start_time) FROM job_instances)");
         !rs->IsEOF(); rs->MoveNext()) {
      const std::string uri = (*rs)["uri"].Value().ToText();
      const std::string code = (*rs)["copy_completion_code"].Value().ToText();
      const std::string n = uri.substr(uri.rfind('/') + 1);
      SCOPED_TRACE(uri);
      if (code == "Success") {
        EXPECT_EQ((*rs)["copy_try_count"].Value().ToLong(), 1);
        const std::string file = (*rs)["temp_uri"].Value().ToText();
        EXPECT_EQ(fs::path(file).parent_path(), folder);
        EXPECT_EQ(ReadFile(file), page(n.substr(0, n.find('.'))));
        saved[n] = file;
      } else {
        // Not reached, or its outcome was not yet committed: open for another pass.
        EXPECT_EQ(code, "Queued");
        EXPECT_EQ((*rs)["copy_try_count"].Value().ToLong(), 0);
        ++open;
      }
    }
    EXPECT_EQ(saved.size() + open, static_cast<std::size_t>(kPages));
    return saved;
  };
  const auto first = rows_of_run("MIN");
  EXPECT_GT(first.size(), 0u);
  EXPECT_LE(first.size(), static_cast<std::size_t>(kServedBeforeStall + 10));
  // Every file under a page's name is that whole page; the rest are the unfinished writes'
  // temporary files, hidden and never taken for a page.
  int temporaries = 0;
  for (const auto& entry : fs::directory_iterator(folder)) {
    const std::string name = entry.path().filename().string();
    SCOPED_TRACE(name);
    if (name.starts_with(".gw-") && name.ends_with(".part")) {
      ++temporaries;
      continue;
    }
    ASSERT_TRUE(name.ends_with(".htm"));
    EXPECT_EQ(ReadFile(entry.path()), page(name.substr(0, name.find('.'))));
  }
  EXPECT_LE(temporaries, 10);

  // The killed run stays under way until it is closed; the next run has its own rows and
  // fetches every page again, under new names beside the old files.
  CliResult close = RunCli(home_.Path(), {"close-instances", "Pages"});
  EXPECT_EQ(close.status, 0) << close.output;
  const CliResult again = RunCli(home_.Path(), {"run", "Pages"});
  ASSERT_EQ(again.status, 0) << again.output;
  const auto second = rows_of_run("MAX");
  EXPECT_EQ(second.size(), static_cast<std::size_t>(kPages));
  for (const auto& [n, file] : first) {
    ASSERT_TRUE(second.contains(n));
    EXPECT_NE(second.at(n), file);
  }
}

TEST_F(RunCommandsTest, CtrlCStopsAtTheNextStepAndKeepsTheHistory) {
  const fs::path marker = home_.Path() / "marker";
  SavePackage("Interruptible", "echo $$ > '" + marker.string() + ".tmp' && mv '" + marker.string() +
                                   ".tmp' '" + marker.string() + "' && sleep 1");
  auto run =
      ChildProcess::Start({CliPath(), "run", "Interruptible"}, {}, (out_ / "run.txt").string());
  WaitForMarker(marker);
  ::kill(run->Pid(), SIGINT);
  EXPECT_EQ(run->Wait(), 0);
  const std::string output = ReadFile(out_ / "run.txt");
  EXPECT_NE(output.find("Cancelled"), std::string::npos) << output;
  // The statement after the command never ran; the run is closed with a code.
  EXPECT_EQ(Logged(), 0);
  const CliResult history = RunCli(home_.Path(), {"history", "Interruptible"});
  EXPECT_NE(history.output.find("completed"), std::string::npos) << history.output;
  EXPECT_EQ(history.output.find("code -"), std::string::npos) << history.output;
}

TEST_F(RunCommandsTest, TheBookshopSampleRunsIntoItsTarget) {
  const std::string target = (home_.Path() / "bookshop.sqlite").string();
  ImportBookshop(testing::SourceDir() / "examples" / "bookshop" / "pages", target);
  const CliResult run = RunCli(home_.Path(), {"run", "Harbour Books\\Nightly"});
  ASSERT_EQ(run.status, 0) << run.output;

  auto cn = db::Connection::Create();
  cn->Open("Provider=SQLite;Data Source=" + target);
  std::vector<std::string> books;
  for (auto rs = cn->Execute("SELECT title, subtitle, price FROM books ORDER BY rowid");
       !rs->IsEOF(); rs->MoveNext()) {
    const Variant& subtitle = (*rs)["subtitle"].Value();
    books.push_back((*rs)["title"].Value().ToText() + "|" +
                    (subtitle.IsNull() ? "NULL" : subtitle.ToText()) + "|" +
                    (*rs)["price"].Value().ToText());
  }
  EXPECT_EQ(books, (std::vector<std::string>{
                       "The Quiet Harbour|A novel of the coast|12.50", "Salt and Cedar|NULL|8.00",
                       "Lanterns|Collected poems|15.25", "North of the River|A family saga|21.00",
                       "The Clockmaker's Apprentice|NULL|9.99",
                       "Cr\xC3\xA8me Br\xC3\xBBl\xC3\xA9"
                       "e and Other Classics|Desserts from a "
                       "caf\xC3\xA9 kitchen|18.40"}));
  auto comments = cn->Execute("SELECT comment FROM reviews ORDER BY rowid");
  ASSERT_EQ(comments->RecordCount(), 7);
  EXPECT_EQ(comments->GetFields()[0L].Value().ToText(), "A lovely read for a rainy week.");
}

TEST_F(RunCommandsTest, ARunThatLostDocumentsOrRowsSaysSoAndEndsWithStatus3) {
  // The bookshop sample over a copy of its pages with a link to nowhere among them, into a
  // target that refuses books of 20 or more.
  const fs::path pages = home_.Path() / "pages";
  fs::copy(testing::SourceDir() / "examples" / "bookshop" / "pages", pages);
  fs::create_symlink(pages / "gone.htm", pages / "page4.htm");
  const std::string target = (home_.Path() / "bookshop.sqlite").string();
  ImportBookshop(pages, target);
  {
    auto cn = db::Connection::Create();
    cn->Open("Provider=SQLite;Data Source=" + target);
    cn->ExecuteScript(
        "CREATE TABLE books (title VARCHAR(200), subtitle VARCHAR(200), price VARCHAR(20), "
        "CHECK (CAST(price AS REAL) < 20))");
  }

  const CliResult run = RunCli(home_.Path(), {"run", "Harbour Books\\Nightly"});
  EXPECT_EQ(run.status, 3) << run.output;
  const std::string refusal = "1 row refused: CHECK constraint failed: CAST(price AS REAL) < 20";
  EXPECT_NE(run.output.find(refusal), std::string::npos) << run.output;
  EXPECT_NE(run.output.find((pages / "page4.htm").string() + ": failed: Not copied: " +
                            (pages / "page4.htm").string() + ": it is a symbolic link to " +
                            (pages / "gone.htm").string() + ", which does not exist."),
            std::string::npos)
      << run.output;
  EXPECT_NE(run.output.find("4 documents: 3 done, 1 failed; "), std::string::npos) << run.output;
  EXPECT_NE(run.output.find(" written, 1 refused\n"), std::string::npos) << run.output;

  // The history keeps it: the run's line, and the document's rows with the target's reason.
  const CliResult list = RunCli(home_.Path(), {"history", "Harbour Books\\Nightly"});
  EXPECT_NE(list.output.find("4 documents: 3 done, 1 failed; "), std::string::npos) << list.output;
  const CliResult detail =
      RunCli(home_.Path(), {"history", "Harbour Books\\Nightly", "--run", "latest"});
  EXPECT_NE(detail.output.find("1 refused (CHECK constraint failed: CAST(price AS REAL) < 20)"),
            std::string::npos)
      << detail.output;
}

TEST_F(RunCommandsTest, InitGivesTheRunFoldersAValueOnce) {
  const std::string downloads = (home_.Path() / "downloads").string() + "/";
  EXPECT_EQ(Settings().GetOption("DefaultDownloadPath").ToText(), downloads);
  EXPECT_EQ(Settings().GetOption("StringFileCreatePath").ToText(),
            (home_.Path() / "strings").string() + "/");
  EXPECT_TRUE(fs::is_directory(downloads));
  // A value a user has set is left alone.
  Settings().PutOption("DefaultDownloadPath", Variant("/srv/copies/"), DataType::Str);
  const CliResult again = RunCli(home_.Path(), {"init"});
  EXPECT_EQ(again.status, 0) << again.output;
  EXPECT_EQ(again.output.find("Set "), std::string::npos) << again.output;
  EXPECT_EQ(Settings().GetOption("DefaultDownloadPath").ToText(), "/srv/copies/");
}

TEST_F(RunCommandsTest, AFinishedRunPrintsItsCodeAndAFailedOneItsError) {
  SavePackage("Quick", "true");
  const CliResult ok = RunCli(home_.Path(), {"run", "Quick"});
  EXPECT_EQ(ok.status, 0) << ok.output;
  // One line per status when not on a terminal, the success code last.
  EXPECT_NE(ok.output.find("Validating Task Shell...\n"), std::string::npos) << ok.output;
  EXPECT_NE(ok.output.find("Task Complete\n"), std::string::npos) << ok.output;
  EXPECT_EQ(Logged(), 1);

  auto empty = Job::Create();
  empty->SetJobName("Hollow");
  empty->Save();
  const CliResult failed = RunCli(home_.Path(), {"run", "Hollow"});
  EXPECT_EQ(failed.status, 1) << failed.output;
  EXPECT_NE(failed.output.find("0x8552A95B"), std::string::npos) << failed.output;
  EXPECT_NE(failed.output.find("Package Hollow does not have any tasks associated with it."),
            std::string::npos);
  // The report's call stack names the methods the failure passed, with their arguments.
  const std::string dashes(100, '-');
  EXPECT_NE(failed.output.find("\n    Job.Validate(flgCancel)\n    Value Of flgCancel:False\n" +
                               dashes + "\n    Job.Execute(URI,SourceText)\n    Value Of URI:''\n" +
                               "    Value Of SourceText:''\n" + dashes + "\n"),
            std::string::npos)
      << failed.output;

  const CliResult unknown = RunCli(home_.Path(), {"run", "No such package"});
  EXPECT_EQ(unknown.status, 1);
}

}  // namespace
}  // namespace gw
