// The searches of the extraction engine, in one place.
//
// Every search ignores case by gw::text's one rule, and a match is exactly as long as the needle,
// so "position + length of tag" is the position after it. An empty text holds nothing, not even
// an empty needle, so that a loop over occurrences always ends.
//
// Cutting a page never copies it. The outer `Extract` of a page holds the page's text once, and
// every text that the engine hands around while it runs (what is left of the page, a row, what is
// left of a row) is a view into it. `PageScan` names that text; `InitStringFinder` remembers where
// it last found its initialization string in it, so that asking again from a later position, as
// the driver does for every dataset after every row, costs nothing until that hit is passed. With
// that, the cost of a page grows linearly with its length for a fixed template.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/text.h"

namespace gw {

class RowSink;

// The text of the page that one outer `Extract` is cutting. It must stay alive and unchanged
// while that call runs.
struct PageScan {
  std::string_view text;
  std::uint64_t id = 0;  // unique per scan; keys the finders' memos
  // Where rows go for datasets without a sink of their own; never null while a page is cut.
  RowSink* sink = nullptr;

  static PageScan Begin(std::string_view text, RowSink* sink);
  // True if `view` lies inside `text` (so that its positions map to page positions).
  bool Holds(std::string_view view) const noexcept;
  std::size_t OffsetOf(std::string_view view) const noexcept {
    return static_cast<std::size_t>(view.data() - text.data());
  }
};

// A caller's text, taken over while it is cut. The text is moved in (the caller's string is empty
// meanwhile, so that nothing the caller's event handlers do can move it), `Rest()` is a view into
// it that the cutting moves forward, and when the object goes, by a return or by a failure, what
// is left (`Rest()`, which must stay a suffix of the text) is moved back into the caller's string.
class PageText {
 public:
  explicit PageText(std::string& caller)
      : caller_(caller), text_(std::move(caller)), rest_(text_) {}
  PageText(const PageText&) = delete;
  PageText& operator=(const PageText&) = delete;
  ~PageText() {
    text_.erase(0, text_.size() - rest_.size());
    caller_ = std::move(text_);
  }
  // All of the text that was taken over.
  std::string_view Whole() const noexcept { return text_; }
  // What is left of it.
  std::string_view& Rest() noexcept { return rest_; }

 private:
  std::string& caller_;
  std::string text_;
  std::string_view rest_;
};

// The 0-based offset of the first match of `searcher` in `text` at or after `from`, or npos.
std::size_t FindIn(const text::NoCaseSearcher& searcher, std::string_view text,
                   std::size_t from = 0) noexcept;

// What is left of `text` once the first character of an occurrence is dropped, where `after` is
// the length of the text from that occurrence on: its last `after` - 1 characters. A character is
// a whole UTF-8 sequence. Fails with 5 when `after` is below 1 or longer than `text`.
std::string_view DropFirstCharacter(std::string_view text, long after);

// An initialization string with its searcher and a memo of its last two hits in a page.
class InitStringFinder {
 public:
  InitStringFinder() = default;
  explicit InitStringFinder(std::string_view needle) { Reset(needle); }
  void Reset(std::string_view needle);

  const std::string& Needle() const noexcept { return searcher_.Needle(); }
  const text::NoCaseSearcher& Searcher() const noexcept { return searcher_; }

  // As `FindIn`. When `scan` is given and `view` lies inside its page, the answer comes from the
  // memo where it can: a first hit at or after position q stays the first hit for every later
  // start up to it, because the page does not change while it is cut.
  std::size_t Find(const PageScan* scan, std::string_view view, std::size_t from = 0) const;
  // The 1-based positions of the needle in `view`: from position 1, and after each hit from the
  // hit + 1, so that occurrences may overlap. Stops at the end of the text or, when `max_count`
  // is above 0, at `max_count` hits.
  std::vector<long> StartingPoints(const PageScan* scan, std::string_view view,
                                   long max_count) const;

 private:
  struct Memo {
    std::uint64_t scan_id = 0;  // 0: empty
    std::size_t from = 0;       // page offset the search started at
    std::size_t hit = 0;        // page offset of the first hit at or after `from`, or npos
  };
  text::NoCaseSearcher searcher_;
  mutable std::array<Memo, 2> memo_{};
  mutable std::size_t next_memo_ = 0;
};

}  // namespace gw
