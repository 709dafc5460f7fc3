#include "platform/text.h"

#include <unicode/uchar.h>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include <algorithm>
#include <cstring>

namespace gw::text {

namespace {

constexpr char32_t kReplacement = 0xFFFD;

std::size_t EncodedLength(char32_t cp) noexcept {
  if (cp < 0x80) return 1;
  if (cp < 0x800) return 2;
  if (cp < 0x10000) return 3;
  return 4;
}

// Applies a case mapping with the same-length rule: a mapping that changes the encoded length,
// or turns a non-ASCII character into an ASCII one, is not applied.
char32_t SameLength(char32_t cp, char32_t mapped) noexcept {
  if (mapped == cp) return cp;
  if (mapped < 0x80 || EncodedLength(mapped) != EncodedLength(cp)) return cp;
  return mapped;
}

template <typename Map>
std::string MapCase(std::string_view s, char (*ascii)(char), Map map) {
  // The ASCII start of the text maps byte by byte, in place in a copy.
  std::string out(s);
  std::size_t i = 0;
  while (i < s.size() && static_cast<unsigned char>(s[i]) < 0x80) {
    out[i] = ascii(s[i]);
    ++i;
  }
  if (i == s.size()) return out;
  out.resize(i);
  while (i < s.size()) {
    const auto c = static_cast<unsigned char>(s[i]);
    if (c < 0x80) {
      out.push_back(ascii(static_cast<char>(c)));
      ++i;
      continue;
    }
    const std::size_t start = i;
    const char32_t cp = DecodeUtf8(s, i);
    if (cp == kReplacement && i - start == 1) {
      out.append(s.substr(start, i - start));  // keep invalid bytes as they were
      continue;
    }
    AppendUtf8(out, SameLength(cp, map(cp)));
  }
  return out;
}

char AsciiLowerFn(char c) { return AsciiToLower(c); }
char AsciiUpperFn(char c) { return AsciiToUpper(c); }

}  // namespace

// ---- UTF-8 -----------------------------------------------------------------------------------

bool IsAscii(std::string_view s) noexcept {
  for (unsigned char c : s) {
    if (c >= 0x80) return false;
  }
  return true;
}

bool HasControlCharacter(std::string_view s) noexcept {
  for (const char c : s) {
    const auto u = static_cast<unsigned char>(c);
    if (u < 0x20 || u == 0x7F) return true;
  }
  return false;
}

std::string EscapeControlCharacters(std::string_view s) {
  if (!HasControlCharacter(s)) return std::string(s);
  std::string out;
  out.reserve(s.size() + 8);
  for (const char c : s) {
    const auto u = static_cast<unsigned char>(c);
    if (c == '\n') {
      out += "\\n";
    } else if (c == '\r') {
      out += "\\r";
    } else if (c == '\t') {
      out += "\\t";
    } else if (u < 0x20 || u == 0x7F) {
      static constexpr char kHex[] = "0123456789ABCDEF";
      out += "\\x";
      out += kHex[u >> 4];
      out += kHex[u & 0xF];
    } else {
      out += c;
    }
  }
  return out;
}

std::size_t Utf8SequenceLength(unsigned char lead) noexcept {
  if (lead < 0x80) return 1;
  if ((lead & 0xE0) == 0xC0) return 2;
  if ((lead & 0xF0) == 0xE0) return 3;
  if ((lead & 0xF8) == 0xF0) return 4;
  return 1;
}

char32_t DecodeUtf8(std::string_view s, std::size_t& i) noexcept {
  const auto lead = static_cast<unsigned char>(s[i]);
  if (lead < 0x80) {
    ++i;
    return lead;
  }
  std::size_t len = 0;
  char32_t cp = 0;
  char32_t min = 0;
  if ((lead & 0xE0) == 0xC0) {
    len = 2, cp = lead & 0x1F, min = 0x80;
  } else if ((lead & 0xF0) == 0xE0) {
    len = 3, cp = lead & 0x0F, min = 0x800;
  } else if ((lead & 0xF8) == 0xF0) {
    len = 4, cp = lead & 0x07, min = 0x10000;
  } else {
    ++i;
    return kReplacement;
  }
  if (i + len > s.size()) {
    ++i;
    return kReplacement;
  }
  for (std::size_t k = 1; k < len; ++k) {
    const auto c = static_cast<unsigned char>(s[i + k]);
    if ((c & 0xC0) != 0x80) {
      ++i;
      return kReplacement;
    }
    cp = (cp << 6) | (c & 0x3F);
  }
  if (cp < min || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) {
    ++i;
    return kReplacement;
  }
  i += len;
  return cp;
}

void AppendUtf8(std::string& out, char32_t cp) {
  if (cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) cp = kReplacement;
  if (cp < 0x80) {
    out.push_back(static_cast<char>(cp));
  } else if (cp < 0x800) {
    out.push_back(static_cast<char>(0xC0 | (cp >> 6)));
    out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  } else if (cp < 0x10000) {
    out.push_back(static_cast<char>(0xE0 | (cp >> 12)));
    out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  } else {
    out.push_back(static_cast<char>(0xF0 | (cp >> 18)));
    out.push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  }
}

bool IsValidUtf8(std::string_view s) noexcept {
  std::size_t i = 0;
  while (i < s.size()) {
    // Sixteen ASCII bytes at a time: most of a page is ASCII.
    if (i + 16 <= s.size()) {
      const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s.data() + i));
      if (_mm_movemask_epi8(block) == 0) {
        i += 16;
        continue;
      }
    }
    if (static_cast<unsigned char>(s[i]) < 0x80) {
      ++i;
      continue;
    }
    const std::size_t start = i;
    const char32_t cp = DecodeUtf8(s, i);
    if (cp == kReplacement && i - start == 1) return false;
  }
  return true;
}

