// gleanwright links and forms, run as the program a user runs, on pages in files.
#include <gtest/gtest.h>

#include "cli.h"
#include "support/http_server.h"
#include "support/test_support.h"

namespace gw {
namespace {

using testing::RunCli;
using testing::WriteFile;

class PageCommands : public ::testing::Test {
 protected:
  std::string Page(const std::string& name) { return "'" + (dir_ / name).string() + "'"; }

  testing::TempDir home_;
  testing::TempDir dir_;
};

TEST_F(PageCommands, LinksPrintsOneTabSeparatedLinePerLink) {
  WriteFile(dir_ / "p.htm",
            "<a href=\"b.htm\">B\tlink\nsplit</a><a href=a.htm>A</a><a href=B.HTM#x>again</a>"
            "<a href=\"mailto:ann@a.test?subject=Hi\">Mail</a><a href=\"javascript:go()\">Go</a>");
  // The crawler's scan and the document tree (with the text a reader sees) find the same links.
  for (const char* how : {"", "--dom "}) {
    SCOPED_TRACE(how);
    const auto r =
        RunCli(home_.Path(),
               std::string("links ") + how + Page("p.htm") + " --base http://a.test/d/", false);
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.output,
              "http\thttp://a.test/d/b.htm\thttp://a.test/d/\tB link split\n"
              "http\thttp://a.test/d/a.htm\thttp://a.test/d/\tA\n"
              "email\tmailto:ann@a.test\thttp://a.test/d/\t\n"
              "other\tjavascript:go()\thttp://a.test/d/\tGo\n");
  }
  // Without --base, links resolve against the file itself.
  const auto local = RunCli(home_.Path(), "links " + Page("p.htm"), false);
  EXPECT_NE(local.output.find("http\tfile:" + (dir_ / "b.htm").string() + "\t"), std::string::npos)
      << local.output;
}

TEST_F(PageCommands, FormsPrintsControlsAndBothTemplates) {
  WriteFile(dir_ / "f.htm",
            "<form id=s action=find method=get><input name=q value=x>"
            "<select name=c><option value=1>One<option value=2 selected>Two</select></form>"
            "<form name=o action=/order method=post><input type=image name=go src=i.gif></form>");
  const auto r =
      RunCli(home_.Path(), "forms " + Page("f.htm") + " --base http://a.test/d/p.htm", false);
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.output,
            "Form 1: id \"s\", method GET, action http://a.test/d/find\n"
            "  Path: /BODY/FORM:s:find\n"
            "  Controls:\n"
            "    q  Textbox  value \"x\"\n"
            "    c  Dropdown  value \"2\"  options: \"1\"=\"One\", \"2\"=\"Two\"\n"
            "  XML template:\n"
            "    The XML Style format is not recommended for this form because the form's method "
            "is 'GET' as opposed to 'POST', so the querystring style is the method that will "
            "work.\n"
            "  Query template:\n"
            "    http://a.test/d/find?q=x&c=2\n"
            "Form 2: id \"o\", method POST, action http://a.test/order\n"
            "  Path: /BODY/FORM:o:/order\n"
            "  Controls:\n"
            "    go  Image Button  value \"\"\n"
            "  XML template:\n"
            "    http://a.test/order<formvariables><ctrl id='go.x' value='' />"
            "<ctrl id='go.y' value='' /></formvariables>\n"
            "  Query template:\n"
            "    http://a.test/order?go.y=\n");
  const auto samples =
      RunCli(home_.Path(), "forms --samples " + Page("f.htm") + " --base http://a.test/", false);
  EXPECT_NE(samples.output.find("http://a.test/find?q=Sample Text&c=1\n"), std::string::npos)
      << samples.output;
  EXPECT_NE(samples.output.find("<ctrl id='go.y' value='2' />"), std::string::npos);
}

