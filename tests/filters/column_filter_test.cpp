#include "filters/column_filter.h"

#include <gtest/gtest.h>

#include "platform/regex.h"
#include "support/test_support.h"

namespace gw::filters {
namespace {

TEST(ApplyColumnFilter, SelectsTheFilterByUpperCasedName) {
  struct Case {
    const char* type;
    const char* parameter;
    const char* raw;
    const char* want;
  };
  const char* const html = "<b class=x>A&amp;B</b> <i>c@d.org</i> <!-- n -->555-123-4567";
  const Case cases[] = {
      {"RAW", "", html, html},
      {"", "", html, html},
      {"NoSuchFilter", "", html, html},
      {"textonly", "", html, "A&B c@d.org 555-123-4567"},
      {"TEXTONLY", "", "<td> x </td>", "x"},
      {"BETTERTEXTONLY", "", "<a title=\"1>2\">x</a>", "x"},
      {"NOLITERALS", "", "a&lt;b&gt;", "a<b>"},
      {"FORMATTEDTEXT", "", "<p>a<br>b", "\r\n\r\na\r\nb"},
      {"TEXTTOHTMLEXCEPT", "b", "<b class=x>A</b><i>B</i>", "<b class=x>A</b>B"},
      {"REMOVEHTMLATTRIBSEXCEPT", "b", "<b class=x>A</b><i>B</i>", "<B>A</b>B"},
      {"EMAIL", "", html, "c@d.org"},
      {"USPHONE", "", html, "555-123-4567"},
      {"NUMBER", "", "abc 12.5 x", "12.5"},
      {"RXMATCH", "[a-c]@", html, "c@"},
      {"RXMATCH", "(\\d+)-", html, "555-  123-"},
      {"NOHTMLCOMMENTS", "", "x<!-- c --><b>y</b>", "xy"},
      {"URL", "http://ex.com/a/", "href='b.html'", "http://ex.com/a/b.html"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.type) + " / " + c.raw);
    EXPECT_EQ(ApplyColumnFilter(c.type, c.parameter, c.raw, ""), c.want);
  }
}

TEST(ApplyColumnFilter, UrlBaseIsTheParameterElseTheDocument) {
  EXPECT_EQ(ApplyColumnFilter("URL", "http://param.com/", "x.html", "http://doc.com/d/"),
            "http://param.com/x.html");
  EXPECT_EQ(ApplyColumnFilter("URL", "", "x.html", "http://doc.com/d/"), "http://doc.com/d/x.html");
  // No parameter and no document: an empty base, and a relative link gives nothing.
  EXPECT_EQ(ApplyColumnFilter("URL", "", "x.html", ""), "");
  EXPECT_EQ(ApplyColumnFilter("url", "", "https://a.org/", ""), "https://a.org/");
}

TEST(ApplyColumnFilter, BadRxMatchPatternFailsWithItsNumber) {
  EXPECT_EQ(testing::FailureNumber([&] { ApplyColumnFilter("RXMATCH", "([", "text", ""); }),
            errnum::kRegexSyntax);
}

}  // namespace
}  // namespace gw::filters
