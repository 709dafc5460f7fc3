#include "platform/text.h"

#include <gtest/gtest.h>

#include <tuple>

namespace gw::text {
namespace {

// What the random texts below leave out: an empty needle, and text beyond ASCII.
TEST(TextSearch, IgnoresAsciiCaseAndReportsByteOffsets) {
  struct Case {
    std::string_view hay, needle;
    std::size_t from, want;
  };
  const Case cases[] = {
      {"abc", "", 2, 2}, {"Grüße <B>x", "<b>", 0, 8},  // offsets count bytes
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.hay) + " / " + std::string(c.needle));
    EXPECT_EQ(FindNoCase(c.hay, c.needle, c.from), c.want);
    EXPECT_EQ(NoCaseSearcher(c.needle).Find(c.hay, c.from), c.want);
  }
}

TEST(TextSearch, LongNeedleOverLongTextFindsEveryOccurrence) {
  std::string page;
  for (int k = 0; k < 1000; ++k)
    page += "<tr class=\"Row\"><td>" + std::to_string(k) + "</td></tr>";
  NoCaseSearcher s("<TR CLASS=\"row\">");
  std::size_t pos = 0, hits = 0;
  while ((pos = s.Find(page, pos)) != npos) {
    ++hits;
    ++pos;
  }
  EXPECT_EQ(hits, 1000u);
}

TEST(TextSearch, NonAsciiFoldsOnlySameLengthCharacters) {
  EXPECT_EQ(FindNoCase("STRASSE ÄPFEL", "äpfel"), 8u);
  EXPECT_TRUE(EqualsNoCase("ÉCOLE", "école"));
  // The Kelvin sign would fold to an ASCII "k": it is compared exactly.
  EXPECT_FALSE(EqualsNoCase("\xE2\x84\xAA", "k"));
  EXPECT_EQ(ToUpper("straße é"), "STRAßE É");
}

TEST(TextSearch, HashNoCaseAgreesWithEqualsNoCase) {
  const std::pair<const char*, const char*> same[] = {
      {"Content-Type", "CONTENT-type"},
      {"{6F9619FF-8B86-D011-B42D-00C04FC964FF}", "{6f9619ff-8b86-d011-b42d-00c04fc964ff}"},
      {"ABCDEFGHIJKLMNOPQRSTUVWXYZ", "abcdefghijklmnopqrstuvwxyz"},
      {"ÉCOLE", "école"},
      {"Straße", "STRAßE"},
      {"", ""}};
  for (const auto& [a, b] : same) {
    ASSERT_TRUE(EqualsNoCase(a, b)) << a;
    EXPECT_EQ(HashNoCase(a), HashNoCase(b)) << a;
  }
  // Different texts should not share a hash (not required, but a constant hash would pass the
  // loop above and turn every keyed map into a list).
  EXPECT_NE(HashNoCase("école"), HashNoCase("ecole"));
  EXPECT_NE(HashNoCase("ab"), HashNoCase("ba"));
  // The neighbours of the letters are not letters: '@' and '[' are not '`' and '{'.
  EXPECT_NE(HashNoCase("@@@@@@@@"), HashNoCase("````````"));
  EXPECT_NE(HashNoCase("[[[[[[[["), HashNoCase("{{{{{{{{"));
}

TEST(TextInStr, OneBasedPositionsAndEdges) {
  EXPECT_EQ(InStr(1, "abcabc", "BC", true), 2);
  EXPECT_EQ(InStr(3, "abcabc", "BC", true), 5);
  EXPECT_EQ(InStr(3, "abcabc", "BC", false), 0);
  EXPECT_EQ(InStr(7, "abcabc", "a", false), 0);
  EXPECT_EQ(InStr(4, "abc", "", false), 4);
  EXPECT_EQ(InStr(5, "abc", "", false), 0);
}

TEST(TextUtf8, TruncateNeverSplitsACharacter) {
  EXPECT_EQ(TruncateCodePoints("añb", 2), "añ");
  EXPECT_EQ(TruncateCodePoints("añb", 1), "a");
  EXPECT_EQ(TruncateCodePoints("ab", 5), "ab");
  EXPECT_EQ(CountCodePoints("añb€"), 4u);
  EXPECT_EQ(SanitizeUtf8("a\xFF"
                         "b"),
            "a\xEF\xBF\xBD"
            "b");
  EXPECT_TRUE(IsValidUtf8("\xEF\xBF\xBD"));
  EXPECT_FALSE(IsValidUtf8("\xC3"));
}

