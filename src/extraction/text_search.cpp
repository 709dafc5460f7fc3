#include "extraction/text_search.h"

#include <algorithm>
#include <atomic>
#include <functional>

#include "platform/error.h"

namespace gw {

PageScan PageScan::Begin(std::string_view text, RowSink* sink) {
  static std::atomic<std::uint64_t> next_id{1};
  PageScan scan;
  scan.text = text;
  scan.id = next_id.fetch_add(1, std::memory_order_relaxed);
  scan.sink = sink;
  return scan;
}

bool PageScan::Holds(std::string_view view) const noexcept {
  const std::less_equal<const char*> le;
  return le(text.data(), view.data()) && le(view.data() + view.size(), text.data() + text.size());
}

std::size_t FindIn(const text::NoCaseSearcher& searcher, std::string_view text,
                   std::size_t from) noexcept {
  if (text.empty() || from > text.size()) return text::npos;
  if (searcher.Needle().empty()) return from < text.size() ? from : text::npos;
  return searcher.Find(text, from);
}

std::string_view DropFirstCharacter(std::string_view text, long after) {
  if (after < 1 || static_cast<std::size_t>(after) > text.size()) {
    throw Error(errnum::kInvalidProcedureCall, "DataPage.Extract",
                "Invalid procedure call or argument");
  }
  const std::size_t start = text.size() - static_cast<std::size_t>(after);
  const std::size_t width =
      std::min(text::Utf8SequenceLength(static_cast<unsigned char>(text[start])),
               static_cast<std::size_t>(after));
  return text.substr(start + width);
}

void InitStringFinder::Reset(std::string_view needle) {
  searcher_ = text::NoCaseSearcher(needle);
  memo_ = {};
  next_memo_ = 0;
}

std::size_t InitStringFinder::Find(const PageScan* scan, std::string_view view,
                                   std::size_t from) const {
  if (view.empty() || from > view.size()) return text::npos;
  const std::string& needle = searcher_.Needle();
  if (needle.empty() || scan == nullptr || scan->id == 0 || !scan->Holds(view)) {
    return FindIn(searcher_, view, from);
  }
  const std::size_t base = scan->OffsetOf(view);
  const std::size_t start = base + from;
  std::size_t hit = text::npos;
  bool known = false;
  for (const Memo& m : memo_) {
    if (m.scan_id == scan->id && m.from <= start && (m.hit == text::npos || m.hit >= start)) {
      hit = m.hit;
      known = true;
      break;
    }
  }
  if (!known) {
    hit = searcher_.Find(scan->text, start);
    memo_[next_memo_] = Memo{scan->id, start, hit};
    next_memo_ = (next_memo_ + 1) % memo_.size();
  }
  // A hit beyond the end of the view (a row is a prefix of what is left) is no hit in it; any
  // later hit would end even further out.
  if (hit == text::npos || hit + needle.size() > base + view.size()) return text::npos;
  return hit - base;
}

std::vector<long> InitStringFinder::StartingPoints(const PageScan* scan, std::string_view view,
                                                   long max_count) const {
  std::vector<long> points;
  std::size_t hit = Find(scan, view, 0);
  while (hit != text::npos) {
    points.push_back(static_cast<long>(hit + 1));
    if (max_count > 0 && static_cast<long>(points.size()) >= max_count) break;
    hit = Find(scan, view, hit + 1);
  }
  return points;
}

}  // namespace gw
