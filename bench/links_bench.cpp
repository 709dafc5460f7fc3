// The link scan and the document tree on pages shaped like real ones, and on a page of anchors
// that are never closed.
//
// Pages (made by a generator, fixed seed): "ordinary" pages of 100 KB and 1 MB with a head of
// styles and scripts, navigation, articles with inline links, product tables, a form, comments
// and a footer (about one link per 600 bytes); and a 1 MB page of 10,000 "<a href=...>" anchors
// without end tags. Each benchmark reports bytes per second.
//
//   BM_ScanAnchors        the link scan alone (ScanAnchors), on text in memory
//   BM_RegExHrefs         WebPage::RegExHrefs on the saved file: read, decode, scan, resolve and
//                         sort every link
//   BM_TreeBuild          html::Document::Parse and the document's destruction; doc_KiB is the
//                         heap a parsed document holds (its copy of the text included)
//   BM_SixExpressions     the six regular expressions the scan stands for, through the
//                         project's regular expressions (PCRE2 with its JIT), for comparison
//   BM_AnchorExpressionInterpreted
//                         the anchor expression in PCRE2's interpreter, a backtracking engine
//                         like the one the expressions were written for: on unclosed anchors its
//                         cost grows with the square of the page, so it runs on 25, 50 and 100 KB
//
// Run: build/bench/links_bench --benchmark_counters_tabular=true
//      build/bench/links_bench --write-pages DIR   (writes the pages and runs nothing)
#include <benchmark/benchmark.h>
#include <malloc.h>
#include <unistd.h>

#define PCRE2_CODE_UNIT_WIDTH 8
#include <pcre2.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <string>

#include "acquire/link_scan.h"
#include "acquire/web_page.h"
#include "platform/html/document.h"
#include "platform/regex.h"

namespace gw {
namespace {

const char* const kWords[] = {"the",    "shop",   "offers", "books",    "for",   "every",
                              "reader", "with",   "free",   "shipping", "on",    "orders",
                              "over",   "twenty", "pounds", "and",      "a",     "wide",
                              "choice", "of",     "titles", "in",       "stock", "today"};

std::string Words(std::mt19937& rng, int count) {
  std::uniform_int_distribution<std::size_t> pick(0, std::size(kWords) - 1);
  std::string out;
  for (int i = 0; i < count; ++i) {
    if (i) out += ' ';
    out += kWords[pick(rng)];
  }
  return out;
}

// A page of about `size` bytes shaped like a shop's listing page.
std::string OrdinaryPage(std::size_t size) {
  std::mt19937 rng(42);
  std::uniform_int_distribution<int> n(1, 9999);
  std::string page =
      "<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\">"
      "<title>Books - The Shop</title>\n<link rel=\"stylesheet\" href=\"/css/site.css\">\n"
      "<style>body{font-family:sans-serif} .price{color:#a00} td{padding:4px}</style>\n"
      "<script>var analytics = {id: 'UA-1', track: function(e){ return e < 3 && e > 0; }};"
      "</script>\n</head>\n<body>\n<div id=\"header\"><ul class=\"nav\">\n";
  for (int i = 0; i < 30; ++i) {
    page += "<li><a href=\"/section/" + std::to_string(i) + "/index.html\" class=\"nav-link\">" +
            Words(rng, 2) + "</a></li>\n";
  }
  page += "</ul></div>\n<div id=\"content\">\n";
  int block = 0;
  while (page.size() < size) {
    switch (block++ % 4) {
      case 0:
        page += "<h2>" + Words(rng, 4) + "</h2>\n<p>" + Words(rng, 30) + " <a href='/article/" +
                std::to_string(n(rng)) + ".htm'>" + Words(rng, 3) + "</a> " + Words(rng, 40) +
                ".</p>\n<!-- teaser " + std::to_string(block) + " -->\n";
        break;
      case 1:
        page += "<table class=\"products\">\n";
        for (int r = 0; r < 5; ++r) {
          const std::string id = std::to_string(n(rng));
          page += "<tr><td><a href=\"/product.php?id=" + id + "&amp;ref=list\"><img src=\"/img/" +
                  id + ".jpg\" alt=\"" + Words(rng, 2) +
                  "\" width=80 height=100></a></td>"
                  "<td><a href=/product.php?id=" +
                  id + ">" + Words(rng, 5) + "</a><br><span class=\"price\">&pound;" +
                  std::to_string(n(rng) % 90) + ".99</span></td></tr>\n";
        }
        page += "</table>\n";
        break;
      case 2:
        page += "<div class=\"review\"><p>" + Words(rng, 60) + "</p><p>" + Words(rng, 50) +
                " <a href=\"mailto:reviews@shop.test?subject=Review\">Write to us</a></p></div>\n";
        break;
      default:
        page +=
            "<form action=\"/search\" method=\"get\"><input type=text name=q size=30>"
            "<select name=cat><option value=1>Fiction<option value=2>History</select>"
            "<input type=submit value=Go></form>\n<script>document.write('<p>' + " +
            std::to_string(block) + " + '</p>');</script>\n";
        break;
    }
  }
  page +=
      "</div>\n<div id=\"footer\"><a href=\"/about\">About</a> | <a href=\"/contact\">"
      "Contact</a> | <a href=\"javascript:window.print()\">Print</a></div>\n</body></html>\n";
  return page;
}

// 10,000 anchors of about 100 bytes each, none of them closed.
std::string UnclosedAnchorsPage(int anchors = 10000) {
  std::string page = "<html><body>\n";
  for (int i = 0; i < anchors; ++i) {
    std::string a = "<a href=\"/items/" + std::to_string(i) + ".htm\" class=\"item\">item " +
                    std::to_string(i) + " ";
    a.resize(99, '.');
    page += a + "\n";
  }
  return page + "</body></html>\n";
}

struct Pages {
  std::string ordinary_100k = OrdinaryPage(100 * 1024);
  std::string ordinary_1m = OrdinaryPage(1024 * 1024);
  std::string unclosed_1m = UnclosedAnchorsPage();
  std::filesystem::path dir;

