// BString: an immutable-style wrapper around one value with 1-based string operations.
//
// Every operation that yields text returns a new BString and leaves the receiver untouched;
// only `SetValue` changes it. BString is a value type: copies copy the content, moves are cheap,
// so a chain such as `b.ValueBetweenTokens("<a", ">").Trim().ToString()` costs one allocation per
// step and nothing else.
//
// Text is UTF-8. Positions and lengths are 1-based byte offsets (0 = not found), the same units
// that every other text API of the library uses, so a position found here can be handed to
// `text::Mid` or to CString unchanged.
//
// Comparisons: `case_sensitive` true compares bytes; false compares with the shared
// case-insensitive rule of `gw::text` (ASCII letters without case, other letters by simple case
// folding when that keeps their length). An omitted `case_sensitive` means false and an omitted
// `start_position` means 1.
//
// Failures unwind as `gw::Error`, each with a call-stack line naming the operation
// ("BString.SubString(Start,Length)"). A `Start` below 1 or a negative `Length` (other than
// `kToEnd`) is failure 5 ("Invalid procedure call or argument", source "BString"). Content that
// cannot be read as text (Null, an object) fails as `Variant::ToString` does (94, 13).
#pragma once

#include <string>
#include <string_view>

#include "platform/variant.h"

namespace gw {

class BString {
 public:
  // `SubString`'s default `Length`: everything from `Start` to the end.
  static constexpr long kToEnd = -999999;

  BString() = default;
  BString(std::string value) : value_(std::move(value)) {}
  BString(std::string_view value) : value_(std::string(value)) {}
  BString(const char* value) : value_(std::string(value)) {}
  // Any value, an object reference included ("Value set").
  explicit BString(Variant value) : value_(std::move(value)) {}

  // The content as assigned: a text normally, but any Variant (an object too) may be stored.
  const Variant& Value() const noexcept { return value_; }
  void SetValue(Variant value) { value_ = std::move(value); }

  // The content as text. The rvalue form moves the text out of a temporary result.
  std::string ToString() const&;
  std::string ToString() &&;
  // Bytes of `ToString`.
  long Length() const;

  bool EqualTo(std::string_view other_string, bool case_sensitive = false) const;
  BString ToLower() const;
  BString ToUpper() const;
  // Spaces only, from both ends (not tabs or line breaks).
  BString Trim() const;

  // First occurrence searching from position 1, 0 if none. An empty `str` is found at 1 in a
  // non-empty text; nothing is found in an empty text.
  long IndexOf(std::string_view str, bool case_sensitive = false) const;
  // Last occurrence, searching backwards from the end; 0 if none. An empty `str` yields the
  // length of a non-empty text.
  long LastIndexOf(std::string_view str, bool case_sensitive = false) const;
  // Every occurrence of `old_value` replaced, left to right, no overlaps. An empty `old_value`
  // replaces nothing.
  BString ReplaceStr(std::string_view old_value, std::string_view new_value,
                     bool case_sensitive = false) const;

  // `length` bytes from `start`, or fewer at the end; `kToEnd`: to the end. A `length` of 0
  // yields "" whatever `start` is. A `start` past the end yields "".
  BString SubString(long start, long length = kToEnd) const;
  // SubString(1, start_idx - 1) followed by SubString(start_idx + count).
  BString Remove(long start_idx, long count) const;
  // SubString(position, 1).
  BString CharAt(long position) const;
  // SubString(position, length of str).EqualTo(str, case_sensitive).
  bool CompSubStr(std::string_view str, long position, bool case_sensitive = false) const;

  // The text between the first `start_token` at or after `start_position` and the first
  // `end_token` after it; "" when either token is missing.
  BString ValueBetweenTokens(std::string_view start_token, std::string_view end_token,
                             long start_position = 1, bool case_sensitive = false) const;

  // The same cut with a relaxed failure rule, handing back both sides of the cut.
  //  - both tokens found: the text between them;
  //  - end token missing: "" if `return_empty_when_token_not_found`, else all after the start
  //    token;
  //  - start token missing: "" if `return_empty_when_token_not_found` (the end token is then not
  //    searched), else the text from `start_position` up to the end token, or to the end.
  // `string_before_out` (may be null) is written only when the start token stands after the
  // first byte of the text searched: it becomes everything before the start token. Otherwise the
  // caller's string keeps what it held.
  // `string_after_out` (may be null) is always written: SubString(p1 + start_position + p2 +
  // len(start_token) + len(end_token) - 2), p1 and p2 being the positions of the tokens in the
  // texts searched (0 when not found). When both are found this is the text after the end token;
  // otherwise the formula is applied as it stands. A start below 1 that this formula yields
  // fails as SubString does, whether or not `string_after_out` is given.
  BString ValueBetweenTokensAdvanced(std::string_view start_token, std::string_view end_token,
                                     long start_position = 1, bool case_sensitive = false,
                                     bool return_empty_when_token_not_found = false,
                                     std::string* string_before_out = nullptr,
                                     std::string* string_after_out = nullptr) const;

  // Replaces `pattern` by `replace_string` (ignoring case) inside each stretch between a
  // `start_token` and the next `end_token` (tokens found ignoring case), leaving the tokens and
  // the text outside alone. The walk ends at the first empty stretch: an empty pair stops it and
  // later stretches stay as they were. An empty `start_token` replaces nothing.
  BString ReplaceInsideTokens(std::string_view start_token, std::string_view end_token,
                              std::string_view pattern, std::string_view replace_string) const;

  friend bool operator==(const BString& a, const BString& b) { return a.value_ == b.value_; }

 private:
  // The content as text without copying when it already is one. `scratch` holds a converted
  // value and must outlive the view.
  std::string_view TextView(std::string& scratch) const;

  Variant value_;
};

}  // namespace gw
