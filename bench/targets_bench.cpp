// Rows per second into each kind of target store.
//
// One document of generated listing rows is cut by a dataset of five fields and written through
// the default database sink, as a run writes it: a connection opened and closed per row (pooled
// within the document's write batch), the table opened for appending, the row updated, and every
// row committed (or, for a workbook, written to the file) by the end of the document. The table
// is made by `DataPage.CreateDB` outside the timed part; rows are counted in the store afterwards.
//
//   BM_RowsIntoCountingSink   the same cutting into an in-memory sink: the cost of extraction
//   BM_RowsIntoSqliteFile     Provider=SQLite, a file in the temporary folder
//   BM_RowsIntoWorkbook       an Excel target (.xlsx)
//   BM_RowsIntoMariaDb        a private MariaDB server on loopback, started by the benchmark
#include <benchmark/benchmark.h>

#include <unistd.h>

#include <filesystem>
#include <memory>
#include <string>

#include "bench_support.h"
#include "extraction/data_page.h"
#include "extraction/entity.h"
#include "meta/meta_doc.h"
#include "platform/db/connection.h"
#include "platform/db/driver.h"
#include "support/mariadb_server.h"

namespace {

using namespace gw;

std::string MakeListing(long rows) {
  std::string page = "<html><body><div id=\"results\">\n";
  for (long k = 0; k < rows; ++k) {
    page += "<div class=\"item\"><h2 class=\"title\">Product number " + std::to_string(k) +
            "</h2><span class=\"price\">$" + std::to_string(k % 97) +
            ".99</span><span class=\"sku\">SKU-" + std::to_string(100000 + k) +
            "</span><span class=\"stock\">" + std::to_string(k % 50) +
            " in stock</span><p class=\"desc\">A sturdy thing for every day, number " +
            std::to_string(k) + ".</p></div>\n";
  }
  page += "</div></body></html>\n";
  return page;
}

// Fields as wide as the target's columns.
void AddColumnField(const EntityPtr& entity, const char* column, const char* start,
                    const char* end) {
  bench::AddField(entity, column, start, end)->SetColumnSize(100);
}

std::shared_ptr<DataPage> MakeTemplate(const std::string& cn_str) {
  auto items = bench::NewEntity("Items", "<div class=\"item\">", "items", cn_str);
  auto page = bench::NewListingPage(items);
  AddColumnField(items, "title", "<h2 class=\"title\">", "</h2>");
  AddColumnField(items, "price", "<span class=\"price\">", "</span>");
  AddColumnField(items, "sku", "<span class=\"sku\">", "</span>");
  AddColumnField(items, "stock", "<span class=\"stock\">", "</span>");
  AddColumnField(items, "descr", "<p class=\"desc\">", "</p>");
  return page;
}

long CountRows(const std::string& cn_str) {
  auto cn = db::Connection::Create();
  cn->Open(cn_str);
  return cn->Execute("SELECT * FROM items")->RecordCount();
}

// Extracts `listing` into a fresh table per iteration; `fresh_target` gives the connection
// string of an empty store.
template <typename FreshTarget>
void RunIntoStore(benchmark::State& state, FreshTarget fresh_target) {
  const std::string listing = MakeListing(state.range(0));
  long rows = 0;
  for (auto _ : state) {
    state.PauseTiming();
    const std::string cn_str = fresh_target();
    auto page = MakeTemplate(cn_str);
    page->CreateDB(false);
    std::string text = listing;
    state.ResumeTiming();
    page->Extract(text, false);
    state.PauseTiming();
    const long written = CountRows(cn_str);
    if (written != state.range(0)) {
      state.SkipWithError("not every row reached the store");
      break;
    }
    rows += written;
    state.ResumeTiming();
  }
  state.counters["rows_per_s"] =
      benchmark::Counter(static_cast<double>(rows), benchmark::Counter::kIsRate);
}

void BM_RowsIntoCountingSink(benchmark::State& state) {
  const std::string listing = MakeListing(state.range(0));
  auto page = MakeTemplate("Provider=Counting");
  const long rows = bench::ExtractIntoCountingSink(state, *page, listing);
  state.counters["rows_per_s"] =
      benchmark::Counter(static_cast<double>(rows), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_RowsIntoCountingSink)->Arg(20000)->UseRealTime()->Unit(benchmark::kMillisecond);

class ScratchDir {
 public:
  ScratchDir() {
    path_ =
        std::filesystem::temp_directory_path() / ("gw_targets_bench_" + std::to_string(::getpid()));
    std::filesystem::create_directories(path_);
  }
  ~ScratchDir() {
    std::error_code ec;
    std::filesystem::remove_all(path_, ec);
  }
  std::string File(const std::string& name) {
    const auto file = path_ / (name + std::to_string(next_++));
    return file.string();
  }

 private:
  std::filesystem::path path_;
  int next_ = 0;
};

// Each store takes 20,000 rows three times, timed by the clock on the wall.
void TwentyThousandRowsThrice(benchmark::internal::Benchmark* b) {
  b->Arg(20000)->Iterations(3)->UseRealTime()->Unit(benchmark::kMillisecond);
}

void BM_RowsIntoSqliteFile(benchmark::State& state) {
  ScratchDir dir;
  RunIntoStore(state, [&] { return "Provider=SQLite;Data Source=" + dir.File("t") + ".db"; });
}
BENCHMARK(BM_RowsIntoSqliteFile)->Apply(TwentyThousandRowsThrice);

void BM_RowsIntoWorkbook(benchmark::State& state) {
  ScratchDir dir;
  RunIntoStore(state, [&] {
    return "Provider=Microsoft.Jet.OLEDB.4.0;Data Source=" + dir.File("t") +
           ".xlsx;Extended Properties=\"Excel 8.0;HDR=Yes\"";
  });
}
BENCHMARK(BM_RowsIntoWorkbook)->Apply(TwentyThousandRowsThrice);

void BM_RowsIntoMariaDb(benchmark::State& state) {
  auto& server = gw::testing::MariaDbServer::Shared();
  RunIntoStore(state, [&] { return server.ConnectionString(server.CreateDatabase("gwbench")); });
}
BENCHMARK(BM_RowsIntoMariaDb)->Apply(TwentyThousandRowsThrice);

}  // namespace

BENCHMARK_MAIN();
