// Header values and the URL and HTML codecs on arbitrary text.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "platform/error.h"
#include "platform/text.h"
#include "web/http_header.h"
#include "web/http_utility.h"

namespace hu = gw::web::HttpUtility;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  try {
    const auto elements = hu::ParseHttpHeader(input);
    // Each element consumes at least one character.
    if (static_cast<std::size_t>(elements.Count()) > input.size()) __builtin_trap();
    gw::web::HttpHeader header("Content-Type", std::string(input));
    (void)header.GetElementByName("charset");
  } catch (const gw::Error&) {
  }
  long pos = 1;
  (void)hu::ParseHeaderValue(input, pos);
  if (pos < 1 || pos > static_cast<long>(input.size()) + 1) __builtin_trap();

  (void)hu::HTMLDecode(input);
  (void)hu::HtmlEncode(input);
  (void)hu::UrlEncodeForHtml(input);
  const std::string encoded = hu::UrlEncode(input);
  try {
    (void)hu::UrlDecode(input);
  } catch (const gw::Error&) {
  }
  // Without a "%" of its own, a text survives encoding and decoding (trimmed of spaces).
  if (input.find('%') == std::string_view::npos &&
      hu::UrlDecode(encoded) != gw::text::TrimSpaces(input)) {
    __builtin_trap();
  }
  return 0;
}
