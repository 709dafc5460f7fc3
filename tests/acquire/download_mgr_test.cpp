// The download managers against real servers on loopback, a real rules store and real files.
#include "acquire/download_mgr.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <map>
#include <mutex>
#include <thread>

#include "acquire/advanced_download_mgr.h"
#include "engine/task.h"
#include "platform/http_transport.h"
#include "rules/package_data_access.h"
#include "rules/rules_fixture.h"
#include "rules/settings.h"
#include "support/http_server.h"
#include "support/test_support.h"

namespace gw {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using testing::ReadFile;
using testing::WriteFile;

const DateTime kRun = DateTime::FromParts(2026, 3, 4, 5, 6, 7, 89);

// A site on one loopback address that records what it was asked and how many requests it served
// at once.
class Site {
 public:
  explicit Site(const std::string& host = "127.0.0.1") {
    auto& s = server_.Http();
    s.set_pre_routing_handler([this](const httplib::Request& req, httplib::Response&) {
      std::lock_guard lock(mutex_);
      log_.push_back(req.method + " " + req.target);
      times_.emplace_back(req.target, Clock::now());
      return httplib::Server::HandlerResponse::Unhandled;
    });
    s.Get("/ok.htm", [](const httplib::Request&, httplib::Response& res) {
      res.set_header("Set-Cookie", "s=1; Path=/");
      res.set_content("<p>ok</p>", "text/html");
    });
    // The returned session is the first agent's, and which agent fetches /ok.htm depends on how
    // fast the refused port fails: a page tried again in every pass sets the cookie too.
    s.Get("/missing", [](const httplib::Request&, httplib::Response& res) {
      res.set_header("Set-Cookie", "s=1; Path=/");
      res.status = 404;
      res.set_content("gone", "text/html");
    });
    s.Get("/error", [](const httplib::Request&, httplib::Response& res) { res.status = 500; });
    s.Get("/redirect", [](const httplib::Request&, httplib::Response& res) {
      res.status = 302;
      res.set_header("Location", "/target.htm");
    });
    s.Get("/dir/", [](const httplib::Request&, httplib::Response& res) {
      res.set_content("a folder", "text/html; charset=utf-8");
    });
    s.Get("/target.htm", [](const httplib::Request&, httplib::Response& res) {
      res.set_content("target", "text/html");
    });
    s.Get("/slow", [this](const httplib::Request& req, httplib::Response& res) {
      const int now = ++in_flight_;
      for (int seen = max_in_flight_;
           now > seen && !max_in_flight_.compare_exchange_weak(seen, now);) {
      }
      const std::string ms = req.has_param("ms") ? req.get_param_value("ms") : "300";
      std::this_thread::sleep_for(std::chrono::milliseconds(std::stoi(ms)));
      --in_flight_;
      res.set_content("slow", "text/html");
    });
    s.Post("/search", [](const httplib::Request& req, httplib::Response& res) {
      res.set_content("results page " + req.get_param_value("page"), "text/html");
    });
    // What each request carried, for the pages that set a cookie named in the query ("set=c").
    const auto record = [this](const httplib::Request& req, httplib::Response& res) {
      // Every line of a header, so that one sent twice shows.
      const auto lines = [&req](const char* name) {
        std::string values;
        for (auto [it, end] = req.headers.equal_range(name); it != end; ++it) {
          values += (values.empty() ? "" : " | ") + it->second;
        }
        return values;
      };
      Carried c{req.method + " " + req.target, req.body, lines("Content-Type"),
                lines("Content-Length"), lines("Cookie")};
      {
        std::lock_guard lock(mutex_);
        carried_.push_back(std::move(c));
      }
      if (req.has_param("set")) {
        res.set_header("Set-Cookie", req.get_param_value("set") + "=1; Path=/");
      }
      res.set_content(req.method, "text/html");
    };
    s.Post("/carried", record);
    s.Get("/carried", record);
    s.Get("/robots.txt", [this](const httplib::Request&, httplib::Response& res) {
      if (robots_.empty()) {
        res.status = 404;
      } else {
        res.set_content(robots_, "text/plain");
      }
    });
    s.Get("/busy", [this](const httplib::Request&, httplib::Response& res) {
      if (busy_answers_++ == 0) {
        res.status = 429;
        res.set_header("Retry-After", retry_after_);
        std::lock_guard lock(mutex_);
        busy_sent_ = Clock::now();
        return;
      }
      res.set_content("not busy", "text/html");
    });
    s.Get("/evil", [](const httplib::Request&, httplib::Response& res) {
      res.set_header("Content-Disposition", "attachment; filename=\"../../../../escaped.htm\"");
      res.status = 302;
      res.set_header("Location", "/..%2F..%2F..%2F..%2Fescaped/..%2Fescaped.htm");
    });
    s.Get(R"(/(.*escaped.*))", [](const httplib::Request&, httplib::Response& res) {
      res.set_header("Content-Disposition", "attachment; filename=\"../../escaped.htm\"");
      res.set_content("evil", "text/html");
    });
    s.Get(R"(/(private|mine)/.*)", [](const httplib::Request&, httplib::Response& res) {
      res.set_content("secret", "text/html");
    });
    server_.Start(64, host);
  }
  // Idle connections kept for reuse would hold the server's workers until they time out. The
  // server stops before the record its handlers write goes (members go after the destructor's
  // body, the server last of all).
  ~Site() {
    HttpTransport::CloseIdleConnections();
    server_.Stop();
  }
  std::string Url(const std::string& path) const { return server_.Url(path); }
  long Requests(const std::string& line) {
    std::lock_guard lock(mutex_);
    return static_cast<long>(std::count(log_.begin(), log_.end(), line));
  }
  Clock::time_point FirstRequestOf(const std::string& target) {
    std::lock_guard lock(mutex_);
    for (const auto& [t, when] : times_) {
      if (t == target) return when;
    }
    return {};
  }
  Clock::time_point LastRequestOf(const std::string& target) {
    std::lock_guard lock(mutex_);
    Clock::time_point last{};
    for (const auto& [t, when] : times_) {
      if (t == target) last = when;
    }
    return last;
  }
  Clock::time_point BusySent() {
    std::lock_guard lock(mutex_);
    return busy_sent_;
  }
  std::vector<std::string> Log() {
    std::lock_guard lock(mutex_);
    return log_;
  }
  struct Carried {
    std::string request, body, content_type, content_length, cookie;
  };
  std::vector<Carried> CarriedRequests() {
    std::lock_guard lock(mutex_);
    return carried_;
  }
  int MaxInFlight() const { return max_in_flight_; }
  void SetRobots(std::string text) { robots_ = std::move(text); }
  void SetRetryAfter(std::string v) { retry_after_ = std::move(v); }