TEST_F(PageCommands, AMissingPageIsAClearError) {
  WriteFile(dir_ / "none.htm", "<p>no forms, no links</p>");
  EXPECT_EQ(RunCli(home_.Path(), "forms " + Page("none.htm")).output, "No forms.\n");
  EXPECT_EQ(RunCli(home_.Path(), "links " + Page("none.htm")).output, "");
  for (const char* command : {"links", "forms"}) {
    SCOPED_TRACE(command);
    const auto r = RunCli(home_.Path(), std::string(command) + " " + Page("missing.htm"));
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.output.find("File not found: " + (dir_ / "missing.htm").string()),
              std::string::npos)
        << r.output;
  }
}

class PageCommandsOnTheWeb : public ::testing::Test {
 protected:
  void SetUp() override {
    auto& s = server_.Http();
    s.Get("/shop/", [](const httplib::Request&, httplib::Response& res) {
      res.set_header("Set-Cookie", "visit=7; Path=/");
      res.set_content(
          "<a href=list.htm>Books</a><a href='/shop/'>Home</a>"
          "<form action=find><input name=q value=\"cr\xE8me\"></form>"
          "<iframe src=basket.htm></iframe>",
          "text/html; charset=iso-8859-1");
    });
    s.Get("/shop/basket.htm", [](const httplib::Request& req, httplib::Response& res) {
      const bool known = req.get_header_value("Cookie").find("visit=7") != std::string::npos;
      res.set_content(known ? "<form name=basket method=post action=pay><input name=card></form>"
                            : "<p>no basket</p>",
                      "text/html");
    });
    s.Get("/old",
          [](const httplib::Request&, httplib::Response& res) { res.set_redirect("/shop/"); });
    s.Get("/gone", [](const httplib::Request&, httplib::Response& res) {
      res.status = 404;
      res.set_content("<a href=/shop/>Try the shop</a>", "text/html");
    });
    server_.Start(4);
  }

  testing::TempDir home_;
  testing::LoopbackHttpServer server_;
};

TEST_F(PageCommandsOnTheWeb, LinksAndFormsOfALoopbackPage) {
  const std::string shop = server_.Url("/shop/");
  const auto links = RunCli(home_.Path(), "links '" + server_.Url("/old") + "'", false);
  EXPECT_EQ(links.status, 0);
  EXPECT_EQ(links.output, "http\t" + shop + "list.htm\t" + shop + "\tBooks\n" + "http\t" + shop +
                              "\t" + shop + "\tHome\n");

  const auto forms = RunCli(home_.Path(), "forms '" + shop + "'", false);
  EXPECT_EQ(forms.status, 0);
  // The page's own character set, and its frame fetched in the same session.
  EXPECT_NE(forms.output.find("Form 1: id \"\", method GET, action " + shop + "find\n"),
            std::string::npos)
      << forms.output;
  EXPECT_NE(forms.output.find("q  Textbox  value \"cr\xC3\xA8me\""), std::string::npos);
  EXPECT_NE(forms.output.find("Frame " + shop +
                              "basket.htm\nForm 2: id \"basket\", method POST, "
                              "action " +
                              shop + "pay\n"),
            std::string::npos)
      << forms.output;

  const auto gone = RunCli(home_.Path(), "links '" + server_.Url("/gone") + "'");
  EXPECT_EQ(gone.status, 1);
  EXPECT_NE(gone.output.find("http\t" + shop + "\t" + server_.Url("/gone") + "\tTry the shop\n"),
            std::string::npos)
      << gone.output;
  EXPECT_NE(gone.output.find("answered 404 Not Found"), std::string::npos) << gone.output;

  const auto refused =
      RunCli(home_.Path(),
             "forms http://127.0.0.1:" + std::to_string(testing::UnusedLoopbackPort()) + "/x.htm");
  EXPECT_EQ(refused.status, 1);
  EXPECT_NE(refused.output.find("gleanwright: error"), std::string::npos) << refused.output;
}

}  // namespace
}  // namespace gw
