// Form variables: encoding, the query-string and Form Submit Statement loaders, the alias table.
#include <gtest/gtest.h>

#include <set>

#include "support/test_support.h"
#include "web/failures.h"
#include "web/web_form.h"

namespace gw::web {
namespace {

std::string Vars(const WebForm& f) { return f.GetFormVariables(); }

TEST(WebFormTest, VariablesIgnoreCaseInNamesAndEncodeSpacesAsPlus) {
  WebForm f;
  EXPECT_EQ(f.Method(), "POST");
  EXPECT_EQ(Vars(f), "");
  f.AddFormVariable("A", "1");
  f.AddFormVariable("a", "2");
  f.AddFormVariable("a b", "c d");
  EXPECT_EQ(f.FormVarCount(), 2);
  EXPECT_EQ(Vars(f), "A=2&a+b=c+d");
  f.ClearFormVariables();
  EXPECT_EQ(f.FormVarCount(), 0);
}

TEST(WebFormTest, QueryStringIsDecodedBeforeItIsSplit) {
  struct Case {
    const char* text;
    bool append;
    const char* expected;
  };
  for (const Case& c : {
           Case{"?x=1&y", false, "x=1&y="},
           Case{"  ?x=1  ", false, "x=1"},
           Case{"a=1%26b%3D2", false, "a=1&b=2"},  // an encoded "&" separates too
           Case{"a=1=2", false, "a=1"},            // a third piece is lost
           Case{"z=9", true, "keep=1&z=9"},
           Case{"", false, "keep=1"},  // nothing to split: the form is left alone
           Case{"?", false, "keep=1"},
       }) {
    SCOPED_TRACE(c.text);
    WebForm f;
    f.AddFormVariable("keep", "1");
    f.LoadFormVariablesFromQueryString(c.text, c.append);
    EXPECT_EQ(Vars(f), c.expected);
  }
}

TEST(WebFormTest, FormSubmitStatementInAnyAliasSpelling) {
  struct Case {
    const char* statement;
    bool append;
    const char* expected_vars;
    const char* expected_rest;
  };
  for (const Case& c : {
           Case{"<FormVars ><var name ='q' val='x'></var></FormVars >", false, "q=x", ""},
           Case{"before<form_variables><control id='a' value='1'/><Ctrl name='b' value ='2'>"
                "</Ctrl></form_variables>after",
                false, "a=1&b=2", "beforeafter"},
           Case{"x <Form_Controls><variable id=\"k\" val=\"a&amp;b\"></variable></Form_Controls> y",
                false, "k=a%26b", "x  y"},
           // Appending keeps the variables that were there.
           Case{"<forms><ctrl id='n' value='v'/></forms>", true, "old=0&n=v", ""},
           // A statement without a block changes nothing.
           Case{"no block <FormVars> here", false, "old=0", "no block <FormVars> here"},
       }) {
    SCOPED_TRACE(c.statement);
    WebForm f;
    f.AddFormVariable("old", "0");
    EXPECT_EQ(f.LoadFormVariablesFromXML(c.statement, c.append), c.expected_rest);
    EXPECT_EQ(Vars(f), c.expected_vars);
  }
}

TEST(WebFormTest, AnUnclosedQuoteFailsWithTheParsersPosition) {
  WebForm f;
  const Error e = testing::CaughtError(
      [&] { f.LoadFormVariablesFromXML("<FormVars><var name='q val='x'></var></FormVars>"); });
  EXPECT_EQ(e.Number(), errnum::kBadFormSubmitStatement);
  EXPECT_EQ(e.Source(), "Form Submit Statement");
  const std::string& d = e.Description();
  EXPECT_EQ(d.rfind("The Form Submit Statement is formatted incorrectly.  This is usually due to "
                    "a missing single quote (') before or after a control id or value.  The "
                    "position of the error is ",
                    0),
            0u)
      << d;
  EXPECT_NE(d.find(" and should be near the end of the following text:  <form_variables><control"),
            std::string::npos)
      << d;
  EXPECT_NE(d.find("\r\n\r\nThe specific error returned by the parser was: "), std::string::npos);
}

TEST(WebFormTest, AliasTableHasTheFortyFourBlockSpellingsFirst) {
  const auto& table = WebForm::AliasTable();
  ASSERT_EQ(table.size(), 44u + 16u);
  std::set<std::string> spellings;
  for (std::size_t k = 0; k < 44; ++k) {
    EXPECT_EQ(table[k].second, "form_variables>");
    spellings.insert(table[k].first);
  }
  EXPECT_EQ(spellings.size(), 44u);
  EXPECT_EQ(table[0].first, "form_variables>");
  EXPECT_EQ(table[11].first, " form_variables>");
  EXPECT_EQ(table[22].first, " form_variables >");
  EXPECT_EQ(table[33].first, "form_variables >");
  EXPECT_EQ(table[44], (std::pair<std::string, std::string>{"<control", "<control"}));
  EXPECT_EQ(table[59], (std::pair<std::string, std::string>{" value =", " value="}));
  // Only the block tag is normalised when asked for it alone.
  EXPECT_EQ(WebForm::ReplaceAliases("<FORMVARS ><VAR NAME='a'>", true),
            "<form_variables><VAR NAME='a'>");
  EXPECT_EQ(WebForm::ReplaceAliases("<FORMVARS ><VAR NAME='a'>", false),
            "<form_variables><control id='a'>");
}

}  // namespace
}  // namespace gw::web
