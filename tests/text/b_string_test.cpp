#include "text/b_string.h"

#include <gtest/gtest.h>

#include "platform/error.h"
#include "support/test_support.h"

namespace gw {
namespace {

// Runs `f`, expecting a gw::Error with `number` whose call stack is exactly `stack`.
void ExpectFailure(const std::function<void()>& f, ErrorNumber number,
                   const std::vector<std::string>& stack) {
  const Error e = testing::CaughtError(f);
  EXPECT_EQ(e.Number(), number);
  EXPECT_EQ(e.CallStack(), stack);
}

TEST(BStringSubString, CutsByPositionAndLength) {
  struct Case {
    const char* text;
    long start, length;
    const char* want;
  };
  const Case cases[] = {
      {"abcdef", 2, 3, "bcd"},
      {"abcdef", 5, BString::kToEnd, "ef"},
      {"abcdef", 5, 10, "ef"},
      {"abcdef", 7, 2, ""},
      {"abcdef", 1, 0, ""},
      {"", 5, 0, ""},
      {"abcdef", 0, 0, ""},  // a zero length does not look at the start
      {"abcdef", 1, BString::kToEnd, "abcdef"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.text) + " " + std::to_string(c.start) + "," +
                 std::to_string(c.length));
    EXPECT_EQ(BString(c.text).SubString(c.start, c.length).ToString(), c.want);
  }
}

TEST(BStringSubString, StartBelowOneOrNegativeLengthFailsWithFive) {
  const BString b("abc");
  ExpectFailure([&] { b.SubString(0, 1); }, 5, {"BString.SubString(Start,Length)"});
  ExpectFailure([&] { b.SubString(1, -2); }, 5, {"BString.SubString(Start,Length)"});
  // Operations built on SubString show both frames.
  ExpectFailure([&] { b.Remove(0, 1); }, 5,
                {"BString.SubString(Start,Length)", "BString.Remove(startIdx,Count)"});
  ExpectFailure([&] { b.CharAt(0); }, 5,
                {"BString.SubString(Start,Length)", "BString.CharAt(Position)"});
}

TEST(BStringBasics, SearchCompareAndCase) {
  const BString b("abcABCabc");
  EXPECT_EQ(b.IndexOf("BC"), 2);
  EXPECT_EQ(b.IndexOf("BC", true), 5);
  EXPECT_EQ(b.IndexOf("x"), 0);
  EXPECT_EQ(b.IndexOf(""), 1);
  EXPECT_EQ(BString("").IndexOf(""), 0);
  EXPECT_EQ(b.LastIndexOf("ab"), 7);
  EXPECT_EQ(b.LastIndexOf("AB", true), 4);
  EXPECT_EQ(b.LastIndexOf("zz"), 0);
  EXPECT_EQ(b.LastIndexOf(""), 9);
  EXPECT_EQ(BString("").LastIndexOf("a"), 0);

  EXPECT_TRUE(b.EqualTo("ABCabcABC"));
  EXPECT_FALSE(b.EqualTo("ABCabcABC", true));
  EXPECT_TRUE(b.EqualTo("abcABCabc", true));
  EXPECT_FALSE(b.EqualTo("abcABCab"));

  EXPECT_TRUE(b.CompSubStr("cab", 3));
  EXPECT_FALSE(b.CompSubStr("cab", 3, true));
  EXPECT_TRUE(b.CompSubStr("cAB", 3, true));
  EXPECT_FALSE(b.CompSubStr("abcd", 7));  // only "abc" is left

  EXPECT_EQ(BString("Ärger mit Öl").ToUpper().ToString(), "ÄRGER MIT ÖL");
  EXPECT_EQ(BString("ÄRGER").ToLower().ToString(), "ärger");
  EXPECT_EQ(BString("  \tx y\n  ").Trim().ToString(), "\tx y\n");
  EXPECT_EQ(b.Length(), 9);
  EXPECT_EQ(BString("Grüße").Length(), 7);  // bytes
}

TEST(BStringBasics, ReplaceRemoveAndCharAt) {
  EXPECT_EQ(BString("aAa").ReplaceStr("a", "x").ToString(), "xxx");
  EXPECT_EQ(BString("aAa").ReplaceStr("a", "x", true).ToString(), "xAx");
  EXPECT_EQ(BString("aaaa").ReplaceStr("aa", "b").ToString(), "bb");
  EXPECT_EQ(BString("abc").ReplaceStr("", "x").ToString(), "abc");
  EXPECT_EQ(BString("abcdef").Remove(2, 3).ToString(), "aef");
  EXPECT_EQ(BString("abcdef").Remove(1, 0).ToString(), "abcdef");
  EXPECT_EQ(BString("abcdef").Remove(5, 9).ToString(), "abcd");
  EXPECT_EQ(BString("abcdef").CharAt(3).ToString(), "c");
  EXPECT_EQ(BString("abcdef").CharAt(9).ToString(), "");
}

TEST(BStringValue, HoldsAnyVariant) {
  const BString number{Variant(42)};
  EXPECT_EQ(number.Value().Type(), VarType::Long);
  EXPECT_EQ(number.Length(), 2);
  EXPECT_EQ(number.SubString(2).ToString(), "2");

  auto object = std::make_shared<Object>();
  BString holder;
  holder.SetValue(object);
  EXPECT_EQ(holder.Value().ToObject(), object);  // the same reference, not a copy
  ExpectFailure([&] { holder.ToString(); }, errnum::kTypeMismatch, {"BString.ToString"});

  EXPECT_TRUE(BString().Value().IsEmpty());
  EXPECT_EQ(BString().ToString(), "");
}

TEST(BStringTokens, ValueBetweenTokens) {
  const BString b("a=1; b=2; c=3");
  struct Case {
    const char* start;
    const char* end;
    long start_position;
    bool case_sensitive;
    const char* want;
  };
  const Case cases[] = {
      {"b=", ";", 1, false, "2"}, {"B=", ";", 1, false, "2"},
      {"B=", ";", 1, true, ""},   {"b=", "#", 1, false, ""},  // end token missing
      {"x", ";", 1, false, ""},                               // start token missing
      {"=", ";", 5, false, "2"},  {"=", ";", 14, false, ""},  // start past the end
      {";", "", 1, false, ""},                                // an empty end token is found at once
      {"", ";", 1, false, "a=1"}, {"c=", "", 1, false, ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.start) + " .. " + c.end + " from " +
                 std::to_string(c.start_position));
    EXPECT_EQ(b.ValueBetweenTokens(c.start, c.end, c.start_position, c.case_sensitive).ToString(),
              c.want);
  }
  ExpectFailure([&] { b.ValueBetweenTokens("=", ";", 0); }, 5,
                {"BString.SubString(Start,Length)",
                 "BString.ValueBetweenTokens(StartToken,EndToken,StartPos,CaseSensitive)"});
}