 private:
  testing::LoopbackHttpServer server_;
  std::mutex mutex_;
  std::vector<std::string> log_;
  std::vector<std::pair<std::string, Clock::time_point>> times_;
  std::vector<Carried> carried_;
  std::atomic<int> in_flight_{0}, max_in_flight_{0}, busy_answers_{0};
  Clock::time_point busy_sent_{};
  std::string robots_;
  std::string retry_after_ = "1";
};

class DownloadTest : public testing::RulesStoreTest {
 protected:
  DownloadTest() {
    DJob().Save("j1", DateTime::FromParts(2026, 1, 1), DateTime::FromParts(2026, 1, 2), "P", "");
    DTask().Save("t1", "j1", "Fetch", "", 1, 0, 0, "");
    DJob().SaveInstance("j1", kRun);
    DTask().SaveInstance("t1", "j1", kRun, kRun);
    saver_->SetRootFolder(dl_.string());
    saver_->SetFileName("[DOCID]");
    statuses_ = mgr_->OnStatusChange.Connect([this](const std::string& s, bool& cancel) {
      statuses.push_back(s);
      if (!cancel_at.empty() && s.rfind(cancel_at, 0) == 0) cancel = true;
    });
    progress_ = mgr_->OnProgressChange.Connect(
        [this](long change, long max) { progress.emplace_back(change, max); });
  }
  void Queue(const std::string& id, const std::string& uri) {
    D_Doc().SaveDocument(id, "t1", "j1", kRun, uri, "", "Queued");
  }
  static std::string Col(const std::string& id, const char* name) {
    auto rs = D_Doc().GetDoc(id);
    const Variant& v = (*rs)[name].Value();
    return v.IsNull() ? "NULL" : v.ToText();
  }
  HttpClientPtr Download(bool save_error_pages = false) {
    return mgr_->DownloadDocs("j1", "t1", kRun, saver_, client_, "get", save_error_pages);
  }
  static void Option(const char* name, Variant value, DataType type) {
    Settings().PutOption(name, value, type);
  }

