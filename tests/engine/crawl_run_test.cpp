// Crawling packages against a generated site on two loopback hosts: the real download manager,
// the crawler, the rules store as the queue, and the files saved.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <deque>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <thread>

#include "acquire/crawler.h"
#include "engine/run_fixture.h"
#include "platform/http_transport.h"
#include "platform/text.h"
#include "support/http_server.h"

namespace gw::engine_test {
namespace {

namespace fs = std::filesystem;
using testing::ReadFile;
using testing::WriteFile;

// A small site with the awkward parts a crawl meets: cycles, a page linking to itself, links that
// differ only in a fragment or in letter case, e-mail links, a link to another host (127.0.0.2,
// which links back), a page failing with 500, and a folder that robots.txt forbids. Paths are
// served without regard to case. Every GET is counted by its target.
class CrawlSite {
 public:
  CrawlSite() {
    for (auto* server : {&main_, &other_}) {
      server->Http().Get(".*", [this, server](const httplib::Request& req, httplib::Response& res) {
        Serve(*server, req, res);
      });
    }
    main_.Start(16, "127.0.0.1");
    other_.Start(16, "127.0.0.2");
    const std::string b = other_.Url("/other.htm");
    Add(main_, "/robots.txt", "User-agent: *\nDisallow: /private/\n");
    Add(main_, "/index.htm",
        Links({"/a.htm", "/b.htm", "/index.htm", "/a.htm#top", "/A.HTM", "mailto:info@example.test",
               b, "/error.htm", "/private/secret.htm"}));
    Add(main_, "/a.htm", Links({"c.htm", "/index.htm", "mailto:sales@example.test"}));
    Add(main_, "/b.htm", Links({"/c.htm", "/d.htm", "/b.htm"}));
    Add(main_, "/c.htm", Links({"/e.htm", "/b.htm#x"}));
    Add(main_, "/d.htm", Links({"/f.htm?x=1"}));
    Add(main_, "/e.htm", Links({"/index.htm"}));
    Add(main_, "/f.htm?x=1", Links({}));
    Add(main_, "/g.htm", Links({"/index.htm"}));
    Add(main_, "/private/secret.htm", Links({"/h.htm"}));
    Add(main_, "/h.htm", Links({}));
    Add(other_, "/other.htm", Links({main_.Url("/g.htm")}));
  }
  ~CrawlSite() { HttpTransport::CloseIdleConnections(); }

  std::string Url(const std::string& path) const { return main_.Url(path); }
  std::string OtherUrl(const std::string& path) const { return other_.Url(path); }
  // GETs of an address (its canonical form: no fragment, lower case).
  int Hits(const std::string& url) {
    std::lock_guard lock(mutex_);
    return hits_[Canonical(url)];
  }
  // Whether a GET of the address carried the cookie that /index.htm sets.
  bool SawCookie(const std::string& url) {
    std::lock_guard lock(mutex_);
    return cookies_.contains(Canonical(url));
  }
  // The page's links as written, for the test's own walk of the site.
  const std::map<std::string, std::vector<std::string>>& Graph() const { return graph_; }
  std::string Body(const std::string& url) {
    std::lock_guard lock(mutex_);
    return pages_[Canonical(url)];
  }

  static std::string Canonical(std::string url) {
    url = url.substr(0, url.find('#'));
    return text::AsciiLower(url);
  }

