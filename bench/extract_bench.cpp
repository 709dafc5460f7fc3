// Throughput of the extraction engine over generated listing pages.
//
// BM_ExtractToCountingSink: pages of 100 KB, 1 MB and 10 MB (rows in proportion), a dataset of
// five fields (one optional, absent in every third row) with a child dataset of one field, rows
// counted by an in-memory sink. Bytes/s is page text through the cutter; time per MB should stay
// flat as the page grows, since cutting works on views into the page and never copies it.
//
// BM_ExtractToSqliteFile: the same template writing into a SQLite file through the default
// database sink, which opens a connection and commits once per row. Reports rows/s.
#include <benchmark/benchmark.h>

#include <filesystem>
#include <memory>
#include <string>

#include "bench_support.h"
#include "extraction/data_page.h"
#include "extraction/entity.h"
#include "meta/meta_doc.h"
#include "platform/db/connection.h"

namespace {

using namespace gw;

std::string MakeListing(std::size_t bytes) {
  std::string page = "<html><body><div id=\"results\">\n";
  long k = 0;
  while (page.size() < bytes) {
    page += "<div class=\"item\"><h2 class=\"title\">Product number " + std::to_string(k) +
            "</h2><span class=\"price\">$" + std::to_string(k % 97) +
            ".99</span><span class=\"sku\">SKU-" + std::to_string(100000 + k) + "</span>";
    if (k % 3 != 0) page += "<span class=\"sale\">-" + std::to_string(k % 40) + "%</span>";
    page +=
        "<p class=\"desc\">A sturdy thing for every day, made to last, with a two-year warranty "
        "and free returns. Available in several colours while stocks last.</p>"
        "<ul class=\"feat\"><li>Weight " +
        std::to_string(k % 13) + " kg</li><li>Colour option " + std::to_string(k % 7) +
        "</li></ul><div class=\"foot\"><a href=\"/item/" + std::to_string(k) +
        "\">details</a></div></div>\n";
    ++k;
  }
  page += "</div></body></html>\n";
  return page;
}

using bench::AddField;

std::shared_ptr<DataPage> MakeTemplate(const std::string& cn_str) {
  auto items = bench::NewEntity("Items", "<div class=\"item\">", "items", cn_str);
  auto page = bench::NewListingPage(items);
  AddField(items, "title", "<h2 class=\"title\">", "</h2>");
  AddField(items, "price", "<span class=\"price\">", "</span>");
  AddField(items, "sku", "<span class=\"sku\">", "</span>");
  AddField(items, "sale", "<span class=\"sale\">", "</span>", true);
  AddField(items, "descr", "<p class=\"desc\">", "</p>");
  auto features = bench::NewEntity("Features", "<li>", "features", cn_str);
  items->ChildrenOnPage().Add(features, features->Id());
  AddField(features, "feature", "<li>", "</li>");
  return page;
}

void BM_ExtractToCountingSink(benchmark::State& state) {
  const std::string listing = MakeListing(static_cast<std::size_t>(state.range(0)));
  auto page = MakeTemplate("Provider=Counting");
  const long rows = bench::ExtractIntoCountingSink(state, *page, listing);
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                          static_cast<int64_t>(listing.size()));
  state.counters["rows_per_page"] =
      static_cast<double>(rows) / static_cast<double>(state.iterations());
}
BENCHMARK(BM_ExtractToCountingSink)
    ->Arg(100 << 10)
    ->Arg(1 << 20)
    ->Arg(10 << 20)
    ->Unit(benchmark::kMillisecond);

void BM_ExtractToSqliteFile(benchmark::State& state) {
  const std::string listing = MakeListing(static_cast<std::size_t>(state.range(0)));
  const auto dir = std::filesystem::temp_directory_path() / "gw_extract_bench";
  std::filesystem::create_directories(dir);
  const std::string file = (dir / "target.db").string();
  const std::string cn_str = "Provider=SQLite;Data Source=" + file;
  long rows = 0;
  for (auto _ : state) {
    state.PauseTiming();
    std::filesystem::remove(file);
    {
      auto cn = db::Connection::Create();
      cn->Open(cn_str);
      cn->ExecuteScript(
          "CREATE TABLE items (title VARCHAR(100), price VARCHAR(20), sku VARCHAR(20), "
          "sale VARCHAR(20), descr VARCHAR(400));"
          "CREATE TABLE features (feature VARCHAR(100));");
    }
    auto page = MakeTemplate(cn_str);
    std::string text = listing;
    state.ResumeTiming();
    page->Extract(text, false);
    state.PauseTiming();
    auto cn = db::Connection::Create();
    cn->Open(cn_str);
    rows += cn->Execute("SELECT (SELECT count(*) FROM items) + (SELECT count(*) FROM features)")
                ->GetFields()
                .Item(0L)
                .Value()
                .ToLong();
    state.ResumeTiming();
  }
  state.counters["rows_per_s"] =
      benchmark::Counter(static_cast<double>(rows), benchmark::Counter::kIsRate);
  std::filesystem::remove_all(dir);
}
BENCHMARK(BM_ExtractToSqliteFile)
    ->Arg(32 << 10)
    ->Iterations(2)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