TEST(TextUtf8, ValidityIsCheckedAtEveryPositionOfLongText) {
  // Long ASCII runs are checked in blocks: a bad or a good sequence at any offset, split across a
  // block's end or not, is still seen.
  for (std::size_t at = 0; at < 40; ++at) {
    SCOPED_TRACE(at);
    std::string text(40, 'a');
    EXPECT_TRUE(IsValidUtf8(std::string(text).insert(at, "\xE2\x82\xAC")));
    EXPECT_FALSE(IsValidUtf8(std::string(text).insert(at, "\xE2\x82")));
    EXPECT_FALSE(IsValidUtf8(std::string(text).insert(at, "\xFF")));
  }
}

TEST(TextReplace, ReplacesWithoutOverlapInEitherCompareMode) {
  EXPECT_EQ(ReplaceAll("aaa", "aa", "b"), "ba");
  EXPECT_EQ(ReplaceAll("A-a-A", "a", "x", true), "x-x-x");
  EXPECT_EQ(ReplaceAll("A-a-A", "a", "x", false), "A-x-A");
  EXPECT_EQ(ReplaceAll("abc", "", "x"), "abc");
}

TEST(TextTrim, SpacesOnlyVersusWhitespace) {
  EXPECT_EQ(TrimSpaces("  a b \t"), "a b \t");
  EXPECT_EQ(TrimWhitespace(" \r\n a b \t"), "a b");
  EXPECT_EQ(Split("a;;b", ";"), (std::vector<std::string>{"a", "", "b"}));
}

TEST(TextReadQuoted, ADoubledCloseStandsForOneAndAnUnclosedTextRunsToTheEnd) {
  // The text, where its quote opens, the closing character; then what is read and where it ends.
  for (const auto& [s, start, close, closed, content, end] :
       {std::tuple("x'it''s'y", 1u, '\'', true, "it's", 8u),
        std::tuple("[a]]b]", 0u, ']', true, "a]b", 6u),
        std::tuple("'ab''", 0u, '\'', false, "ab'", 5u)}) {
    SCOPED_TRACE(s);
    std::size_t i = start;
    std::string out;
    EXPECT_EQ(ReadQuoted(s, i, close, out), closed);
    EXPECT_EQ(out, content);
    EXPECT_EQ(i, end);
  }
}

// A plain reference: the first position at or after `from` where every byte folds equal.
std::size_t NaiveFind(std::string_view hay, std::string_view needle, std::size_t from) {
  if (from > hay.size()) return npos;
  for (std::size_t i = from; i + needle.size() <= hay.size(); ++i) {
    std::size_t k = 0;
    while (k < needle.size() && AsciiToLower(hay[i + k]) == AsciiToLower(needle[k])) ++k;
    if (k == needle.size()) return i;
  }
  return npos;
}

TEST(TextSearch, AgreesWithAPlainSearchOnRandomText) {
  // Letters next to the characters that differ from them only by the case bit ('@' and '`',
  // '[' and '{'), so that a search that folds too much or too little is caught.
  const std::string alphabet = "aAbB@`[{<>/ ";
  std::uint32_t seed = 12345;
  const auto next = [&] {
    seed = seed * 1664525u + 1013904223u;
    return seed >> 8;
  };
  for (int round = 0; round < 3000; ++round) {
    std::string hay(next() % 80, ' ');
    for (char& c : hay) c = alphabet[next() % alphabet.size()];
    std::string needle(1 + next() % 6, ' ');
    for (char& c : needle) c = alphabet[next() % alphabet.size()];
    const std::size_t from = hay.empty() ? 0 : next() % (hay.size() + 1);
    SCOPED_TRACE("hay=\"" + hay + "\" needle=\"" + needle + "\" from=" + std::to_string(from));
    ASSERT_EQ(NoCaseSearcher(needle).Find(hay, from), NaiveFind(hay, needle, from));
    ASSERT_EQ(FindNoCase(hay, needle, from), NaiveFind(hay, needle, from));
  }
}

}  // namespace
}  // namespace gw::text
