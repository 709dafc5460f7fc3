#include "filters/text_filter.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <string_view>

#include "platform/regex.h"
#include "support/test_support.h"

namespace gw::filters {
namespace {

using namespace TextFilter;

TEST(TextFilterRegex, RunRegExMatchJoinsNonEmptyMatches) {
  struct Case {
    const char* text;
    const char* pattern;
    bool all;
    const char* want;
  };
  const Case cases[] = {
      {"abc", "x*", true, ""},  // only empty matches
      {"a1b22c333", "[0-9]+", true, "1  22  333"},
      {"a1b22c333", "[0-9]+", false, "1"},
      {"ABC", "b", true, "B"},  // every pattern ignores case
      {" a  b ", "[ab ]+", true, "a  b"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.pattern);
    EXPECT_EQ(RunRegExMatch(c.text, c.pattern, c.all), c.want);
  }
}

TEST(TextFilterRegex, RunRegExReplaceTrimsSpacesOnly) {
  EXPECT_EQ(RunRegExReplace("  a-b  ", "-", " "), "a b");
  EXPECT_EQ(RunRegExReplace("x1y2", "([0-9])", "<$1>"), "x<1>y<2>");
  EXPECT_EQ(RunRegExReplace("\ta \r\n", "z", ""), "\ta \r\n");
}

TEST(TextFilterRegex, ABadPatternIsANumberedError) {
  const Error e = testing::CaughtError([&] { RunRegExMatch("abc", "(unclosed", true); });
  EXPECT_EQ(e.Number(), errnum::kRegexSyntax);
  ASSERT_FALSE(e.CallStack().empty());
  EXPECT_EQ(e.CallStack().back(), "TextFilter.RunRegExMatch(text,Pattern,matchAll)");
  EXPECT_THROW(RunRegExReplace("abc", "[", ""), Error);
}

TEST(TextFilterExtract, NumbersEmailsAndPhones) {
  // The number pattern takes a dot only with the digit after it.
  EXPECT_EQ(GetNumbers("abc 12.5 x"), "12.5");
  EXPECT_EQ(GetNumbers("Price: $1,299.99 and .5 or 3."), "1  299.99  .5  3");
  EXPECT_EQ(GetNumbers("none"), "");
  // `\w` is ASCII: an accented letter ends the local part.
  EXPECT_EQ(GetEmails("Mail john.doe@example.com or x_y@sub.ex.org. a@b j\xC3\xB6hn@example.com"),
            "john.doe@example.com  x_y@sub.ex.org  hn@example.com");
  EXPECT_EQ(GetUSPhones("Call 555-123-4567 now, or (555) 123-4567 or 555.123.4567 x89 ok"),
            "555-123-4567  555) 123-4567  555.123.4567 x89");
}

TEST(TextFilterHtml, TagRemovers) {
  EXPECT_EQ(RemoveHtmlTags(" <b>a</b> <i>b</i> "), "a b");
  EXPECT_EQ(RemoveAllHtml("<p>a&amp;b&nbsp;</p>"), "a&b ");
  // A quoted ">" does not end a tag.
  EXPECT_EQ(BetterRemoveHtmlTags("<a title=\"x>y\">link</a> <img alt='a>b'/>z"), "link z");
  EXPECT_EQ(RemoveHtmlTags("<a title=\"x>y\">link</a>"), "y\">link");
  EXPECT_EQ(BetterRemoveHtmlTags("<script>var a=\"<b>\";</script>text"), "text");
  // `.` stops at a line break: a script over several lines loses only its tags.
  EXPECT_EQ(BetterRemoveHtmlTags("<script>\nx()\n</script>y"), "\nx()\ny");
}

TEST(TextFilterHtml, RemoveHtmlCommentsAlsoRemovesTags) {
  std::string text = "x<!-- c --><b>y</b>";
  EXPECT_EQ(RemoveHtmlComments(text), "xy");
  EXPECT_EQ(text, "x<b>y</b>");  // comments are gone from the text itself
  text = "<b>x</b>";
  EXPECT_EQ(RemoveHtmlComments(text), "x");
  // A comment over two lines is taken as a tag up to its first ">".
  text = "a<!-- x > y\nz -->b";
  EXPECT_EQ(RemoveHtmlComments(text), "a y\nz -->b");
  // Greedy: everything between the first "<!--" and the last "-->" of a line goes.
  text = "a<!--1-->b<!--2-->c";
  EXPECT_EQ(RemoveHtmlComments(text), "ac");
}

// The filters that rewrite the text they are given and return it: the layout of plain text, the
// tags a list keeps, and the attributes a rewritten tag loses.
TEST(TextFilterHtml, InPlaceFiltersReturnTheTextTheyLeave) {
  const auto to_text = [](std::string& text, std::string_view) { return ConvertHtmlToText(text); };
  const auto except = [](std::string& text, std::string_view keep) {
    return ConvertHtmlToTextExcept(text, keep);
  };
  const auto attributes = [](std::string& text, std::string_view keep) {
    return RemoveHtmlAttributesExcept(text, keep);
  };
  struct Case {
    std::function<std::string(std::string&, std::string_view)> filter;
    const char* html;
    const char* keep;
    const char* want;
  };
  const Case cases[] = {
      {to_text, "<b class=x>A</b>", "", "\r\n\r\nA"},
      {to_text, "<b>A</b>", "", "A"},
      {to_text, "<p>One<br>Two<BR clear=all>Three</p>", "", "\r\n\r\nOne\r\nTwo\r\nThree"},
      {to_text, "<ul><li>x<li class=y>z</ul>", "", "\r\n-x\r\n-z"},
      {to_text, "<table><tr><td>a</td><td>b</td></tr></table>", "", "\r\na b \r\n\r\n"},
      {to_text, "<div>a</div><span>b</span>c", "", "\r\na\r\nb c"},  // CR LF + space tidied
      {to_text, "a&nbsp;&nbsp;b", "", "a b"},
      {to_text, "a&nbsp;&nbsp;&nbsp;&nbsp;b", "", "a  b"},  // one tidy pass only
      {to_text, "<p>x</p>\r\n\r\n\r\n\r\ny", "", "\r\n\r\nx\r\n\r\n\r\ny"},
      // The first regex pass trims the spaces that the literal pass left at the ends.
      {to_text, " <p>x</p> ", "", "\r\n\r\nx"},
      {except, "<b>A</b> <b class=x>B</b><i>C</i>", "b", "<b>A</b> <b class=x>B</b>C"},
      {except, "<b>A</b><i>B</i><u>C</u>", "<b>,</i>", "<b>A</b><i>B</i>C"},
      // An item with a leading space is a key of its own, so "b" is not kept.
      {except, "<b>A</b>,<i>B</i>", "i, b", "A,<i>B</i>"},
      {except, "<p>a</p><x-tag>b</x-tag>", "", "\r\n\r\na<x-tag>b</x-tag>"},
      {except, "<script>x()</script>y", "", "y"},
      {except, "<script>x()</script>y", "script", "<script>x()</script>y"},
      {except, "<td class=\"c\">1</td><td>2</td>", "td", "<td class=\"c\">1</td><td>2</td>"},
      {except, "<td class=\"c\">1</td><td>2</td>", "", "1 2"},
      {except, "<o:p>x</o:p><st1:city>y</st1:city>", "", "xy"},
      // Rewritten tags are upper-cased.
      {attributes, "<td class=\"x\">a</td><p align=center>b</p>", "", "<TD>a</td><P>b</p>"},
      {attributes, "<b>x</b>", "", "<B>x</b>"},
      {attributes, "<td class=x>a</td>", "td", "<td class=x>a</td>"},
      {attributes, "<font face='a:b'>x &amp; y</font>", "", "<FONT>x & y</font>"},
      {attributes, "<x-tag a=1>x", "", "<x-tag a=1>x"},
      // The first two alternatives take any tag with a quoted attribute whose name begins with
      // a table name, and the table's earlier, shorter name wins.
      {attributes, "<unknown a=\"1\">x", "", "<U>x"},
      {attributes, "<span style='a'>x</span>", "", "<S>x</span>"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.html) + " keep " + c.keep);
    std::string text = c.html;
    EXPECT_EQ(c.filter(text, c.keep), c.want);
    EXPECT_EQ(text, c.want);
  }
}

TEST(TextFilterUrl, GetUrlResolvesAndRejects) {
  struct Case {
    const char* fragment;
    const char* base;
    const char* want;
  };
  const Case cases[] = {
      {"href='/a.html'", "http://ex.com/dir/page.html", "http://ex.com/a.html"},
      {"HREF = \"b.html\"", "http://ex.com/dir/page.html", "http://ex.com/dir/b.html"},
      {"src = \"img/x.png\"", "http://ex.com/dir/", "http://ex.com/dir/img/x.png"},
      {"href=\"http://other.org/x?a=1&amp;b=2\">", "", "http://other.org/x?a=1&b=2"},
      {"href=\"mailto:a@b.com\"", "http://ex.com/", ""},
      {"javascript:void(0)", "http://ex.com/", ""},
      {"gopher://g.org/", "", ""},
      {"/relative/without/base", "", ""},
      {"x.html", "not a url", ""},
      {"ftp://files.ex.com/f.zip", "not a url", "ftp://files.ex.com/f.zip"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.fragment);
    std::string text = c.fragment;
    EXPECT_EQ(GetUrl(text, c.base), c.want);
  }
  std::string text = "href='/a.html'";
  GetUrl(text, "");
  EXPECT_EQ(text, "/a.html");  // the prefixes and quotes are stripped from the text itself
}

TEST(TextFilterCsv, CsvToDictionaryUpperCasesAndKeepsFirst) {
  const auto dict = CSVToDictionary("b,I, b,B,");
  EXPECT_EQ(dict.Keys(), (std::vector<std::string>{"B", "I", " B", ""}));
  const auto tags = CSVToDictionary(kTagTable);
  EXPECT_EQ(tags.Count(), 110);
  EXPECT_TRUE(tags.Exists("ST1:STOCKTICKER"));
}

}  // namespace
}  // namespace gw::filters
