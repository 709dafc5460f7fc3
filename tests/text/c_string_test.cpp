#include "text/c_string.h"

#include <gtest/gtest.h>

#include <random>
#include <sstream>

#include "platform/error.h"
#include "support/test_support.h"

namespace gw {
namespace {

// The position `std::string::find` gives, in CString's units.
long ReferenceFind(const std::string& text, const std::string& pattern, long start_pos) {
  if (pattern.empty()) return 0;
  const auto from = static_cast<std::size_t>(std::max(start_pos, 1L) - 1);
  if (from > text.size()) return 0;
  const auto hit = text.find(pattern, from);
  return hit == std::string::npos ? 0 : static_cast<long>(hit) + 1;
}

// Every edge falls among the random cases: empty and over-long patterns, starts below 1 and past
// the end, case, and the cached table of one pattern searched between two others.
TEST(CStringFind, AgreesWithAPlainSearchOnRandomTexts) {
  std::mt19937 rng(7);
  // A small alphabet gives many near-misses, repeated last characters and overlapping hits.
  const std::string alphabet = "abAB<>";
  auto random_text = [&](std::size_t max_len) {
    std::string s(rng() % (max_len + 1), ' ');
    for (char& c : s) c = alphabet[rng() % alphabet.size()];
    return s;
  };
  for (int round = 0; round < 300; ++round) {
    CString page(random_text(300));
    const std::string text = page.Value();
    for (int k = 0; k < 20; ++k) {
      const std::string pattern = random_text(6);
      const long start = static_cast<long>(rng() % (text.size() + 3));
      SCOPED_TRACE("pattern '" + pattern + "' from " + std::to_string(start) + " in " + text);
      const long want = ReferenceFind(text, pattern, start);
      ASSERT_EQ(page.Find(pattern, start), want);
      ASSERT_EQ(page.Find(pattern, start), want);  // again, with the cached table
      ASSERT_EQ(page.Instr(CString(pattern), start), want);
      ASSERT_EQ(HorspoolSearcher(pattern).Find(text, start), want);
    }
  }
}

TEST(CStringFindCount, CountsOverlappingHitsIgnoringCaseAndStopsOnePastTheLimit) {
  struct Case {
    const char* text;
    const char* search;
    long max_count;
    long want;
  };
  const Case cases[] = {
      {"AAA", "aa", -1, 2},
      {"aaaa", "a", 2, 3},
      {"aaaa", "a", 0, 1},
      {"aaaa", "a", 4, 4},
      {"aaaa", "a", 9, 4},
      {"abc", "x", -1, 0},
      {"abc", "", -1, 0},
      {"<TR><tr><Tr>", "<tr>", -1, 3},
      {"ÄPFEL äpfel", "äpfel", -1, 2},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.text) + " / " + c.search + " / " + std::to_string(c.max_count));
    EXPECT_EQ(CString(c.text).GetFindCount(c.search, c.max_count), c.want);
    EXPECT_EQ(CString::CountNoCase(c.text, c.search, c.max_count), c.want);
  }
}

TEST(CStringCase, ChangesOnlyAsciiLettersInPlace) {
  CString c("aé€zAÉ[`{@");
  EXPECT_EQ(&c.UCase(), &c);
  EXPECT_EQ(c.Value(), "Aé€ZAÉ[`{@");
  c.LCase();
  EXPECT_EQ(c.Value(), "aé€zaÉ[`{@");
}

TEST(CStringLength, NegativeLengthsFailWithInvalidLength) {
  CString c("abc");
  const std::function<void()> calls[] = {
      [&] { c.SetLength(-1); },     [&] { c.Left(-1); },         [&] { c.Right(-1); },
      [&] { c.Mid(1, -1); },        [&] { c.SetLeft(-1, "x"); }, [&] { c.SetMid(1, -1, "x"); },
      [&] { c.CopyData("x", -1); },
  };
  for (std::size_t k = 0; k < std::size(calls); ++k) {
    SCOPED_TRACE(k);
    const Error e = testing::CaughtError(calls[k]);
    EXPECT_EQ(e.Number(), errnum::kInvalidProcedureCall);
    EXPECT_EQ(e.Source(), "CString");
    EXPECT_EQ(e.Description(), "Invalid length");
    EXPECT_TRUE(e.CallStack().empty());
  }
  EXPECT_EQ(c.Value(), "abc");
}

TEST(CStringLength, GrowingKeepsTextAndPadsAndTheBufferNeverShrinks) {
  CString c("abc");
  EXPECT_EQ(c.Capacity(), CString::kInitialCapacity);
  c.SetLength(6);
  EXPECT_EQ(c.Value(), "abc   ");
  c.SetLength(2);
  EXPECT_EQ(c.Value(), "ab");
  c.SetLength(300);
  EXPECT_EQ(c.Length(), 300);
  EXPECT_EQ(c.Left(3).Value(), "ab ");
  const long grown = c.Capacity();
  EXPECT_GE(grown, 300);
  c.Clear();
  c.SetValue("x");
  EXPECT_EQ(c.Capacity(), grown);
  EXPECT_EQ(c.Value(), "x");
}

