// CString: a mutable byte buffer for long-text work (finding, replacing and counting in a page),
// and the byte searcher it is built on.
//
// The buffer holds UTF-8 bytes, one position per byte: positions and lengths are 1-based byte
// offsets, the same units as the rest of the text API, so a position found here indexes the text
// the caller handed in. Nothing is converted on the way in or out, so every character survives
// `Value`. `UCase` and `LCase` touch only the bytes of the ASCII letters (65-90, 97-122); every
// byte of a multi-byte UTF-8 character is 128 or above and stays as it is, so the text stays valid
// UTF-8. `ReverseStr` reverses by characters for the same reason.
//
// Searching without copying: `HorspoolSearcher` searches any std::string_view; `CString::Find`
// keeps one per object as its cache, and `CString::CountNoCase` counts in a std::string_view.
// A page held in a std::string therefore never needs to be copied into a CString to be searched.
//
// Failures: a negative length given to `SetLength`, `Left`, `Right`, `Mid` (and their setters) or
// `CopyData` raises `Error` 5 with source "CString" and description "Invalid length", without a
// call-stack line. Other faults carry the operation's call-stack line ("CString.Mid(...)").
#pragma once

#include <array>
#include <cstdint>
#include <iosfwd>
#include <optional>
#include <string>
#include <string_view>

#include "platform/text.h"

namespace gw {

// A forward Boyer-Moore-Horspool search on bytes, binary and case-sensitive, for one pattern.
// The shift table is built once per pattern; `Find` is const and may be called on any text.
class HorspoolSearcher {
 public:
  HorspoolSearcher() = default;
  explicit HorspoolSearcher(std::string_view pattern) { SetPattern(pattern); }

  // Rebuilds the table; does nothing when `pattern` is the current one.
  void SetPattern(std::string_view pattern);
  const std::string& Pattern() const noexcept { return pattern_; }

  // 1-based position of the first match that starts at or after `start_pos` (below 1 counts as
  // 1), or 0. An empty pattern is never found.
  long Find(std::string_view text, long start_pos = 1) const noexcept;

 private:
  std::string pattern_;
  // For each byte: how far the pattern may move when that byte is under its last character.
  // The last character's own entry is 0 (compare there).
  std::array<std::uint32_t, 256> shift_{};
  // How far to move after a failed comparison at a 0 entry: the distance from the last character
  // to its previous occurrence in the pattern (the pattern's length if none).
  std::size_t mismatch_shift_ = 1;
};

class CString {
 public:
  static constexpr long kInitialCapacity = 256;

  // An empty text with a buffer of `kInitialCapacity` bytes.
  CString();
  explicit CString(std::string_view value);
  CString(const CString&) = default;
  CString(CString&&) noexcept = default;
  CString& operator=(const CString&) = default;
  CString& operator=(CString&&) noexcept = default;

  // Sets the capacity. The content is kept (cut to `new_size` when that is shorter), except that
  // with `clear_it` and an empty text the whole buffer is zeroed. New bytes are zero.
  void SetBufferSize(long new_size, bool clear_it = false);
  long Capacity() const noexcept { return static_cast<long>(buffer_.size()); }

  std::string Value() const { return std::string(View()); }
  // Copies `value` in, growing the buffer when needed; `Length` becomes its length.
  void SetValue(std::string_view value);
  // The content without copying; valid until the next change of the buffer.
  std::string_view View() const noexcept { return std::string_view(buffer_.data(), length_); }
  // The address of the first byte; valid until the buffer grows.
  char* StrPtr() noexcept { return buffer_.data(); }
  const char* StrPtr() const noexcept { return buffer_.data(); }

  long Length() const noexcept { return length_; }
  // Negative: "Invalid length". Growing keeps the content and pads the new positions with
  // spaces; the buffer grows when needed.
  void SetLength(long new_length);
  void Clear() noexcept { length_ = 0; }
  CString Copy() const { return CString(View()); }

