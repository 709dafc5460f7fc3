// Text helpers shared by every layer.
//
// Text is UTF-8 in std::string. Positions in the public text API are 1-based byte offsets, 0
// meaning "not found"; the helpers here take and return 0-based offsets (std::string_view style,
// npos for none) unless their name says otherwise (`InStr`).
//
// Case-insensitive comparison is one rule everywhere:
//  - ASCII letters compare without case (fast path, byte by byte);
//  - other characters compare by Unicode simple case folding, except that a character whose folded
//    form would have a different UTF-8 length, or would be ASCII, is compared exactly. A match is
//    therefore always exactly as long, in bytes, as the searched text, so `p + len(tag)` is the
//    position after the match.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace gw::text {

inline constexpr std::size_t npos = std::string_view::npos;

// ---- UTF-8 -----------------------------------------------------------------------------------

bool IsAscii(std::string_view s) noexcept;
bool IsValidUtf8(std::string_view s) noexcept;
// Replaces every invalid byte sequence with U+FFFD.
std::string SanitizeUtf8(std::string_view s);
// Decodes the code point at `i` and advances `i`; an invalid byte yields U+FFFD and advances by 1.
char32_t DecodeUtf8(std::string_view s, std::size_t& i) noexcept;
void AppendUtf8(std::string& out, char32_t cp);
std::size_t CountCodePoints(std::string_view s) noexcept;
// The longest prefix of `s` with at most `max_chars` code points; never splits a character.
std::string_view TruncateCodePoints(std::string_view s, std::size_t max_chars) noexcept;
// Byte length of the UTF-8 sequence that starts with `lead` (1 for an invalid lead byte).
std::size_t Utf8SequenceLength(unsigned char lead) noexcept;
// True when `s` holds a control character (U+0000 to U+001F, U+007F).
bool HasControlCharacter(std::string_view s) noexcept;
// `s` with each control character written as an escape ("\n", "\r", "\t", "\x1B"), for names
// printed one per line: a name cannot start a line of its own.
std::string EscapeControlCharacters(std::string_view s);

// ---- case ------------------------------------------------------------------------------------

inline constexpr char AsciiToLower(char c) noexcept {
  return (c >= 'A' && c <= 'Z') ? static_cast<char>(c + 32) : c;
}
inline constexpr char AsciiToUpper(char c) noexcept {
  return (c >= 'a' && c <= 'z') ? static_cast<char>(c - 32) : c;
}
std::string AsciiLower(std::string_view s);
std::string AsciiUpper(std::string_view s);
// Unicode upper/lower case (simple mappings, same-length rule as above).
std::string ToUpper(std::string_view s);
std::string ToLower(std::string_view s);
// The comparison key of one code point under the rule above.
char32_t FoldCase(char32_t cp) noexcept;
// The comparison key of a whole text: equal keys <=> `EqualsNoCase`. For keyed maps.
std::string FoldCaseKey(std::string_view s);

bool EqualsNoCase(std::string_view a, std::string_view b) noexcept;
// A hash that agrees with `EqualsNoCase` (texts equal without case hash alike), computed without
// building the folded text.
std::size_t HashNoCase(std::string_view s) noexcept;
// <0, 0, >0 like strcmp, on folded code points.
int CompareNoCase(std::string_view a, std::string_view b) noexcept;
bool StartsWithNoCase(std::string_view s, std::string_view prefix) noexcept;
bool EndsWithNoCase(std::string_view s, std::string_view suffix) noexcept;

// ---- search ----------------------------------------------------------------------------------

// A case-insensitive searcher for one needle, built once and reused (a Horspool shift table for
// ASCII needles). An empty needle is found at `from`.
class NoCaseSearcher {
 public:
  NoCaseSearcher() = default;
  explicit NoCaseSearcher(std::string_view needle);
  const std::string& Needle() const noexcept { return needle_; }
  // 0-based offset of the first match at or after `from`, or npos.
  std::size_t Find(std::string_view haystack, std::size_t from = 0) const noexcept;

 private:
  std::string needle_;
  bool ascii_ = true;
  std::array<std::uint8_t, 256> folded_{};  // byte -> folded byte (ASCII letters)
  std::array<std::size_t, 256> shift_{};
  std::vector<char32_t> folded_needle_;  // non-ASCII needles
};

std::size_t FindNoCase(std::string_view haystack, std::string_view needle, std::size_t from = 0);
std::size_t RFindNoCase(std::string_view haystack, std::string_view needle);
// Binary or text (case-insensitive) search.
std::size_t Find(std::string_view haystack, std::string_view needle, std::size_t from,
                 bool ignore_case);
std::size_t RFind(std::string_view haystack, std::string_view needle, bool ignore_case);

// 1-based `InStr`: the position of `needle` in `haystack` searching from `start` (1-based), or 0.
// A `start` beyond the end yields 0; an empty needle yields `start`.
long InStr(long start, std::string_view haystack, std::string_view needle, bool ignore_case);

// Every occurrence of `from` replaced by `to`, scanning left to right, no overlaps.
std::string ReplaceAll(std::string_view s, std::string_view from, std::string_view to,
                       bool ignore_case = false);

// ---- trimming and splitting -------------------------------------------------------------------

// Spaces only (not tabs or line breaks), as the string classes trim.
std::string_view TrimSpaces(std::string_view s) noexcept;
std::string_view LTrimSpaces(std::string_view s) noexcept;
std::string_view RTrimSpaces(std::string_view s) noexcept;
// Spaces, tabs, carriage returns and line feeds.
std::string_view TrimWhitespace(std::string_view s) noexcept;

std::vector<std::string> Split(std::string_view s, std::string_view delimiter);
// Reads a quoted text whose opening character stands at s[i] and which ends at `close`, a doubled
// `close` standing for one ('it''s', [a]]b]): its content goes to `out`, `i` past the closing
// character. False when the text runs unclosed to the end of `s` (`out` then holds all of it).
bool ReadQuoted(std::string_view s, std::size_t& i, char close, std::string& out);
std::string Join(const std::vector<std::string>& parts, std::string_view delimiter);

// 1-based substring helpers that never throw: out-of-range parts yield what exists.
std::string_view Mid(std::string_view s, std::size_t start1, std::size_t length = npos) noexcept;
std::string_view Left(std::string_view s, std::size_t n) noexcept;
std::string_view Right(std::string_view s, std::size_t n) noexcept;

}  // namespace gw::text
