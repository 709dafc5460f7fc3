#include "acquire/link_scan.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace gw {

namespace {

constexpr std::size_t npos = std::string_view::npos;

inline bool IsSpace(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}
inline bool IsA(char c) { return c == 'a' || c == 'A'; }
inline bool IsMark(char c) { return c == '"' || c == '\'' || c == ' ' || c == '>'; }
inline char Lower(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c + 32) : c; }

std::size_t SkipSpaces(std::string_view s, std::size_t i) {
  while (i < s.size() && IsSpace(s[i])) ++i;
  return i;
}

// The length of an end tag "</", white space, "a", ">" at `at`, or 0.
std::size_t EndTagAt(std::string_view s, std::size_t at) {
  if (at + 1 >= s.size() || s[at] != '<' || s[at + 1] != '/') return 0;
  const std::size_t i = SkipSpaces(s, at + 2);
  if (i + 1 >= s.size() || !IsA(s[i]) || s[i + 1] != '>') return 0;
  return i + 2 - at;
}

// Whether "<a" and white space start at `at`.
inline bool AnchorStartAt(std::string_view s, std::size_t at) {
  return at + 2 < s.size() && s[at] == '<' && IsA(s[at + 1]) && IsSpace(s[at + 2]);
}

// The next '<' at or after `from`, or npos.
inline std::size_t NextLt(std::string_view s, std::size_t from) {
  if (from >= s.size()) return npos;
  const void* p = std::memchr(s.data() + from, '<', s.size() - from);
  return p ? static_cast<std::size_t>(static_cast<const char*>(p) - s.data()) : npos;
}

// The first hit at or after a position that never goes back: the last hit is remembered, so the
// page is searched once in all. `search(from)` gives the next hit at or after `from`, or npos.
template <typename Search>
class ForwardFinder {
 public:
  explicit ForwardFinder(Search search) : search_(std::move(search)) {}
  std::size_t Find(std::size_t from) {
    if (found_ != npos && found_ >= from) return found_;
    if (exhausted_) return npos;
    found_ = search_(from);
    exhausted_ = found_ == npos;
    return found_;
  }

 private:
  Search search_;
  std::size_t found_ = npos;
  bool exhausted_ = false;
};

// The next byte pair `lead`, `trail` at or after a position that never goes back.
struct PairFinder {
  std::size_t at = 0;
  bool searched = false;
  std::size_t Find(std::string_view s, std::size_t from, char lead, char trail) {
    if (searched && (at == npos || at >= from)) return at;
    searched = true;
    for (std::size_t i = from; i + 1 < s.size();) {
      const void* p = std::memchr(s.data() + i, lead, s.size() - 1 - i);
      if (!p) break;
      i = static_cast<std::size_t>(static_cast<const char*>(p) - s.data());
      if (s[i + 1] == trail) return at = i;
      ++i;
    }
    return at = npos;
  }
};

// The first address expression's match in `anchor`: its start and end, or false.
bool FindHref(std::string_view anchor, std::size_t& begin, std::size_t& end) {
  for (std::size_t i = 0; i + 4 <= anchor.size(); ++i) {
    if (Lower(anchor[i]) != 'h' || Lower(anchor[i + 1]) != 'r' || Lower(anchor[i + 2]) != 'e' ||
        Lower(anchor[i + 3]) != 'f') {
      continue;
    }
    std::size_t j = SkipSpaces(anchor, i + 4);
    if (j >= anchor.size() || anchor[j] != '=') continue;
    j = SkipSpaces(anchor, j + 1);
    while (j < anchor.size() && (anchor[j] == '"' || anchor[j] == '\'' || anchor[j] == ' ')) ++j;
    while (j < anchor.size() && !IsMark(anchor[j])) ++j;
    if (j >= anchor.size()) continue;  // an anchor ends with ">", so this cannot happen
    begin = i;
    end = j + 1;
    return true;
  }
  return false;
}

// The length of "href", white space, "=", white space, quotes and spaces at `at`, or 0.
std::size_t HeadAt(std::string_view s, std::size_t at) {
  if (at + 4 > s.size() || Lower(s[at]) != 'h' || Lower(s[at + 1]) != 'r' ||
      Lower(s[at + 2]) != 'e' || Lower(s[at + 3]) != 'f') {
    return 0;
  }
  std::size_t j = SkipSpaces(s, at + 4);
  if (j >= s.size() || s[j] != '=') return 0;
  j = SkipSpaces(s, j + 1);
  while (j < s.size() && (s[j] == '"' || s[j] == '\'' || s[j] == ' ')) ++j;
  return j - at;
}

