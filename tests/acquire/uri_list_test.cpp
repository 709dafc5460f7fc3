#include "acquire/uri_list.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "acquire/uri_list_internal.h"
#include "acquire/uri_rules.h"
#include "engine/doc_source.h"
#include "engine/job.h"
#include "engine/running_instance.h"
#include "engine/task.h"
#include "platform/charset.h"
#include "platform/db/connection.h"
#include "platform/event_loop.h"
#include "rules/rules_fixture.h"
#include "support/test_support.h"

namespace gw {
namespace {

using acquire_internal::UriListInternal;

web::Uri Link(const std::string& address, const std::string& text = {}) {
  web::Uri u(address);
  u.SetLinkText(text);
  return u;
}

std::vector<std::string> Urls(const UriList& list) {
  std::vector<std::string> out;
  for (const auto& item : list.Items()) out.push_back(item->url());
  return out;
}

std::vector<std::string> UnsavedUrls(const UriList& list) {
  std::vector<std::string> out;
  for (const auto& [key, item] : UriListInternal::RawUnsavedDictionary(list))
    out.push_back(item->url());
  return out;
}

TEST(UriList, ALinkIsKeptOnceWithItsFirstSourceAndText) {
  UriList list;
  EXPECT_TRUE(list.Add(Link("http://a.test/Page.htm#top", "first"), "http://src.test/1"));
  EXPECT_FALSE(list.Add(Link("HTTP://A.TEST/page.htm#bottom", "second"), "http://src.test/2"));
  EXPECT_FALSE(list.Add(Link("http://a.test:80/page.htm", "third"), "http://src.test/3"));
  EXPECT_TRUE(list.Add(Link("http://a.test/page.htm?x=1"), "http://src.test/4"));
  ASSERT_EQ(list.Count(), 2);
  EXPECT_TRUE(list.Exists(web::Uri("http://a.test/PAGE.htm")));
  EXPECT_FALSE(list.Exists(web::Uri("http://a.test/other.htm")));

  const auto first = list.ItemByIndex(1);
  EXPECT_EQ(first->url(), "http://a.test/Page.htm#top");
  EXPECT_EQ(first->SrcUrl(), "http://src.test/1");
  EXPECT_EQ(first->linkText(), "first");
  EXPECT_EQ(list.Item(web::Uri("http://a.test/page.htm").HashCode()), first);
  EXPECT_EQ(list.Item("no such key"), nullptr);
  EXPECT_EQ(list.Keys().size(), 2u);
  for (long bad : {0L, 3L}) {
    EXPECT_EQ(testing::FailureNumber([&] { list.ItemByIndex(bad); }), errnum::kSubscriptOutOfRange);
  }
  EXPECT_TRUE(UriListInternal::RawUnsavedDictionary(list).empty());
}

TEST(UriList, LinksMarkedForSavingAreKeptApart) {
  UriList list;
  list.Add(Link("http://a.test/1"), "s");
  list.Add(Link("http://a.test/1"), "s", true);  // known already, but not yet marked
  list.Add(Link("http://a.test/2"), "s", true);
  list.Add(Link("http://a.test/2"), "s", true);
  EXPECT_EQ(Urls(list), (std::vector<std::string>{"http://a.test/1", "http://a.test/2"}));
  EXPECT_EQ(UnsavedUrls(list), (std::vector<std::string>{"http://a.test/1", "http://a.test/2"}));
}

TEST(UriList, MergeToAddsTheArgumentsNewLinksMarkedForSaving) {
  UriList seen, found;
  seen.Add(Link("http://a.test/1", "one"), "p0");
  found.Add(Link("http://a.test/1#x", "one again"), "p1");
  found.Add(Link("http://a.test/2", "two"), "p1");
  seen.MergeTo(found);
  EXPECT_EQ(Urls(seen), (std::vector<std::string>{"http://a.test/1", "http://a.test/2"}));
  EXPECT_EQ(UnsavedUrls(seen), (std::vector<std::string>{"http://a.test/2"}));
  EXPECT_EQ(seen.ItemByIndex(1)->SrcUrl(), "p0");
  EXPECT_EQ(seen.ItemByIndex(2)->SrcUrl(), "p1");
  EXPECT_EQ(seen.ItemByIndex(2)->linkText(), "");  // merged links keep their source only
}

TEST(UriList, DivideByRulesetSplitsByTheRulesAndTheLinkTexts) {
  UriList page;
  page.Add(Link("http://a.test/list?p=2", "Next"), "http://a.test/list");
  page.Add(Link("http://a.test/about", "About us"), "http://a.test/list");
  page.Add(Link("http://b.test/list?p=3", "3"), "http://a.test/list");
  UriRuleset rules;
  auto rule = rules.Add();
  rule->SetPart("[TEXT]");
  rule->SetOperator("[IS NEXT PAGE LINK]");

  const auto matches = page.DivideByRuleset(rules, true);
  const auto others = page.DivideByRuleset(rules);
  EXPECT_EQ(Urls(*matches),
            (std::vector<std::string>{"http://a.test/list?p=2", "http://b.test/list?p=3"}));
  EXPECT_EQ(Urls(*others), (std::vector<std::string>{"http://a.test/about"}));
  EXPECT_EQ(UnsavedUrls(*others), Urls(*others));
  EXPECT_EQ(matches->ItemByIndex(1)->linkText(), "Next");
  EXPECT_EQ(matches->ItemByIndex(1)->SrcUrl(), "http://a.test/list");
  EXPECT_EQ(page.Count(), 3);  // nothing removed
  // An empty ruleset matches nothing.
  EXPECT_EQ(page.DivideByRuleset(UriRuleset(), true)->Count(), 0);
  EXPECT_EQ(page.DivideByRuleset(UriRuleset(), false)->Count(), 3);
}

TEST(UriList, TextFormAndFile) {
  UriList mails;
  mails.Add(web::Uri("mailto:ann@a.test"), "http://a.test/contact");
  mails.Add(web::Uri("mailto:bob@b.test"), "http://b.test/x y");
  EXPECT_EQ(mails.ToString(false), "mailto:ann@a.test\r\nmailto:bob@b.test\r\n");
  EXPECT_EQ(mails.ToString(true, true),
            "ann@a.test, http://a.test/contact\r\nbob@b.test, http://b.test/x y\r\n");

  testing::TempDir dir;
  const auto path = dir / "out" / "emails.txt";
  // Written by a file saver: a new file, UTF-16 with a byte-order mark.
  const auto utf16 = [](const std::string& text) {
    return "\xFF\xFE" + EncodeFromUtf8(text, "UTF-16LE");
  };
  UriListInternal::WriteToFile(mails, path.string(), true, true);
  EXPECT_EQ(testing::ReadFile(path), utf16(mails.ToString(true, true)));
  UriList fewer;
  fewer.Add(web::Uri("mailto:cy@c.test"), "http://c.test/");
  UriListInternal::WriteToFile(fewer, path.string(), false,
                               true);  // the file holds the whole new list only
  EXPECT_EQ(testing::ReadFile(path), utf16("cy@c.test\r\n"));
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir / "out"),
                          std::filesystem::directory_iterator{}),
            1);
}

