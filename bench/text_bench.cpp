// Case-insensitive search throughput: the primitive under every tag and initialization-string
// search. Reports bytes/s of page text scanned for a typical tag.
#include <benchmark/benchmark.h>

#include <string>

#include "platform/text.h"
#include "table_page.h"

namespace {

using gw::bench::MakeTablePage;

void BM_SearcherScanAll(benchmark::State& state) {
  const std::string page = MakeTablePage(static_cast<std::size_t>(state.range(0)));
  const gw::text::NoCaseSearcher searcher("<TD CLASS=\"PRICE\">");
  for (auto _ : state) {
    std::size_t pos = 0, hits = 0;
    while ((pos = searcher.Find(page, pos)) != gw::text::npos) {
      ++hits;
      ++pos;
    }
    benchmark::DoNotOptimize(hits);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                          static_cast<int64_t>(page.size()));
}
BENCHMARK(BM_SearcherScanAll)->Arg(100 << 10)->Arg(10 << 20);

void BM_FindNoCaseShortNeedle(benchmark::State& state) {
  const std::string page = MakeTablePage(1 << 20);
  for (auto _ : state) {
    std::size_t pos = 0, hits = 0;
    while ((pos = gw::text::FindNoCase(page, "<tr", pos)) != gw::text::npos) {
      ++hits;
      ++pos;
    }
    benchmark::DoNotOptimize(hits);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                          static_cast<int64_t>(page.size()));
}
BENCHMARK(BM_FindNoCaseShortNeedle);

}  // namespace

BENCHMARK_MAIN();
