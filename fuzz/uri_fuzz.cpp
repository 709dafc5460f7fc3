// Uri.Parse and every text form of what it parsed, with and without a base ("base\nrelative").
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "platform/error.h"
#include "web/http_utility.h"
#include "web/uri.h"

using gw::web::Uri;

namespace {

void Exercise(const Uri& u) {
  (void)u.ToExternalForm();
  (void)u.PathAndQuery();
  (void)u.FileName();
  (void)u.FileExtension();
  (void)u.PathWithoutFile();
  (void)u.Clone();
  try {
    (void)u.ToString();
  } catch (const gw::Error&) {
  }
  try {
    (void)u.HashCode();
  } catch (const gw::Error&) {
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view input(reinterpret_cast<const char*>(data), size);

  // Removing dot segments never makes a path longer.
  if (Uri::CanonicalizePath(input).size() > input.size()) __builtin_trap();

  Uri whole;
  try {
    whole.Parse(input);
    Exercise(whole);
  } catch (const gw::Error&) {
  }

  const std::size_t split = input.find('\n');
  if (split != std::string_view::npos) {
    try {
      const Uri base(input.substr(0, split));
      Uri relative;
      relative.Parse(input.substr(split + 1), &base);
      Exercise(relative);
      (void)gw::web::HttpUtility::ClassifyResourceUri(input.substr(split + 1), &base);
    } catch (const gw::Error&) {
    }
  }
  (void)gw::web::HttpUtility::ClassifyResourceUri(input);
  return 0;
}
