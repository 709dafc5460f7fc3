// Where the page commands (links, forms) read a page from.
#pragma once

#include <string>

namespace gw::app {

struct PageSource {
  // The local file that holds the page.
  std::string file;
  // The page's address: what relative links resolve against.
  std::string base;
};

// A local file or "file://" address as it is (failing with 53 when there is no such file), its
// address being `base` when given, else "file://" and its absolute path.
PageSource OpenPageSource(const std::string& address, const std::string& base);

}  // namespace gw::app
