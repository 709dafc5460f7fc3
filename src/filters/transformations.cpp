#include "filters/transformations.h"

#include "platform/event_loop.h"
#include "platform/text.h"
#include "text/c_string.h"

namespace gw::filters::Transformations {

std::string NormalizeText(std::string_view text) {
  return ReportAs("Transformations.NormalizeText(text)", Args(text), [&] {
    EventLoop& loop = EventLoop::Current();
    // Every carriage return and line feed goes (alone or as a pair), in one pass over the page.
    std::string out;
    out.resize(text.size());
    std::size_t w = 0;
    for (const char c : text) {
      out[w] = c;
      w += (c != '\r' && c != '\n') ? 1 : 0;
    }
    out.resize(w);
    loop.DoEvents();
    // Then curly double quotation marks become straight ones, also one that a line break split.
    char* const d = out.data();
    const std::size_t n = out.size();
    w = 0;
    for (std::size_t r = 0; r < n;) {
      if (d[r] == '\xE2' && r + 2 < n && d[r + 1] == '\x80' &&
          (d[r + 2] == '\x9C' || d[r + 2] == '\x9D')) {
        d[w++] = '"';
        r += 3;
      } else {
        d[w++] = d[r++];
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