class UriListStoreTest : public testing::RulesStoreTest {
 protected:
  void SetUp() override {
    job_ = Job::Create();
    job_->SetJobName("crawl");
    task_ = Task::Create();
    task_->SetTaskName("links");
    task_->SetStep(1);
    job_->GetTasks().Add(task_);
    testing::StartInstance(*job_, *task_);
  }
  long QueuedRows() {
    return Count(
        "SELECT COUNT(*) FROM task_instance_docs WHERE task_id = ? AND "
        "copy_completion_code = 'Queued'",
        {Variant(task_->TaskId())});
  }

  JobPtr job_;
  TaskPtr task_;
};

TEST_F(UriListStoreTest, SaveToDBQueuesTheUnsavedLinksInOneTransaction) {
  UriList list;
  list.Add(Link("http://a.test/seen"), "http://a.test/");  // not marked: not stored
  constexpr int kLinks = 2500;
  for (int i = 0; i < kLinks; ++i) {
    list.Add(Link("http://a.test/p" + std::to_string(i)), "http://a.test/", true);
  }
  // Halfway, another connection sees none of the rows: they arrive together at the end.
  long seen_halfway = -1;
  int yields = 0;
  const auto poller = EventLoop::Current().AddPoller([&] {
    if (++yields == kLinks / 2) seen_halfway = QueuedRows();
  });
  UriListInternal::SaveToDB(list, task_);
  EventLoop::Current().RemovePoller(poller);
  EXPECT_EQ(seen_halfway, 0);
  EXPECT_EQ(QueuedRows(), kLinks);
  EXPECT_EQ(Count("SELECT COUNT(*) FROM task_instance_docs WHERE uri = 'http://a.test/p7' AND "
                  "job_id = ?",
                  {Variant(job_->JobId())}),
            1);
  EXPECT_TRUE(UriListInternal::RawUnsavedDictionary(list).empty());
  EXPECT_EQ(list.Count(), kLinks + 1);

  UriListInternal::SaveToDB(list, task_);  // nothing left to store
  EXPECT_EQ(QueuedRows(), kLinks);
}

}  // namespace
}  // namespace gw
