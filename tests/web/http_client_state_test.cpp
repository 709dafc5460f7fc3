// What the exchange and the session do without a network: header parsing, the request's header
// properties, inheriting and cloning sessions, their text form, and where settings come from.
#include <gtest/gtest.h>

#include "platform/registry_store.h"
#include "support/test_support.h"
#include "web/failures.h"
#include "web/http_client.h"
#include "web/http_web_request.h"
#include "web/web_settings.h"

namespace gw::web {
namespace {

TEST(HttpWebResponseTest, ParseHeadersSplitsLinesJoinsRepeatsAndKeepsTheStatusLine) {
  HttpWebResponse r;
  r.ParseHeaders(
      "HTTP/1.1 200 OK\r\nContent-Type: text/html\r\nSet-Cookie: a=1\r\nset-cookie: b=2\r\n"
      "NoSeparator\r\nOdd value here\r\n  X-Pad :  v  \r\n\r\n");
  EXPECT_EQ(r.HeadersToString(),
            "HTTP/1.1 : 200 OK\r\nContent-Type : text/html\r\nSet-Cookie : a=1, b=2\r\n"
            "Odd : value here\r\nX-Pad : v\r\n");
  EXPECT_EQ(HttpWebResponse().HeadersToString(), "");
}

TEST(HttpWebResponseTest, StatusTypeByHundreds) {
  for (const auto& [code, type] :
       std::vector<std::pair<long, HttpStatusType>>{{99, HttpStatusType::None},
                                                    {100, HttpStatusType::Informational},
                                                    {204, HttpStatusType::Successful},
                                                    {399, HttpStatusType::Redirect},
                                                    {404, HttpStatusType::ClientError},
                                                    {599, HttpStatusType::ServerError},
                                                    {600, HttpStatusType::None}}) {
    SCOPED_TRACE(code);
    EXPECT_EQ(StatusTypeOf(code), type);
  }
}

TEST(HttpWebRequestTest, HeaderPropertiesIgnoreEmptyValues) {
  HttpWebRequest r;
  EXPECT_EQ(r.Method(), "GET");
  EXPECT_EQ(r.ContentLength(), 0);
  r.SetRefererUrl("http://a/");
  r.SetRefererUrl("");  // keeps the earlier value
  EXPECT_EQ(r.RefererUrl(), "http://a/");
  r.SetContentLength(12);
  r.SetContentLength(0);
  EXPECT_EQ(r.ContentLength(), 12);
  r.SetUserAgent("UA");
  EXPECT_EQ(*r.Headers().Find("user-agent"), "UA");
  r.SetMethod("post");
  EXPECT_TRUE(r.IsPost());
}

TEST(HttpClientTest, InheritFromGivesTheAncestorsCookiesPriorityAndFillsWhatIsMissing) {
  auto ancestor = HttpClient::Create();
  ancestor->Cookies()->ParseCookies("s=ancestor, only=a");
  ancestor->SetUserAgent("AncestorUA");
  ancestor->SetUserName("u");
  ancestor->SetPassword("p");
  ancestor->SetStaticRefererUrl("http://ref/");
  ancestor->SetStaticRelativeUrlString("http://base/dir/");
  ancestor->UpdateCurrentUrl("http://site/page", false, "");

  auto child = HttpClient::Create();
  child->Cookies()->ParseCookies("s=child, mine=c");
  child->SetUserAgent("ChildUA");
  child->InheritFrom(*ancestor);
  EXPECT_EQ(child->Cookies()->GetRequestHeader(), "s=ancestor; only=a; mine=c; ");
  EXPECT_EQ(child->UserAgent(), "ChildUA");
  EXPECT_EQ(child->UserName(), "u");
  EXPECT_EQ(child->Password(), "p");
  EXPECT_EQ(child->StaticRefererUrl(), "http://ref/");
  EXPECT_EQ(child->CurrentUrl(), ancestor->CurrentUrl());  // shared, not copied
  EXPECT_EQ(child->StaticRelativeUrl(), ancestor->StaticRelativeUrl());
}

TEST(HttpClientTest, CloneCopiesTheJarAndSharesTheAddresses) {
  auto client = HttpClient::Create();
  client->Cookies()->ParseCookies("a=1");
  client->SetAreCookiesDisabled(true);
  client->SetUserName("u");
  client->UpdateCurrentUrl("http://site/", false, "");
  const auto copy = client->Clone();
  EXPECT_EQ(copy->CurrentUrl(), client->CurrentUrl());
  EXPECT_NE(copy->Cookies(), client->Cookies());
  EXPECT_EQ(copy->Cookies()->GetRequestHeader(), "a=1; ");
  EXPECT_TRUE(copy->AreCookiesDisabled());
  EXPECT_EQ(copy->UserName(), "u");
  copy->Cookies()->ParseCookies("b=2");
  EXPECT_EQ(client->Cookies()->Count(), 1);
}

TEST(HttpClientTest, TextFormKeepsSettingsAndCookiesButNoAddress) {
  auto client = HttpClient::Create();
  client->SetUserAgent("UA & co");
  client->SetUserName("u");
  client->SetPassword("p");
  client->SetStaticRefererUrl("http://ref/");
  client->SetStaticRelativeUrlString("http://base/dir/");
  client->SetAreCookiesDisabled(true);
  client->Cookies()->ParseCookies("k=v");
  client->UpdateCurrentUrl("http://site/", false, "");
  const std::string text = client->Serialize();
  EXPECT_EQ(text.rfind("[!CLI!]<HttpClient Object=\"True\">", 0), 0u) << text;
  EXPECT_NE(text.find("[iCLIi][!CKE!]k=v; [iCKEi]"), std::string::npos) << text;
  EXPECT_EQ(text.find("CurrentUrl"), std::string::npos);
  EXPECT_EQ(text.find("IsReady"), std::string::npos);

  auto copy = HttpClient::Create();
  copy->Deserialize(text);
  EXPECT_EQ(copy->UserAgent(), "UA & co");
  EXPECT_EQ(copy->Password(), "p");
  EXPECT_EQ(copy->StaticRefererUrl(), "http://ref/");
  EXPECT_EQ(copy->StaticRelativeUrlString(), "http://base/dir/");
  EXPECT_TRUE(copy->AreCookiesDisabled());
  EXPECT_EQ(copy->Cookies()->GetRequestHeader(), "k=v; ");
  EXPECT_EQ(copy->CurrentUrl(), nullptr);
  EXPECT_FALSE(copy->PostFormBlindly("http://x/", Dictionary<Variant>(CompareMode::Text)));
}

class WebSettingsTest : public ::testing::Test {
 protected:
  void TearDown() override {
    SetOptionReader(nullptr);
    SetWebSettings(WebSettings{});
  }
  gw::testing::ScopedHome home_;
};

TEST_F(WebSettingsTest, TheHostsReaderComesFirstThenTheRegistryStoreThenTheDefaults) {
  RegistryStore().SetValue(RegRoot::LocalMachine, "SOFTWARE\\Tallowmere\\Zentrovo",
                           "HttpConnectTimeout", RegValue::Dword(1500));
  RegistryStore().SetValue(RegRoot::LocalMachine, "SOFTWARE\\Tallowmere\\Zentrovo", "HttpProxy",
                           RegValue::String("registry:1"));
  SetOptionReader([](const std::string& name) -> Variant {
    if (name == "HttpProxy") return Variant("reader:2");
    if (name == "IgnoreCertificateErrors") return Variant(true);
    if (name == "HttpReceiveTimeout") return Variant("250");
    throw Error(5, "reader", "unreachable store");  // falls through to the next source
  });
  const WebSettings w = ReadWebSettings();
  EXPECT_EQ(w.proxy, "reader:2");
  EXPECT_EQ(w.connect_timeout_ms, 1500);
  EXPECT_EQ(w.receive_timeout_ms, 250);
  EXPECT_EQ(w.send_timeout_ms, 600000);
  EXPECT_EQ(w.resolve_timeout_ms, 0);
  EXPECT_TRUE(w.ignore_certificate_errors);
  EXPECT_EQ(w.EffectiveUserAgent(), DefaultUserAgent());
  EXPECT_NE(DefaultUserAgent().find("Gleanwright/"), std::string::npos);
}

TEST_F(WebSettingsTest, AValueThatIsNotWhatItStandsForFailsNamingTheOption) {
  for (const auto& [name, value] : std::vector<std::pair<std::string, std::string>>{
           {"HttpSendTimeout", "soon"}, {"IgnoreCertificateErrors", "perhaps"}}) {
    SCOPED_TRACE(name);
    SetOptionReader([n = name, v = value](const std::string& asked) {
      return asked == n ? Variant(v) : Variant();
    });
    const Error e = gw::testing::CaughtError([] { ReadWebSettings(); });
    EXPECT_EQ(e.Number(), errnum::kBadSetting);
    EXPECT_NE(e.Description().find("\"" + name + "\""), std::string::npos) << e.Description();
  }
}

}  // namespace
}  // namespace gw::web
