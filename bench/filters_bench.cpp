// Field-filter throughput over a real-sized HTML fragment (a ~20 KB product description) in MB/s,
// one benchmark per column type, and address parsing: `Uri.Parse` (absolute and relative links)
// and `Parse` + `HashCode`, in items per second.
#include <benchmark/benchmark.h>

#include <string>
#include <utility>
#include <vector>

#include "filters/column_filter.h"
#include "web/uri.h"

namespace {

std::string MakeProductDescription(std::size_t bytes) {
  std::string html;
  int k = 0;
  while (html.size() < bytes) {
    html += "<div class=\"section\" id=\"s" + std::to_string(k) + "\">\r\n";
    html += "<h2 style='color:#333'>Feature " + std::to_string(k) + "</h2>\r\n";
    html += "<p class=\"lead\">The <b>Model X" + std::to_string(k) +
            "</b> combines a brushed-aluminium body with a 12.5&nbsp;mm profile &amp; a "
            "<span class=\"hl\">two-year</span> warranty. Questions? Mail "
            "support@example-shop.com or call 555-123-4567.</p>\r\n";
    html += "<ul><li>Weight: 1,299 g</li><li class=\"x\">Price: $" + std::to_string(k % 90 + 10) +
            ".99</li><li>See <a href=\"/products/x" + std::to_string(k) +
            ".html\" title=\"More > details\">details</a></li></ul>\r\n";
    html += "<table class=\"details\"><tr><td>Width</td><td>" + std::to_string(100 + k) +
            " mm</td></tr><tr><td>Colour</td><td>Silver</td></tr></table>\r\n";
    html += "<!-- block " + std::to_string(k) + " --><br><img src='/img/p" + std::to_string(k) +
            ".jpg' alt=\"photo\"></div>\r\n";
    ++k;
  }
  return html;
}

const std::string& Description() {
  static const std::string html = MakeProductDescription(20 * 1024);
  return html;
}

void BM_ColumnFilter(benchmark::State& state, const char* type, const char* parameter) {
  const std::string& html = Description();
  for (auto _ : state) {
    benchmark::DoNotOptimize(
        gw::filters::ApplyColumnFilter(type, parameter, html, "http://shop.example.com/p/"));
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                          static_cast<int64_t>(html.size()));
}

// One benchmark per column type ("BM_ColumnFilter/EMAIL"...), with the parameter a template
// would give it.
const bool kColumnFilterBenchmarks = [] {
  const std::pair<const char*, const char*> filters[] = {
      {"FORMATTEDTEXT", ""},
      {"TEXTTOHTMLEXCEPT", "b,i,a"},
      {"REMOVEHTMLATTRIBSEXCEPT", "b,i,a"},
      {"TEXTONLY", ""},
      {"NOLITERALS", ""},
      {"URL", ""},
      {"EMAIL", ""},
      {"USPHONE", ""},
      {"NUMBER", ""},
      {"RXMATCH", "\\$[0-9]+\\.[0-9][0-9]"},
      {"NOHTMLCOMMENTS", ""},
      {"BETTERTEXTONLY", ""},
  };
  for (const auto& [type, parameter] : filters) {
    benchmark::RegisterBenchmark((std::string("BM_ColumnFilter/") + type).c_str(), BM_ColumnFilter,
                                 type, parameter);
  }
  return true;
}();

const std::vector<std::string>& Links() {
  static const std::vector<std::string> links = {
      "http://shop.example.com/products/widget-123.html?color=red&amp;size=10#reviews",
      "/products/x42.html",
      "../img/photo%20large.jpg",
      "https://User@Secure.Example.com:8443/account/orders?id=778899",
      "details.html?ref=list",
      "//cdn.example.net/static/app.js",
      "mailto:support@example-shop.com",
      "?page=3",
  };
  return links;
}

// Parses every link against one base address; `read` takes what the benchmark measures of it.
template <typename Read>
void ParseLinks(benchmark::State& state, Read read) {
  const gw::web::Uri base("http://shop.example.com/catalog/page.html");
  gw::web::Uri uri;
  for (auto _ : state) {
    for (const std::string& link : Links()) {
      uri.Parse(link, &base);
      read(uri);
    }
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) *
                          static_cast<int64_t>(Links().size()));
}

void BM_UriParse(benchmark::State& state) {
  ParseLinks(state, [](const gw::web::Uri& u) { benchmark::DoNotOptimize(u.path().data()); });
}
BENCHMARK(BM_UriParse);

void BM_UriParseAndHashCode(benchmark::State& state) {
  ParseLinks(state, [](const gw::web::Uri& u) { benchmark::DoNotOptimize(u.HashCode().data()); });
}
BENCHMARK(BM_UriParseAndHashCode);

}  // namespace

BENCHMARK_MAIN();
