#include "filters/transformations.h"

#include <algorithm>
#include <cstring>

#include "platform/event_loop.h"
#include "platform/text.h"
#include "text/c_string.h"

namespace gw::filters::Transformations {

namespace {

// Where the next `c` at or after `from` is in the `size` bytes at `data`, or `size`.
std::size_t FindByte(const char* data, std::size_t size, std::size_t from, char c) {
  if (from >= size) return size;
  const void* hit = std::memchr(data + from, c, size - from);
  return hit ? static_cast<std::size_t>(static_cast<const char*>(hit) - data) : size;
}

}  // namespace

std::string NormalizeText(std::string_view text) {
  return ReportAs("Transformations.NormalizeText(text)", Args(text), [&] {
    EventLoop& loop = EventLoop::Current();
    // Every carriage return and line feed goes (alone or as a pair), in one pass over the page
    // that copies the runs between them.
    const char* const s = text.data();
    const std::size_t size = text.size();
    std::string out;
    out.resize(size);
    char* const d = out.data();
    std::size_t w = 0;
    std::size_t next_cr = FindByte(s, size, 0, '\r');
    std::size_t next_lf = FindByte(s, size, 0, '\n');
    for (std::size_t r = 0; r < size;) {
      if (next_cr < r) next_cr = FindByte(s, size, r, '\r');
      if (next_lf < r) next_lf = FindByte(s, size, r, '\n');
      const std::size_t stop = std::min(next_cr, next_lf);
      std::memcpy(d + w, s + r, stop - r);
      w += stop - r;
      r = stop + 1;
    }
    out.resize(w);
    loop.DoEvents();
    // Then curly double quotation marks become straight ones, also one that a line break split.
    char* const q = out.data();
    const std::size_t n = out.size();
    w = 0;
    for (std::size_t r = 0; r < n;) {
      const std::size_t lead = FindByte(q, n, r, '\xE2');
      if (w != r) std::memmove(q + w, q + r, lead - r);
      w += lead - r;
      r = lead;
      if (r == n) break;
      if (r + 2 < n && q[r + 1] == '\x80' && (q[r + 2] == '\x9C' || q[r + 2] == '\x9D')) {
        q[w++] = '"';
        r += 3;
      } else {
        q[w++] = q[r++];
      }
    }
    out.resize(w);
    loop.DoEvents();
    return out;
  });
}

long GetFindCount(std::string_view text, std::string_view searchstring, long MaxCount) {
  return CString::CountNoCase(text, searchstring, MaxCount);
}

long CountCRLF(std::string_view Text) { return GetFindCount(Text, "\r\n"); }

Dictionary<std::string> GetStringBetweenTagsAndTruncate(std::string_view StartTag,
                                                        std::string_view EndTag,
                                                        std::string& Text) {
  const char* const source = "GetStringBetweenTagsAndTruncate Function";
  const std::size_t start = text::FindNoCase(Text, StartTag);
  if (start == text::npos) {
    throw Error(errnum::kStartTagNotFound, source,
                "Start Tag " + std::string(StartTag) + " Does not exist in text.");
  }
  const std::size_t value_start = start + StartTag.size();
  const std::size_t end = text::FindNoCase(Text, EndTag, value_start);
  if (end == text::npos) {
    throw Error(errnum::kEndTagNotFound, source,
                "End Tag " + std::string(EndTag) + " Does not exist in text.");
  }
  Dictionary<std::string> result;
  result.Add("StringBetweenTags", Text.substr(value_start, end - value_start));
  Text.erase(0, end);
  result.Add("Text", Text);
  return result;
}

std::string TruncateAfterString(std::string_view Str, std::string& Text) {
  const std::size_t at = text::FindNoCase(Text, Str);
  if (at != text::npos) Text.erase(0, at + Str.size());
  return Text;
}

}  // namespace gw::filters::Transformations