  fs::path dl_ = home_.Path() / "dl";
  FileSaverPtr saver_ = FileSaver::Create();
  HttpClientPtr client_ = web::HttpClient::Create();
  std::shared_ptr<DownloadMgr> mgr_ = DownloadMgr::Create();
  std::vector<std::string> statuses;
  std::vector<std::pair<long, long>> progress;
  std::string cancel_at;
  ScopedConnection statuses_, progress_;
};

TEST_F(DownloadTest, EveryRowGetsItsOutcome) {
  Site site;
  testing::TempDir src;
  WriteFile(src / "local.html", "<p>local</p>");
  const int closed = testing::UnusedLoopbackPort();
  Queue("d1", site.Url("/ok.htm"));
  Queue("d2", site.Url("/missing"));
  Queue("d3", site.Url("/error"));
  Queue("d4", site.Url("/redirect"));
  Queue("d5", site.Url("/slow?ms=600"));
  Queue("d6", "http://127.0.0.1:" + std::to_string(closed) + "/x.htm");
  Queue("d7", (src / "local.html").string());
  Queue("d8", "mailto:someone@example.test");
  const HttpClientPtr session = Download();

  struct Saved {
    const char* id;
    const char* file;
    const char* content;
  };
  for (const Saved& s : {Saved{"d1", "d1.htm", "<p>ok</p>"}, Saved{"d4", "d4.htm", "target"},
                         Saved{"d5", "d5.htm", "slow"}, Saved{"d7", "d7.htm", "<p>local</p>"}}) {
    SCOPED_TRACE(s.id);
    EXPECT_EQ(Col(s.id, "copy_completion_code"), "Success");
    EXPECT_EQ(Col(s.id, "copy_try_count"), "1");
    EXPECT_EQ(Col(s.id, "temp_uri"), (dl_ / s.file).string());
    EXPECT_NE(Col(s.id, "copy_completion_time"), "NULL");
    EXPECT_EQ(ReadFile(dl_ / s.file), s.content);
  }
  // Failures are tried again, pass after pass, up to the tenth try.
  struct Failed {
    const char* id;
    std::string code;
  };
  for (const Failed& f : {Failed{"d2", "Not Found"}, Failed{"d3", "Internal Server Error"},
                          Failed{"d8", "The uri appears to be an email address."}}) {
    SCOPED_TRACE(f.id);
    EXPECT_EQ(Col(f.id, "copy_completion_code"), f.code);
    EXPECT_EQ(Col(f.id, "copy_try_count"), "10");
    EXPECT_EQ(Col(f.id, "temp_uri"), "");
  }
  EXPECT_NE(Col("d6", "copy_completion_code").find(std::to_string(closed)), std::string::npos)
      << Col("d6", "copy_completion_code");
  EXPECT_EQ(Col("d6", "copy_try_count"), "10");
  EXPECT_EQ(site.Requests("GET /missing"), 10);
  EXPECT_EQ(site.Requests("GET /ok.htm"), 1);
  EXPECT_EQ(site.Requests("GET /robots.txt"), 1) << "once for the whole run";
  // Only what was saved: no error page, no temporary file.
  std::vector<std::string> files;
  for (const auto& e : fs::directory_iterator(dl_)) files.push_back(e.path().filename().string());
  std::sort(files.begin(), files.end());
  EXPECT_EQ(files, (std::vector<std::string>{"d1.htm", "d4.htm", "d5.htm", "d7.htm"}));

  // One progress step per saved row of the first pass, against five times its rows.
  EXPECT_EQ(progress, (std::vector<std::pair<long, long>>(4, {1, 40})));
  ASSERT_GE(statuses.size(), 9u);
  EXPECT_EQ(statuses[0], "Downloading " + site.Url("/ok.htm") + "  Count: 1");
  EXPECT_EQ(statuses[8], "Waiting up to 5 minutes for all threads to complete...");
  // The session goes on with the cookies the pages set.
  ASSERT_TRUE(session);
  EXPECT_NE(session, client_);
  EXPECT_TRUE(session->Cookies()->GetCookie("s"));
}

TEST_F(DownloadTest, FilesThatCannotBeReadAreNeverOpenedAndTheirRowsSayWhy) {
  const testing::PermissionsBind permissions_bind;
  testing::TempDir src;
  WriteFile(src / "secret.htm", "s");
  fs::permissions(src / "secret.htm", fs::perms::none);
  fs::create_symlink(src / "nowhere.htm", src / "dangling.htm");
  fs::create_symlink(src / "loop2", src / "loop1");
  fs::create_symlink(src / "loop1", src / "loop2");
  // Opening a named pipe for reading would wait for a writer for ever.
  ASSERT_EQ(::mkfifo((src / "pipe").c_str(), 0644), 0);
  struct Case {
    const char* id;
    std::string path;
    std::string why;
  };
  const Case cases[] = {
      {"d1", (src / "secret.htm").string(), "Permission denied"},
      {"d2", (src / "dangling.htm").string(),
       "it is a symbolic link to " + (src / "nowhere.htm").string() + ", which does not exist"},
      {"d3", (src / "loop1").string(), "its symbolic links form a loop"},
      {"d4", (src / "pipe").string(), "it is a named pipe, which is never opened"},
      {"d5", "/dev/zero", "it is a device, which is never opened"},
  };
  for (const Case& c : cases) Queue(c.id, c.path);
  Download();
  for (const Case& c : cases) {
    SCOPED_TRACE(c.id);
    EXPECT_EQ(Col(c.id, "copy_completion_code"), "Not copied: " + c.path + ": " + c.why + ".");
    EXPECT_EQ(Col(c.id, "temp_uri"), "");
  }
}

TEST_F(DownloadTest, AFormRowIsPostedForEachPageOfResults) {
  Site site;
  for (int page : {1, 2}) {
    Queue("p" + std::to_string(page), site.Url("/search") + " <FormVars><var name='page' val='" +
                                          std::to_string(page) + "'></var></FormVars>");
  }
  Download();
  EXPECT_EQ(ReadFile(dl_ / "p1.htm"), "results page 1");
  EXPECT_EQ(ReadFile(dl_ / "p2.htm"), "results page 2");
  EXPECT_EQ(site.Requests("POST /search"), 2);
}

// One agent sends every row, one after the other, on the transport its last request handed on:
// each request carries its own method, body and body headers and nothing of the one before; the
// cookies are the client's (newest first, each followed by "; "), so each one set is sent from the
// next request on, once.
TEST_F(DownloadTest, NothingOfOneRowsRequestIsSentWithTheNext) {
  Site site;
  Option(option::kObeyRobotsTxt, Variant(false), DataType::Bool);
  Option(option::kMaxRequestsPerHost, Variant(1), DataType::Dword);
  const std::string form = "application/x-www-form-urlencoded";
  struct Row {
    std::string uri;
    Site::Carried carried;
  };
  const Row rows[] = {
      {site.Url("/carried?set=a") + " <FormVars><var name='x' val='1'></var></FormVars>",
       {"POST /carried?set=a", "x=1", form, "3", ""}},
      {site.Url("/carried?n=2"), {"GET /carried?n=2", "", "", "", "a=1;"}},
      {site.Url("/carried?set=b") +
           " <FormVars><var name='y' val='22'></var><var name='z' val='3'></var></FormVars>",
       {"POST /carried?set=b", "y=22&z=3", form, "8", "a=1;"}},
      {site.Url("/carried?n=4"), {"GET /carried?n=4", "", "", "", "b=1; a=1;"}},
      {site.Url("/carried?n=5"), {"GET /carried?n=5", "", "", "", "b=1; a=1;"}},
  };
  for (std::size_t i = 0; i < std::size(rows); ++i) Queue("r" + std::to_string(i), rows[i].uri);
  Download();
  const std::vector<Site::Carried> carried = site.CarriedRequests();
  ASSERT_EQ(carried.size(), std::size(rows));
  for (std::size_t i = 0; i < std::size(rows); ++i) {
    SCOPED_TRACE(rows[i].carried.request);
    const Site::Carried& want = rows[i].carried;
    EXPECT_EQ(Col("r" + std::to_string(i), "copy_completion_code"), "Success");
    EXPECT_EQ(carried[i].request, want.request);
    EXPECT_EQ(carried[i].body, want.body);
    EXPECT_EQ(carried[i].content_type, want.content_type);
    EXPECT_EQ(carried[i].content_length, want.content_length);
    EXPECT_EQ(carried[i].cookie, want.cookie);
  }
}

TEST_F(DownloadTest, RobotsTxtIsObeyedForTheTasksAgent) {
  Site site;
  site.SetRobots(
      "User-agent: *\nDisallow: /private/\n\n"
      "User-agent: OtherBot\nUser-agent: gleanwright\nDisallow: /mine/\nAllow: /mine/open\n");
  Queue("a", site.Url("/private/a"));
  Queue("b", site.Url("/mine/b"));
  Queue("c", site.Url("/mine/open.htm"));
  Queue("d", site.Url("/missing"));
  Download();
  // The product's own group applies, not the "*" one.
  EXPECT_EQ(Col("a", "copy_completion_code"), "Success");
  EXPECT_EQ(Col("c", "copy_completion_code"), "Success");
  EXPECT_EQ(Col("b", "copy_completion_code"), "Refused by robots.txt");
  EXPECT_EQ(Col("b", "copy_try_count"), "10") << "not asked for again";
  EXPECT_EQ(site.Requests("GET /mine/b"), 0);
  EXPECT_EQ(site.Requests("GET /robots.txt"), 1);

  // Another agent falls under "*".
  Queue("e", site.Url("/private/e"));
  client_->SetUserAgent("Crawly/2.0");
  Download();
  EXPECT_EQ(Col("e", "copy_completion_code"), "Refused by robots.txt");

  // Switched off, robots.txt is neither read nor obeyed.
  Option(option::kObeyRobotsTxt, Variant(false), DataType::Bool);
  Queue("f", site.Url("/private/f"));
  Download();
  EXPECT_EQ(Col("f", "copy_completion_code"), "Success");
  EXPECT_EQ(site.Requests("GET /robots.txt"), 2);
}

TEST_F(DownloadTest, EachHostHasItsLimitAndOtherHostsGoOnMeanwhile) {
  Site one("127.0.0.1");
  Site two("127.0.0.2");
  Option(option::kMaxRequestsPerHost, Variant(2), DataType::Dword);
  // All of the first host's rows come first: its later rows wait while the second host's run.
  for (int i = 0; i < 6; ++i) Queue("a" + std::to_string(i), one.Url("/slow?ms=300"));
  for (int i = 0; i < 6; ++i) Queue("b" + std::to_string(i), two.Url("/slow?ms=300"));
  Download();
  for (const char* prefix : {"a", "b"}) {
    for (int i = 0; i < 6; ++i) {
      EXPECT_EQ(Col(prefix + std::to_string(i), "copy_completion_code"), "Success");
    }
  }
  EXPECT_EQ(one.MaxInFlight(), 2);
  EXPECT_EQ(two.MaxInFlight(), 2);
  // The second host did not wait for the first one's rows: it was served before the first host's
  // last row was even sent.
  EXPECT_LT(two.FirstRequestOf("/slow?ms=300"), one.LastRequestOf("/slow?ms=300"));
}

TEST_F(DownloadTest, AListReadSliceBySliceTriesEachRowOnceInItsOrder) {
  // Slices of two rows: the failures written meanwhile stay open but must not come back in the
  // same pass, and no row may be passed over at a slice's edge.
  Site site;
  Option(option::kObeyRobotsTxt, Variant(false), DataType::Bool);
  Option(option::kMaxRequestsPerHost, Variant(1), DataType::Dword);
  std::vector<std::string> expected;
  for (int i = 0; i < 7; ++i) {
    const std::string path = (i % 3 == 1 ? "/missing?n=" : "/target.htm?n=") + std::to_string(i);
    Queue("d" + std::to_string(i), site.Url(path));
    expected.push_back("GET " + path);
  }
  OpenRowsFeed rows("j1", "t1", kRun, 2);
  EXPECT_EQ(rows.Count(), 7);
  auto pass = AdvancedDownloadMgr::Create();
  pass->DownloadFiles(rows, saver_, client_);
  // One host, one transfer at a time: the requests came in the rows' order, each once.
  EXPECT_EQ(site.Log(), expected);
  for (int i = 0; i < 7; ++i) {
    const std::string id = "d" + std::to_string(i);
    SCOPED_TRACE(id);
    EXPECT_EQ(Col(id, "copy_try_count"), "1");
    EXPECT_EQ(Col(id, "copy_completion_code"), i % 3 == 1 ? "Not Found" : "Success");
    EXPECT_EQ(Col(id, "temp_uri"), i % 3 == 1 ? "" : (dl_ / (id + ".htm")).string());
  }
  EXPECT_EQ(OpenRowsFeed("j1", "t1", kRun, 2).Count(), 2);
}

TEST_F(DownloadTest, ASavedFileIsToldByNameBeforeItHasIt) {
  // Each name a page or a copy is about to take is told first, with the row's code: the taken
  // name, then the free one, which nothing holds yet. An error page kept on the last try is not
  // the row's file and is not told; the saved files are still told once saved.
  Site site;
  testing::TempDir src;
  WriteFile(src / "local.html", "<p>local</p>");
  WriteFile(dl_ / "d1.htm", "theirs");
  Queue("d1", site.Url("/ok.htm"));
  Queue("d2", site.Url("/missing"));
  Queue("d3", (src / "local.html").string());
  struct Notice {
    std::string id, file, code;
    bool existed;
    bool operator==(const Notice&) const = default;
  };
  std::vector<Notice> notices, saved;
  for (int pass_no = 0; pass_no < 10; ++pass_no) {
    OpenRowsFeed rows("j1", "t1", kRun);
    if (rows.Count() == 0) break;
    auto pass = AdvancedDownloadMgr::Create();
    const ScopedConnection naming = pass->OnFileNaming.Connect(
        [&](const std::string& id, const std::string& file, const std::string& code) {
          notices.push_back({id, file, code, fs::exists(file)});
        });
    const ScopedConnection on_saved = pass->OnFileSaved.Connect(
        [&](const std::string& id, const std::string& file, const std::string& code) {
          saved.push_back({id, file, code, fs::exists(file)});
        });
    pass->DownloadFiles(rows, saver_, client_, "GET", /*SaveErrorPages=*/true);
  }
  EXPECT_EQ(Col("d2", "copy_try_count"), "10");
  EXPECT_EQ(ReadFile(dl_ / "d2.htm"), "gone");
  std::sort(notices.begin(), notices.end(),
            [](const Notice& a, const Notice& b) { return a.id < b.id; });
  const std::string d = dl_.string() + "/";
  EXPECT_EQ(notices, (std::vector<Notice>{{"d1", d + "d1.htm", "Success", true},
                                          {"d1", d + "d1(1).htm", "Success", false},
                                          {"d3", d + "d3.htm", "Success", false}}));
  std::sort(saved.begin(), saved.end(),
            [](const Notice& a, const Notice& b) { return a.id < b.id; });
  EXPECT_EQ(saved, (std::vector<Notice>{{"d1", d + "d1(1).htm", "Success", true},
                                        {"d3", d + "d3.htm", "Success", true}}));
  EXPECT_EQ(ReadFile(dl_ / "d1(1).htm"), "<p>ok</p>");
}

TEST_F(DownloadTest, RetryAfterHoldsTheHostBackAndTheRowStaysOpen) {
  Site site;
  Option(option::kMaxRequestsPerHost, Variant(1), DataType::Dword);
  Queue("d1", site.Url("/busy"));
  Queue("d2", site.Url("/ok.htm"));
  Download();
  EXPECT_EQ(Col("d1", "copy_completion_code"), "Success");
  EXPECT_EQ(Col("d1", "copy_try_count"), "2");
  EXPECT_EQ(Col("d2", "copy_completion_code"), "Success");
  EXPECT_GE(site.FirstRequestOf("/ok.htm") - site.BusySent(), std::chrono::milliseconds(900));
}

TEST_F(DownloadTest, ManagersThatShareAPolitenessShareTheHostsState) {
  // A crawler runs one manager per level of links and hands each the same hosts' state.
  Site site;
  site.SetRobots("User-agent: *\nDisallow: /private/\n");
  Option(option::kMaxRequestsPerHost, Variant(1), DataType::Dword);
  const auto shared = std::make_shared<Politeness>();
  const auto level = [&](const std::vector<std::pair<std::string, std::string>>& rows) {
    for (const auto& [id, path] : rows) Queue(id, site.Url(path));
    auto list = D_DownloadMgr().GetNonDownloadedFiles("j1", "t1", kRun);
    auto mgr = AdvancedDownloadMgr::Create();
    mgr->SetPoliteness(shared);
    mgr->DownloadFiles(*list, saver_, client_);
  };
  level({{"a", "/busy"}, {"b", "/private/b"}});
  // The host asked for a pause: the first level ended with its row open.
  EXPECT_EQ(Col("a", "copy_try_count"), "1");
  EXPECT_EQ(Col("b", "copy_completion_code"), "Refused by robots.txt");
  level({{"c", "/ok.htm"}, {"d", "/private/d"}});
  EXPECT_EQ(Col("a", "copy_completion_code"), "Success");
  EXPECT_EQ(Col("c", "copy_completion_code"), "Success");
  EXPECT_EQ(Col("d", "copy_completion_code"), "Refused by robots.txt");
  // robots.txt was read once for both levels, and the pause held in the second.
  EXPECT_EQ(site.Requests("GET /robots.txt"), 1);
  EXPECT_GE(site.FirstRequestOf("/ok.htm") - site.BusySent(), std::chrono::milliseconds(900));
}

TEST_F(DownloadTest, RetryAfterIsCappedBySetting) {
  Site site;
  site.SetRetryAfter("3600");
  Option(option::kMaxRetryAfterSecs, Variant(0), DataType::Dword);
  Queue("d1", site.Url("/busy"));
  const auto start = Clock::now();
  Download();
  EXPECT_EQ(Col("d1", "copy_completion_code"), "Success");
  EXPECT_LT(Clock::now() - start, std::chrono::seconds(20));
}

TEST_F(DownloadTest, ACancelStopsNewRequestsAndWaitsForRunningOnes) {
  Site site;
  Option(option::kObeyRobotsTxt, Variant(false), DataType::Bool);
  for (int i = 1; i <= 5; ++i)
    Queue("d" + std::to_string(i), site.Url("/slow?ms=300&n=" + std::to_string(i)));
  cancel_at = "Downloading " + site.Url("/slow?ms=300&n=3");
  Download();
  EXPECT_EQ(Col("d1", "copy_completion_code"), "Success");
  EXPECT_EQ(Col("d2", "copy_completion_code"), "Success");
  for (const char* id : {"d3", "d4", "d5"}) {
    EXPECT_EQ(Col(id, "copy_completion_code"), "Queued");
    EXPECT_EQ(Col(id, "copy_try_count"), "0");
  }
  EXPECT_EQ(statuses.back(), "Waiting up to 5 minutes for all threads to complete...");
}

TEST_F(DownloadTest, TheTenthTryKeepsTheErrorPage) {
  Site site;
  Queue("d1", site.Url("/missing"));
  Download(true);
  EXPECT_EQ(Col("d1", "copy_completion_code"), "Not Found");
  EXPECT_EQ(Col("d1", "copy_try_count"), "10");
  EXPECT_EQ(Col("d1", "temp_uri"), (dl_ / "d1.htm").string());
  EXPECT_EQ(ReadFile(dl_ / "d1.htm"), "gone");
}

TEST_F(DownloadTest, NothingIsWrittenOutsideTheDownloadFolder) {
  Site site;
  saver_->SetJobFolder("[URL]");
  saver_->SetDocFolder("[URLPATH]");
  saver_->SetFileName("[FILENAME]_[QUERY]");
  Queue("d1", site.Url("/evil"));
  Queue("d2", site.Url("/a/..%2F..%2F..%2F..%2Fescaped.htm?..%2F..%2Fescaped"));
  Queue("d3", site.Url("/../../../../escaped.htm"));
  Download();
  for (const char* id : {"d1", "d2", "d3"}) {
    SCOPED_TRACE(id);
    EXPECT_EQ(Col(id, "copy_completion_code"), "Success");
    const fs::path file = fs::weakly_canonical(Col(id, "temp_uri"));
    EXPECT_EQ(file.string().rfind(dl_.string() + "/", 0), 0u) << file;
    EXPECT_EQ(ReadFile(file), "evil");
  }
  for (const auto& e : fs::recursive_directory_iterator(home_.Path())) {
    if (e.path().filename().string().find("escaped") != std::string::npos) {
      EXPECT_EQ(e.path().string().rfind(dl_.string() + "/", 0), 0u) << e.path();
    }
  }
}

TEST_F(DownloadTest, NoFreeAgentWithinTheTimeOutEndsTheRun) {
  Site site;
  for (int i = 0; i < 11; ++i) Queue("d" + std::to_string(i), site.Url("/slow?ms=1500"));
  auto rows = D_DownloadMgr().GetNonDownloadedFiles("j1", "t1", kRun);
  auto mgr = AdvancedDownloadMgr::Create();
  mgr->SetPoliteness(std::make_shared<Politeness>(PolitenessSettings{false, 20, 0}));
  mgr->SetAgentTimeout(std::chrono::milliseconds(300));
  try {
    mgr->DownloadFiles(*rows, saver_, client_);
    FAIL() << "no time-out";
  } catch (const Error& e) {
    EXPECT_EQ(e.Number(), acquireerr::kNoAgentAvailable);
    EXPECT_NE(
        e.Description().find("Waited 0.3 seconds for an agent to become available, but timed out."),
        std::string::npos)
        << e.Description();
  }
}

TEST_F(DownloadTest, TheThrottlePausesBeforeEachRequest) {
  Site site;
  // The throttle comes from the saver's task.
  DTask().Save("t1", "j1", "Fetch", "", 1, 0, 1000, "");
  auto task = Task::Create();
  task->Load("t1");
  saver_->SetTask(task);
  Queue("d1", site.Url("/ok.htm"));
  const auto start = Clock::now();
  Download();
  EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(1000));
  ASSERT_GE(statuses.size(), 2u);
  EXPECT_EQ(statuses[1], "Politely Downloading " + site.Url("/ok.htm") +
                             "  Count: 1  (Throttling Download Requests... Waiting 1 seconds...)");
}

