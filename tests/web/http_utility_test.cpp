#include "web/http_utility.h"

#include <gtest/gtest.h>

#include <string>

#include "support/test_support.h"
#include "web/http_header.h"
#include "web/uri.h"

namespace gw::web {
namespace {

using namespace HttpUtility;

TEST(HttpUtilityEncoding, HtmlDecodeRunsItsFiveReplacementsInOrder) {
  struct Case {
    const char* in;
    const char* want;
  };
  const Case cases[] = {
      {"a&nbsp;b", "a b"},      {"&AMP;&Lt;&gT;&QUOT;", "&<>\""},
      {"&amp;gt;", ">"},         // sequential: the decoded "&" starts a new reference
      {"&amp;nbsp;", "&nbsp;"},  // "&nbsp;" was replaced before "&amp;" made it
      {"&#38;", "&#38;"},        // numeric references stay
      {"&amp", "&amp"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.in);
    EXPECT_EQ(HTMLDecode(c.in), c.want);
  }
}

TEST(HttpUtilityEncoding, EncodersEscapeTheirOwnSets) {
  EXPECT_EQ(UrlEncode("a b%c"), "a%20b%c");
  EXPECT_EQ(UrlEncode("  x-y_z.  "), "x%2Dy%5Fz%2E");
  EXPECT_EQ(UrlEncode("\t"), "%09");
  EXPECT_EQ(UrlEncode("caf\xC3\xA9"), "caf%C3%A9");
  EXPECT_EQ(UrlEncodeForHtml(" a\"'&<%b> c "), "a%22%27%26%3C%25b> c");
  EXPECT_EQ(HtmlEncode("<a href=\"x\">&\xC3\xA9\n"),
            "&lt;a href=&quot;x&quot;&gt;&amp;&#233;&#10;");
  EXPECT_EQ(HtmlEncode("\x7F~"), "\x7F~");
}

TEST(HttpUtilityEncoding, UrlDecodeTurnsEscapesBackIntoBytes) {
  EXPECT_EQ(UrlDecode(""), "");
  EXPECT_EQ(UrlDecode("a+b%41%2b"), "a bA+");
  EXPECT_EQ(UrlDecode(UrlEncode("caf\xC3\xA9 au lait")), "caf\xC3\xA9 au lait");
  EXPECT_EQ(UrlDecode("%4"), "\x04");  // one digit at the very end
  for (const char* bad : {"%zz", "%", "%4g", "a%-1"}) {
    SCOPED_TRACE(bad);
    EXPECT_EQ(gw::testing::FailureNumber([&] { UrlDecode(bad); }), gw::errnum::kTypeMismatch);
  }
}

TEST(HttpUtilityWhiteSpace, SevenCharactersAndTheSkips) {
  for (char c : {'\r', ' ', '\n', '\t', '\f', '\v', '\0'}) EXPECT_TRUE(IsWhiteSpace(c)) << int(c);
  EXPECT_FALSE(IsWhiteSpace('a'));
  EXPECT_FALSE(IsWhiteSpace('\xA0'));
  EXPECT_EQ(SkipSpace(" \t a", 1), 4);
  EXPECT_EQ(SkipSpace("   ", 2), 4);
  EXPECT_EQ(SkipSpace("ab", 7), 7);
  EXPECT_EQ(SkipChar(";;a", 1, ';'), 3);
  EXPECT_EQ(SkipChar(";;", 1, ';'), 3);
  EXPECT_EQ(SkipChar("a;", 1, ';'), 1);
}

std::string DescribeElements(const HttpHeaderElements& elements) {
  std::string out;
  for (const auto& e : elements) out += "[" + e->Name() + "|" + e->Value() + "]";
  return out;
}

TEST(HttpUtilityHeaders, ParseHttpHeaderSplitsElements) {
  struct Case {
    const char* header;
    const char* want;
  };
  const Case cases[] = {
      {"text/html; charset=utf-8", "[text/html|][ charset|utf-8]"},
      {"text/html ;charset=x", "[text/html|][charset|x]"},
      {"a=1,b=2", "[a|1][b|2]"},
      {",a", "[a|]"},
      {"gzip, deflate", "[gzip,|][deflate|]"},  // a comma does not end a name
      {"a=\"x y\"", "[a|\"x][ y\"|]"},          // quotes stay
      // The ";" skip starts where the value ended, so the space before it becomes a name.
      {"a= 1 ;b", "[a|1][ |][b|]"},
      {"a=;b=", "[a|][b|]"},
      {"  ", "[ |]"},
      {"", ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.header);
    EXPECT_EQ(DescribeElements(ParseHttpHeader(c.header, true)), c.want);
  }
}

TEST(HttpUtilityHeaders, AnElementWithoutANameFails) {
  struct Case {
    const char* header;
    int position;
  };
  const Case cases[] = {{"=x", 1}, {"a;;=b", 4}, {"a;'b", 3}, {";", 1}, {",;", 2}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.header);
    const Error e = gw::testing::CaughtError([&] { ParseHttpHeader(c.header); });
    EXPECT_EQ(e.Number(), errnum::kBadHeaderFormat);
    EXPECT_EQ(e.Source(), "HttpUtility.ParseHttpHeader");
    EXPECT_EQ(e.Description(), std::string("Bad header format: ") + c.header +
                                   ".  Empty element at position " + std::to_string(c.position));
  }
}

TEST(HttpUtilityHeaders, ParseHeaderValueMovesThePosition) {
  long pos = 3;
  EXPECT_EQ(ParseHeaderValue("a=  v1;x", pos), "v1");
  EXPECT_EQ(pos, 7);
  pos = 9;
  EXPECT_EQ(ParseHeaderValue("a=  v1;x", pos), "");
}

TEST(HttpHeader, ElementsAreParsedOnceAndFoundByTrimmedUpperCaseName) {
  HttpHeader header("Content-Type", "text/html; charset=utf-8");
  const auto charset = header.GetElementByName(" CHARSET ");
  ASSERT_NE(charset, nullptr);
  EXPECT_EQ(charset->Value(), "utf-8");
  EXPECT_EQ(header.GetElementByName("boundary"), nullptr);
  // The elements describe the value they were first parsed from.
  header.SetValue("image/png");
  EXPECT_EQ(header.Elements().Count(), 2);
  EXPECT_EQ(header.Elements().Item(1)->Name(), "text/html");

  HttpHeader bad("X", "=oops");
  EXPECT_THROW(bad.Elements(), Error);
}

TEST(HttpHeader, ElementParametersIgnoreCase) {
  HttpHeaderElement element;
  element.AddParameter("Q", "0.5");
  EXPECT_EQ(element.GetParameter("q"), "0.5");
  EXPECT_EQ(element.GetParameter("level"), "");
  element.AddParameter("q", "1");
  EXPECT_EQ(element.GetParameter("Q"), "1");
}

TEST(HttpUtilityClassify, ByParsedSchemeOrByHowAPersonWritesIt) {
  struct Case {
    const char* text;
    ResourceType want;
  };
  const Case cases[] = {
      {"http://a/", ResourceType::http},
      {"HTTPS://a", ResourceType::http},
      {"shttp://a", ResourceType::http},
      {"file:///c:/x", ResourceType::FileSystem},
      {"ftp://x/y", ResourceType::FTP},
      {"sftp://x", ResourceType::FTP},
      {"mailto:a@b.com", ResourceType::email},
      {"gopher://x", ResourceType::Invalid},
      {"javascript:void(0)", ResourceType::Invalid},
      {"c:\\dir\\f.txt", ResourceType::FileSystem},  // one-letter scheme: a drive
      {"\\\\server\\share", ResourceType::FileSystem},
      {"www.example.biz", ResourceType::http},
      {"ftp.example.biz", ResourceType::FTP},
      {"Secure.example.biz", ResourceType::http},
      {"john@example.biz", ResourceType::email},
      {"john@example", ResourceType::Unknown},
      {"@x.org", ResourceType::http},
      {"example.COM/x", ResourceType::http},
      {"hello", ResourceType::Unknown},
      {"", ResourceType::Unknown},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(ClassifyResourceUri(c.text), c.want);
  }
  const Uri base("https://a/b/");
  EXPECT_EQ(ClassifyResourceUri("x.html", &base), ResourceType::http);
  const Uri mail("mailto:a@b");
  EXPECT_EQ(ClassifyResourceUri("x.com", &mail), ResourceType::http);  // cannot resolve
}

// The short way for a parsed link gives what writing it out and classifying that text gives.
TEST(HttpUtility, ClassifyParsedUriAgreesWithTheExternalForm) {
  const char* const pages[] = {"http://shop.test/books/list.htm", "FTP://files.test/pub/",
                               "file:///C:/pages/index.htm", "https://[::1]:8443/a?b#c"};
  const char* const hrefs[] = {
      "/product.php?id=1&amp;ref=list",
      "../up.htm",
      "//other.test/x",
      "HTTPS://Secure.Test/",
      "mailto:a@b.com?subject=Hi",
      "MAILTO:x@y.org",
      "mailto://x@y.org",
      "javascript:window.print()",
      "news:comp.lang",
      "sftp://host/file",
      "file:///etc/hosts",
      "c:\\temp\\x.htm",
      "C:/temp/x.htm",
      "url:http://x.test/",
      "uri:mailto:a@b.com",
      "url:url:mailto:a@b.com",
      "URL:uri:ftp://h/",
      "  http://spaced.test/  ",
      "ht tp://odd.test/",
      "\xC3\xA9t\xC3\xA9:x",
      "x:y",
      "http://user@host.test:80/",
      "http://[::2]/v6",
      "?only=query",
      "#frag",
      "",
      "www.example.com",
      "john@example.com",
      "%41:b",
  };
  int checked = 0;
  for (const char* page : pages) {
    const Uri base(page);
    for (const char* href : hrefs) {
      SCOPED_TRACE(std::string(page) + " + " + href);
      Uri u;
      try {
        u.Parse(href, &base);
      } catch (const Error&) {
        continue;  // not a link of that page
      }
      EXPECT_EQ(HttpUtility::ClassifyParsedUri(u), ClassifyResourceUri(u.ToExternalForm()));
      ++checked;
    }
  }
  EXPECT_GT(checked, 60);
}

}  // namespace
}  // namespace gw::web
