// The fast link scan against the six regular expressions it stands for, run through the
// project's regular expressions as the reference: on pages written for the test and on many pages
// put together at random from the pieces that trip such scans up.
#include "acquire/link_scan.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "platform/regex.h"

namespace gw {
namespace {

struct Found {
  bool has_href = false;
  std::string href;
  std::string text;
  bool operator==(const Found&) const = default;
};

std::ostream& operator<<(std::ostream& os, const Found& f) {
  return os << (f.has_href ? "href[" + f.href + "] text[" + f.text + "]" : "(no href)");
}

// The six expressions, used as the crawler first used them.
std::vector<Found> ByExpressions(std::string_view page) {
  const RegexOptions ic{.ignore_case = true};
  static const Regex whole(R"(<[aA][\s]+[^\xFF]+?</[\s]*[aA]>)", ic);
  static const Regex href(R"(href[\s]*=[\s]*["' ]*[^"' >]*["' >])", ic);
  static const Regex head(R"(href[\s]*=[\s]*["' ]*)", ic);
  static const Regex marks(R"(["' >])", ic);
  static const Regex no_end(R"(<[aA][\s]+[^\xFF]+?(?=</[\s]*[aA]>))", ic);
  static const Regex start_tag(R"(<[aA][\s]+[^\x3E]+?>)", ic);
  std::vector<Found> out;
  for (const RegexMatch& anchor : whole.Execute(page, true)) {
    Found f;
    const auto h = href.Execute(anchor.Value(), true);
    if (!h.empty()) {
      f.has_href = true;
      f.href = marks.Replace(head.Replace(h[0].Value(), "", true), "", true);
      const auto t = no_end.Execute(anchor.Value(), true);
      if (!t.empty()) f.text = start_tag.Replace(t[0].Value(), "", true);
    }
    out.push_back(std::move(f));
  }
  return out;
}

std::vector<Found> ByScan(std::string_view page) {
  std::vector<Found> out;
  ScanAnchors(page, [&](const ScannedAnchor& a) {
    out.push_back({a.has_href, a.href, a.text});
    EXPECT_EQ(page.substr(a.offset, 2) == "<a" || page.substr(a.offset, 2) == "<A", true);
  });
  return out;
}

TEST(LinkScan, GivesWhatTheExpressionsGiveOnWrittenPages) {
  struct Case {
    const char* name;
    std::string page;
    std::vector<Found> expected;
  };
  const std::vector<Case> cases = {
      {"double, single and no quotes",
       "<a href=\"one.htm\">One</a> <a href='two.htm'>Two</a> <a href=three.htm>Three</a>",
       {{true, "one.htm", "One"}, {true, "two.htm", "Two"}, {true, "three.htm", "Three"}}},
      {"spaces around the equals sign and a query",
       "<a  class=x href = \"/p?a=1&b=2\" >Text</a>",
       {{true, "/p?a=1&b=2", "Text"}}},
      {"nested tags are kept in the text",
       "<a href=x><b>bold</b> <img src=i.gif></a>",
       {{true, "x", "<b>bold</b> <img src=i.gif>"}}},
      {"spread over lines, upper case",
       "<A\nHREF=\"u\"\n>line\none</A\n>x</\n a>",
       {{true, "u", "line\none</A\n>x"}}},
      {"an anchor without an end tag swallows the next one",
       "<a href=1>one <a href=2>two</a> <a href=3>three</a>",
       {{true, "1", "one two"}, {true, "3", "three"}}},
      {"no address", "<a name=top>Top</a><a href=x>X</a>", {{false, "", ""}, {true, "x", "X"}}},
      {"the address found in the text",
       "<a name=n>see href=elsewhere </a>",
       {{true, "elsewhere", "see href=elsewhere "}}},
      {"comments and scripts are not special",
       "<!-- <a href=hidden>h</a> --><script>s='<a href=\"js\">j</a>'</script>",
       {{true, "hidden", "h"}, {true, "js", "j"}}},
      {"javascript and mail links",
       "<a href=\"javascript:void(0)\">J</a><a href=mailto:a@b.c>M</a>",
       {{true, "javascript:void(0)", "J"}, {true, "mailto:a@b.c", "M"}}},
      {"a y with diaeresis stops an anchor",
       "<a href=x>caf\xC3\xBF</a><a href=y>ok</a>",
       {{true, "y", "ok"}}},
      {"end tag right after the white space",
       "<a  </a>x</a><a </a>y</a>",
       {{false, "", ""}, {false, "", ""}}},
      {"never closed", "<a href=1>one <a href=2>two", {}},
      {"empty address", "<a href=\"\">E</a><a href=>F</a>", {{true, "", "E"}, {true, "", "F"}}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(ByExpressions(c.page), c.expected) << "the expressions themselves";
    EXPECT_EQ(ByScan(c.page), c.expected);
  }
}

// Pages put together from pieces chosen at random: every piece that decides where an anchor, its
// address or its text begins or ends, in every order.
TEST(LinkScan, GivesWhatTheExpressionsGiveOnRandomPages) {
  const std::vector<std::string> pieces = {
      "<a ",       "<A\n",     "<a\t\t",    "<a  ",   "<a",       "<ab ",     "href=",
      "HREF = \"", "href='",   "href\t=\t", "hrefx",  "'",        "\"",       ">",
      "</a>",      "</ A>",    "</a >",     "</\na>", "</b>",     "text",     " ",
      "\n",        "\xC3\xBF", "\xC5\xB8",  "<b>",    "<!-- ",    " -->",     "<script>",
      "</script>", "=",        "<",         "/",      "\xC3\xA9", "\xC2\xA0", "x.htm",
      "?q=1&r=2",  "\v",       "\f",        "\r\n",   "mailto:",  "a",        "<a href=",
  };
  std::mt19937 rng(20240611);
  std::uniform_int_distribution<std::size_t> piece(0, pieces.size() - 1);
  std::uniform_int_distribution<int> length(0, 40);
  int anchors = 0, with_href = 0;
  for (int round = 0; round < 20000; ++round) {
    std::string page;
    for (int n = length(rng); n > 0; --n) page += pieces[piece(rng)];
    const auto expected = ByExpressions(page);
    for (const Found& f : expected) {
      ++anchors;
      with_href += f.has_href ? 1 : 0;
    }
    ASSERT_EQ(ByScan(page), expected) << "page: [" << page << "]";
  }
  // The pieces do make anchors, with and without addresses.
  EXPECT_GT(anchors, 8000);
  EXPECT_GT(with_href, 2000);
}

TEST(LinkScan, ManyUnclosedAnchorsAreFoundOnceEach) {
  std::string page;
  for (int i = 0; i < 2000; ++i) page += "<a href=\"p" + std::to_string(i) + ".htm\">page ";
  page += "</a>";
  for (int i = 0; i < 2000; ++i) page += "<a href=\"q" + std::to_string(i) + ".htm\">more ";
  const auto found = ByScan(page);
  ASSERT_EQ(found.size(), 1u);
  EXPECT_EQ(found[0].href, "p0.htm");
  EXPECT_EQ(found[0].text.substr(0, 10), "page page ");
}

}  // namespace
}  // namespace gw