// The address from the address expression's match: every head taken out, then every mark.
void CleanHref(std::string_view match, std::string& out) {
  out.clear();
  for (std::size_t i = 0; i < match.size();) {
    if (const std::size_t head = HeadAt(match, i)) {
      i += head;
      continue;
    }
    if (!IsMark(match[i])) out += match[i];
    ++i;
  }
}

// `raw` with every "<a", white space, at least one character, ">" taken out, left to right.
void RemoveStartTags(std::string_view raw, std::string& out) {
  out.clear();
  std::size_t gt = npos;  // the last '>' found, for searches that only move forward
  bool gt_exhausted = false;
  std::size_t copied = 0;
  for (std::size_t i = NextLt(raw, 0); i != npos;) {
    if (AnchorStartAt(raw, i)) {
      const std::size_t q = SkipSpaces(raw, i + 2);
      std::size_t tag_end = npos;
      if (q < raw.size()) {
        if (raw[q] != '>') {
          if ((gt == npos || gt < q + 1) && !gt_exhausted) {
            gt = raw.find('>', q + 1);
            if (gt == npos) gt_exhausted = true;
          }
          if (!gt_exhausted && gt >= q + 1) tag_end = gt + 1;
        } else if (q - (i + 2) >= 2) {
          // "<a", two or more spaces, ">": the last space is the one character it needs.
          tag_end = q + 1;
        }
      }
      if (tag_end != npos) {
        out.append(raw.data() + copied, i - copied);
        copied = tag_end;
        i = NextLt(raw, tag_end);
        continue;
      }
    }
    i = NextLt(raw, i + 1);
  }
  out.append(raw.data() + copied, raw.size() - copied);
}

}  // namespace

void ScanAnchors(std::string_view text, const std::function<void(const ScannedAnchor&)>& visit) {
  // The first end tag at or after a position.
  ForwardFinder ends([text](std::size_t from) {
    for (std::size_t at = NextLt(text, from); at != npos; at = NextLt(text, at + 1)) {
      if (EndTagAt(text, at) != 0) return at;
    }
    return npos;
  });
  // The first "ÿ" (C3 BF) or "Ÿ" (C5 B8) at or after a position. In valid UTF-8 these byte pairs
  // are those characters and nothing else.
  PairFinder next_y, next_capital_y;
  ForwardFinder stops([&](std::size_t from) {
    return std::min(next_y.Find(text, from, '\xC3', '\xBF'),
                    next_capital_y.Find(text, from, '\xC5', '\xB8'));
  });
  ScannedAnchor anchor;
  std::size_t pos = 0;
  for (std::size_t p = NextLt(text, pos); p != npos; p = NextLt(text, pos)) {
    if (!AnchorStartAt(text, p)) {
      pos = p + 1;
      continue;
    }
    const std::size_t q = SkipSpaces(text, p + 2);
    // The text between the tags takes at least one character, and no "ÿ": the first end tag
    // after the white space's end and the character there...
    std::size_t end = ends.Find(q + 1);
    if (end != npos) {
      const std::size_t stop = stops.Find(q);
      if (stop != npos && stop < end) end = npos;
    }
    // ... or, with two or more white-space characters, an end tag right after them (the last one
    // is the character).
    if (end == npos && q - (p + 2) >= 2 && EndTagAt(text, q) != 0) end = q;
    if (end == npos) {
      pos = p + 1;
      continue;
    }
    const std::size_t after = end + EndTagAt(text, end);
    const std::string_view match = text.substr(p, after - p);
    anchor.offset = p;
    anchor.length = match.size();
    std::size_t href_begin = 0, href_end = 0;
    anchor.has_href = FindHref(match, href_begin, href_end);
    if (anchor.has_href) {
      CleanHref(match.substr(href_begin, href_end - href_begin), anchor.href);
      RemoveStartTags(match.substr(0, end - p), anchor.text);
    } else {
      anchor.href.clear();
      anchor.text.clear();
    }
    visit(anchor);
    pos = after;
  }
}

}  // namespace gw
