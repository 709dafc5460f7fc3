// The crawler's text form (alone and inside a task's), the links of a document tree, and reading
// a file into a tree with its time-out. Crawls themselves run as packages in
// tests/engine/crawl_run_test.cpp.
#include "acquire/crawler.h"

#include <gtest/gtest.h>

#include "acquire/components.h"
#include "engine/components.h"
#include "engine/task.h"
#include "support/test_support.h"

namespace gw {
namespace {

CrawlerPtr Configured() {
  auto crawler = Crawler::Create();
  crawler->SetMaxDepth(3);
  crawler->SetMaxDocCount(250);
  crawler->SetEmailOutputPath("/tmp/mails & more.txt");
  crawler->SetAreRulesInclusive(true);
  crawler->Ruleset()->SetIsAnd(true);
  auto rule = crawler->Ruleset()->Add();
  rule->SetPart("[HOST]");
  rule->SetOperator("[EQUALS]");
  rule->SetValue("shop.example");
  rule = crawler->Ruleset()->Add();
  rule->SetPart("[URLPATH]");
  rule->SetOperator("[DOES NOT CONTAIN]");
  rule->SetValue("<cart>");
  return crawler;
}

void ExpectSame(Crawler& read, Crawler& expected) {
  EXPECT_EQ(read.MaxDepth(), expected.MaxDepth());
  EXPECT_EQ(read.MaxDocCount(), expected.MaxDocCount());
  EXPECT_EQ(read.EmailOutputPath(), expected.EmailOutputPath());
  EXPECT_EQ(read.AreRulesInclusive(), expected.AreRulesInclusive());
  EXPECT_EQ(read.Ruleset()->IsAnd(), expected.Ruleset()->IsAnd());
  ASSERT_EQ(read.Ruleset()->Count(), expected.Ruleset()->Count());
  for (long i = 1; i <= read.Ruleset()->Count(); ++i) {
    EXPECT_EQ(read.Ruleset()->Item(i)->Part(), expected.Ruleset()->Item(i)->Part());
    EXPECT_EQ(read.Ruleset()->Item(i)->Operator(), expected.Ruleset()->Item(i)->Operator());
    EXPECT_EQ(read.Ruleset()->Item(i)->Value(), expected.Ruleset()->Item(i)->Value());
  }
}

TEST(CrawlerTest, TheTextFormHoldsTheCrawlerAndItsRuleset) {
  auto crawler = Configured();
  const std::string text = crawler->Serialize();
  ASSERT_EQ(text.rfind("[!CR!]", 0), 0u) << text;
  const auto rules_at = text.find("[iCRi][!RS!]");
  ASSERT_NE(rules_at, std::string::npos) << text;
  EXPECT_TRUE(text.ends_with("[iRSi]")) << text;
  // The crawler's own XML leaves the ruleset to its piece.
  EXPECT_EQ(text.substr(0, rules_at).find("shop.example"), std::string::npos) << text;

  auto read = Crawler::Create();
  read->Deserialize(text);
  ExpectSame(*read, *crawler);
  // Reading again replaces the rules instead of adding to them; an empty text changes nothing.
  read->Deserialize(text);
  read->Deserialize("");
  ExpectSame(*read, *crawler);
}

TEST(CrawlerTest, ATaskMakesItsCrawlerAndKeepsItInItsTextForm) {
  RegisterAcquireComponents();
  auto task = Task::Create();
  auto made = std::dynamic_pointer_cast<Crawler>(task->CrawlerAgent());
  ASSERT_NE(made, nullptr);
  EXPECT_EQ(made->MaxDepth(), 0);
  EXPECT_EQ(made->Ruleset()->Count(), 0);
  task->SetCrawlerAgent(Configured());
  const std::string text = task->Serialize();
  EXPECT_NE(text.find("[!CRL!][!CR!]"), std::string::npos) << text;

  auto read = Task::Create();
  read->Deserialize(text);
  auto crawler = std::dynamic_pointer_cast<Crawler>(read->CrawlerAgent());
  ASSERT_NE(crawler, nullptr);
  ExpectSame(*crawler, *Configured());

  // Without a registered crawler the piece is kept as read and written back.
  RegisterCrawlerFactory({});
  auto plain = Task::Create();
  plain->Deserialize(text);
  EXPECT_EQ(plain->CrawlerAgent(), nullptr);
  EXPECT_NE(plain->Serialize().find(Configured()->Serialize()), std::string::npos);
  RegisterAcquireComponents();
}

TEST(CrawlerTest, GetAllLinksFromHTMLResolvesEachLinkOnce) {
  auto doc = html::Document::Parse(
      "<a href='b.htm'>b</a><a href='/c/d.htm#x'>d</a><a href='B.HTM'>again</a><a>none</a>"
      "<map><area href='e.htm'></map><a href='mailto:x@example.test'>m</a>",
      "http://site.example/a/index.htm");
  const auto list = Crawler::GetAllLinksFromHTML(*doc, "http://site.example/a/index.htm");
  std::vector<std::string> urls;
  for (const auto& item : list->Items()) urls.push_back(item->url());
  EXPECT_EQ(urls, (std::vector<std::string>{
                      "http://site.example/a/b.htm", "http://site.example/c/d.htm#x",
                      "http://site.example/a/e.htm", "mailto:x@example.test"}));
}

TEST(CrawlerTest, ParseHtmlReadsAFileOrTimesOut) {
  testing::TempDir dir;
  testing::WriteFile(dir / "page.htm", "<html><body><a href='x.htm'>x</a></body></html>");
  auto crawler = Crawler::Create();
  const auto doc = crawler->ParseHtml((dir / "page.htm").string());
  ASSERT_NE(doc, nullptr);
  EXPECT_EQ(doc->links().size(), 1u);

  // A document that cannot be ready in time.
  std::string big;
  for (int i = 0; i < 20000; ++i) big += "<div><p>text <b>bold</b> <a href='p.htm'>p</a></p>";
  testing::WriteFile(dir / "big.htm", big);
  crawler->SetParseTimeout(std::chrono::milliseconds(0));
  try {
    crawler->ParseHtml((dir / "big.htm").string());
    ADD_FAILURE() << "no time-out";
  } catch (const Error& e) {
    EXPECT_EQ(e.Number(), acquireerr::kParseHtmlTimeout);
    EXPECT_EQ(e.Source(), "Crawler.CHTMLPlugin");
    EXPECT_EQ(e.Description(),
              "Timeout occurred trying to open the document " + (dir / "big.htm").string() + ".");
  }
  // A missing file is the reader's failure, not a time-out.
  crawler->SetParseTimeout(std::chrono::seconds(30));
  try {
    crawler->ParseHtml((dir / "none.htm").string());
    ADD_FAILURE() << "a missing file was read";
  } catch (const Error& e) {
    EXPECT_EQ(e.Number(), errnum::kFileNotFound);
  }
}

}  // namespace
}  // namespace gw
