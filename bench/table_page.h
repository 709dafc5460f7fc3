// A page of table rows for the text-search benchmarks.
#pragma once

#include <string>

namespace gw::bench {

// Rows of a product table, at least `bytes` long.
inline std::string MakeTablePage(std::size_t bytes) {
  std::string page;
  int k = 0;
  while (page.size() < bytes) {
    page += "<tr class=\"row\"><td class=\"name\">Product " + std::to_string(k) +
            "</td><td class=\"price\">$" + std::to_string(k % 97) + ".99</td></tr>\n";
    ++k;
  }
  return page;
}

}  // namespace gw::bench
