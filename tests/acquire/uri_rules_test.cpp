#include "acquire/uri_rules.h"

#include <gtest/gtest.h>

#include <string>

#include "acquire/failures.h"
#include "support/test_support.h"

namespace gw {
namespace {

UriRulePtr Rule(const std::string& part, const std::string& op, const std::string& value) {
  auto r = UriRule::Create();
  r->SetPart(part);
  r->SetOperator(op);
  r->SetValue(value);
  return r;
}

web::Uri Link(const std::string& address, const std::string& text = {}) {
  web::Uri u(address);
  u.SetLinkText(text);
  return u;
}

TEST(UriRule, EveryPartAndOperator) {
  const web::Uri u = Link("http://www.Example.com/Dir/Page.HTML?q=Next&n=2#frag", "Next page");
  struct Case {
    const char* part;
    const char* op;
    const char* value;
    bool match;
  };
  const Case cases[] = {
      {"[URL]", "[CONTAINS]", "example.COM/dir", true},
      {"[URL]", "[DOES NOT CONTAIN]", "example.COM/dir", false},
      {"[SCHEME]", "[EQUALS]", "HTTP", true},
      {"[SCHEME]", "[NOT EQUAL]", "https", true},
      {"[HOST]", "[STARTS WITH]", "WWW.", true},
      {"[HOST]", "[STARTS WITH]", "example", false},
      {"[HOST]", "[DOES NOT START WITH]", "example", true},
      {"[URLPATH]", "[ENDS WITH]", ".html", true},
      {"[URLPATH]", "[DOES NOT END WITH]", ".html", false},
      {"[URLQUERY]", "[EQUALS]", "q=next&N=2", true},
      {"[FILENAME]", "[EQUALS]", "page.html", true},
      {"[FILEEXT]", "[EQUALS]", "html", true},
      {"[TEXT]", "[CONTAINS]", "PAGE", true},
      // Regular expressions keep letter case.
      {"[URLPATH]", "[REGEX MATCH]", "Dir/P[a-z]+\\.", true},
      {"[URLPATH]", "[REGEX MATCH]", "dir/p[a-z]+\\.", false},
      {"[TEXT]", "[IS NEXT PAGE LINK]", "ignored", true},
      // An empty value is in every non-empty text and starts it, but ends none.
      {"[HOST]", "[CONTAINS]", "", true},
      {"[HOST]", "[STARTS WITH]", "", true},
      {"[HOST]", "[ENDS WITH]", "", false},
      {"[HOST]", "[DOES NOT END WITH]", "", true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.part) + " " + c.op + " " + c.value);
    EXPECT_EQ(Rule(c.part, c.op, c.value)->IsMatch(u), c.match);
  }
}

TEST(UriRule, NextPageLinksAreTextsWithNextOrASmallNumber) {
  auto rule = Rule("[TEXT]", "[IS NEXT PAGE LINK]", "");
  for (const char* text : {"Next", "next Next", "3", "Page 12", "1234"}) {
    SCOPED_TRACE(text);
    EXPECT_TRUE(rule->IsMatch(Link("http://a.test/", text)));
  }
  for (const char* text : {"next", "Previous", "", "NEXT"}) {
    SCOPED_TRACE(text);
    EXPECT_FALSE(rule->IsMatch(Link("http://a.test/", text)));
  }
}

TEST(UriRule, UnknownPartsAndOperatorsGiveTheDefault) {
  const web::Uri u = Link("http://a.test/x");
  for (const auto& rule :
       {Rule("[host]", "[EQUALS]", "a.test"), Rule("[HOST]", "[IS]", "a.test"), Rule("", "", "")}) {
    SCOPED_TRACE(rule->Part() + " " + rule->Operator());
    EXPECT_FALSE(rule->IsMatch(u));
    EXPECT_TRUE(rule->IsMatch(u, true));
    EXPECT_FALSE(rule->IsValid());
  }
}

TEST(UriRule, ValidationNamesThePartOrTheOperator) {
  const Error e = testing::CaughtError([&] { Rule("[PORT]", "[EQUALS]", "80")->Validate(); });
  EXPECT_EQ(e.Number(), acquireerr::kInvalidUriPart);
  EXPECT_EQ(e.Source(), "UriRule.Validate()");
  EXPECT_EQ(e.Description(),
            "Invalid Uri part specified in uri rule.  Valid values are [URLPATH], [URL], "
            "[URLQUERY], [FILENAME], [HOST], [FILEEXT], and [SCHEME]");
  const Error e2 = testing::CaughtError([&] { Rule("[HOST]", "[LIKE]", "x")->Validate(); });
  EXPECT_EQ(e2.Number(), acquireerr::kInvalidUriOperator);
  EXPECT_EQ(e2.Description(),
            "Invalid Operator specified in uri rule.  Valid values are [EQUALS], [NOT EQUAL], "
            "[CONTAINS], [DOES NOT CONTAIN], [STARTS WITH], [DOES NOT START WITH], "
            "[ENDS WITH], and [DOES NOT END WITH]");
  // Valid though the texts above do not list them.
  EXPECT_NO_THROW(Rule("[TEXT]", "[REGEX MATCH]", "x")->Validate());
  EXPECT_TRUE(Rule("[URL]", "[IS NEXT PAGE LINK]", "")->IsValid());
}

TEST(UriRuleset, TheLastRuleEvaluatedDecides) {
  const web::Uri u = Link("http://a.test/list.htm", "Next");
  struct Case {
    const char* name;
    bool is_and;
    std::vector<UriRulePtr> rules;
    bool match;
  };
  const std::vector<Case> cases = {
      {"empty, or", false, {}, false},
      {"empty, and", true, {}, false},
      {"only invalid rules", false, {Rule("[BAD]", "[EQUALS]", "")}, false},
      {"an invalid rule is skipped",
       true,
       {Rule("[HOST]", "[BAD]", ""), Rule("[HOST]", "[EQUALS]", "a.test")},
       true},
      {"or: the first match ends it",
       false,
       {Rule("[HOST]", "[EQUALS]", "b.test"), Rule("[TEXT]", "[EQUALS]", "next"),
        Rule("[HOST]", "[EQUALS]", "c.test")},
       true},
      {"or: none matches",
       false,
       {Rule("[HOST]", "[EQUALS]", "b.test"), Rule("[HOST]", "[EQUALS]", "c.test")},
       false},
      {"and: all match",
       true,
       {Rule("[HOST]", "[EQUALS]", "a.test"), Rule("[FILEEXT]", "[EQUALS]", "htm")},
       true},
      {"and: the first mismatch ends it",
       true,
       {Rule("[HOST]", "[EQUALS]", "b.test"), Rule("[FILEEXT]", "[EQUALS]", "htm")},
       false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    auto set = UriRuleset::Create();
    set->SetIsAnd(c.is_and);
    for (const auto& r : c.rules) {
      auto added = set->Add();
      added->SetPart(r->Part());
      added->SetOperator(r->Operator());
      added->SetValue(r->Value());
    }
    EXPECT_EQ(set->IsMatch(u), c.match);
  }
}

TEST(UriRuleset, TextFormRoundTripsAndClonesAreIndependent) {
  auto set = UriRuleset::Create();
  set->SetIsAnd(true);
  auto r1 = set->Add();
  r1->SetPart("[HOST]");
  r1->SetOperator("[EQUALS]");
  r1->SetValue("a.test & b<c>");
  auto r2 = set->Add();
  r2->SetPart("[TEXT]");
  r2->SetOperator("[IS NEXT PAGE LINK]");

  const std::string text = set->Serialize();
  EXPECT_EQ(text,
            "<UriRuleset Object=\"True\">\n"
            "\t<IsAnd>True</IsAnd>\n"
            "\t<UriRule Object=\"True\" Index=\"1\">\n"
            "\t\t<Part>[HOST]</Part>\n"
            "\t\t<Operator>[EQUALS]</Operator>\n"
            "\t\t<Value>a.test %26 b%3Cc%3E</Value>\n"
            "\t</UriRule>\n"
            "\t<UriRule Object=\"True\" Index=\"2\">\n"
            "\t\t<Part>[TEXT]</Part>\n"
            "\t\t<Operator>[IS NEXT PAGE LINK]</Operator>\n"
            "\t\t<Value></Value>\n"
            "\t</UriRule>\n"
            "</UriRuleset>\n");

  auto back = UriRuleset::Create();
  back->Deserialize(text);
  ASSERT_EQ(back->Count(), 2);
  EXPECT_TRUE(back->IsAnd());
  EXPECT_EQ(back->Item(1)->Value(), "a.test & b<c>");
  EXPECT_EQ(back->Item(2)->Operator(), "[IS NEXT PAGE LINK]");
  EXPECT_EQ(back->Serialize(), text);

  back->Deserialize("");  // nothing happens
  EXPECT_EQ(back->Count(), 2);

  auto copy = set->Clone();
  copy->Item(1)->SetValue("changed");
  copy->Remove(2);
  EXPECT_EQ(set->Item(1)->Value(), "a.test & b<c>");
  EXPECT_EQ(set->Count(), 2);
  EXPECT_TRUE(copy->IsAnd());
}

}  // namespace
}  // namespace gw