 private:
  static std::string Links(const std::vector<std::string>& hrefs) {
    std::string html = "<html><body>\n";
    for (const auto& h : hrefs) html += "<a href=\"" + h + "\">link</a>\n";
    return html + "</body></html>\n";
  }
  void Add(testing::LoopbackHttpServer& server, const std::string& path, const std::string& body) {
    std::lock_guard lock(mutex_);
    const std::string url = Canonical(server.Url(path));
    pages_[url] = body;
    if (path == "/robots.txt") return;
    auto& links = graph_[url];
    // The hrefs of the body, resolved by hand: absolute, rooted, or beside the page.
    for (std::size_t at = 0; (at = body.find("href=\"", at)) != std::string::npos;) {
      at += 6;
      std::string href = body.substr(at, body.find('"', at) - at);
      if (href.rfind("http", 0) == 0 || href.rfind("mailto:", 0) == 0) {
        links.push_back(href);
      } else if (href[0] == '/') {
        links.push_back(server.Url(href));
      } else {
        links.push_back(server.Url("/" + href));
      }
    }
  }
  void Serve(testing::LoopbackHttpServer& server, const httplib::Request& req,
             httplib::Response& res) {
    const std::string url = Canonical(server.Url(req.target));
    std::lock_guard lock(mutex_);
    ++hits_[url];
    if (req.get_header_value("Cookie").find("visit=1") != std::string::npos) cookies_.insert(url);
    if (url.ends_with("/error.htm")) {
      res.status = 500;
      res.set_content("broken", "text/html");
      return;
    }
    const auto page = pages_.find(url);
    if (page == pages_.end()) {
      res.status = 404;
      return;
    }
    if (url.ends_with("/index.htm")) res.set_header("Set-Cookie", "visit=1; Path=/");
    res.set_content(page->second, url.ends_with(".txt") ? "text/plain" : "text/html");
  }

  testing::LoopbackHttpServer main_;
  testing::LoopbackHttpServer other_;
  std::mutex mutex_;
  std::map<std::string, std::string> pages_;
  std::map<std::string, std::vector<std::string>> graph_;
  std::map<std::string, int> hits_;
  std::set<std::string> cookies_;
};

class CrawlRunTest : public RunTest {
 protected:
  // A package with one crawling task from `start`; its pages are saved by address.
  TaskPtr CrawlTask(const JobPtr& job, const std::vector<std::string>& starts) {
    auto task = AddTask(job, "Crawl", 1, TaskTypes::CrawlOnly);
    for (const auto& s : starts) AddSource(task, s);
    task->SaveAsTemplate()->SetRootFolder(folder_.Path().string());
    task->SaveAsTemplate()->SetDocFolder("[HOST]/[URLPATH]");
    task->SaveAsTemplate()->SetFileName("[FILENAME]?[URLQUERY]");
    return task;
  }
  static Crawler& CrawlerOf(const TaskPtr& task) {
    auto crawler = std::dynamic_pointer_cast<Crawler>(task->CrawlerAgent());
    EXPECT_NE(crawler, nullptr);
    return *crawler;
  }
  // The run's rows as (canonical address -> (code, tries, file)); fails on two rows of one
  // address.
  struct Row {
    std::string code;
    long tries = 0;
    std::string file;
  };
  std::map<std::string, Row> Rows(const JobPtr& job) {
    std::map<std::string, Row> rows;
    for (const std::string& line :
         RulesRows("SELECT uri, copy_completion_code, copy_try_count, temp_uri FROM "
                   "task_instance_docs WHERE job_id = ? AND job_start_time = ?",
                   {Variant(job->JobId()), Variant(job->StartTime())})) {
      std::vector<std::string> parts;
      for (std::size_t at = 0;;) {
        const std::size_t bar = line.find('|', at);
        parts.push_back(line.substr(at, bar - at));
        if (bar == std::string::npos) break;
        at = bar + 1;
      }
      const std::string key = CrawlSite::Canonical(parts[0]);
      EXPECT_FALSE(rows.contains(key)) << "two rows for " << key;
      rows[key] = {parts[1], std::stol(parts[2]), parts[3]};
    }
    return rows;
  }
  // The site's pages reachable from `start` within `depth` rounds of link reading (0: any),
  // following a link when `follow` says so; pages that are not saved (the failing one, the
  // forbidden one) are reached but give no links.
  std::set<std::string> Reachable(const std::string& start, int depth,
                                  const std::function<bool(const std::string&)>& follow) {
    std::map<std::string, int> distance{{CrawlSite::Canonical(start), 0}};
    std::deque<std::string> queue{CrawlSite::Canonical(start)};
    while (!queue.empty()) {
      const std::string page = queue.front();
      queue.pop_front();
      if (depth > 0 && distance[page] >= depth) continue;
      if (page.ends_with("/error.htm") || page.find("/private/") != std::string::npos) continue;
      const auto links = site_->Graph().find(page);
      if (links == site_->Graph().end()) continue;
      for (const std::string& link : links->second) {
        if (link.rfind("mailto:", 0) == 0) continue;
        const std::string target = CrawlSite::Canonical(link);
        if (distance.contains(target) || !follow(target)) continue;
        distance[target] = distance[page] + 1;
        queue.push_back(target);
      }
    }
    std::set<std::string> reached;
    for (const auto& [page, d] : distance) reached.insert(page);
    return reached;
  }
  // Checks the run against the pages it should have reached: each saved once with its body,
  // requested once; the failing page tried ten times; the forbidden one never asked for.
  void ExpectCrawled(const JobPtr& job, const std::set<std::string>& reached) {
    const auto rows = Rows(job);
    std::set<std::string> queued;
    for (const auto& [url, row] : rows) queued.insert(url);
    EXPECT_EQ(queued, reached);
    for (const auto& [url, row] : rows) {
      SCOPED_TRACE(url);
      if (url.ends_with("/error.htm")) {
        EXPECT_EQ(row.code, "Internal Server Error");
        EXPECT_EQ(row.tries, 10);
        EXPECT_EQ(site_->Hits(url), 10);
      } else if (url.find("/private/") != std::string::npos) {
        EXPECT_EQ(row.code, "Refused by robots.txt");
        EXPECT_EQ(site_->Hits(url), 0);
      } else {
        EXPECT_EQ(row.code, "Success");
        EXPECT_EQ(row.tries, 1);
        EXPECT_EQ(site_->Hits(url), 1);
        EXPECT_EQ(ReadFile(row.file), site_->Body(url));
      }
    }
  }