TEST(RobotsRulesTest, LongestMatchWinsAndAllowWinsATie) {
  const RobotsRules rules = RobotsRules::Parse(
      "# comment\nUser-agent: *\nDisallow: /a\nAllow: /a/b\nDisallow: /*.pdf$\n"
      "Disallow: /c/\nAllow: /c/\nDisallow: /%7Ex/\nSitemap: http://x/s.xml\n",
      "Gleanwright/1.0");
  struct Case {
    const char* path;
    bool allowed;
  };
  for (const Case& c : {Case{"/", true}, Case{"/a", false}, Case{"/a/b/c", true},
                        Case{"/ab", false}, Case{"/doc.pdf", false}, Case{"/doc.pdf?x", true},
                        Case{"/c/d", true}, Case{"/~x/y", false}, Case{"/robots.txt", true}}) {
    SCOPED_TRACE(c.path);
    EXPECT_EQ(rules.IsAllowed(c.path), c.allowed);
  }
  EXPECT_TRUE(
      RobotsRules::Parse("User-agent: other\nDisallow: /\n", "Gleanwright").IsAllowed("/x"));
  EXPECT_FALSE(RobotsRules::DisallowAll().IsAllowed("/x"));
}

TEST(RetryAfterTest, SecondsOrAnHttpDate) {
  const auto now = std::chrono::system_clock::from_time_t(784111777);  // Sun, 06 Nov 1994 08:49:37
  EXPECT_EQ(ParseRetryAfter("120", now), 120);
  EXPECT_EQ(ParseRetryAfter("Sun, 06 Nov 1994 08:50:37 GMT", now), 60);
  EXPECT_EQ(ParseRetryAfter("Sun, 06 Nov 1994 08:00:00 GMT", now), 0);
  EXPECT_EQ(ParseRetryAfter("soon", now), std::nullopt);
}

