// Regular expressions with the behaviour of the script engines' `RegExp` object (ECMAScript
// flavour), on PCRE2.
//
// Flavour, whatever the subject:
//  - `.` matches any character but a line break (CR or LF); `$` matches only at the very end
//    unless `MultiLine` is set, when `^` and `$` also match at line breaks;
//  - `\w`, `\d`, `\s` and `\b` are ASCII classes; `\uHHHH` and `\xHH` name characters;
//  - a back reference to a group that did not take part matches the empty string; `[]` matches
//    nothing and `[^]` any character;
//  - a global search that finds an empty match goes on one character further, so no match ever
//    starts where an empty one did;
//  - `IgnoreCase` folds Unicode letters too.
// Subjects are UTF-8. Bytes that are not valid UTF-8 are never matched by anything (not even by
// `.` or `[^x]`): a match never crosses them, and the text around them is matched as usual.
// Offsets are byte offsets into the subject.
//
// A pattern is compiled (with the JIT) once: `Regex` is the immutable compiled form and can be
// kept and shared; `Regex::Cached` hands out one compiled object per pattern and options.
// Failures:
//  - a pattern that does not compile throws `Error` 5017 ("Syntax error in regular expression")
//    with PCRE2's reason and the offset in the description;
//  - a match that exhausts the backtracking limits throws `Error` 28 ("Out of stack space").
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/error.h"

namespace gw {

struct RegexOptions {
  bool ignore_case = false;
  bool multiline = false;
  friend bool operator==(const RegexOptions&, const RegexOptions&) = default;
};

// One match of a pattern: where it is, and what it and its groups matched. Owns its texts.
class RegexMatch {
 public:
  // 0-based byte offset of the match in the subject (the script object's `FirstIndex`).
  std::size_t FirstIndex() const noexcept { return first_index_; }
  std::size_t Length() const noexcept { return value_.size(); }
  const std::string& Value() const noexcept { return value_; }
  // The capture groups, `$1` first (the script object's `SubMatches`, 0-based).
  std::size_t SubMatchCount() const noexcept { return groups_.size(); }
  // The text of group `index` (0 = `$1`); empty for a group that did not take part.
  const std::string& SubMatch(std::size_t index) const;
  bool IsSubMatchSet(std::size_t index) const;

 private:
  friend class Regex;
  std::size_t first_index_ = 0;
  std::string value_;
  std::vector<std::string> groups_;
  std::vector<bool> set_;
};

class Regex {
 public:
  // Compiles `pattern`; throws `Error` 5017 if it does not compile.
  explicit Regex(std::string_view pattern, RegexOptions options = {});
  ~Regex();
  Regex(const Regex&) = default;
  Regex& operator=(const Regex&) = default;
  Regex(Regex&&) noexcept = default;
  Regex& operator=(Regex&&) noexcept = default;

  // The compiled form of `pattern` with `options`, compiled on first request and kept (the
  // most recently used few hundred patterns stay). Throws like the constructor.
  static std::shared_ptr<const Regex> Cached(std::string_view pattern, RegexOptions options = {});

  const std::string& Pattern() const noexcept;
  RegexOptions Options() const noexcept;
  // Number of capture groups.
  std::size_t GroupCount() const noexcept;

  // Whether the pattern matches anywhere in `subject`.
  bool Test(std::string_view subject) const;
  // The first match (`global` false) or all matches, in order.
  std::vector<RegexMatch> Execute(std::string_view subject, bool global) const;
  // `subject` with the first match (`global` false) or every match replaced by `replacement`, in
  // which `$1`..`$99` stand for groups, `$&` for the match, `` $` `` and `$'` for the text
  // before and after it, and `$$` for a dollar sign; anything else is literal.
  std::string Replace(std::string_view subject, std::string_view replacement, bool global) const;

  // Calls `visit(begin, end)` with the byte range of each match, in order; `visit` returns false
  // to stop. The cheap form for callers that need only where matches are.
  template <typename Visit>
  void ForEachMatch(std::string_view subject, bool global, Visit&& visit) const;

 private:
  struct Compiled;
  class Matcher;
  std::shared_ptr<const Compiled> compiled_;
};

// The script object: a pattern with its flags, compiled when first used after a change.
class RegExp {
 public:
  RegExp() = default;
  explicit RegExp(std::string pattern, bool global = false, bool ignore_case = false,
                  bool multiline = false);

  const std::string& Pattern() const noexcept { return pattern_; }
  void SetPattern(std::string pattern);
  bool Global() const noexcept { return global_; }
  void SetGlobal(bool global) noexcept { global_ = global; }
  bool IgnoreCase() const noexcept { return options_.ignore_case; }
  void SetIgnoreCase(bool ignore_case);
  bool MultiLine() const noexcept { return options_.multiline; }
  void SetMultiLine(bool multiline);

  bool Test(std::string_view subject) const;
  std::vector<RegexMatch> Execute(std::string_view subject) const;
  std::string Replace(std::string_view subject, std::string_view replacement) const;

 private:
  const Regex& Compiled() const;

  std::string pattern_;
  bool global_ = false;
  RegexOptions options_;
  mutable std::shared_ptr<const Regex> compiled_;
};

// ---- implementation of the template ----------------------------------------------------------

class Regex::Matcher {
 public:
  Matcher(const Compiled& compiled, std::string_view subject);
  ~Matcher();
  Matcher(const Matcher&) = delete;
  Matcher& operator=(const Matcher&) = delete;
  // Finds the next match at or after `offset`; false when there is none.
  bool Find(std::size_t offset);
  std::size_t Begin() const noexcept { return begin_; }
  std::size_t End() const noexcept { return end_; }
  // The offset where a global search goes on after the current match.
  std::size_t NextOffset() const noexcept;
  // Group `index` (0 = whole match) as a byte range; false when it did not take part.
  bool Group(std::size_t index, std::size_t& begin, std::size_t& end) const noexcept;

 private:
  const Compiled& compiled_;
  std::string_view subject_;
  void* match_data_;
  std::size_t begin_ = 0;
  std::size_t end_ = 0;
};

template <typename Visit>
void Regex::ForEachMatch(std::string_view subject, bool global, Visit&& visit) const {
  Matcher matcher(*compiled_, subject);
  std::size_t offset = 0;
  while (offset <= subject.size() && matcher.Find(offset)) {
    if (!visit(matcher.Begin(), matcher.End()) || !global) return;
    offset = matcher.NextOffset();
  }
}

}  // namespace gw