  std::unique_ptr<CrawlSite> site_ = std::make_unique<CrawlSite>();
  testing::TempDir folder_;
};

TEST_F(CrawlRunTest, TheSavedPagesAreThoseTheRulesReach) {
  struct Case {
    const char* name;
    int depth;
    bool inclusive;
    std::vector<std::array<const char*, 3>> rules;
    std::function<bool(const std::string&)> follow;
  };
  const auto any = [](const std::string&) { return true; };
  const std::vector<Case> cases = {
      {"every link, no limit", 0, false, {}, any},
      {"depth 1", 1, false, {}, any},
      {"depth 2, only the first host",
       2,
       true,
       {{"[HOST]", "[EQUALS]", "127.0.0.1"}},
       [](const std::string& u) { return u.find("//127.0.0.1:") != std::string::npos; }},
      {"b.htm excluded",
       0,
       false,
       {{"[FILENAME]", "[EQUALS]", "b.htm"}},
       [](const std::string& u) { return !u.ends_with("/b.htm"); }},
      {"an empty inclusive ruleset follows nothing", 0, true, {}, [](const std::string&) {
         return false;
       }}};
  int n = 0;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    site_ = std::make_unique<CrawlSite>();  // fresh counts
    auto job = NewJob(std::string("Crawl ") + std::to_string(++n));
    auto task = CrawlTask(job, {site_->Url("/index.htm")});
    Crawler& crawler = CrawlerOf(task);
    crawler.SetMaxDepth(c.depth);
    crawler.SetAreRulesInclusive(c.inclusive);
    for (const auto& r : c.rules) {
      auto rule = crawler.Ruleset()->Add();
      rule->SetPart(r[0]);
      rule->SetOperator(r[1]);
      rule->SetValue(r[2]);
    }
    job->SaveAll();
    // What the crawl reads is the stored package, not these objects.
    auto stored = Job::Create();
    stored->Load(job->JobId());
    stored->Execute();
    ExpectCrawled(stored, Reachable(site_->Url("/index.htm"), c.depth, c.follow));
  }
}

TEST_F(CrawlRunTest, TheDocumentLimitStopsTheReadingOfLinks) {
  auto job = NewJob("Limited");
  auto task = CrawlTask(job, {site_->Url("/index.htm")});
  CrawlerOf(task).SetMaxDocCount(2);
  job->SaveAll();
  job->Execute();
  // Round 1 reads the start page; round 2 reads a.htm, the second page, whose links are still
  // taken; then only what is queued is fetched.
  ExpectCrawled(
      job,
      {CrawlSite::Canonical(site_->Url("/index.htm")), CrawlSite::Canonical(site_->Url("/a.htm")),
       CrawlSite::Canonical(site_->Url("/b.htm")), CrawlSite::Canonical(site_->Url("/c.htm")),
       CrawlSite::Canonical(site_->OtherUrl("/other.htm")),
       CrawlSite::Canonical(site_->Url("/error.htm")),
       CrawlSite::Canonical(site_->Url("/private/secret.htm"))});
  // The page that met the limit stays unread; so do those after it.
  EXPECT_EQ(RulesRows("SELECT COUNT(*) FROM task_instance_docs WHERE extraction_completion_code "
                      "= 100"),
            (std::vector<std::string>{"1"}));
}

TEST_F(CrawlRunTest, AddressesCookiesAndStatusesOfACrawl) {
  auto job = NewJob("Emails");
  auto task = CrawlTask(job, {site_->Url("/index.htm")});
  const fs::path emails = folder_.Path() / "out" / "emails.txt";
  CrawlerOf(task).SetEmailOutputPath(emails.string());
  job->SaveAll();
  std::vector<std::string> statuses;
  ScopedConnection status =
      job->OnStatusChange.Connect([&](const std::string& s, bool&) { statuses.push_back(s); });
  job->Execute();

  // The list is UTF-16 with a byte-order mark; its addresses are plain ASCII.
  const std::string raw = ReadFile(emails);
  ASSERT_GE(raw.size(), 2u);
  EXPECT_EQ(raw.substr(0, 2), "\xFF\xFE");
  std::string list;
  for (std::size_t i = 2; i < raw.size(); i += 2) list += raw[i];
  EXPECT_EQ(list, "info@example.test, " + site_->Url("/index.htm") + "\r\nsales@example.test, " +
                      site_->Url("/a.htm") + "\r\n");

  // The session of a round goes on in the next: c.htm, two levels down, carries the start
  // page's cookie.
  EXPECT_TRUE(site_->SawCookie(site_->Url("/c.htm")));

  const auto has = [&](const std::string& part) {
    return std::any_of(statuses.begin(), statuses.end(),
                       [&](const std::string& s) { return s.find(part) != std::string::npos; });
  };
  EXPECT_TRUE(has("Extracting links from " + site_->Url("/b.htm")));
  // Five levels (0 to 4): the last one's pages give nothing new, and the failing page's retries
  // count no level.
  for (const char* depth : {"0", "1", "2", "3", "4"}) {
    EXPECT_TRUE(has(std::string("  Crawl Depth:  ") + depth)) << depth;
  }
  EXPECT_FALSE(has("  Crawl Depth:  5"));
}

// A level's pages arrive in any order, but the rows they give are stored in the order of the
// pages in the queue, each address spelled as on the first of them that links to it, and so are
// the e-mail addresses.
TEST_F(CrawlRunTest, ALevelsRowsFollowTheQueueWhateverOrderItsPagesArriveIn) {
  testing::LoopbackHttpServer site;
  const auto page = [](const std::vector<std::string>& hrefs) {
    std::string html = "<html><body>\n";
    for (const auto& h : hrefs) html += "<a href=\"" + h + "\">link</a>\n";
    return html + "</body></html>\n";
  };
  std::mutex mutex;
  std::map<std::string, int> hits;
  site.Http().Get(".*", [&](const httplib::Request& req, httplib::Response& res) {
    {
      std::lock_guard lock(mutex);
      ++hits[req.path];
    }
    if (req.path == "/start.htm") {
      res.set_content(page({"/slow.htm", "/fast.htm"}), "text/html");
    } else if (req.path == "/slow.htm") {
      // Answered well after fast.htm, which comes second in the queue.
      std::this_thread::sleep_for(std::chrono::milliseconds(400));
      res.set_content(page({"/Next.htm", "/y.htm", "/fast.htm#top", "mailto:slow@example.test"}),
                      "text/html");
    } else if (req.path == "/fast.htm") {
      res.set_content(page({"/next.htm", "/z.htm", "/y.htm", "mailto:fast@example.test"}),
                      "text/html");
    } else {
      res.set_content(page({}), "text/html");
    }
  });
  site.Start(8);
  auto job = NewJob("Order");
  auto task = CrawlTask(job, {site.Url("/start.htm")});
  const fs::path emails = folder_.Path() / "out" / "emails.txt";
  CrawlerOf(task).SetEmailOutputPath(emails.string());
  CrawlerOf(task).SetMaxDepth(2);
  job->SaveAll();
  job->Execute();

  EXPECT_EQ(
      RulesRows("SELECT uri, crawl_depth FROM task_instance_docs WHERE job_id = ? ORDER BY "
                "rowid",
                {Variant(job->JobId())}),
      (std::vector<std::string>{site.Url("/start.htm") + "|NULL", site.Url("/slow.htm") + "|1",
                                site.Url("/fast.htm") + "|1", site.Url("/Next.htm") + "|2",
                                site.Url("/y.htm") + "|2", site.Url("/z.htm") + "|2"}));
  const std::string raw = ReadFile(emails);
  std::string list;
  for (std::size_t i = 2; i < raw.size(); i += 2) list += raw[i];
  EXPECT_EQ(list, "slow@example.test, " + site.Url("/slow.htm") + "\r\nfast@example.test, " +
                      site.Url("/fast.htm") + "\r\n");
  std::lock_guard lock(mutex);
  EXPECT_EQ(hits, (std::map<std::string, int>{{"/robots.txt", 1},
                                              {"/start.htm", 1},
                                              {"/slow.htm", 1},
                                              {"/fast.htm", 1},
                                              {"/Next.htm", 1},
                                              {"/y.htm", 1},
                                              {"/z.htm", 1}}));
}

// A level far wider than the pages whose links are read at a time: every page's links, rules,
// spelling and e-mail addresses must reach the rows and the file as if the pages had been read
// one after the other in queue order.
TEST_F(CrawlRunTest, AWideLevelGivesTheRowsOfItsPagesReadInQueueOrder) {
  constexpr int kPages = 300;
  const auto name = [](const char* prefix, int i) {
    return "/" + std::string(prefix) + std::to_string(i) + ".htm";
  };
  testing::LoopbackHttpServer site;
  std::mutex mutex;
  std::map<std::string, int> hits;
  site.Http().Get(".*", [&](const httplib::Request& req, httplib::Response& res) {
    {
      std::lock_guard lock(mutex);
      ++hits[text::AsciiLower(req.path)];
    }
    std::string html = "<html><body>\n";
    const auto link = [&](const std::string& href) {
      html += "<a href=\"" + href + "\">link</a>\n";
    };
    const std::string path = text::AsciiLower(req.path);
    if (path == "/start.htm") {
      for (int i = 0; i < kPages; ++i) link(name("p", i));
    } else if (path.starts_with("/p")) {
      // p<i> links to q<i>, to q<i+1> spelled "Q<i+1>" (first seen here, so that spelling
      // stays), to a page the rules skip, back to known pages, and now and then to an address.
      const int i = std::stoi(path.substr(2));
      link(name("q", i));
      link(name("Q", (i + 1) % kPages));
      link(name("skip", i));
      link(name("p", i) + "#self");
      link("/start.htm");
      if (i % 10 == 0) link("mailto:m" + std::to_string(i) + "@example.test");
    }
    res.set_content(html + "</body></html>\n", "text/html");
  });
  site.Start(8);
  auto job = NewJob("Wide");
  auto task = CrawlTask(job, {site.Url("/start.htm")});
  Crawler& crawler = CrawlerOf(task);
  crawler.SetMaxDepth(2);
  auto rule = crawler.Ruleset()->Add();
  rule->SetPart("[FILENAME]");
  rule->SetOperator("[STARTS WITH]");
  rule->SetValue("skip");
  const fs::path emails = folder_.Path() / "out" / "emails.txt";
  crawler.SetEmailOutputPath(emails.string());
  job->SaveAll();
  job->Execute();

  std::vector<std::string> expected{site.Url("/start.htm") + "|NULL"};
  for (int i = 0; i < kPages; ++i) expected.push_back(site.Url(name("p", i)) + "|1");
  expected.push_back(site.Url(name("q", 0)) + "|2");
  for (int i = 1; i < kPages; ++i) expected.push_back(site.Url(name("Q", i)) + "|2");
  EXPECT_EQ(RulesRows("SELECT uri, crawl_depth FROM task_instance_docs WHERE job_id = ? ORDER BY "
                      "rowid",
                      {Variant(job->JobId())}),
            expected);
  const std::string raw = ReadFile(emails);
  std::string list;
  for (std::size_t i = 2; i < raw.size(); i += 2) list += raw[i];
  std::string expected_list;
  for (int i = 0; i < kPages; i += 10) {
    expected_list += "m" + std::to_string(i) + "@example.test, " + site.Url(name("p", i)) + "\r\n";
  }
  EXPECT_EQ(list, expected_list);
  std::lock_guard lock(mutex);
  EXPECT_EQ(hits.size(), 2u + 2u * kPages);  // robots.txt, the start page, every p and q
  for (const auto& [path, n] : hits) EXPECT_EQ(n, 1) << path;
}

TEST_F(CrawlRunTest, CancelStopsTheRoundsAndKeepsWhatWasDone) {
  auto job = NewJob("Cancelled");
  CrawlTask(job, {site_->Url("/index.htm")});
  job->SaveAll();
  ScopedConnection status = job->OnStatusChange.Connect([&](const std::string& s, bool& cancel) {
    if (s.find("Crawl Depth:  1") != std::string::npos) cancel = true;
  });
  job->Execute();
  EXPECT_EQ(site_->Hits(site_->Url("/index.htm")), 1);
  // Nothing two levels down was asked for.
  for (const char* page : {"/c.htm", "/d.htm", "/e.htm", "/f.htm?x=1"}) {
    EXPECT_EQ(site_->Hits(site_->Url(page)), 0) << page;
  }
  EXPECT_EQ(RulesRows("SELECT copy_completion_code FROM task_instance_docs WHERE uri = ?",
                      {Variant(site_->Url("/index.htm"))}),
            (std::vector<std::string>{"Success"}));
}

TEST_F(CrawlRunTest, ALocalStartPageResolvesAgainstTheClientsSite) {
  WriteFile(docs_.Path() / "start.htm", "<a href=\"/e.htm\">e</a> <a href=\"g.htm\">g</a>");
  auto job = NewJob("Local");
  // A "file:" address: with a site to resolve against, a bare absolute path would be read as a
  // path on that site.
  auto task = CrawlTask(job, {"file://" + (docs_.Path() / "start.htm").string()});
  CrawlerOf(task).SetMaxDepth(1);
  task->TemplateHttpClient()->SetStaticRelativeUrlString(site_->Url("/"));
  job->SaveAll();
  job->Execute();
  const auto rows = Rows(job);
  ASSERT_TRUE(rows.contains(CrawlSite::Canonical(site_->Url("/e.htm"))));
  EXPECT_EQ(rows.at(CrawlSite::Canonical(site_->Url("/e.htm"))).code, "Success");
  EXPECT_EQ(rows.at(CrawlSite::Canonical(site_->Url("/g.htm"))).code, "Success");
  EXPECT_EQ(rows.size(), 3u);
}

TEST_F(CrawlRunTest, AnExtractingTaskAfterTheCrawlReadsEveryCrawledPage) {
  testing::LoopbackHttpServer shop;
  shop.Http().Get(R"(/list(\d+)\.htm)", [](const httplib::Request& req, httplib::Response& res) {
    const int n = std::stoi(req.matches[1]);
    std::string html = ListingHtml({{"Item " + std::to_string(n), "", {}}});
    if (n < 5) html += "<a href=\"list" + std::to_string(n + 1) + ".htm\">next</a>";
    res.set_content(html, "text/html");
  });
  shop.Start();
  auto job = NewJob("Crawl then extract");
  auto crawl = CrawlTask(job, {shop.Url("/list1.htm")});
  auto extract = AddTask(job, "Extract", 2, TaskTypes::DownloadAndExtract, SaveListingPage());
  // The crawled pages' files, from the rules store, are the extracting task's documents.
  AddSource(extract,
            "SELECT temp_uri FROM task_instance_docs WHERE task_id = '" + crawl->TaskId() +
                "' AND copy_completion_code = 'Success'",
            SrcType::sql, cn_str_);
  extract->SetDisableLocalFileCopy(true);
  job->SaveAll();
  job->Execute();
  EXPECT_EQ(TargetRows("SELECT name FROM items ORDER BY name"),
            (std::vector<std::string>{"Item 1", "Item 2", "Item 3", "Item 4", "Item 5"}));
}

}  // namespace
}  // namespace gw::engine_test