std::string SanitizeUtf8(std::string_view s) {
  if (IsValidUtf8(s)) return std::string(s);
  std::string out;
  out.reserve(s.size());
  std::size_t i = 0;
  while (i < s.size()) {
    AppendUtf8(out, DecodeUtf8(s, i));
  }
  return out;
}

std::size_t CountCodePoints(std::string_view s) noexcept {
  std::size_t n = 0;
  for (unsigned char c : s) {
    if ((c & 0xC0) != 0x80) ++n;
  }
  return n;
}

std::string_view TruncateCodePoints(std::string_view s, std::size_t max_chars) noexcept {
  std::size_t chars = 0;
  for (std::size_t i = 0; i < s.size(); ++i) {
    if ((static_cast<unsigned char>(s[i]) & 0xC0) != 0x80) {
      if (chars == max_chars) return s.substr(0, i);
      ++chars;
    }
  }
  return s;
}

// ---- case ------------------------------------------------------------------------------------

std::string AsciiLower(std::string_view s) {
  std::string out(s);
  for (char& c : out) c = AsciiToLower(c);
  return out;
}

std::string AsciiUpper(std::string_view s) {
  std::string out(s);
  for (char& c : out) c = AsciiToUpper(c);
  return out;
}

std::string ToUpper(std::string_view s) {
  return MapCase(s, AsciiUpperFn, [](char32_t cp) { return static_cast<char32_t>(u_toupper(cp)); });
}

std::string ToLower(std::string_view s) {
  return MapCase(s, AsciiLowerFn, [](char32_t cp) { return static_cast<char32_t>(u_tolower(cp)); });
}

char32_t FoldCase(char32_t cp) noexcept {
  if (cp < 0x80) return static_cast<char32_t>(AsciiToLower(static_cast<char>(cp)));
  return SameLength(cp, static_cast<char32_t>(u_foldCase(cp, U_FOLD_CASE_DEFAULT)));
}

std::string FoldCaseKey(std::string_view s) {
  if (IsAscii(s)) return AsciiLower(s);
  std::string out;
  out.reserve(s.size());
  std::size_t i = 0;
  while (i < s.size()) AppendUtf8(out, FoldCase(DecodeUtf8(s, i)));
  return out;
}

