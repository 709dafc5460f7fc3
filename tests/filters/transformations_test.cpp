#include "filters/transformations.h"

#include <gtest/gtest.h>

#include "platform/event_loop.h"
#include "support/test_support.h"

namespace gw::filters {
namespace {

using namespace Transformations;

TEST(Transformations, NormalizeTextRemovesBreaksAndStraightensQuotes) {
  EXPECT_EQ(NormalizeText("a\r\nb\rc\nd\r\n\r\ne \xE2\x80\x9Cq\xE2\x80\x9D"), "abcde \"q\"");
  // An em dash ends in the byte that is a curly quote in the one-byte code page: it stays.
  EXPECT_EQ(NormalizeText("a\xE2\x80\x94"
                          "b"),
            "a\xE2\x80\x94"
            "b");
  EXPECT_EQ(NormalizeText(""), "");
  // Breaks go before quotes are looked at: a quote split by one is straightened.
  EXPECT_EQ(NormalizeText("\xE2\r\n\x80\x9Cq\xE2\x80\n\x9D"), "\"q\"");
  // A quote cut off at the end of the text stays as it is.
  EXPECT_EQ(NormalizeText("q\xE2\x80"), "q\xE2\x80");
  // Breaks and quotes at either end, next to each other, and a lead byte before a quote.
  const std::pair<std::string, std::string> cases[] = {
      {"\r\n", ""},
      {"\n\n\r\r", ""},
      {"\nab\r", "ab"},
      {"\xE2\x80\x9C", "\""},
      {"\xE2\x80\x9C\xE2\x80\x9D\r\n\xE2\x80\x9D", "\"\"\""},
      {"\xE2\xE2\x80\x9Dz", "\xE2\"z"},
      {"x\xE2", "x\xE2"},
      {"\xE2\x80\r", "\xE2\x80"},
      {"a\xE2\n\x80\r\x9D\nb\r\nc", "a\"bc"},
      {std::string(5000, 'a') + "\r\n" + std::string(5000, 'b') + "\xE2\x80\x9C",
       std::string(5000, 'a') + std::string(5000, 'b') + "\""},
  };
  for (const auto& [text, want] : cases) {
    SCOPED_TRACE(text.substr(0, 20));
    EXPECT_EQ(NormalizeText(text), want);
  }
}

TEST(Transformations, NormalizeTextYieldsToTheHost) {
  int ran = 0;
  EventLoop::Current().Post([&] { ++ran; });
  NormalizeText("x");
  EXPECT_EQ(ran, 1);
}

TEST(Transformations, FindCountsAreTheTextCountsAndCountCRLFCountsLineEnds) {
  // The counting itself is the text layer's (its table covers overlaps, case and the limit).
  EXPECT_EQ(GetFindCount("aaaa", "A", 2), 3);
  EXPECT_EQ(CountCRLF("a\r\nb\r\n\r\n"), 3);
  EXPECT_EQ(CountCRLF("a\rb\n"), 0);
}

TEST(Transformations, StringBetweenTagsAndTruncate) {
  std::string text = "x<TD>v</td>rest";
  auto result = GetStringBetweenTagsAndTruncate("<td>", "</TD>", text);
  EXPECT_EQ(result.Item("StringBetweenTags"), "v");
  EXPECT_EQ(result.Item("Text"), "</td>rest");
  EXPECT_EQ(text, "</td>rest");

  text = "abc";
  const Error e =
      testing::CaughtError([&] { GetStringBetweenTagsAndTruncate("<td>", "</td>", text); });
  EXPECT_EQ(e.Number(), errnum::kStartTagNotFound);
  EXPECT_EQ(e.Source(), "GetStringBetweenTagsAndTruncate Function");
  EXPECT_EQ(e.Description(), "Start Tag <td> Does not exist in text.");
  text = "<td>x";
  const Error e2 =
      testing::CaughtError([&] { GetStringBetweenTagsAndTruncate("<td>", "</td>", text); });
  EXPECT_EQ(e2.Number(), errnum::kEndTagNotFound);
  EXPECT_EQ(e2.Description(), "End Tag </td> Does not exist in text.");
  EXPECT_EQ(text, "<td>x");

  text = "aXbYc";
  EXPECT_EQ(TruncateAfterString("xB", text), "Yc");
  EXPECT_EQ(TruncateAfterString("zz", text), "Yc");
}

}  // namespace
}  // namespace gw::filters