TEST(CStringParts, GetAndOverwrite) {
  const CString c("abcdef");
  EXPECT_EQ(c.Left(2).Value(), "ab");
  EXPECT_EQ(c.Left(10).Value(), "abcdef");
  EXPECT_EQ(c.Right(2).Value(), "ef");
  EXPECT_EQ(c.Right(10).Value(), "abcdef");
  EXPECT_EQ(c.Mid(3).Value(), "cdef");
  EXPECT_EQ(c.Mid(3, 2).Value(), "cd");
  EXPECT_EQ(c.Mid(7, 2).Value(), "");
  EXPECT_THROW(c.Mid(0, 2), Error);

  CString w("abcdef");
  w.SetLeft(2, "XYZ");
  EXPECT_EQ(w.Value(), "XYcdef");
  w.SetRight(3, "12");
  EXPECT_EQ(w.Value(), "XYc12f");
  w.SetMid(5, std::nullopt, "PQRS");
  EXPECT_EQ(w.Value(), "XYc1PQ");
  w.SetMid(1, 1, "--");
  EXPECT_EQ(w.Value(), "-Yc1PQ");
  w.SetLeft(99, "0123456789");
  EXPECT_EQ(w.Value(), "012345");  // Length never changes

  EXPECT_EQ(CString("A").Asc(), 65);
  EXPECT_EQ(CString("é").Asc(), 0xC3);
  EXPECT_THROW(CString().Asc(), Error);
  CString x("abc");
  EXPECT_EQ(x.Char(2), 'b');
  x.SetChar(2, 'B');
  EXPECT_EQ(x.Value(), "aBc");
  EXPECT_THROW(x.Char(4), Error);
  EXPECT_THROW(x.SetChar(0, 'x'), Error);
}

TEST(CStringEdit, AppendReverseAndCopy) {
  CString c("ab");
  c.Append("cd").Append(CString("ef"));
  EXPECT_EQ(c.Value(), "abcdef");
  c.Append(c);  // appending itself
  EXPECT_EQ(c.Value(), "abcdefabcdef");
  const std::string big(1000, 'x');
  c.Append(big);
  EXPECT_EQ(c.Length(), 1012);
  EXPECT_EQ(c.Right(3).Value(), "xxx");

  CString r("añb€c");
  r.ReverseStr();
  EXPECT_EQ(r.Value(), "c€bña");

  CString original("abc");
  CString copy = original.Copy();
  copy.UCase();
  EXPECT_EQ(original.Value(), "abc");
  EXPECT_EQ(copy.Value(), "ABC");
}

TEST(CStringReplace, ReplacesFromTheStartPosition) {
  struct Case {
    const char* text;
    const char* search;
    const char* replacement;
    long start;
    bool case_sensitive;
    const char* want;
  };
  const Case cases[] = {
      {"a-b-c", "-", "+", 1, true, "a+b+c"},
      {"aXaxa", "x", "__", 1, true, "aXa__a"},
      {"aXaxa", "x", "__", 1, false, "a__a__a"},
      {"aaaa", "aa", "b", 1, true, "bb"},
      {"a-b-c", "-", "", 1, true, "abc"},
      {"a-b-c", "", "+", 1, true, "a-b-c"},
      // As the runtime's Replace: the text before the start position is not kept.
      {"a-b-c", "-", "+", 3, true, "b+c"},
      {"a-b-c", "-", "+", 9, true, ""},
      {"<TD>é</td>", "</TD>", "|", 1, false, "<TD>é|"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.text) + " / " + c.search + " from " + std::to_string(c.start));
    CString s(c.text);
    EXPECT_EQ(&s.Replace(c.search, c.replacement, c.start, c.case_sensitive), &s);
    EXPECT_EQ(s.Value(), c.want);
  }
  // Growth past the initial buffer.
  CString long_text(std::string(200, 'a'));
  long_text.Replace("a", "bbb");
  EXPECT_EQ(long_text.Value(), std::string(600, 'b'));
}

TEST(CStringFile, RoundTripsWithAndWithoutLengthPrefix) {
  std::stringstream file;
  CString("hello").WriteToFile(file, true);
  CString("world").WriteToFile(file, true);
  CString a, b;
  a.ReadFromFile(file, true);
  b.ReadFromFile(file, true);
  EXPECT_EQ(a.Value(), "hello");
  EXPECT_EQ(b.Value(), "world");
  CString past_end;
  EXPECT_EQ(testing::FailureNumber([&] { past_end.ReadFromFile(file, true); }),
            errnum::kInputPastEndOfFile);

  // Without a prefix the whole buffer is read; TrimToNull finds the text's end.
  std::stringstream raw;
  CString("abc").WriteToFile(raw);
  CString c;
  c.SetBufferSize(16, true);
  c.ReadFromFile(raw);
  EXPECT_EQ(c.Value(), "abc");
  c.SetLength(16);
  c.CopyData("xy\0z", 4);
  EXPECT_EQ(c.TrimToNull(), 2);
  EXPECT_EQ(c.Value(), "xy");
  CString full;
  full.SetBufferSize(3);
  full.CopyData("abc", 3);
  EXPECT_EQ(full.TrimToNull(), 3);  // no zero byte: the capacity
}

}  // namespace
}  // namespace gw