int CompareNoCase(std::string_view a, std::string_view b) noexcept {
  std::size_t i = 0, j = 0;
  while (i < a.size() && j < b.size()) {
    const auto ca = static_cast<unsigned char>(a[i]);
    const auto cb = static_cast<unsigned char>(b[j]);
    char32_t fa, fb;
    if (ca < 0x80 && cb < 0x80) {
      fa = static_cast<unsigned char>(AsciiToLower(static_cast<char>(ca)));
      fb = static_cast<unsigned char>(AsciiToLower(static_cast<char>(cb)));
      ++i, ++j;
    } else {
      fa = FoldCase(DecodeUtf8(a, i));
      fb = FoldCase(DecodeUtf8(b, j));
    }
    if (fa != fb) return fa < fb ? -1 : 1;
  }
  if (i < a.size()) return 1;
  if (j < b.size()) return -1;
  return 0;
}

bool EqualsNoCase(std::string_view a, std::string_view b) noexcept {
  return a.size() == b.size() && CompareNoCase(a, b) == 0;
}

std::size_t HashNoCase(std::string_view s) noexcept {
  constexpr std::uint64_t kPrime = 0x100000001b3ULL;
  std::uint64_t h = 0xcbf29ce484222325ULL;
  std::size_t i = 0;
  // Texts equal without case have their ASCII bytes at the same places (no other character folds
  // into ASCII), so an all-ASCII text may be hashed eight bytes at a time.
  if (IsAscii(s)) {
    constexpr std::uint64_t kOnes = 0x0101010101010101ULL;
    for (; i + 8 <= s.size(); i += 8) {
      std::uint64_t w;
      std::memcpy(&w, s.data() + i, 8);
      // Bytes from 'A' to 'Z' get their 0x20 bit set.
      const std::uint64_t above_z = w + (0x7F - 'Z') * kOnes;
      const std::uint64_t from_a = w + (0x80 - 'A') * kOnes;
      w |= ((from_a ^ above_z) & (0x80 * kOnes)) >> 2;
      h = (h ^ w) * kPrime;
      h ^= h >> 29;
    }
  }
  // FNV-1a over the folded code points of the rest.
  while (i < s.size()) {
    const auto c = static_cast<unsigned char>(s[i]);
    char32_t cp;
    if (c < 0x80) {
      cp = static_cast<unsigned char>(AsciiToLower(static_cast<char>(c)));
      ++i;
    } else {
      cp = FoldCase(DecodeUtf8(s, i));
    }
    h = (h ^ cp) * kPrime;
  }
  return static_cast<std::size_t>(h);
}

bool StartsWithNoCase(std::string_view s, std::string_view prefix) noexcept {
  return s.size() >= prefix.size() && EqualsNoCase(s.substr(0, prefix.size()), prefix);
}

bool EndsWithNoCase(std::string_view s, std::string_view suffix) noexcept {
  return s.size() >= suffix.size() && EqualsNoCase(s.substr(s.size() - suffix.size()), suffix);
}

// ---- search ----------------------------------------------------------------------------------

NoCaseSearcher::NoCaseSearcher(std::string_view needle) : needle_(needle), ascii_(IsAscii(needle)) {
  for (int b = 0; b < 256; ++b) {
    folded_[b] = static_cast<std::uint8_t>(AsciiToLower(static_cast<char>(b)));
  }
  const std::size_t m = needle_.size();
  if (ascii_) {
    shift_.fill(m == 0 ? 1 : m);
    for (std::size_t k = 0; k + 1 < m; ++k) {
      const auto c = static_cast<unsigned char>(needle_[k]);
      const std::size_t s = m - 1 - k;
      shift_[static_cast<unsigned char>(AsciiToLower(static_cast<char>(c)))] = s;
      shift_[static_cast<unsigned char>(AsciiToUpper(static_cast<char>(c)))] = s;
    }
  } else {
    std::size_t i = 0;
    while (i < needle_.size()) folded_needle_.push_back(FoldCase(DecodeUtf8(needle_, i)));
  }
}

