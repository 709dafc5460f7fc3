// gleanwright links and forms, run as the program a user runs, on pages in files.
#include <gtest/gtest.h>

#include "cli.h"
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
  const auto scan =
      RunCli(home_.Path(), "links " + Page("p.htm") + " --base http://a.test/d/", false);
  EXPECT_EQ(scan.status, 0);
  EXPECT_EQ(scan.output,
            "http\thttp://a.test/d/b.htm\thttp://a.test/d/\tB link split\n"
            "http\thttp://a.test/d/a.htm\thttp://a.test/d/\tA\n"
            "email\tmailto:ann@a.test\thttp://a.test/d/\t\n"
            "other\tjavascript:go()\thttp://a.test/d/\tGo\n");
  // From the document tree: the same links, with the text a reader sees.
  const auto dom =
      RunCli(home_.Path(), "links --dom " + Page("p.htm") + " --base http://a.test/d/", false);
  EXPECT_EQ(dom.status, 0);
  EXPECT_EQ(dom.output,
            "http\thttp://a.test/d/b.htm\thttp://a.test/d/\tB link split\n"
            "http\thttp://a.test/d/a.htm\thttp://a.test/d/\tA\n"
            "email\tmailto:ann@a.test\thttp://a.test/d/\t\n"
            "other\tjavascript:go()\thttp://a.test/d/\tGo\n");
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

}  // namespace
}  // namespace gw
