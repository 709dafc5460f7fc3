// The page model on web addresses: pages, frames and forms fetched from a real HTTP server on
// loopback through one session.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "acquire/web_page.h"
#include "platform/http_transport.h"
#include "support/http_server.h"
#include "support/test_support.h"
#include "web/failures.h"
#include "web/http_client.h"
#include "web/web_settings.h"

namespace gw {
namespace {

using testing::LoopbackHttpServer;

class WebPageHttpTest : public ::testing::Test {
 protected:
  void SetUp() override {
    for (const char* v : {"http_proxy", "https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY",
                          "no_proxy", "NO_PROXY"}) {
      ::unsetenv(v);
    }
    web::SetWebSettings(web::WebSettings{});
    auto& s = server_.Http();
    s.Get("/shop/page.htm", [](const httplib::Request&, httplib::Response& res) {
      res.set_header("Set-Cookie", "session=42; Path=/");
      // The character set is named only by the header.
      res.set_content(
          "<html><body><a href=\"item.htm?id=1&amp;x=2\">Caf\xE9</a>"
          "<a href=\"/shop/page.htm#top\">Top</a><a href=\"mailto:shop@a.test?subject=Q\">Mail</a>"
          "<form action=\"search\" method=\"post\"><input name=q value=\"cr\xE8me\"></form>"
          "<iframe src=\"frame.htm\"></iframe><iframe src=\"page.htm\"></iframe>"
          "<iframe src=\"http://127.0.0.1:" +
              std::to_string(testing::UnusedLoopbackPort()) + "/gone.htm\"></iframe></body></html>",
          "text/html; charset=iso-8859-1");
    });
    s.Get("/shop/frame.htm", [](const httplib::Request& req, httplib::Response& res) {
      // Only the session that was given the cookie sees the form.
      const bool known = req.get_header_value("Cookie").find("session=42") != std::string::npos;
      res.set_content(known ? "<form name=inner action=/shop/buy><input name=qty></form>"
                            : "<p>who are you?</p>",
                      "text/html");
    });
    s.Get("/old", [](const httplib::Request&, httplib::Response& res) {
      res.set_redirect("/shop/page.htm");
    });
    s.Get("/none", [](const httplib::Request&, httplib::Response& res) {
      res.status = 404;
      res.set_content("<html><body><p>Not here. <a href=\"/shop/page.htm\">Shop</a></body></html>",
                      "text/html");
    });
    server_.Start(4);
  }
  // Idle connections would keep the server's workers waiting when it stops.
  void TearDown() override { HttpTransport::CloseIdleConnections(); }

  LoopbackHttpServer server_;
};

TEST_F(WebPageHttpTest, APageItsFramesAndFormsComeThroughOneSession) {
  auto page = WebPage::Create();
  page->LoadFromUrl(server_.Url("/old"));
  // The page's address is where the redirect led.
  EXPECT_EQ(page->url().ToExternalForm(), server_.Url("/shop/page.htm"));
  ASSERT_EQ(page->HttpLinks().Count(), 2);
  EXPECT_EQ(page->HttpLinks().ItemByIndex(1)->url(), server_.Url("/shop/item.htm?id=1&x=2"));
  EXPECT_EQ(page->HttpLinks().ItemByIndex(1)->linkText(), "Caf\xC3\xA9");
  EXPECT_EQ(page->EmailLinks().ItemByIndex(1)->url(), "mailto:shop@a.test");
  ASSERT_EQ(page->Forms().Count(), 1);
  EXPECT_EQ(page->Forms().Item(1)->Action(), server_.Url("/shop/search"));
  EXPECT_EQ(page->Forms().Item(1)->Controls().Item(1)->Value(), "cr\xC3\xA8me");

  ASSERT_EQ(page->GetFrames().Count(), 3);
  const auto frame = page->GetFrames().Item(1);
  ASSERT_TRUE(frame->Document());
  ASSERT_EQ(frame->Forms().Count(), 1) << frame->ToString();
  EXPECT_EQ(frame->Forms().Item(1)->Action(), server_.Url("/shop/buy"));
  EXPECT_FALSE(page->GetFrames().Item(2)->Document());  // the page itself
  EXPECT_FALSE(page->GetFrames().Item(3)->Document());  // a server that is not there
  EXPECT_EQ(page->Session(), frame->Session());
}

TEST_F(WebPageHttpTest, AnErrorPageIsStillAPageButNoServerIsAnError) {
  auto page = WebPage::Create();
  page->LoadFromUrl(server_.Url("/none"));
  ASSERT_EQ(page->HttpLinks().Count(), 1);
  EXPECT_EQ(page->Session()->HttpResponse()->StatusCode(), 404);

  const std::string nowhere =
      "http://127.0.0.1:" + std::to_string(testing::UnusedLoopbackPort()) + "/x.htm";
  EXPECT_EQ(testing::FailureNumber([&] { WebPage::Create()->LoadFromUrl(nowhere); }),
            web::errnum::kCannotConnect);
}

TEST_F(WebPageHttpTest, AGivenSessionIsUsed) {
  auto client = web::HttpClient::Create();
  client->GetPage(server_.Url("/shop/page.htm"));  // the server hands it a cookie
  auto page = WebPage::Create();
  page->SetSession(client);
  page->LoadFromUrl(server_.Url("/shop/frame.htm"));
  EXPECT_EQ(page->Forms().Count(), 1);
  EXPECT_EQ(WebPage::Create()->Forms().Count(), 0);
  auto stranger = WebPage::Create();
  stranger->LoadFromUrl(server_.Url("/shop/frame.htm"));
  EXPECT_EQ(stranger->Forms().Count(), 0);
}

}  // namespace
}  // namespace gw
