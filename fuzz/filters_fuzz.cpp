// Every field filter on arbitrary page text. The first byte picks the filter; for filters that
// take a parameter, the text up to the first NUL is the parameter (a tag list, a base address or
// a pattern) and the rest is the value.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "filters/column_filter.h"
#include "filters/transformations.h"
#include "platform/error.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const char* const kTypes[] = {"RAW",
                                       "FORMATTEDTEXT",
                                       "TEXTTOHTMLEXCEPT",
                                       "REMOVEHTMLATTRIBSEXCEPT",
                                       "TEXTONLY",
                                       "NOLITERALS",
                                       "URL",
                                       "EMAIL",
                                       "USPHONE",
                                       "NUMBER",
                                       "RXMATCH",
                                       "NOHTMLCOMMENTS",
                                       "BETTERTEXTONLY"};
  if (size == 0) return 0;
  const char* type = kTypes[data[0] % (sizeof kTypes / sizeof kTypes[0])];
  std::string_view rest(reinterpret_cast<const char*>(data) + 1, size - 1);
  std::string_view parameter;
  const std::size_t nul = rest.find('\0');
  if (nul != std::string_view::npos) {
    parameter = rest.substr(0, nul);
    rest.remove_prefix(nul + 1);
  }
  try {
    (void)gw::filters::ApplyColumnFilter(type, parameter, rest, "http://example.com/dir/page.html");
  } catch (const gw::Error& e) {
    // Only a caller's pattern may fail to compile; any filter may hit the backtracking limit.
    const bool own_pattern = std::string_view(type) == "RXMATCH" && e.Number() == 5017;
    if (!own_pattern && e.Number() != 28) __builtin_trap();
  }
  (void)gw::filters::Transformations::NormalizeText(rest);
  (void)gw::filters::Transformations::GetFindCount(rest, parameter, 5);
  return 0;
}