std::size_t NoCaseSearcher::Find(std::string_view hay, std::size_t from) const noexcept {
  const std::size_t n = hay.size();
  const std::size_t m = needle_.size();
  if (from > n) return npos;
  if (m == 0) return from;
  if (m > n - from) return npos;
  const auto* h = reinterpret_cast<const unsigned char*>(hay.data());
  const auto* p = reinterpret_cast<const unsigned char*>(needle_.data());
  if (ascii_) {
    if (m == 1) {
      const unsigned char lo = folded_[p[0]];
      const unsigned char up = static_cast<unsigned char>(AsciiToUpper(static_cast<char>(lo)));
      if (lo == up) {
        const void* hit = std::memchr(h + from, lo, n - from);
        return hit ? static_cast<const unsigned char*>(hit) - h : npos;
      }
      for (std::size_t i = from; i < n; ++i) {
        if (h[i] == lo || h[i] == up) return i;
      }
      return npos;
    }
    const unsigned char last = folded_[p[m - 1]];
    std::size_t pos = from;
#if defined(__SSE2__)
    // Sixteen candidate positions at a time: a position is a candidate when its byte and the byte
    // m - 1 further on equal the needle's first and last bytes (letters compared with the case bit
    // set, which folds them); candidates are then compared in full, in order.
    {
      const unsigned char first = folded_[p[0]];
      const auto case_bit = [](unsigned char c) {
        return static_cast<char>((c >= 'a' && c <= 'z') ? 0x20 : 0);
      };
      const __m128i want_first = _mm_set1_epi8(static_cast<char>(first));
      const __m128i want_last = _mm_set1_epi8(static_cast<char>(last));
      const __m128i fold_first = _mm_set1_epi8(case_bit(first));
      const __m128i fold_last = _mm_set1_epi8(case_bit(last));
      while (pos + m - 1 + 16 <= n) {
        const __m128i a =
            _mm_or_si128(_mm_loadu_si128(reinterpret_cast<const __m128i*>(h + pos)), fold_first);
        const __m128i b = _mm_or_si128(
            _mm_loadu_si128(reinterpret_cast<const __m128i*>(h + pos + m - 1)), fold_last);
        unsigned mask = static_cast<unsigned>(_mm_movemask_epi8(
            _mm_and_si128(_mm_cmpeq_epi8(a, want_first), _mm_cmpeq_epi8(b, want_last))));
        while (mask != 0) {
          const std::size_t cand = pos + static_cast<std::size_t>(__builtin_ctz(mask));
          std::size_t k = 0;
          while (k < m && folded_[h[cand + k]] == folded_[p[k]]) ++k;
          if (k == m) return cand;
          mask &= mask - 1;
        }
        pos += 16;
      }
    }
#endif
    while (pos + m <= n) {
      const unsigned char c = h[pos + m - 1];
      if (folded_[c] == last) {
        std::size_t k = 0;
        while (k + 1 < m && folded_[h[pos + k]] == folded_[p[k]]) ++k;
        if (k + 1 == m) return pos;
      }
      pos += shift_[c];
    }
    return npos;
  }
  // Non-ASCII needle: compare folded code points at every character boundary.
  for (std::size_t start = from; start + m <= n; ++start) {
    if ((h[start] & 0xC0) == 0x80) continue;
    std::size_t i = start;
    std::size_t k = 0;
    while (k < folded_needle_.size() && i < n) {
      if (FoldCase(DecodeUtf8(hay, i)) != folded_needle_[k]) break;
      ++k;
    }
    if (k == folded_needle_.size()) return start;
  }
  return npos;
}

std::size_t FindNoCase(std::string_view haystack, std::string_view needle, std::size_t from) {
  // Short needles, and short texts (a file name template, an address): building the searcher's
  // tables would cost more than looking at every position.
  if (IsAscii(needle) && (needle.size() <= 2 || haystack.size() <= 1024)) {
    const std::size_t m = needle.size();
    if (from > haystack.size()) return npos;
    if (m == 0) return from;
    const char first = AsciiToLower(needle[0]);
    for (std::size_t i = from; i + m <= haystack.size(); ++i) {
      if (AsciiToLower(haystack[i]) != first) continue;
      std::size_t k = 1;
      while (k < m && AsciiToLower(haystack[i + k]) == AsciiToLower(needle[k])) ++k;
      if (k == m) return i;
    }
    return npos;
  }
  return NoCaseSearcher(needle).Find(haystack, from);
}

std::size_t RFindNoCase(std::string_view haystack, std::string_view needle) {
  if (needle.size() > haystack.size()) return npos;
  for (std::size_t start = haystack.size() - needle.size() + 1; start-- > 0;) {
    if ((static_cast<unsigned char>(haystack[start]) & 0xC0) == 0x80) continue;
    if (EqualsNoCase(haystack.substr(start, needle.size()), needle)) return start;
  }
  return npos;
}

