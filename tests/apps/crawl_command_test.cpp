// gleanwright crawl and run --resume, run as the program a user runs, against a site on
// loopback: a crawl killed in the middle goes on where it stood.
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <map>
#include <mutex>
#include <thread>

#include "platform/db/connection.h"
#include "platform/process.h"
#include "platform/text.h"
#include "rules/c_disconn_rs.h"
#include "rules/connection_string.h"
#include "support/http_server.h"
#include "support/test_support.h"

namespace gw {
namespace {

namespace fs = std::filesystem;
using testing::ReadFile;

std::string Cli() {
  return (testing::BinaryDir() / "apps" / "gleanwright" / "gleanwright").string();
}

struct Result {
  int status = -1;
  std::string output;
};

Result RunCli(const fs::path& out_dir, std::vector<std::string> args) {
  args.insert(args.begin(), Cli());
  const fs::path out = out_dir / "out.txt";
  fs::remove(out);
  auto process = ChildProcess::Start(args, {}, out.string());
  Result r;
  r.status = process->Wait();
  r.output = ReadFile(out);
  return r;
}

using testing::WaitFor;

// `kPages` pages /p0.htm ... each linking to itself, its successor (so that all are reachable
// from /p0.htm), two others, one of them by another spelling, and an e-mail address of its own;
// each answer takes a little while, so a crawl is still under way when the test kills it.
class Site {
 public:
  static constexpr int kPages = 240;
  Site() {
    server_.Http().Get(R"(/p(\d+)\.htm)",
                       [this](const httplib::Request& req, httplib::Response& res) {
                         const int n = std::stoi(req.matches[1]);
                         {
                           std::lock_guard lock(mutex_);
                           ++hits_[n];
                         }
                         std::this_thread::sleep_for(std::chrono::milliseconds(15));
                         res.set_content(Body(n), "text/html");
                       });
    server_.Start(32);
  }
  ~Site() { server_.Stop(); }
  static std::string Body(int n) {
    const auto link = [](int to, const std::string& suffix = {}) {
      return "<a href=\"/p" + std::to_string(to % kPages) + ".htm" + suffix + "\">page</a>\n";
    };
    return "<html><body><h1>Page " + std::to_string(n) + "</h1>\n" + link(n) + link(n + 1) +
           link(n * 7 + 3) + link(n * 13 + 5, "#part") + "<a href=\"mailto:" + Email(n) +
           "\">mail</a>\n</body></html>\n";
  }
  // Each page gives an e-mail address of its own.
  static std::string Email(int n) { return "desk" + std::to_string(n) + "@example.test"; }
  std::string Url(const std::string& path) const { return server_.Url(path); }
  std::map<int, int> Hits() {
    std::lock_guard lock(mutex_);
    return hits_;
  }
  int TotalHits() {
    int total = 0;
    for (const auto& [page, n] : Hits()) total += n;
    return total;
  }

 private:
  testing::LoopbackHttpServer server_;
  std::mutex mutex_;
  std::map<int, int> hits_;
};

class CrawlCommandTest : public ::testing::Test {
 protected:
  CrawlCommandTest() {
    const Result init = RunCli(out_.Path(), {"init"});
    EXPECT_EQ(init.status, 0) << init.output;
    cn_str_ = "Provider=SQLite;Data Source=" + (home_.Path() / "ZentrovoDB.sqlite").string();
  }
  long Count(const std::string& sql) {
    auto rs = CDisconnRS(cn_str_).RunQuery(sql, true);
    return rs->GetFields().Item(0L).Value().ToLong();
  }
  // The saved pages below `folder_`, by name (temporary files of a killed process left aside).
  std::map<std::string, std::string> SavedFiles() {
    std::map<std::string, std::string> files;
    for (const auto& entry : fs::recursive_directory_iterator(folder_.Path())) {
      if (!entry.is_regular_file()) continue;
      const std::string name = entry.path().filename().string();
      if (name.starts_with(".gw-")) continue;
      files[fs::relative(entry.path(), folder_.Path()).string()] = ReadFile(entry.path());
    }
    return files;
  }