TEST_F(DownloadTest, TheSerialPathHasItsOwnCodes) {
  Site site;
  struct Kind {
    std::string uri;
    web::ResourceType type;
    std::string left;
  };
  for (const Kind& k : {Kind{"C:\\x.htm", web::ResourceType::FileSystem, "C:\\x.htm"},
                        Kind{"//a/b", web::ResourceType::Unknown, "a/b"},
                        Kind{"file:///srv/a", web::ResourceType::FileSystem, "srv/a"},
                        Kind{" HTTP://a ", web::ResourceType::http, "HTTP://a"},
                        Kind{"news://x", web::ResourceType::Invalid, "news://x"}}) {
    SCOPED_TRACE(k.uri);
    std::string uri = k.uri;
    EXPECT_EQ(DownloadMgr::DetermineResourceType(uri), k.type);
    EXPECT_EQ(uri, k.left);
  }
  testing::TempDir tmp;
  const std::string dir = tmp.Path().string() + "/";
  std::string path;
  EXPECT_EQ(mgr_->DownloadDoc(site.Url("/ok.htm"), dir, "x", path), "Success");
  EXPECT_EQ(path, dir + "x.htm");
  EXPECT_EQ(ReadFile(path), "<p>ok</p>");
  EXPECT_EQ(mgr_->DownloadDoc(site.Url("/missing"), dir, "y", path), "File Not Found (404)");
  EXPECT_EQ(mgr_->DownloadDoc(site.Url("/error"), dir, "z", path), "Download Failed");
  // An address ending in "/" asks the server what it is.
  EXPECT_EQ(mgr_->DetermineFileExt(site.Url("/dir/"), web::ResourceType::http), "htm");
}

}  // namespace
}  // namespace gw