  Pages() {
    dir = std::filesystem::temp_directory_path() / ("links_bench_" + std::to_string(::getpid()));
    std::filesystem::create_directories(dir);
    Save("ordinary_100k.htm", ordinary_100k);
    Save("ordinary_1m.htm", ordinary_1m);
    Save("unclosed_1m.htm", unclosed_1m);
  }
  ~Pages() {
    std::error_code ec;
    std::filesystem::remove_all(dir, ec);
  }
  void Save(const std::string& name, const std::string& text) {
    std::ofstream(dir / name, std::ios::binary) << text;
  }
  const std::string& Text(int which) const {
    return which == 0 ? ordinary_100k : which == 1 ? ordinary_1m : unclosed_1m;
  }
  std::string File(int which) const {
    return (dir / (which == 0   ? "ordinary_100k.htm"
                   : which == 1 ? "ordinary_1m.htm"
                                : "unclosed_1m.htm"))
        .string();
  }
};

Pages& TestPages() {
  static Pages pages;
  return pages;
}

const char* Label(int which) {
  return which == 0 ? "ordinary 100 KB" : which == 1 ? "ordinary 1 MB" : "unclosed anchors 1 MB";
}

void BM_ScanAnchors(benchmark::State& state) {
  const std::string& text = TestPages().Text(static_cast<int>(state.range(0)));
  std::size_t links = 0;
  for (auto _ : state) {
    links = 0;
    ScanAnchors(text, [&](const ScannedAnchor& a) { links += a.has_href ? 1 : 0; });
    benchmark::DoNotOptimize(links);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
  state.counters["anchors"] = static_cast<double>(links);
  state.SetLabel(Label(static_cast<int>(state.range(0))));
}
BENCHMARK(BM_ScanAnchors)->DenseRange(0, 2)->Unit(benchmark::kMillisecond);

void BM_RegExHrefs(benchmark::State& state) {
  const int which = static_cast<int>(state.range(0));
  const std::string file = TestPages().File(which);
  long links = 0;
  for (auto _ : state) {
    WebPage page;
    page.RegExHrefs(file, "http://shop.test/books/list.htm");
    links = page.HttpLinks().Count() + page.EmailLinks().Count() + page.OtherLinks().Count();
  }
  state.SetBytesProcessed(
      static_cast<int64_t>(state.iterations() * TestPages().Text(which).size()));
  state.counters["links"] = static_cast<double>(links);
  state.SetLabel(Label(which));
}
BENCHMARK(BM_RegExHrefs)->DenseRange(0, 2)->Unit(benchmark::kMillisecond);

// The heap in use (malloc's own count), to tell what a document costs in memory.
std::size_t HeapInUse() {
  const struct mallinfo2 info = ::mallinfo2();
  return info.uordblks + info.hblkhd;
}

void BM_TreeBuild(benchmark::State& state) {
  const int which = static_cast<int>(state.range(0));
  const std::string& text = TestPages().Text(which);
  for (auto _ : state) {
    auto doc = html::Document::Parse(text, "http://shop.test/books/list.htm");
    benchmark::DoNotOptimize(doc.get());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
  // Outside the timing: the heap a document holds (its copy of the text included), and its size.
  const std::size_t before = HeapInUse();
  const auto doc = html::Document::Parse(text, "http://shop.test/books/list.htm");
  state.counters["doc_KiB"] = static_cast<double>(HeapInUse() - before) / 1024;
  state.counters["elements"] = static_cast<double>(doc->all().size());
  state.SetLabel(Label(which));
}
BENCHMARK(BM_TreeBuild)->DenseRange(0, 2)->Unit(benchmark::kMillisecond);

// The six expressions, as the scan's reference: range(0) is 0 for an ordinary page, 1 for
// unclosed anchors; range(1) the page's size in KB.
void BM_SixExpressions(benchmark::State& state) {
  const bool unclosed = state.range(0) == 1;
  const std::size_t kb = static_cast<std::size_t>(state.range(1));
  const std::string text =
      unclosed ? UnclosedAnchorsPage(static_cast<int>(kb * 1024 / 100)) : OrdinaryPage(kb * 1024);
  const RegexOptions ic{.ignore_case = true};
  const Regex whole(R"(<[aA][\s]+[^\xFF]+?</[\s]*[aA]>)", ic);
  const Regex href(R"(href[\s]*=[\s]*["' ]*[^"' >]*["' >])", ic);
  const Regex head(R"(href[\s]*=[\s]*["' ]*)", ic);
  const Regex marks(R"(["' >])", ic);
  const Regex no_end(R"(<[aA][\s]+[^\xFF]+?(?=</[\s]*[aA]>))", ic);
  const Regex start_tag(R"(<[aA][\s]+[^\x3E]+?>)", ic);
  std::size_t links = 0;
  for (auto _ : state) {
    links = 0;
    for (const RegexMatch& anchor : whole.Execute(text, true)) {
      const auto h = href.Execute(anchor.Value(), true);
      if (h.empty()) continue;
      benchmark::DoNotOptimize(marks.Replace(head.Replace(h[0].Value(), "", true), "", true));
      const auto t = no_end.Execute(anchor.Value(), true);
      if (!t.empty()) benchmark::DoNotOptimize(start_tag.Replace(t[0].Value(), "", true));
      ++links;
    }
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
  state.counters["anchors"] = static_cast<double>(links);
  state.SetLabel(unclosed ? "unclosed anchors" : "ordinary");
}
// The anchor expression alone in PCRE2's interpreter, as a backtracking engine without the JIT's
// early-fail shortcut runs it: on unclosed anchors each "<a" searches the rest of the page.
void BM_AnchorExpressionInterpreted(benchmark::State& state) {
  const bool unclosed = state.range(0) == 1;
  const std::size_t kb = static_cast<std::size_t>(state.range(1));
  const std::string text =
      unclosed ? UnclosedAnchorsPage(static_cast<int>(kb * 1024 / 100)) : OrdinaryPage(kb * 1024);
  const char* pattern = R"(<[aA][\s]+[^\xFF]+?</[\s]*[aA]>)";
  int error = 0;
  PCRE2_SIZE offset = 0;
  pcre2_code* code = pcre2_compile(reinterpret_cast<PCRE2_SPTR>(pattern), PCRE2_ZERO_TERMINATED,
                                   PCRE2_CASELESS | PCRE2_UTF, &error, &offset, nullptr);
  pcre2_match_data* data = pcre2_match_data_create_from_pattern(code, nullptr);
  std::size_t anchors = 0;
  for (auto _ : state) {
    anchors = 0;
    PCRE2_SIZE start = 0;
    while (pcre2_match(code, reinterpret_cast<PCRE2_SPTR>(text.data()), text.size(), start, 0, data,
                       nullptr) > 0) {
      ++anchors;
      start = pcre2_get_ovector_pointer(data)[1];
    }
  }
  pcre2_match_data_free(data);
  pcre2_code_free(code);
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
  state.counters["anchors"] = static_cast<double>(anchors);
  state.SetLabel(unclosed ? "unclosed anchors" : "ordinary");
}
BENCHMARK(BM_AnchorExpressionInterpreted)
    ->Args({0, 100})
    ->Args({1, 25})
    ->Args({1, 50})
    ->Args({1, 100})
    ->Unit(benchmark::kMillisecond);

BENCHMARK(BM_SixExpressions)
    ->Args({0, 100})
    ->Args({0, 1024})
    ->Args({1, 25})
    ->Args({1, 50})
    ->Args({1, 100})
    ->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace gw

// `links_bench --write-pages DIR` writes the three pages into DIR (to look at, or to feed to
// other tools) and runs nothing.
int main(int argc, char** argv) {
  if (argc == 3 && std::string(argv[1]) == "--write-pages") {
    const std::filesystem::path dir = argv[2];
    std::filesystem::create_directories(dir);
    std::ofstream(dir / "ordinary_100k.htm", std::ios::binary) << gw::OrdinaryPage(100 * 1024);
    std::ofstream(dir / "ordinary_1m.htm", std::ios::binary) << gw::OrdinaryPage(1024 * 1024);
    std::ofstream(dir / "unclosed_1m.htm", std::ios::binary) << gw::UnclosedAnchorsPage();
    return 0;
  }
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
