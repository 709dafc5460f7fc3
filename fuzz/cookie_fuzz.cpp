// Set-Cookie values and Cookie request headers as a server or a saved task could send them.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "web/cookie.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  gw::web::CookieContainer jar;
  jar.ParseCookies(input);
  // Every parsed cookie consumed at least its "=": never more cookies than signs.
  std::size_t equals = 0;
  for (char c : input) equals += c == '=';
  if (static_cast<std::size_t>(jar.Count()) > equals) __builtin_trap();

  gw::web::CookieContainer other;
  other.LoadFromRequestHeader(input);
  other.MergeFrom(jar);
  const auto copy = other.Clone();
  (void)copy->GetRequestHeader();

  gw::web::HttpHeaders headers = gw::web::MakeHttpHeaders();
  headers.Add("Set-Cookie",
              std::make_shared<gw::web::HttpHeader>("Set-Cookie", std::string(input)));
  gw::web::CookieContainer from_headers;
  from_headers.LoadFromResponseHeaders(headers);
  if (from_headers.GetRequestHeader() != jar.GetRequestHeader()) __builtin_trap();
  return 0;
}
