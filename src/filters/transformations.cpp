#include "filters/transformations.h"

#include "platform/event_loop.h"
#include "platform/text.h"
#include "text/c_string.h"

namespace gw::filters::Transformations {

std::string NormalizeText(std::string_view text) {
  return ReportAs("Transformations.NormalizeText(text)", [&] {
    CString buffer(text);
    EventLoop& loop = EventLoop::Current();
    buffer.Replace("\r\n", "");
    loop.DoEvents();
    buffer.Replace("\r", "");
    loop.DoEvents();
    buffer.Replace("\n", "");
    loop.DoEvents();
    buffer.Replace("\xE2\x80\x9C", "\"");  // left double quotation mark
    loop.DoEvents();
    buffer.Replace("\xE2\x80\x9D", "\"");  // right double quotation mark
    loop.DoEvents();
    return buffer.Value();
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