  // Substrings as new objects. Fewer bytes are returned at the ends; a `start_pos` past the end
  // yields "". A `start_pos` below 1 is failure 5 ("Invalid procedure call or argument").
  CString Left(long num_chars) const;
  CString Right(long num_chars) const;
  CString Mid(long start_pos, std::optional<long> num_chars = std::nullopt) const;
  // Overwrite forms: the bytes of the named part are overwritten with the first bytes of
  // `value`, as far as both reach; `Length` never changes.
  void SetLeft(long num_chars, std::string_view value);
  void SetRight(long num_chars, std::string_view value);
  void SetMid(long start_pos, std::optional<long> num_chars, std::string_view value);

  // The first byte's code; failure 5 on an empty text.
  std::int16_t Asc() const;
  // The byte at 1-based `index` (1..Length); failure 9 ("Subscript out of range") outside.
  unsigned char Char(long index) const;
  void SetChar(long index, unsigned char value);

  // Same as `Find`.
  long Instr(std::string_view search, long start_pos = 1) const { return Find(search, start_pos); }
  long Instr(const CString& search, long start_pos = 1) const {
    return Find(search.View(), start_pos);
  }

  // ASCII letters only; see the file comment. Return the receiver.
  CString& UCase() noexcept;
  CString& LCase() noexcept;
  // Reverses the order of the characters in place (a UTF-8 character keeps its bytes in order).
  CString& ReverseStr() noexcept;
  CString& Append(std::string_view text);
  CString& Append(const CString& other) { return Append(other.View()); }

  // Rebuilds the text from `start_pos`: every hit of `search_str` is replaced by `replace_str`,
  // left to right, without overlaps. As the runtime's Replace with a start does, the text before
  // `start_pos` is not part of the result. With `is_case_sensitive` false the hits are found
  // ignoring case (the rule of `gw::text`). An empty `search_str` replaces nothing.
  CString& Replace(std::string_view search_str, std::string_view replace_str, long start_pos = 1,
                   bool is_case_sensitive = true);

  // Binary, case-sensitive search (Boyer-Moore-Horspool). The shift table of the last search
  // string is kept, so repeated searches for one string over a page build it once. 1-based
  // position of the first match at or after `start_pos`, or 0; an empty `search` yields 0.
  long Find(std::string_view search, long start_pos = 1) const;

  // Writes the text (with `prefix_length`, its length as a 32-bit little-endian number first).
  void WriteToFile(std::ostream& out, bool prefix_length = false) const;
  // With `prefix_length`: reads the 32-bit length, then that many bytes (a short file is failure
  // 62, "Input past end of file"). Without: fills the whole buffer from the stream, `Length`
  // becomes the number of bytes read, and the rest of the buffer is zeroed (see `TrimToNull`).
  void ReadFromFile(std::istream& in, bool prefix_length = false);

  // `Length` becomes the number of bytes before the first zero byte of the buffer, or the
  // capacity if there is none; returns it.
  long TrimToNull() noexcept;

  // Counts hits of `searchstring` ignoring case, from position 1, each next search starting one
  // byte after the previous hit, so overlapping hits count. With `max_count` other than -1 the
  // count stops as soon as it exceeds `max_count`: it can reach `max_count` + 1.
  long GetFindCount(std::string_view searchstring, long max_count = -1) const;
  // The same count over any text, without copying it.
  static long CountNoCase(std::string_view text, std::string_view searchstring,
                          long max_count = -1);

  // Copies `num_chars` raw bytes from `source`; `Length` becomes `num_chars`.
  void CopyData(const char* source, long num_chars);

 private:
  // Makes room for `needed` bytes (doubling, so that repeated appends stay linear).
  void Reserve(std::size_t needed);

  std::string buffer_;  // size() is the capacity; bytes past `length_` are kept
  long length_ = 0;
  mutable HorspoolSearcher search_cache_;
};

}  // namespace gw
