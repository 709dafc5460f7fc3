// gleanwright get, run as the program a user runs, against servers on loopback.
#include <gtest/gtest.h>

#include "cli.h"
#include "platform/registry_store.h"
#include "rules/connection_string.h"
#include "rules/settings.h"
#include "support/http_server.h"
#include "support/test_support.h"

namespace gw {
namespace {

using testing::RunCli;

class GetCommand : public ::testing::Test {
 protected:
  void SetUp() override {
    auto& s = server_.Http();
    s.Get("/page", [](const httplib::Request& req, httplib::Response& res) {
      res.set_content("<p>page for " + req.get_header_value("User-Agent") + "</p>",
                      "text/html; charset=utf-8");
    });
    s.Get("/moved", [](const httplib::Request&, httplib::Response& res) {
      res.status = 302;
      res.set_header("Location", "/page");
    });
    s.Get("/missing", [](const httplib::Request&, httplib::Response& res) {
      res.status = 404;
      res.set_content("not here", "text/plain");
    });
    s.Post("/echo", [](const httplib::Request& req, httplib::Response& res) {
      res.set_content(req.body, "text/plain");
    });
    server_.Start(8);
  }
  static std::string Q(const std::string& s) { return testing::ShellQuoted(s); }

  gw::testing::TempDir home_;
  gw::testing::LoopbackHttpServer server_;
};

TEST_F(GetCommand, PrintsTheBodyAndReportsAddressStatusAndRedirects) {
  const auto body =
      RunCli(home_.Path(), "get " + Q(server_.Url("/moved")) + " --user-agent UA1", false);
  EXPECT_EQ(body.status, 0);
  EXPECT_EQ(body.output, "<p>page for UA1</p>");
  const auto all = RunCli(home_.Path(), "get " + Q(server_.Url("/moved")));
  EXPECT_NE(all.output.find("URL: " + server_.Url("/page") + "\nStatus: 200 OK\nRedirects: 1\n"),
            std::string::npos)
      << all.output;

  const auto missing = RunCli(home_.Path(), "get " + Q(server_.Url("/missing")));
  EXPECT_EQ(missing.status, 1);
  EXPECT_NE(missing.output.find("Status: 404"), std::string::npos) << missing.output;

  const auto headers =
      RunCli(home_.Path(), "get --include-headers " + Q(server_.Url("/page")), false);
  EXPECT_NE(headers.output.find("Content-Type : text/html; charset=utf-8\r\n"), std::string::npos)
      << headers.output;
}

TEST_F(GetCommand, PostsFormsAndWritesFiles) {
  for (const std::string& form :
       {std::string("a=1&b=x y"), std::string("<FormVars ><var name ='a' val='1'></var>"
                                              "<var name='b' val='x y'></var></FormVars >")}) {
    SCOPED_TRACE(form);
    const auto r =
        RunCli(home_.Path(), "get " + Q(server_.Url("/echo")) + " --post " + Q(form), false);
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.output, "a=1&b=x+y");
  }
  const auto file = home_.Path() / "out.html";
  const auto r =
      RunCli(home_.Path(), "get " + Q(server_.Url("/page")) + " -o " + Q(file.string()), false);
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.output, "");
  EXPECT_NE(gw::testing::ReadFile(file).find("<p>page for Gleanwright/"), std::string::npos);
}

TEST_F(GetCommand, ReadsTheWebSettingsFromTheSettingsTable) {
  SetRulesConnectionOverride("Provider=SQLite;Data Source=" +
                             (home_.Path() / "ZentrovoDB.sqlite").string());
  Settings().PutOption("HttpUserAgent", Variant("FromSettings/2"), DataType::Str);
  SetRulesConnectionOverride({});
  const auto r = RunCli(home_.Path(), "get " + Q(server_.Url("/page")), false);
  EXPECT_EQ(r.output, "<p>page for FromSettings/2</p>");
}

TEST(GetCommandTls, FetchesHttpsWithATrustedTestCertificateAndRefusesAnUntrustedOne) {
  gw::testing::TempDir home;
  const auto certs = gw::testing::MakeTestCertificates(home.Path());
  gw::testing::LoopbackHttpServer server(certs.cert, certs.key);
  server.Http().Get("/page", [](const httplib::Request&, httplib::Response& res) {
    res.set_content("secure page", "text/plain");
  });
  server.Start(4);
  const std::string url = "'" + server.Url("/page") + "'";

  const auto refused = RunCli(home.Path(), "get " + url);
  EXPECT_EQ(refused.status, 1);
  EXPECT_NE(refused.output.find("0x80072F8F"), std::string::npos) << refused.output;
  EXPECT_NE(refused.output.find("IgnoreCertificateErrors"), std::string::npos) << refused.output;

  const std::string key = "SOFTWARE\\Tallowmere\\Zentrovo";
  RegistryStore(home.Path() / "registry.txt")
      .SetValue(RegRoot::LocalMachine, key, "HttpTrustedCertificates",
                RegValue::String(certs.ca.string()));
  const auto trusted = RunCli(home.Path(), "get " + url, false);
  EXPECT_EQ(trusted.status, 0);
  EXPECT_EQ(trusted.output, "secure page");
}

}  // namespace
}  // namespace gw
