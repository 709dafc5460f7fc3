// Row-start search throughput of CString: the extraction engine walks every occurrence of an
// initialization string over a page. Reports bytes/s of page text scanned.
#include <benchmark/benchmark.h>

#include <string>

#include "table_page.h"
#include "text/c_string.h"

namespace {

using gw::bench::MakeTablePage;

// Every hit of a case-sensitive row start, each search starting one byte after the last hit.
void BM_CStringFindAllRowStarts(benchmark::State& state) {
  const gw::CString page(MakeTablePage(static_cast<std::size_t>(state.range(0))));
  for (auto _ : state) {
    long pos = 0, hits = 0;
    while ((pos = page.Find("<tr class=\"row\">", pos + 1)) > 0) ++hits;
    benchmark::DoNotOptimize(hits);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * page.Length());
}
BENCHMARK(BM_CStringFindAllRowStarts)->Arg(10 << 20);

// The same walk over a std::string page through HorspoolSearcher, with no copy into a CString.
void BM_HorspoolOverStringView(benchmark::State& state) {
  const std::string page = MakeTablePage(static_cast<std::size_t>(state.range(0)));
  const gw::HorspoolSearcher searcher("<td class=\"price\">");
  for (auto _ : state) {
    long pos = 0, hits = 0;
    while ((pos = searcher.Find(page, pos + 1)) > 0) ++hits;
    benchmark::DoNotOptimize(hits);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                          static_cast<int64_t>(page.size()));
}
BENCHMARK(BM_HorspoolOverStringView)->Arg(10 << 20);

// Case-insensitive count with no limit over a whole page.
void BM_CountNoCase(benchmark::State& state) {
  const std::string page = MakeTablePage(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) {
    benchmark::DoNotOptimize(gw::CString::CountNoCase(page, "<TR CLASS=\"ROW\">", -1));
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                          static_cast<int64_t>(page.size()));
}
BENCHMARK(BM_CountNoCase)->Arg(10 << 20);

}  // namespace

BENCHMARK_MAIN();
