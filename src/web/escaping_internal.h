// Byte sets and percent-decoding shared by `Uri` and `HttpUtility`. Not for other layers.
#pragma once

#include <bitset>
#include <string>
#include <string_view>

namespace gw::web::detail {

using CharSet = std::bitset<256>;

CharSet MakeCharSet(std::string_view members);
inline bool Contains(const CharSet& set, char c) noexcept {
  return set.test(static_cast<unsigned char>(c));
}

// Every byte outside `allowed` as "%" + upper-case hexadecimal, without zero padding when
// `pad` is false ("%9" for a tab) and with it when true ("%09").
void AppendPercentEscaped(std::string& out, std::string_view text, const CharSet& allowed,
                          bool pad);

// "+" becomes a space and "%HH" the byte HH; a byte in `keep` (may be null) is copied as it is.
// "%" followed by anything but one or two hexadecimal digits fails with error 13
// ("Type mismatch") under `source`. A lone hexadecimal digit is accepted only at the very end.
std::string PercentDecode(std::string_view text, const CharSet* keep, const char* source);

}  // namespace gw::web::detail