TEST(BStringTokens, AdvancedCutHandsBackBothSides) {
  const BString b("a=1; b=2; c=3");
  const char* keep = "<kept>";
  struct Case {
    const char* start;
    const char* end;
    long start_position;
    bool case_sensitive;
    bool return_empty;
    const char* want;
    const char* before;
    const char* after;
  };
  const Case cases[] = {
      {"b=", ";", 1, false, false, "2", "a=1; ", " c=3"},
      {"b=", ";", 3, false, false, "2", "a=1; ", " c=3"},
      {"a=", ";", 1, false, false, "1", keep, " b=2; c=3"},  // token at 1: before untouched
      {"c=", "#", 1, false, false, "3", "a=1; b=2; ", "3"},
      {"c=", "#", 1, false, true, "", "a=1; b=2; ", "3"},
      {"x=", ";", 1, false, false, "a=1", keep, "b=2; c=3"},
      {"x=", ";", 1, false, true, "", keep, "=1; b=2; c=3"},  // end token never searched
      {"x=", "#", 1, false, false, "a=1; b=2; c=3", keep, "=1; b=2; c=3"},
      {"x", ";", 6, false, false, "b=2", keep, " c=3"},
      {"B=", ";", 1, false, false, "2", "a=1; ", " c=3"},
      {"B=", ";", 1, true, false, "a=1", keep, "b=2; c=3"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.start) + " .. " + c.end + " from " +
                 std::to_string(c.start_position) + (c.return_empty ? " empty" : ""));
    std::string before = keep, after = keep;
    const BString got = b.ValueBetweenTokensAdvanced(
        c.start, c.end, c.start_position, c.case_sensitive, c.return_empty, &before, &after);
    EXPECT_EQ(got.ToString(), c.want);
    EXPECT_EQ(before, c.before);
    EXPECT_EQ(after, c.after);
    // Leaving out the out-arguments changes nothing about the value.
    EXPECT_EQ(b.ValueBetweenTokensAdvanced(c.start, c.end, c.start_position, c.case_sensitive,
                                           c.return_empty)
                  .ToString(),
              c.want);
  }
}

TEST(BStringTokens, AdvancedFailsWhenTheAfterFormulaPointsBeforeTheText) {
  // Start token missing and an empty end token: the formula gives position 0.
  ExpectFailure([] { BString("").ValueBetweenTokensAdvanced("a", ""); }, 5,
                {"BString.SubString(Start,Length)",
                 "BString.ValueBetweenTokensAdvanced(StartToken,EndToken,StartPos,CaseSensitive,"
                 "ReturnEmptyWhenTokenNotFound,StringBeforeOut,StringAfterOut)"});
}

TEST(BStringTokens, PositionsCountBytesOfUtf8) {
  const BString b("Grüße <b>x</b> und <B>y</B>");
  EXPECT_EQ(b.IndexOf("<b>"), 9);
  EXPECT_EQ(b.ValueBetweenTokens("<b>", "</b>").ToString(), "x");
  EXPECT_EQ(b.ValueBetweenTokens("<b>", "</b>", 10).ToString(), "y");
  EXPECT_EQ(b.ValueBetweenTokens("<b>", "</b>", 10, true).ToString(), "");
}

TEST(BStringTokens, ReplaceInsideTokens) {
  struct Case {
    const char* text;
    const char* start;
    const char* end;
    const char* pattern;
    const char* replacement;
    const char* want;
  };
  const Case cases[] = {
      // The empty pair stops the walk; the third pair stays as it was.
      {"[aa]x[]y[a]", "[", "]", "a", "b", "[bb]x[]y[a]"},
      {"[aA]x[ab]", "[", "]", "a", "b", "[bb]x[bb]"},
      {"a[a]a", "[", "]", "A", "bc", "a[bc]a"},
      // Tokens are found ignoring case and written back as given.
      {"<B>a</b> a <b>A</B>", "<b>", "</b>", "a", "z", "<b>z</b> a <b>z</b>"},
      {"[a", "[", "]", "a", "b", "[a"},  // no end token
      {"abc", "[", "]", "a", "b", "abc"},
      {"[a]", "", "]", "a", "b", "[a]"},  // an empty start token replaces nothing
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(
        BString(c.text).ReplaceInsideTokens(c.start, c.end, c.pattern, c.replacement).ToString(),
        c.want);
  }
}

}  // namespace
}  // namespace gw