  testing::ScopedHome home_;
  testing::TempDir out_;
  testing::TempDir folder_;
  std::string cn_str_;
  Site site_;
};

TEST_F(CrawlCommandTest, AKilledCrawlResumesAndSavesEveryPageOnce) {
  auto first =
      ChildProcess::Start({Cli(), "crawl", site_.Url("/p0.htm"), "--to", folder_.Path().string(),
                           "--package", "Site", "--emails", (out_ / "emails.txt").string()},
                          {}, (out_ / "first.txt").string());
  ASSERT_TRUE(
      WaitFor([&] { return site_.TotalHits() >= Site::kPages / 3; }, std::chrono::seconds(120)))
      << ReadFile(out_ / "first.txt");
  first->Kill(/*force=*/true);
  EXPECT_EQ(first->Wait(), 128 + SIGKILL);
  const auto at_kill = site_.Hits();
  ASSERT_LT(static_cast<int>(at_kill.size()), Site::kPages) << "the crawl ended before the kill";

  const Result resumed =
      RunCli(out_.Path(), {"crawl", site_.Url("/p0.htm"), "--to", folder_.Path().string(),
                           "--package", "Site", "--resume"});
  ASSERT_EQ(resumed.status, 0) << resumed.output;
  EXPECT_NE(resumed.output.find("Resuming the run of"), std::string::npos) << resumed.output;
  EXPECT_NE(resumed.output.find("Pages saved: " + std::to_string(Site::kPages) +
                                ", failed: 0, refused: 0"),
            std::string::npos)
      << resumed.output;

  // One run, finished; one row per page, each saved.
  EXPECT_EQ(Count("SELECT COUNT(*) FROM job_instances"), 1);
  EXPECT_EQ(Count("SELECT COUNT(*) FROM job_instances WHERE job_completion_time IS NULL"), 0);
  EXPECT_EQ(Count("SELECT COUNT(*) FROM task_instance_docs"), Site::kPages);
  EXPECT_EQ(Count("SELECT COUNT(DISTINCT lower(uri)) FROM task_instance_docs WHERE "
                  "copy_completion_code = 'Success' AND copy_try_count = 1"),
            Site::kPages);

  // Every page is saved exactly once across both processes: one file each, no second copy.
  const auto files = SavedFiles();
  EXPECT_EQ(static_cast<int>(files.size()), Site::kPages);
  std::map<std::string, int> copies;
  for (const auto& [name, body] : files) ++copies[body];
  for (int n = 0; n < Site::kPages; ++n) {
    EXPECT_EQ(copies[Site::Body(n)], 1) << "page " << n;
  }
  // A page is asked for a second time only when the killed process had it in flight, which
  // its ten transfer slots bound.
  int again = 0;
  for (const auto& [page, hits] : site_.Hits()) {
    EXPECT_LE(hits, 2) << "page " << page;
    again += hits - 1;
  }
  EXPECT_LE(again, 10);
  EXPECT_EQ(static_cast<int>(site_.Hits().size()), Site::kPages);

  // The e-mail file holds the address of every page once, also of those whose links the killed
  // process read.
  const std::string raw = ReadFile(out_ / "emails.txt");
  std::string list;
  for (std::size_t i = 2; i < raw.size(); i += 2) list += raw[i];
  std::map<std::string, int> listed;
  for (const std::string& line : text::Split(list, "\r\n")) {
    if (!line.empty()) ++listed[line.substr(0, line.find(", "))];
  }
  EXPECT_EQ(static_cast<int>(listed.size()), Site::kPages);
  for (int n = 0; n < Site::kPages; ++n) EXPECT_EQ(listed[Site::Email(n)], 1) << "page " << n;

  // The history shows the one run, completed.
  const Result history = RunCli(out_.Path(), {"history", "Site"});
  EXPECT_EQ(std::count(history.output.begin(), history.output.end(), '\n'), 1) << history.output;
  EXPECT_NE(history.output.find("completed"), std::string::npos) << history.output;
}

// What a killed crawl's journal names counts only where the named file is, and only in the next
// process: a journaled page whose file exists is not fetched again; one whose file was never made
// is fetched; and the next process starts the journal afresh, so that name cannot later be taken
// for the file of another page.
TEST_F(CrawlCommandTest, AJournaledNameCountsWhereItsFileIsAndOnlyOnce) {
  const auto crawl = [&](const char* log, bool resume) {
    std::vector<std::string> args{
        Cli(), "crawl", site_.Url("/p0.htm"), "--to", folder_.Path().string(), "--package", "Site"};
    if (resume) args.push_back("--resume");
    return ChildProcess::Start(args, {}, (out_ / log).string());
  };
  auto first = crawl("first.txt", false);
  // Killed early in the round of 77 pages that begins after 84 requests: many rows are open.
  ASSERT_TRUE(WaitFor([&] { return site_.TotalHits() >= 100; }, std::chrono::seconds(120)))
      << ReadFile(out_ / "first.txt");
  first->Kill(/*force=*/true);
  EXPECT_EQ(first->Wait(), 128 + SIGKILL);

  // The run's journal, and its open rows whose pages it does not name and have no file.
  std::vector<fs::path> journals;
  for (const auto& entry : fs::directory_iterator(home_.Path() / "crawl-journals")) {
    journals.push_back(entry.path());
  }
  ASSERT_EQ(journals.size(), 1U);
  const fs::path journal = journals[0];
  const std::string journaled = ReadFile(journal);
  const auto hits = site_.Hits();
  std::vector<std::pair<std::string, int>> open_rows;  // (doc id, page)
  {
    auto rs = CDisconnRS(cn_str_).RunQuery(
        "SELECT doc_id, uri FROM task_instance_docs WHERE copy_completion_code <> 'Success' AND "
        "copy_try_count < 10 ORDER BY rowid",
        true);
    if (rs->RecordCount() > 0) rs->MoveFirst();
    for (; !rs->IsEOF(); rs->MoveNext()) {
      const std::string uri = (*rs)["uri"].Value().ToText();
      const std::size_t at = uri.rfind("/p");
      const int page = std::stoi(uri.substr(at + 2));
      const std::string id = (*rs)["doc_id"].Value().ToText();
      const fs::path file = folder_.Path() / "127.0.0.1" / ("p" + std::to_string(page) + ".htm");
      if (journaled.find(id + "\t") == std::string::npos && !fs::exists(file)) {
        open_rows.emplace_back(id, page);
      }
    }
  }
  ASSERT_GE(open_rows.size(), 4U) << "the crawl had queued too little before the kill";
  const auto [saved_id, saved_page] = open_rows[0];
  const auto [unsaved_id, unsaved_page] = open_rows[1];
  const int later_page = open_rows[2].second;
  const auto [failed_id, failed_page] = open_rows[3];
  // The first page's file is there (made by hand); the second's name was journaled but never
  // made, and it is the name the third page's file will take. The fourth page was told the
  // first one's name before it (a naming that failed): the name is the first page's.
  const fs::path by_hand = folder_.Path() / "by-hand.htm";
  testing::WriteFile(by_hand, Site::Body(saved_page));
  const fs::path never_made =
      folder_.Path() / "127.0.0.1" / ("p" + std::to_string(later_page) + ".htm");
  ASSERT_FALSE(fs::exists(never_made));
  {
    std::ofstream out(journal, std::ios::binary | std::ios::app);
    if (!journaled.empty() && journaled.back() != '\n') {
      out << "\n";  // a line cut short by the kill
    }
    out << failed_id << "\tSuccess\t" << by_hand.string() << "\n"
        << saved_id << "\tSuccess\t" << by_hand.string() << "\n"
        << unsaved_id << "\tSuccess\t" << never_made.string() << "\n";
  }

  // The second process gives the first page its file before it asks for anything; once it has
  // asked for more pages, it is killed too.
  const int hits_before = site_.TotalHits();
  auto second = crawl("second.txt", true);
  ASSERT_TRUE(
      WaitFor([&] { return site_.TotalHits() >= hits_before + 20; }, std::chrono::seconds(120)))
      << ReadFile(out_ / "second.txt");
  second->Kill(/*force=*/true);
  EXPECT_EQ(second->Wait(), 128 + SIGKILL);
  EXPECT_EQ(Count("SELECT COUNT(*) FROM task_instance_docs WHERE doc_id = '" + saved_id +
                  "' AND copy_completion_code = 'Success' AND copy_try_count = 1 AND "
                  "temp_uri = '" +
                  by_hand.string() + "'"),
            1);
  // What the first process journaled is gone from the journal: the name never made is not there
  // for the page it was meant for.
  const std::string lines = ReadFile(journal);
  EXPECT_EQ(lines.find(unsaved_id + "\tSuccess\t" + never_made.string() + "\n"), std::string::npos)
      << lines;
  EXPECT_EQ(lines.find(by_hand.string()), std::string::npos) << lines;

  const Result third =
      RunCli(out_.Path(), {"crawl", site_.Url("/p0.htm"), "--to", folder_.Path().string(),
                           "--package", "Site", "--resume"});
  ASSERT_EQ(third.status, 0) << third.output;

  // Every page saved once, each row with its own file; the page whose file was there not asked
  // for again, the one whose file was not fetched and saved under its own name.
  EXPECT_EQ(Count("SELECT COUNT(*) FROM task_instance_docs"), Site::kPages);
  EXPECT_EQ(Count("SELECT COUNT(DISTINCT lower(uri)) FROM task_instance_docs WHERE "
                  "copy_completion_code = 'Success' AND copy_try_count = 1"),
            Site::kPages);
  EXPECT_EQ(Count("SELECT COUNT(DISTINCT temp_uri) FROM task_instance_docs"), Site::kPages);
  const auto files = SavedFiles();
  EXPECT_EQ(static_cast<int>(files.size()), Site::kPages);
  std::map<std::string, int> copies;
  for (const auto& [name, body] : files) ++copies[body];
  for (int n = 0; n < Site::kPages; ++n) EXPECT_EQ(copies[Site::Body(n)], 1) << "page " << n;
  // (A page in flight when the first process was killed was asked for once then.)
  const auto final_hits = site_.Hits();
  const auto hits_at_kill = [&](int page) { return hits.contains(page) ? hits.at(page) : 0; };
  EXPECT_EQ(final_hits.contains(saved_page) ? final_hits.at(saved_page) : 0,
            hits_at_kill(saved_page));
  EXPECT_GT(final_hits.at(unsaved_page), hits_at_kill(unsaved_page));
  EXPECT_GT(final_hits.at(failed_page), hits_at_kill(failed_page));
  EXPECT_EQ(Count("SELECT COUNT(*) FROM task_instance_docs WHERE doc_id = '" + unsaved_id +
                  "' AND temp_uri = '" + never_made.string() + "'"),
            0);
  EXPECT_EQ(ReadFile(never_made), Site::Body(later_page));
}

TEST_F(CrawlCommandTest, RulesDepthAndTheAddressFile) {
  // Depth 1 from p0: p0 and what it links to (p0 itself, p1, p3, p5), less what --skip drops.
  const Result r =
      RunCli(out_.Path(),
             {"crawl", site_.Url("/p0.htm"), "--to", folder_.Path().string(), "--depth", "1",
              "--skip", "[FILENAME] [EQUALS] p3.htm", "--emails", (out_ / "emails.txt").string()});
  ASSERT_EQ(r.status, 0) << r.output;
  EXPECT_NE(r.output.find("Pages saved: 3, failed: 0, refused: 0"), std::string::npos) << r.output;
  const auto hits = site_.Hits();
  EXPECT_EQ(hits, (std::map<int, int>{{0, 1}, {1, 1}, {5, 1}}));
  EXPECT_TRUE(fs::is_regular_file(folder_.Path() / "127.0.0.1" / "p5.htm"));
  // The address file: UTF-16 with a byte-order mark, one address and its page per line.
  const std::string raw = ReadFile(out_ / "emails.txt");
  std::string list;
  for (std::size_t i = 2; i < raw.size(); i += 2) list += raw[i];
  EXPECT_EQ(list, "desk0@example.test, " + site_.Url("/p0.htm") + "\r\n");

  // The package stays: `run --resume` without an unfinished run starts a new one, and a bad
  // rule is refused with a message.
  const Result again = RunCli(out_.Path(), {"run", site_.Url("/p0.htm"), "--resume"});
  EXPECT_EQ(again.status, 0) << again.output;
  EXPECT_NE(again.output.find("No unfinished run"), std::string::npos) << again.output;
  EXPECT_EQ(Count("SELECT COUNT(*) FROM job_instances"), 2);
  const Result bad = RunCli(out_.Path(), {"crawl", site_.Url("/p0.htm"), "--to",
                                          folder_.Path().string(), "--follow", "[HOST] example"});
  EXPECT_NE(bad.status, 0);
  EXPECT_NE(bad.output.find("PART OPERATOR VALUE"), std::string::npos) << bad.output;
}

}  // namespace
}  // namespace gw
