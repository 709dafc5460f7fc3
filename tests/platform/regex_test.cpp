#include "platform/regex.h"

#include <gtest/gtest.h>

#include <string>

#include "support/test_support.h"

namespace gw {
namespace {

std::string JoinValues(const std::vector<RegexMatch>& matches) {
  std::string out;
  for (const auto& m : matches) out += "[" + m.Value() + "]";
  return out;
}

TEST(Regex, BehavesLikeTheScriptEngine) {
  struct Case {
    const char* pattern;
    bool ignore_case, multiline;
    const char* subject;
    const char* want;  // all matches, each in brackets
  };
  const Case cases[] = {
      // `.` stops at CR and at LF.
      {"a.c", false, false, "a\nc a\rc abc", "[abc]"},
      // `$` is the very end, not before a final line break, unless multi-line.
      {"c$", false, false, "abc\n", ""},
      {"c$", false, true, "abc\nxc", "[c][c]"},
      {"^x", false, true, "x\r\nx", "[x][x]"},
      // ASCII word class: a letter with an accent is not a word character.
      {"\\w+", false, false, "caf\xC3\xA9s", "[caf][s]"},
      // Ignoring case folds non-ASCII letters too.
      {"\xC3\xA9", true, false, "\xC3\x89", "[\xC3\x89]"},
      // JavaScript escapes.
      {"\\u0041\\x42", false, false, "AB", "[AB]"},
      // A back reference to a group that did not take part matches nothing.
      {"(a)?\\1b", false, false, "b", "[b]"},
      {"[^]", false, false, "\n", "[\n]"},
      // An empty match moves the search one whole character on.
      {"x*", false, false, "\xC3\xA9x", "[][x][]"},
      // A non-empty match is never found where an empty one just was.
      {"a??", false, false, "aa", "[][][]"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.pattern);
    const Regex re(c.pattern, {c.ignore_case, c.multiline});
    EXPECT_EQ(JoinValues(re.Execute(c.subject, true)), c.want);
  }
}

TEST(Regex, InvalidUtf8IsABarrierButNotAFailure) {
  const Regex re("<[^>]*>");
  const std::string subject = "a<b>\xFF<c\xFE>d";
  EXPECT_EQ(re.Replace(subject, "", true), "a\xFF<c\xFE>d");
  EXPECT_EQ(Regex("x").Replace("\xC3(x\xE2\x82", "y", true), "\xC3(y\xE2\x82");
}

TEST(Regex, ExecuteReportsOffsetsAndSubMatches) {
  const Regex re("(\\d+)(x)?");
  const auto all = re.Execute("ab12 7x", true);
  ASSERT_EQ(all.size(), 2u);
  EXPECT_EQ(all[0].FirstIndex(), 2u);
  EXPECT_EQ(all[0].Length(), 2u);
  EXPECT_EQ(all[0].SubMatch(0), "12");
  EXPECT_FALSE(all[0].IsSubMatchSet(1));
  EXPECT_EQ(all[0].SubMatch(1), "");
  EXPECT_EQ(all[1].FirstIndex(), 5u);
  EXPECT_EQ(all[1].SubMatch(1), "x");
  EXPECT_THROW(all[1].SubMatch(2), Error);

  const auto first = re.Execute("ab12 7x", false);
  ASSERT_EQ(first.size(), 1u);
  EXPECT_EQ(first[0].Value(), "12");
}

TEST(Regex, ReplaceExpandsReferencesAsTheScriptEngineDoes) {
  struct Case {
    const char* replacement;
    const char* want;
  };
  const Regex re("(b)(c)?");
  const Case cases[] = {
      {"[$1]", "a[b]d"},   {"[$2]", "a[]d"},  // a group that did not take part is empty
      {"[$3]", "a[$3]d"},                     // no such group: literal
      {"[$10]", "a[b0]d"},                    // "$1" then "0": there is no group 10
      {"[$&]", "a[b]d"},   {"[$`|$']", "a[a|d]d"}, {"$$1", "a$1d"}, {"$", "a$d"}, {"$x", "a$xd"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.replacement);
    EXPECT_EQ(re.Replace("abd", c.replacement, true), c.want);
  }
  EXPECT_EQ(Regex("o").Replace("foo", "0", false), "f0o");
  EXPECT_EQ(Regex("o").Replace("foo", "0", true), "f00");
  EXPECT_EQ(Regex("").Replace("ab", "-", true), "-a-b-");
}

TEST(Regex, BadPatternIsANumberedError) {
  const Error e = testing::CaughtError([&] { Regex re("(a"); });
  EXPECT_EQ(e.Number(), errnum::kRegexSyntax);
  EXPECT_NE(e.Description().find("(a"), std::string::npos);
  EXPECT_THROW(Regex::Cached("[z-a]"), Error);
}

TEST(Regex, CatastrophicBacktrackingFailsInsteadOfHanging) {
  const std::string subject = std::string(40, 'a') + "!";
  const Regex re("^(a|a)*[bc]");
  EXPECT_EQ(testing::FailureNumber([&] { re.Test(subject); }), errnum::kOutOfStackSpace);
}

TEST(Regex, CachedReturnsOneCompiledObjectPerPatternAndOptions) {
  const auto a = Regex::Cached("ab+", {});
  EXPECT_EQ(a, Regex::Cached("ab+", {}));
  EXPECT_NE(a, Regex::Cached("ab+", {true, false}));
}

TEST(RegExp, FlagsTakeEffectAfterAChange) {
  RegExp re("B");
  EXPECT_FALSE(re.Test("abc"));
  re.SetIgnoreCase(true);
  EXPECT_TRUE(re.Test("abc"));
  re.SetPattern("x");
  EXPECT_EQ(re.Replace("xax", "y"), "yax");
  re.SetGlobal(true);
  EXPECT_EQ(re.Replace("xax", "y"), "yay");
  EXPECT_EQ(re.Execute("XxX").size(), 3u);
}

TEST(Regex, LongSubjectWithManyMatchesIsLinear) {
  // Guards against re-validating the subject at every match (quadratic on large pages).
  std::string page;
  for (int k = 0; k < 50000; ++k) page += "<td>\xC3\xA9</td>";
  std::size_t count = 0;
  Regex("<[^>]*>").ForEachMatch(page, true, [&](std::size_t, std::size_t) {
    ++count;
    return true;
  });
  EXPECT_EQ(count, 100000u);
}

}  // namespace
}  // namespace gw