std::size_t Find(std::string_view haystack, std::string_view needle, std::size_t from,
                 bool ignore_case) {
  if (ignore_case) return FindNoCase(haystack, needle, from);
  if (from > haystack.size()) return npos;
  return haystack.find(needle, from);
}

std::size_t RFind(std::string_view haystack, std::string_view needle, bool ignore_case) {
  if (ignore_case) return RFindNoCase(haystack, needle);
  return haystack.rfind(needle);
}

long InStr(long start, std::string_view haystack, std::string_view needle, bool ignore_case) {
  if (start < 1) start = 1;
  const auto from = static_cast<std::size_t>(start - 1);
  if (from > haystack.size()) return 0;
  if (needle.empty()) return start;
  const std::size_t hit = Find(haystack, needle, from, ignore_case);
  return hit == npos ? 0 : static_cast<long>(hit + 1);
}

std::string ReplaceAll(std::string_view s, std::string_view from, std::string_view to,
                       bool ignore_case) {
  if (from.empty()) return std::string(s);
  std::string out;
  out.reserve(s.size());
  NoCaseSearcher searcher;
  if (ignore_case) searcher = NoCaseSearcher(from);
  std::size_t pos = 0;
  while (true) {
    const std::size_t hit = ignore_case ? searcher.Find(s, pos) : s.find(from, pos);
    if (hit == npos) break;
    out.append(s.substr(pos, hit - pos));
    out.append(to);
    pos = hit + from.size();
  }
  out.append(s.substr(pos));
  return out;
}

// ---- trimming and splitting -------------------------------------------------------------------

std::string_view LTrimSpaces(std::string_view s) noexcept {
  std::size_t i = 0;
  while (i < s.size() && s[i] == ' ') ++i;
  return s.substr(i);
}

std::string_view RTrimSpaces(std::string_view s) noexcept {
  std::size_t n = s.size();
  while (n > 0 && s[n - 1] == ' ') --n;
  return s.substr(0, n);
}

std::string_view TrimSpaces(std::string_view s) noexcept { return RTrimSpaces(LTrimSpaces(s)); }

std::string_view TrimWhitespace(std::string_view s) noexcept {
  auto ws = [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; };
  std::size_t b = 0, e = s.size();
  while (b < e && ws(s[b])) ++b;
  while (e > b && ws(s[e - 1])) --e;
  return s.substr(b, e - b);
}

bool ReadQuoted(std::string_view s, std::size_t& i, char close, std::string& out) {
  ++i;
  while (i < s.size()) {
    if (s[i] == close) {
      if (i + 1 < s.size() && s[i + 1] == close) {
        out += close;
        i += 2;
        continue;
      }
      ++i;
      return true;
    }
    out += s[i++];
  }
  return false;
}

std::vector<std::string> Split(std::string_view s, std::string_view delimiter) {
  std::vector<std::string> parts;
  if (delimiter.empty()) {
    parts.emplace_back(s);
    return parts;
  }
  std::size_t pos = 0;
  while (true) {
    const std::size_t hit = s.find(delimiter, pos);
    if (hit == npos) break;
    parts.emplace_back(s.substr(pos, hit - pos));
    pos = hit + delimiter.size();
  }
  parts.emplace_back(s.substr(pos));
  return parts;
}

std::string Join(const std::vector<std::string>& parts, std::string_view delimiter) {
  std::string out;
  for (std::size_t k = 0; k < parts.size(); ++k) {
    if (k) out.append(delimiter);
    out.append(parts[k]);
  }
  return out;
}

std::string_view Mid(std::string_view s, std::size_t start1, std::size_t length) noexcept {
  if (start1 < 1) start1 = 1;
  if (start1 - 1 >= s.size()) return {};
  return s.substr(start1 - 1, length);
}

std::string_view Left(std::string_view s, std::size_t n) noexcept { return s.substr(0, n); }

std::string_view Right(std::string_view s, std::size_t n) noexcept {
  return n >= s.size() ? s : s.substr(s.size() - n);
}

}  // namespace gw::text
