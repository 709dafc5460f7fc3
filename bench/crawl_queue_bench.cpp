// The crawl queue in the rules store: the cost of one round against the size of the run.
//
// A round of a crawl marks the pages it read and stores the links they gave that the run does
// not know yet, in one transaction (D_CrawlQueue::SaveRound), then reads the next round's open
// rows and the pages whose links are still to read. Each benchmark fills a run with `known` rows
// first (all fetched and read), then times rounds of 1,000 links, half of them known already
// (the usual share of a site's links a crawl has seen), and the reads of the next round. If the
// look-up "is this address known to the run" or the reads went through the whole run, the time
// per round would grow with `known`; with the indexes it stays flat. Items per second are links
// per second.
//
//   build/bench/crawl_queue_bench --benchmark_counters_tabular=true
#include <benchmark/benchmark.h>

#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "platform/date_time.h"
#include "platform/db/connection.h"
#include "rules/connection_string.h"
#include "rules/crawl_queue.h"
#include "rules/package_data_access.h"
#include "rules/rules_schema.h"

namespace {

using namespace gw;

const DateTime kStart = DateTime::FromParts(2026, 5, 6, 7, 8, 9, 0);

std::string Address(long n) { return "http://site.test/p" + std::to_string(n) + ".htm"; }

void BM_CrawlRound(benchmark::State& state) {
  // A store of its own each time the library calls this (it does more than once per argument):
  // the rules tables are made on the first open of a connection string in a process.
  static int invocations = 0;
  const long known = state.range(0);
  constexpr long kLinks = 1000;
  const auto dir =
      std::filesystem::temp_directory_path() /
      ("gw-crawl-queue-bench-" + std::to_string(::getpid()) + "-" + std::to_string(++invocations));
  std::filesystem::remove_all(dir);
  std::filesystem::create_directories(dir);
  const std::string cn = "Provider=SQLite;Data Source=" + (dir / "rules.sqlite").string();
  SetRulesConnectionOverride(cn);
  OpenRulesConnection(cn)->Close();  // makes the rules tables
  // The package, its task and the run the document rows belong to.
  DJob().Save("j", Variant(kStart), Variant(kStart), Variant("bench"), Variant(""));
  DTask().Save("t", Variant("j"), Variant("crawl"), Variant(""), Variant(1));
  DJob().SaveInstance("j", kStart);
  DTask().SaveInstance("t", "j", kStart, kStart);
  D_CrawlQueue queue;
  // The run so far: `known` rows, fetched and read.
  {
    std::vector<CrawlLink> links;
    for (long n = 0; n < known; ++n) links.push_back({Address(n), 1});
    queue.SaveRound("j", "t", kStart, {}, links);
    OpenRulesConnection(cn)->ExecuteNonQuery(
        "UPDATE task_instance_docs SET copy_completion_code = 'Success', temp_uri = 'x', "
        "extraction_completion_code = 100");
  }
  long next = known;
  for (auto _ : state) {
    std::vector<CrawlLink> links;
    for (long i = 0; i < kLinks / 2; ++i) links.push_back({Address(next++), 2});
    for (long i = 0; i < kLinks / 2; ++i) links.push_back({Address((next * 7 + i) % known), 2});
    queue.SaveRound("j", "t", kStart, {}, links);
    auto open = D_DownloadMgr().GetNonDownloadedFiles("j", "t", kStart);
    auto unread = queue.GetUnreadDocs("j", "t", kStart);
    benchmark::DoNotOptimize(open->RecordCount() + unread->RecordCount());
    // The round's rows are fetched and read, so the next round's reads find only its own.
    state.PauseTiming();
    OpenRulesConnection(cn)->ExecuteNonQuery(
        "UPDATE task_instance_docs SET copy_completion_code = 'Success', temp_uri = 'x', "
        "extraction_completion_code = 100 WHERE extraction_completion_code = 0");
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * kLinks);
  state.counters["known"] = static_cast<double>(known);
  SetRulesConnectionOverride({});
  std::filesystem::remove_all(dir);
}
BENCHMARK(BM_CrawlRound)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
