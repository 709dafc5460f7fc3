// The crawl's queue in a real rules store: which links become rows, in which order, when a
// process takes up a run that an earlier process queued.
#include "rules/crawl_queue.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "infra/c_guid_gen.h"
#include "rules/rules_fixture.h"

namespace gw {
namespace {

const DateTime kRun = DateTime::FromParts(2026, 5, 6, 7, 8, 9, 0);
const DateTime kOtherRun = DateTime::FromParts(2026, 5, 7, 7, 8, 9, 0);

class CrawlQueueTest : public testing::RulesStoreTest {
 protected:
  CrawlQueueTest() {
    Exec("INSERT INTO jobs (job_id, job_name) VALUES ('j1', 'One')");
    Exec("INSERT INTO tasks (task_id, job_id, step) VALUES ('t1', 'j1', 1), ('t2', 'j1', 2)");
    for (const DateTime& run : {kRun, kOtherRun}) {
      Exec("INSERT INTO job_instances VALUES ('j1', ?, NULL, NULL)", {Variant(run)});
      for (const char* task : {"t1", "t2"}) {
        Exec("INSERT INTO task_instances VALUES (?, 'j1', ?, NULL, NULL, NULL)",
             {Variant(task), Variant(run)});
      }
    }
  }

  // A row as another writer (a task's document source) would queue it.
  void QueueByHand(const std::string& task, const DateTime& run, const std::string& uri) {
    Exec(
        "INSERT INTO task_instance_docs (doc_id, task_id, job_id, job_start_time, uri, temp_uri, "
        "copy_completion_code, copy_try_count, extraction_completion_code, crawl_depth) VALUES "
        "(?, ?, 'j1', ?, ?, '', 'Queued', 0, 0, 0)",
        {Variant(CGUIDGen::NewGUID()), Variant(task), Variant(run), Variant(uri)});
  }

  // The run's rows in the order they were queued: "uri depth code tries extraction temp".
  std::vector<std::string> Rows(const std::string& task, const DateTime& run) {
    const Variant params[] = {Variant(task), Variant(run)};
    const auto cn = Open();
    auto rs = cn->Execute(
        "SELECT uri, crawl_depth, copy_completion_code, copy_try_count, "
        "extraction_completion_code, temp_uri, length(doc_id) FROM task_instance_docs WHERE "
        "task_id = ? AND job_id = 'j1' AND job_start_time = ? ORDER BY rowid",
        params);
    std::vector<std::string> rows;
    for (; !rs->IsEOF(); rs->MoveNext()) {
      std::string row;
      for (long c = 0; c < 7; ++c) {
        row += (c == 0 ? "" : " ") + rs->GetFields().Item(c).Value().ToText();
      }
      rows.push_back(row);
    }
    return rows;
  }

  static std::string Row(const std::string& uri, int depth) {
    return uri + " " + std::to_string(depth) + " Queued 0 0  36";
  }

  static std::vector<std::string> Addresses(const std::vector<std::string>& rows) {
    std::vector<std::string> out;
    for (const std::string& row : rows) out.push_back(row.substr(0, row.find(' ')));
    return out;
  }

