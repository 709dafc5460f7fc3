// The download manager on a real rules store and real files.
#include <gtest/gtest.h>

#include <filesystem>

#include "acquire/download_mgr.h"
#include "rules/package_data_access.h"
#include "rules/rules_fixture.h"
#include "rules/settings.h"
#include "support/test_support.h"

namespace gw {
namespace {

using testing::ReadFile;
using testing::WriteFile;

const DateTime kRun = DateTime::FromParts(2026, 3, 4, 5, 6, 7, 89);

class DownloadMgrTest : public testing::RulesStoreTest {
 protected:
  void SetUp() override {
    DJob().Save("j1", DateTime::FromParts(2026, 1, 1), DateTime::FromParts(2026, 1, 2), "P", "");
    DTask().Save("t1", "j1", "Fetch", "", 1, 0, 0, "");
    DJob().SaveInstance("j1", kRun);
    DTask().SaveInstance("t1", "j1", kRun, kRun);
    Settings().PutOption("DefaultDownloadPath", Variant((home_.Path() / "dl").string()),
                         DataType::Str);
    statuses_ = mgr_->OnStatusChange.Connect([this](const std::string& s, bool& cancel) {
      statuses.push_back(s);
      if (cancel_at_status > 0 && static_cast<int>(statuses.size()) >= cancel_at_status) {
        cancel = true;
      }
    });
    progress_ = mgr_->OnProgressChange.Connect(
        [this](long change, long max) { progress.emplace_back(change, max); });
  }
  void Queue(const std::string& id, const std::string& uri) {
    D_Doc().SaveDocument(id, "t1", "j1", kRun, uri, "", "Queued");
  }
  db::RecordsetPtr Row(const std::string& id) { return D_Doc().GetDoc(id); }
  static std::string Col(const db::RecordsetPtr& rs, const char* name) {
    const Variant& v = (*rs)[name].Value();
    return v.IsNull() ? "NULL" : v.ToText();
  }
  void Download() { mgr_->DownloadDocs("j1", "t1", kRun, nullptr, nullptr, "get", false); }

  testing::TempDir src_;
  std::shared_ptr<DownloadMgr> mgr_ = DownloadMgr::Create();
  std::vector<std::string> statuses;
  std::vector<std::pair<long, long>> progress;
  int cancel_at_status = 0;
  ScopedConnection statuses_, progress_;
};

TEST_F(DownloadMgrTest, LocalFilesAreCopiedIntoTheRunsFolderAndOtherAddressesFail) {
  WriteFile(src_ / "a.html", "<p>a</p>");
  WriteFile(src_ / "b.PHP", "<p>b</p>");
  WriteFile(src_ / "c.weird", "c");
  Queue("d1", (src_ / "a.html").string());
  Queue("d2", "file://" + (src_ / "b.PHP").string());
  Queue("d3", (src_ / "c.weird").string());
  Queue("d4", (src_ / "gone.htm").string());
  Queue("d5", "http://example.test/x.htm");
  Queue("d6", "mailto:someone@example.test");
  Download();

  const auto folder = home_.Path() / "dl" / "j1" / "2026-03-04_05-06-07-089" / "t1";
  struct Want {
    const char* id;
    std::string temp_uri;
    std::string content;
  };
  for (const Want& w : {Want{"d1", (folder / "d1.htm").string(), "<p>a</p>"},
                        Want{"d2", (folder / "d2.htm").string(), "<p>b</p>"},
                        Want{"d3", (folder / "d3.txt").string(), "c"}}) {
    SCOPED_TRACE(w.id);
    auto row = Row(w.id);
    EXPECT_EQ(Col(row, "copy_completion_code"), "Success");
    EXPECT_EQ(Col(row, "copy_try_count"), "1");
    EXPECT_EQ(Col(row, "temp_uri"), w.temp_uri);
    EXPECT_NE(Col(row, "copy_completion_time"), "NULL");
    EXPECT_EQ(ReadFile(w.temp_uri), w.content);
  }
  // Failures are tried again pass after pass, up to the store's bound of ten tries.
  struct Failed {
    const char* id;
    std::string code;
  };
  for (const Failed& f : {Failed{"d4", "File not found: " + (src_ / "gone.htm").string()},
                          Failed{"d5", "Fetching over HTTP is not available yet."},
                          Failed{"d6", "The uri appears to be an email address."}}) {
    SCOPED_TRACE(f.id);
    auto row = Row(f.id);
    EXPECT_EQ(Col(row, "copy_completion_code"), f.code);
    EXPECT_EQ(Col(row, "copy_try_count"), "10");
    EXPECT_EQ(Col(row, "temp_uri"), "");
  }
  // Progress: one step per copy against five times the rows of that pass.
  EXPECT_EQ(progress, (std::vector<std::pair<long, long>>{{1, 30}, {1, 30}, {1, 30}}));
  ASSERT_GE(statuses.size(), 7u);
  EXPECT_EQ(statuses[0], "Downloading " + (src_ / "a.html").string() + "  Count: 1");
  EXPECT_EQ(statuses[6], "Waiting up to 5 minutes for all threads to complete...");
  EXPECT_EQ(statuses[7], "Downloading " + (src_ / "gone.htm").string() + "  Count: 1");
}

TEST_F(DownloadMgrTest, ACancelStopsTheDownloadsAndLeavesTheRestQueued) {
  WriteFile(src_ / "a.htm", "a");
  WriteFile(src_ / "b.htm", "b");
  Queue("d1", (src_ / "a.htm").string());
  Queue("d2", (src_ / "b.htm").string());
  cancel_at_status = 2;
  Download();
  EXPECT_EQ(Col(Row("d1"), "copy_completion_code"), "Success");
  EXPECT_EQ(Col(Row("d2"), "copy_completion_code"), "Queued");
  EXPECT_EQ(Col(Row("d2"), "copy_try_count"), "0");
  EXPECT_EQ(statuses.size(), 2u) << "no further pass";
}

TEST_F(DownloadMgrTest, NotCopyingPointsTheOpenRowsAtTheirSources) {
  Queue("d1", "/data/a.htm");
  Queue("d2", "http://example.test/b");
  mgr_->DontDownloadDocs("j1", "t1", kRun);
  EXPECT_EQ(Col(Row("d1"), "temp_uri"), "/data/a.htm");
  EXPECT_EQ(Col(Row("d2"), "temp_uri"), "http://example.test/b");
  EXPECT_EQ(Col(Row("d1"), "copy_completion_code"), "Queued");
  EXPECT_TRUE(statuses.empty());
}

TEST_F(DownloadMgrTest, AnEmptyRunDownloadsNothing) {
  Download();
  EXPECT_TRUE(statuses.empty());
  EXPECT_FALSE(std::filesystem::exists(home_.Path() / "dl" / "j1"));
}

}  // namespace
}  // namespace gw
