// Packages whose documents come from the web: a site on loopback, the real download manager.
#include <gtest/gtest.h>

#include <filesystem>

#include "engine/run_fixture.h"
#include "platform/http_transport.h"
#include "rules/package_data_access.h"
#include "support/http_server.h"

namespace gw::engine_test {
namespace {

namespace fs = std::filesystem;
using testing::ReadFile;
using testing::WriteFile;

class WebRunTest : public RunTest {
 protected:
  WebRunTest() {
    auto& s = server_.Http();
    s.Get("/login", [](const httplib::Request&, httplib::Response& res) {
      res.set_header("Set-Cookie", "sid=abc; Path=/");
      res.set_content("welcome", "text/html");
    });
    s.Get("/whoami", [](const httplib::Request& req, httplib::Response& res) {
      res.set_content("cookie:" + req.get_header_value("Cookie"), "text/html");
    });
    s.Get(R"(/list(\d)\.htm)", [](const httplib::Request& req, httplib::Response& res) {
      const std::string n = req.matches[1];
      res.set_content(ListingHtml({{"Item " + n, "", {"t" + n}}}), "text/html");
    });
    server_.Start();
  }
  ~WebRunTest() override { HttpTransport::CloseIdleConnections(); }

  TaskPtr Fetch(const JobPtr& job, const std::string& name, std::int32_t step,
                const std::string& path) {
    auto task = AddTask(job, name, step, TaskTypes::DownloadOnly);
    AddSource(task, server_.Url(path));
    task->SaveAsTemplate()->SetRootFolder(folder_.Path().string());
    task->SaveAsTemplate()->SetTaskFolder("[TASKNAME]");
    task->SaveAsTemplate()->SetFileName("page");
    return task;
  }
  std::string Saved(const std::string& task_name) {
    return ReadFile(folder_.Path() / task_name / "page.htm");
  }

  testing::LoopbackHttpServer server_;
  testing::TempDir folder_;
};

TEST_F(WebRunTest, TheSessionPassesFromTaskToTask) {
  for (const bool inherit : {true, false}) {
    SCOPED_TRACE(inherit);
    fs::remove_all(folder_.Path() / "second");
    auto job = NewJob(inherit ? "Inherit" : "Alone");
    Fetch(job, "first", 1, "/login");
    Fetch(job, "second", 2, "/whoami")->SetInheritHttpClient(inherit);
    job->SaveAll();
    job->Execute();
    EXPECT_EQ(Saved("first"), "welcome");
    EXPECT_EQ(Saved("second"), inherit ? "cookie:sid=abc;" : "cookie:");
  }
}

TEST_F(WebRunTest, AnExtractingTaskReadsPagesFromTheWeb) {
  auto job = NewJob("Web listing");
  auto task = AddTask(job, "Extract", 1, TaskTypes::DownloadAndExtract, SaveListingPage());
  for (const char* page : {"/list1.htm", "/list2.htm"}) AddSource(task, server_.Url(page));
  task->SaveAsTemplate()->SetRootFolder(folder_.Path().string());
  task->SaveAsTemplate()->SetFileName("[FILENAME]");
  job->SaveAll();
  job->Execute();
  EXPECT_EQ(TargetRows("SELECT name FROM items ORDER BY name"),
            (std::vector<std::string>{"Item 1", "Item 2"}));
  EXPECT_TRUE(fs::is_regular_file(folder_.Path() / "list1.htm"));
  EXPECT_EQ(RulesRows("SELECT copy_completion_code FROM task_instance_docs"),
            (std::vector<std::string>{"Success", "Success"}));
}

TEST_F(WebRunTest, TheRootFolderIsClearedBeforeTheDownloads) {
  WriteFile(folder_.Path() / "old" / "stale.htm", "old");
  auto job = NewJob("Clear");
  auto task = Fetch(job, "first", 1, "/login");
  task->SetClearRootFolderBeforeDownload(true);
  job->SaveAll();
  job->Execute();
  EXPECT_FALSE(fs::exists(folder_.Path() / "old"));
  EXPECT_EQ(Saved("first"), "welcome");

  // A root that cannot be cleared fails the run.
  const gw::testing::PermissionsBind permissions_bind;
  WriteFile(folder_.Path() / "locked" / "kept.htm", "kept");
  fs::permissions(folder_.Path() / "locked", fs::perms::owner_read | fs::perms::owner_exec);
  auto again = NewJob("Again");
  Fetch(again, "first", 1, "/login")->SetClearRootFolderBeforeDownload(true);
  again->SaveAll();
  const Error e = testing::CaughtError([&] { again->Execute(); });
  EXPECT_EQ(e.Number(), engineerr::kClearRootFolderFailed);
  EXPECT_NE(e.Description().find("root directory (" + folder_.Path().string() + ")"),
            std::string::npos)
      << e.Description();
  fs::permissions(folder_.Path() / "locked", fs::perms::owner_all);
}

}  // namespace
}  // namespace gw::engine_test