  static std::vector<std::string> ReadAll(D_CrawlQueue& queue, const DateTime& run) {
    std::vector<std::string> seen;
    queue.ForEachRunAddress("j1", "t1", run, [&](const std::string& a) { seen.push_back(a); });
    return seen;
  }
};

std::string Page(int i) { return "http://site.test/p/" + std::to_string(i) + ".htm"; }

// Rows new to the run go in many to a statement; the rows and their order must be those of the
// list, whatever mix of known and new addresses it holds.
TEST_F(CrawlQueueTest, TheRowsFollowTheListWithEachAddressOnce) {
  QueueByHand("t1", kRun, Page(5));       // the run's own row, queued by its document source
  QueueByHand("t2", kRun, Page(6));       // another task's row: no bar to queuing it here
  QueueByHand("t1", kOtherRun, Page(7));  // another run's row: no bar either
  D_CrawlQueue queue;
  EXPECT_EQ(ReadAll(queue, kRun), std::vector<std::string>{Page(5)});

  std::vector<CrawlLink> links;
  std::vector<std::string> expected;
  expected.push_back(Row(Page(5), 0));
  for (int i = 0; i < 200; ++i) {
    // Lengths that cut the list into every size of statement, and known addresses between.
    links.push_back({Page(1000 + i), static_cast<std::int16_t>(1 + i % 3)});
    expected.push_back(Row(Page(1000 + i), 1 + i % 3));
    if (i == 70 || i == 133) links.push_back({Page(1000 + i / 2), 9});  // queued just before
    if (i == 100) links.push_back({Page(5), 9});                        // written by hand
    if (i == 101) links.push_back({"", 9});                             // no address
    if (i == 150) {
      links.push_back({Page(6), 2});
      expected.push_back(Row(Page(6), 2));
      links.push_back({Page(7), 2});
      expected.push_back(Row(Page(7), 2));
    }
  }
  EXPECT_EQ(queue.SaveRound("j1", "t1", kRun, {}, links), 202);
  EXPECT_EQ(Rows("t1", kRun), expected);
  EXPECT_EQ(queue.SaveRound("j1", "t1", kRun, {}, links), 0) << "every address is known now";
  EXPECT_EQ(Rows("t1", kRun).size(), expected.size());
  EXPECT_EQ(Rows("t1", kOtherRun), std::vector<std::string>{Row(Page(7), 0)});

  // Addresses the queue has seen but the store no longer holds are asked about in the store,
  // and take their places between the new ones.
  Exec("DELETE FROM task_instance_docs WHERE uri IN (?, ?)",
       {Variant(Page(1010)), Variant(Page(1150))});
  expected.erase(std::find(expected.begin(), expected.end(), Row(Page(1150), 1 + 150 % 3)));
  expected.erase(std::find(expected.begin(), expected.end(), Row(Page(1010), 1 + 10 % 3)));
  const std::vector<CrawlLink> again = {{Page(2000), 4}, {Page(1010), 4}, {Page(2001), 4},
                                        {Page(1150), 4}, {Page(1151), 4}, {Page(2002), 4}};
  EXPECT_EQ(queue.SaveRound("j1", "t1", kRun, {}, again), 5);
  for (const char* page : {"2000", "1010", "2001", "1150", "2002"}) {
    expected.push_back(Row("http://site.test/p/" + std::string(page) + ".htm", 4));
  }
  EXPECT_EQ(Rows("t1", kRun), expected);
  EXPECT_EQ(Rows("t2", kRun), std::vector<std::string>{Row(Page(6), 0)});
}

// A process taking up a run (a resumed crawl) reads the run's rows first: an address an earlier
// process queued is not queued again, past the first few thousand rows too; another run's
// addresses are looked up in the store by the statement that asks it.
TEST_F(CrawlQueueTest, AQueueTakingUpARunQueuesNoAddressTwice) {
  constexpr int kEarlier = 6200;  // more rows than one reading of the run brings
  {
    D_CrawlQueue earlier;
    ReadAll(earlier, kRun);
    std::vector<CrawlLink> links;
    for (int i = 0; i < kEarlier; ++i) links.push_back({Page(i), 1});
    ASSERT_EQ(earlier.SaveRound("j1", "t1", kRun, {}, links), kEarlier);
  }
  QueueByHand("t1", kOtherRun, Page(1));

  D_CrawlQueue later;
  const std::vector<std::string> read = ReadAll(later, kRun);
  ASSERT_EQ(read.size(), static_cast<std::size_t>(kEarlier));
  EXPECT_EQ(read.front(), Page(0));
  EXPECT_EQ(read.back(), Page(kEarlier - 1));

  // The earlier addresses from the end of the run back to its start, with new ones between.
  std::vector<CrawlLink> links;
  std::vector<std::string> added;
  for (int i = kEarlier - 1; i >= 0; i -= 7) {
    links.push_back({Page(i), 2});
    if (i % 500 == 0) {
      links.push_back({Page(100000 + i), 2});
      added.push_back(Page(100000 + i));
    }
  }
  EXPECT_EQ(later.SaveRound("j1", "t1", kRun, {}, links), static_cast<long>(added.size()));
  std::vector<std::string> rows = Addresses(Rows("t1", kRun));
  ASSERT_EQ(rows.size(), kEarlier + added.size());
  EXPECT_EQ(std::vector<std::string>(rows.begin() + kEarlier, rows.end()), added);
  EXPECT_EQ(Count("SELECT COUNT(*) FROM (SELECT uri FROM task_instance_docs GROUP BY task_id, "
                  "job_start_time, uri HAVING COUNT(*) > 1)"),
            0);

  // The queue read kRun; another run of the task is asked about in the store, also for an
  // address kRun does not hold.
  QueueByHand("t1", kOtherRun, Page(999999));
  EXPECT_EQ(
      later.SaveRound("j1", "t1", kOtherRun, {}, {{Page(1), 1}, {Page(999999), 1}, {Page(3), 1}}),
      1);
  EXPECT_EQ(Addresses(Rows("t1", kOtherRun)),
            (std::vector<std::string>{Page(1), Page(999999), Page(3)}));
}

}  // namespace
}  // namespace gw
