#include "web/cookie.h"

#include <gtest/gtest.h>

#include <string>

namespace gw::web {
namespace {

// Every cookie of a container in order: name=value and the attributes that are set.
std::string Describe(const CookieContainer& jar) {
  std::string out;
  for (const auto& [name, c] : jar.RawDictionary()) {
    out += "[" + name + "=" + c->Value();
    if (!c->path().empty()) out += " path=" + c->path();
    if (!c->Domain().empty()) out += " domain=" + c->Domain();
    if (!c->Expires().empty()) out += " expires=" + c->Expires();
    if (c->Secure()) out += " secure";
    out += "]";
  }
  return out;
}

TEST(CookieContainerParse, SetCookieValues) {
  struct Case {
    const char* set_cookie;
    const char* want;
  };
  const Case cases[] = {
      // Two headers joined by ", ".
      {"a=1; path=/, b=2; secure", "[a=1 path=/][b=2 secure]"},
      {"a=1; Max-Age=0", "[a=1]"},
      {"a=b=c", "[a=b=c]"},
      {"justtext", ""},
      {"a=1, junk", "[a=1]"},
      // A comma ends a value only when a "name=" follows before the next ";".
      {"a=1,2; b", "[a=1,2]"},
      {"a=1, b=2; c", "[a=1][b=2]"},
      {"a=1, b=2", "[a=1][b=2]"},
      {"a=1,2", "[a=1]"},
      // Names are trimmed, values kept exactly.
      {"  n  = x y ;path=/p ", "[n=x y  path=/p]"},
      {"A=1, a=2", "[A=1][a=2]"},
      {"x=1, x=2", "[x=2]"},
      // The day name of an expiry date is dropped; a comma inside a date without one cuts it.
      {"a=1; Expires=Wed, 09 Jun 2021 10:18:14 GMT; path=/",
       "[a=1 path=/ expires=09 Jun 2021 10:18:14 GMT]"},
      {"a=1; expires=\"Wed, 09 Jun 2021\"", "[a=1 expires=09 Jun 2021\"]"},
      {"a=1; expires=Jun 09, 2021 GMT", "[a=1 expires=09]"},
      // An expired cookie is kept like any other.
      {"gone=; expires=Thu, 01 Jan 1970 00:00:00 GMT", "[gone= expires=01 Jan 1970 00:00:00 GMT]"},
      {"a=1; Secure; Path=/x; Domain=.ex.com", "[a=1 path=/x domain=.ex.com secure]"},
      {"a=1;secure,b=2", "[a=1 secure][b=2]"},
      // An attribute without "=" ends the attributes; the cookie is kept.
      {"a=1; HttpOnly; path=/", "[a=1]"},
      {"a=1; Domain=.ex.com; HttpOnly", "[a=1 domain=.ex.com]"},
      // "SECURE" followed by something else ends the attributes; what follows is a new cookie.
      {"a=1; secure path=/", "[a=1 secure][path=/]"},
      {"", ""},
      {" , ,", ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.set_cookie);
    CookieContainer jar;
    jar.ParseCookies(c.set_cookie);
    EXPECT_EQ(Describe(jar), c.want);
  }
}

TEST(CookieContainer, RequestHeaderRoundTrip) {
  CookieContainer jar;
  EXPECT_EQ(jar.GetRequestHeader(), "");
  jar.LoadFromRequestHeader("a=1; b=2;c=3");
  EXPECT_EQ(jar.Count(), 3);
  EXPECT_EQ(jar.GetRequestHeader(), "a=1; b=2; c=3; ");
  // An empty text form leaves the jar alone (the round trip: the session's text form).
  jar.Deserialize("");
  EXPECT_EQ(jar.Count(), 3);
}

TEST(CookieContainer, MergeFromLetsThePriorityCookiesWin) {
  CookieContainer jar, priority;
  jar.LoadFromRequestHeader("x=1; y=3");
  priority.LoadFromRequestHeader("x=2");
  jar.MergeFrom(priority);
  EXPECT_EQ(jar.GetRequestHeader(), "x=2; y=3; ");
  // The merged cookies are copies: changing the priority jar's cookie leaves this one alone.
  priority.GetCookie("x")->SetValue("9");
  EXPECT_EQ(jar.GetCookie("x")->Value(), "2");
}

TEST(CookieContainer, AddReplacesInPlaceAndGetIsCaseSensitive) {
  CookieContainer jar;
  jar.ParseCookies("a=1, b=2, c=3");
  auto cookie = std::make_shared<Cookie>();
  cookie->SetName("b");
  cookie->SetValue("new");
  jar.AddCookie("b", cookie);
  EXPECT_EQ(jar.GetRequestHeader(), "a=1; b=new; c=3; ");
  EXPECT_EQ(jar.GetCookie("B"), nullptr);
  jar.Clear();
  EXPECT_EQ(jar.Count(), 0);
}

TEST(CookieContainer, ReadsOnlyTheSetCookieHeader) {
  HttpHeaders headers = MakeHttpHeaders();
  headers.Add("set-cookie", std::make_shared<HttpHeader>("set-cookie", "s=1; path=/, t=2"));
  headers.Add("Set-Cookie2", std::make_shared<HttpHeader>("Set-Cookie2", "u=3"));
  CookieContainer jar;
  jar.LoadFromResponseHeaders(headers);
  EXPECT_EQ(Describe(jar), "[s=1 path=/][t=2]");

  CookieContainer empty;
  empty.LoadFromResponseHeaders(MakeHttpHeaders());
  EXPECT_EQ(empty.Count(), 0);
}

TEST(CookieContainer, CloneIsIndependent) {
  CookieContainer jar;
  jar.ParseCookies("a=1; path=/p; secure");
  const auto copy = jar.Clone();
  jar.GetCookie("a")->SetValue("2");
  jar.ParseCookies("b=3");
  EXPECT_EQ(Describe(*copy), "[a=1 path=/p secure]");
}

TEST(Cookie, SetAttributeKeepsTheCookieWhateverTheName) {
  Cookie c;
  EXPECT_TRUE(c.SetAttribute("path", "/x"));
  EXPECT_TRUE(c.SetAttribute("DoMaIn", "d"));
  EXPECT_TRUE(c.SetAttribute("max-age", "0"));
  EXPECT_TRUE(c.SetAttribute("whatever", "1"));
  EXPECT_TRUE(c.SetAttribute("Secure", ""));
  EXPECT_EQ(c.path(), "/x");
  EXPECT_EQ(c.Domain(), "d");
  EXPECT_TRUE(c.Secure());
  const auto copy = c.Clone();
  EXPECT_EQ(copy->Domain(), "d");
  EXPECT_TRUE(copy->Secure());
}

}  // namespace
}  // namespace gw::web
