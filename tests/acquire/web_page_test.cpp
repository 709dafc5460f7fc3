// The page model on pages written for the tests: links of every kind through the fast scan and
// through the document tree, forms with every control and their templates, frames.
#include "acquire/web_page.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "acquire/uri_list_internal.h"
#include "acquire/uri_rules.h"
#include "acquire/web_page_internal.h"
#include "rules/rules_fixture.h"
#include "rules/settings.h"
#include "support/test_support.h"

namespace gw {
namespace {

using testing::WriteFile;

// "url | source | text" per link.
std::vector<std::string> Rows(const UriList& list) {
  std::vector<std::string> out;
  for (const auto& item : list.Items()) {
    out.push_back(item->url() + " | " + item->SrcUrl() + " | " + item->linkText());
  }
  return out;
}

const char* const kLinksPage =
    "<html><body>\n"
    "<a href=\"http://www.example.test/a.htm\">Absolute</a>\n"
    "<A HREF='../up/b.htm'>Up <b>one</b></A>\n"
    "<a href=c.htm?x=1&y=2>Unquoted</a>\n"
    "<a\n class=nav\n href = \"d.htm#part\"\n>Spread\nover lines</a>\n"
    "<a href=\"D.HTM#other\">same page, other fragment</a>\n"
    "<a href=\"mailto:someone@example.test?subject=Hello%20there\">Mail us</a>\n"
    "<a href=\"mailto:///other@example.test\">Other</a>\n"
    "<a href=\"javascript:void(0)\">Script</a>\n"
    "<a href=\"ftp://files.example.test/f.zip\">File</a>\n"
    "<a href=\"file:///srv/local.htm\">Local</a>\n"
    "<a href=\"http://[broken/x.htm\">Broken</a>\n"
    "<a name=\"anchor-only\">No address</a>\n"
    "<!-- <a href=\"commented.htm\">Commented</a> -->\n"
    "</body></html>\n";

const char* const kPageUrl = "http://www.example.test/dir/page.htm";

TEST(WebPageLinks, RegExHrefsSortsTheLinksOfAFile) {
  testing::TempDir dir;
  WriteFile(dir / "page.htm", kLinksPage);
  WebPage page;
  page.RegExHrefs((dir / "page.htm").string(), kPageUrl);
  EXPECT_EQ(page.url().ToString(), kPageUrl);
  const std::string src = kPageUrl;
  EXPECT_EQ(Rows(page.HttpLinks()),
            (std::vector<std::string>{
                "http://www.example.test/a.htm | " + src + " | Absolute",
                "http://www.example.test/up/b.htm | " + src + " | Up <b>one</b>",
                "http://www.example.test/dir/c.htm?x=1&y=2 | " + src + " | Unquoted",
                "http://www.example.test/dir/d.htm#part | " + src + " | Spread\nover lines",
                "file:/srv/local.htm | " + src + " | Local",
                "http://www.example.test/dir/commented.htm | " + src + " | Commented",
            }));
  // Mail addresses lose their query and leading slashes (and, parsed again, their text).
  EXPECT_EQ(Rows(page.EmailLinks()),
            (std::vector<std::string>{"mailto:someone@example.test | " + src + " | ",
                                      "mailto:other@example.test | " + src + " | "}));
  EXPECT_EQ(Rows(page.OtherLinks()),
            (std::vector<std::string>{"javascript:void(0) | " + src + " | Script",
                                      "ftp://files.example.test/f.zip | " + src + " | File"}));
}

TEST(WebPageLinks, RegExHrefsStartsAfreshAndToleratesAMissingFile) {
  testing::TempDir dir;
  WriteFile(dir / "page.htm", kLinksPage);
  WebPage page;
  page.RegExHrefs((dir / "page.htm").string(), kPageUrl);
  ASSERT_GT(page.HttpLinks().Count(), 0);
  page.RegExHrefs("file://" + (dir / "missing.htm").string(), "http://b.test/");
  EXPECT_EQ(page.HttpLinks().Count(), 0);
  EXPECT_EQ(page.EmailLinks().Count(), 0);
  EXPECT_EQ(page.OtherLinks().Count(), 0);
  EXPECT_EQ(page.url().ToString(), "http://b.test/");
  EXPECT_THROW(page.RegExHrefs((dir / "page.htm").string(), "no scheme"), Error);
}

TEST(WebPageLinks, ALatin1PageIsReadInItsCharacterSet) {
  testing::TempDir dir;
  WriteFile(dir / "latin1.htm",
            "<html><head><meta charset=\"iso-8859-1\"></head><body>"
            "<a href=\"caf\xE9.htm\">Caf\xE9 cr\xE8me</a></body></html>");
  WebPage scanned;
  scanned.RegExHrefs((dir / "latin1.htm").string(), "http://a.test/");
  ASSERT_EQ(scanned.HttpLinks().Count(), 1);
  EXPECT_EQ(scanned.HttpLinks().ItemByIndex(1)->url(), "http://a.test/caf\xC3\xA9.htm");
  EXPECT_EQ(scanned.HttpLinks().ItemByIndex(1)->linkText(), "Caf\xC3\xA9 cr\xC3\xA8me");

  auto tree = WebPage::Create();
  tree->LoadFromUrl((dir / "latin1.htm").string(), "http://a.test/");
  ASSERT_EQ(tree->HttpLinks().Count(), 1);
  EXPECT_EQ(tree->HttpLinks().ItemByIndex(1)->linkText(), "Caf\xC3\xA9 cr\xC3\xA8me");
}

TEST(WebPageLinks, TheTreeGivesTheSameLinksAsTheScanOnAnOrdinaryPage) {
  testing::TempDir dir;
  const std::string html =
      "<html><body><ul>"
      "<li><a href=\"/a.htm\">A</a><li><a href='b.htm?q=1&amp;r=2'>B&nbsp;<img src=i.gif></a>"
      "<li><a href=c.htm>C</a><li><a href=\"mailto:x@y.test?subject=s\">Mail</a>"
      "<li><a href=\"javascript:go()\">Go</a><li><a href=\"/a.htm#x\">A again</a>"
      "</ul></body></html>";
  WriteFile(dir / "p.htm", html);
  WebPage scanned;
  scanned.RegExHrefs((dir / "p.htm").string(), "http://a.test/dir/p.htm");
  auto tree = WebPage::Create();
  tree->LoadFromUrl((dir / "p.htm").string(), "http://a.test/dir/p.htm");
  auto urls = [](const UriList& list) {
    std::vector<std::string> out;
    for (const auto& item : list.Items()) out.push_back(item->url());
    return out;
  };
  EXPECT_EQ(urls(tree->HttpLinks()),
            (std::vector<std::string>{"http://a.test/a.htm", "http://a.test/dir/b.htm?q=1&r=2",
                                      "http://a.test/dir/c.htm"}));
  EXPECT_EQ(urls(tree->HttpLinks()), urls(scanned.HttpLinks()));
  EXPECT_EQ(urls(tree->EmailLinks()), urls(scanned.EmailLinks()));
  EXPECT_EQ(urls(tree->OtherLinks()), urls(scanned.OtherLinks()));
  EXPECT_EQ(urls(tree->EmailLinks()), (std::vector<std::string>{"mailto:x@y.test"}));
  EXPECT_EQ(tree->HttpLinks().ItemByIndex(2)->linkText(), "B\xC2\xA0");
  EXPECT_EQ(tree->HttpLinks().ItemByIndex(2)->SrcUrl(), "http://a.test/dir/p.htm");
}

TEST(WebPageLinks, GetHrefReadsTheMarkupByTokens) {
  struct Case {
    const char* html;
    const char* href;
  };
  const Case cases[] = {
      {"<a href=\"x.htm\">t</a>", "x.htm"},
      {"<a title=\"HREF=y\" href=\"z.htm\">t</a>", "z.htm"},
      {"<a name=n>see href=q.htm here</a>", "q.htm"},
      {"<a name=n>t</a>", ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.html);
    auto doc = html::Document::Parse(c.html, "file:///x.htm");
    EXPECT_EQ(acquire_internal::GetHref(doc->tags("a").at(0)), c.href);
  }
}

// What a crawl keeps of a saved page, read in one pass, must be what the page's link lists and
// their division by the rules give, link for link, key, spelling and text, and e-mail list.
TEST(WebPageLinks, ASavedPagesKeptLinksAreThoseOfItsDividedList) {
  const std::string page =
      std::string(kLinksPage) +
      "<a href=\"/Dir/Page.htm\">self, other case</a><a href=\"page.htm#x\">self</a>\n"
      "<a href=\"/dir/%41bc.htm\">escaped capital</a><a href=\"/dir/abc.htm\">keep me</a>\n"
      "<a href=\"/dir/a%20b.htm\">escaped space</a><a href=\"/dir/a b.htm\">space</a>\n"
      "<a href=\"/dir/x+y.htm?q=A+B\">plus</a><a href=\"/dir/x y.htm?q=A B\">Next</a>\n"
      "<a href=\"/dir/%C3%84.htm\">escaped</a><a href=\"/dir/\xC3\x84.htm\">non-ASCII KEEP</a>\n"
      "<a href=\"/dir/%zz.htm\">bad escape</a><a href=\"http://other.test:8080/q?a=%41\">7</a>\n"
      "<a href=\"HTTP://WWW.EXAMPLE.TEST:80/a.htm\">Absolute again</a>\n"
      "<a href=\"mailto:someone@example.test\">Mail again</a><a href=\"news:comp.x\">news</a>\n";
  struct RuleCase {
    const char* name;
    std::vector<std::vector<std::string>> rules;  // part, operator, value
    bool and_;
  };
  const RuleCase rule_cases[] = {
      {"no rules", {}, false},
      {"host", {{"[HOST]", "[EQUALS]", "www.example.test"}}, false},
      {"text", {{"[TEXT]", "[CONTAINS]", "keep"}, {"[TEXT]", "[IS NEXT PAGE LINK]", ""}}, false},
      {"path and extension",
       {{"[URLPATH]", "[STARTS WITH]", "/dir/"}, {"[FILEEXT]", "[EQUALS]", "htm"}},
       true},
      {"regex on the address", {{"[URL]", "[REGEX MATCH]", "^http://[^/]*/dir/[a-z]"}}, false},
  };
  for (const RuleCase& c : rule_cases) {
    UriRuleset rules;
    rules.SetIsAnd(c.and_);
    for (const auto& r : c.rules) {
      auto rule = rules.Add();
      rule->SetPart(r[0]);
      rule->SetOperator(r[1]);
      rule->SetValue(r[2]);
    }
    for (const bool inclusive : {false, true}) {
      SCOPED_TRACE(std::string(c.name) + (inclusive ? ", inclusive" : ", exclusive"));
      auto listed = WebPage::Create();
      listed->RegExHrefsOfBytes(page, kPageUrl);
      const UriListPtr divided = listed->HttpLinks().DivideByRuleset(rules, inclusive);
      std::vector<std::string> expected;
      for (const auto& [key, item] : acquire_internal::UriListInternal::RawDictionary(*divided)) {
        expected.push_back(key + " | " + item->url() + " | " + item->linkText());
      }

      std::vector<std::string> kept;
      const auto read = acquire_internal::ReadSavedPageLinks(
          page, kPageUrl, rules, inclusive, [&](const std::string& key, const web::Uri& u) {
            kept.push_back(key + " | " + u.ToString() + " | " + u.linkText());
          });
      EXPECT_EQ(kept, expected);
      EXPECT_EQ(read.page_key, listed->url().HashCode());
      ASSERT_TRUE(read.emails);
      EXPECT_EQ(Rows(*read.emails), Rows(listed->EmailLinks()));
    }
  }

  // A page without e-mail links gives none; an address that is not one fails both ways.
  const auto plain =
      acquire_internal::ReadSavedPageLinks("<a href=\"x.htm\">x</a>", kPageUrl, UriRuleset(), false,
                                           [](const std::string&, const web::Uri&) {});
  EXPECT_FALSE(plain.emails);
  EXPECT_THROW(
      acquire_internal::ReadSavedPageLinks("<a href=\"x.htm\">x</a>", "http://[bad", UriRuleset(),
                                           false, [](const std::string&, const web::Uri&) {}),
      Error);
  EXPECT_THROW(WebPage::Create()->RegExHrefsOfBytes("<a href=\"x.htm\">x</a>", "http://[bad"),
               Error);
}

TEST(WebPageLinks, CleanseEmail) {
  struct Case {
    const char* in;
    const char* out;
  };
  const Case cases[] = {
      {"mailto:ann@a.test?subject=Hi&body=x", "mailto:ann@a.test"},
      {"MAILTO:%20//\\\\bob@b.test", "mailto:bob@b.test"},
      {"mailto:odd?name@c.test", "mailto:odd?name@c.test"},
      {"mailto:a?", "mailto:a?"},
      {"http://a.test/?x", "http://a.test/?x"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.in);
    web::Uri u(c.in);
    EXPECT_EQ(acquire_internal::CleanseEmail(u).ToString(), c.out);
  }
}

// ---- forms ------------------------------------------------------------------------------------

const char* const kFormsPage =
    "<html><body>\n"
    "<form id=\"search\" action=\"/find\" method=\"get\">\n"
    "  <input type=text name=q value=\"books\" maxlength=40>\n"
    "  <input type=password name=pw>\n"
    "  <input type=file name=upload>\n"
    "  <input type=hidden name=token value=abc>\n"
    "  <input type=radio name=kind value=new checked>\n"
    "  <input type=checkbox name=cheap>\n"
    "  <input type=submit name=go value=Search>\n"
    "  <input type=reset name=clear>\n"
    "  <input type=button name=help value=Help>\n"
    "  <input type=image name=go2 src=go.gif>\n"
    "  <input type=email name=mail>\n"
    "  <select name=sort><option value=t>Title</option><option value=p selected>Price</option>"
    "</select>\n"
    "  <select name=tags multiple><option value=a selected>Alpha</option>"
    "<option value=b>Beta</option><option value=a selected>Alpha again</option>"
    "<option>Gamma</option></select>\n"
    "  <textarea id=notes name=comments maxlength=10>hello</textarea>\n"
    "  <button name=b1>Go</button><button type=reset name=b2>R</button>"
    "<button type=button name=b3>B</button>\n"
    "</form>\n"
    "<form name=\"order\" action=\"/cgi/order?shop=1\" method=\"POST\">\n"
    "  <input name=qty value=2><input type=image name=go src=buy.gif>\n"
    "</form>\n"
    "<form action=\"http://other.test:8080/post\" method=post><input name=a value=\"x&y\"></form>\n"
    "</body></html>\n";

class WebPageFormsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    WriteFile(dir_ / "forms.htm", kFormsPage);
    page_->LoadFromUrl((dir_ / "forms.htm").string(), "http://shop.test/dir/forms.htm");
    ASSERT_EQ(page_->Forms().Count(), 3);
  }
  testing::TempDir dir_;
  WebPagePtr page_ = WebPage::Create();
};

TEST_F(WebPageFormsTest, EveryControlTypeIsRead) {
  const auto form = page_->Forms().Item(1);
  EXPECT_EQ(form->Id(), "search");
  EXPECT_EQ(form->Method(), "GET");
  EXPECT_EQ(form->Action(), "http://shop.test/find");
  EXPECT_EQ(form->ElementPath(), "/BODY/FORM:search:/find");
  EXPECT_EQ(form->Parent(), page_);
  struct Want {
    const char* id;
    CtrlType type;
    const char* type_text;
    const char* value;
    long max_length;
  };
  const Want wants[] = {
      {"q", CtrlType::TextBox, "Textbox", "books", 40},
      {"pw", CtrlType::Password, "Password", "", 2147483647},
      {"upload", CtrlType::File, "File", "", 2147483647},
      {"token", CtrlType::Hidden, "Hidden", "abc", 2147483647},
      {"kind", CtrlType::RadioButton, "Option Button", "new", 2147483647},
      {"cheap", CtrlType::CheckBox, "Check Box", "on", 2147483647},
      {"go", CtrlType::SubmitButton, "Submit", "Search", 2147483647},
      {"clear", CtrlType::ResetButton, "Reset", "", 2147483647},
      {"help", CtrlType::StdButton, "Button", "Help", 2147483647},
      {"mail", CtrlType::TextBox, "Textbox", "", 2147483647},
      {"sort", CtrlType::DropdownList, "Dropdown", "p", 0},
      {"tags", CtrlType::ListBox, "List", "a, a", 0},
      {"notes", CtrlType::TextArea, "Text Area", "hello", 0},
      {"b1", CtrlType::SubmitButton, "Submit", "", 0},
      {"b2", CtrlType::ResetButton, "Reset", "", 0},
      {"b3", CtrlType::StdButton, "Button", "", 0},
      // Image buttons come last: the form's elements leave them out.
      {"go2", CtrlType::ImageButton, "Image Button", "", 2147483647},
  };
  ASSERT_EQ(form->Controls().Count(), static_cast<long>(std::size(wants)));
  long index = 1;
  for (const Want& w : wants) {
    SCOPED_TRACE(w.id);
    const auto ctrl = form->Controls().Item(index++);
    EXPECT_EQ(ctrl->Id(), w.id);
    EXPECT_EQ(ctrl->ControlType(), w.type);
    EXPECT_EQ(ctrl->GetCtrlTypeAsString(), w.type_text);
    EXPECT_EQ(ctrl->Value(), w.value);
    EXPECT_EQ(ctrl->MaxLength(), w.max_length);
    EXPECT_EQ(ctrl->Parent(), form);
    EXPECT_EQ(ctrl->ElementPath().substr(0, 23), "/BODY/FORM:search:/find");
  }
  const auto tags = form->Controls().Item(12);
  std::vector<std::string> options;
  for (const auto& [key, text] : tags->Options()) options.push_back(key + "=" + text);
  // A repeated value keeps its first place and takes the last text.
  EXPECT_EQ(options, (std::vector<std::string>{"a=Alpha again", "b=Beta", "Gamma=Gamma"}));
  EXPECT_EQ(form->Controls().Item(1)->ToString(),
            "<input type=\"text\" name=\"q\" value=\"books\" maxlength=\"40\" />");
  EXPECT_EQ(form->Controls().Item(1)->ElementPath(), "/BODY/FORM:search:/find/INPUT:q");
}

TEST_F(WebPageFormsTest, TemplatesWithValuesAndWithSamples) {
  const auto search = page_->Forms().Item(1);
  EXPECT_EQ(search->BuildQueryTemplate(),
            "http://shop.test/find?q=books&pw=&upload=&token=abc&kind&cheap=on&go=Search&clear=&"
            "help=Help&mail=&sort=p&tags=a, a&notes=hello&b1=&b2=&b3=&go2.y=");
  EXPECT_EQ(search->BuildQueryTemplate(true),
            "http://shop.test/find?q=Sample Text&pw=SamplePassword&upload=C:\\Temp\\SampleFile.txt&"
            "token=Sample_Hidden_Value&kind&cheap=on&go=Search&clear=&help=Help&mail=Sample Text&"
            "sort=t&tags=a&notes=Sample Text&b1=&b2=&b3=&go2.y=2");
  EXPECT_EQ(search->BuildXMLTemplate(),
            "The XML Style format is not recommended for this form because the form's method is "
            "'GET' as opposed to 'POST', so the querystring style is the method that will work.");

  const auto order = page_->Forms().Item(2);
  EXPECT_EQ(order->Id(), "order");
  EXPECT_EQ(order->Method(), "POST");
  EXPECT_EQ(order->Action(), "http://shop.test/cgi/order?shop=1");
  EXPECT_EQ(order->BuildXMLTemplate(true),
            "http://shop.test/cgi/order?shop=1<formvariables><ctrl id='qty' value='Sample Text' />"
            "<ctrl id='go.x' value='2' /><ctrl id='go.y' value='2' /></formvariables>");
  EXPECT_EQ(order->BuildQueryTemplate(),
            "The querystring format is not recommended for use with this form because the action "
            "url (http://shop.test/cgi/order?shop=1) already contains a querystring.  You should "
            "use the XML style format instead.");
  EXPECT_EQ(order->Controls().Item(2)->BuildQuerystringParam(true), "go.y=2");

  // A POST form without a query in its action takes both forms; the port is not written.
  const auto other = page_->Forms().Item(3);
  EXPECT_EQ(other->Id(), "");
  EXPECT_EQ(
      other->BuildXMLTemplate(),
      "http://other.test:8080/post<formvariables><ctrl id='a' value='x%26y' /></formvariables>");
  EXPECT_EQ(other->BuildQueryTemplate(), "http://other.test/post?a=x&y");
  EXPECT_EQ(other->ToString(),
            "<form action=\"http://other.test:8080/post\" method=\"post\">"
            "<input name=\"a\" value=\"x&amp;y\" /></form>");
}

TEST(WebPageForms, AFormWithoutControlsOrAction) {
  auto page = WebPage::Create();
  page->LoadFromDOM(html::Document::Parse("<form name=empty></form>", "file:///x/p.htm"),
                    "http://a.test/p.htm?id=3");
  ASSERT_EQ(page->Forms().Count(), 1);
  const auto form = page->Forms().Item(1);
  EXPECT_EQ(form->Id(), "empty");
  EXPECT_EQ(form->Action(), "http://a.test/p.htm?id=3");
  EXPECT_EQ(form->Method(), "GET");
  EXPECT_EQ(form->BuildQueryTemplate(), "http://a.test/p.htm?id=3");
  EXPECT_EQ(form->ElementPath(), "/BODY/FORM:empty:");
  EXPECT_EQ(page->HttpLinks().Count(), 0);  // links only when asked for
}

// ---- frames -----------------------------------------------------------------------------------

std::vector<std::string> FrameRows(WebPage& page) {
  std::vector<std::string> out;
  for (const WebPagePtr& frame : page.GetFrames()) {
    out.push_back(frame->url().ToString() + (frame->Document() ? " loaded" : " not loaded"));
  }
  return out;
}

TEST(WebPageFrames, FramesetsAndInlineFrames) {
  testing::TempDir dir;
  // Addresses as the pages show them.
  auto shown = [&](const std::string& name) {
    return web::Uri(FileAddress((dir / name).string())).ToString();
  };
  WriteFile(dir / "set.htm",
            "<frameset cols='50%,50%'><frame src=left.htm><frame src=set.htm>"
            "<frame src=gone.htm></frameset>");
  WriteFile(dir / "left.htm",
            "<p>left<iframe src=inner.htm></iframe><iframe src=left.htm></iframe>"
            "<form action=f><input name=x></form>");
  WriteFile(dir / "inner.htm", "<a href=deep.htm>deep</a>");
  WriteFile(dir / "plain.htm", "<p>no frames</p>");

  auto plain = WebPage::Create();
  plain->LoadFromUrl((dir / "plain.htm").string());
  EXPECT_EQ(plain->GetFrames().Count(), 0);
  EXPECT_EQ(plain->url().ToString(), shown("plain.htm"));

  auto set = WebPage::Create();
  set->LoadFromUrl(FileAddress((dir / "set.htm").string()));
  // The frameset names itself: that frame is added, not loaded again. A missing frame stays empty.
  EXPECT_EQ(FrameRows(*set), (std::vector<std::string>{shown("left.htm") + " loaded",
                                                       shown("set.htm") + " not loaded",
                                                       shown("gone.htm") + " not loaded"}));
  auto left = set->GetFrames().Item(1);
  EXPECT_EQ(FrameRows(*left), (std::vector<std::string>{shown("inner.htm") + " loaded",
                                                        shown("left.htm") + " not loaded"}));
  ASSERT_EQ(left->Forms().Count(), 1);
  EXPECT_EQ(web::Uri(left->Forms().Item(1)->Action()).ToString(), shown("f"));
  EXPECT_EQ(left->GetFrames().Item(1)->HttpLinks().ItemByIndex(1)->url(), shown("deep.htm"));

  const std::string page = shown("set.htm");
  std::string expected =
      "<HTML><BODY><h1 align=center><font face=Verdana>HTML Frames</font></h1><hr>"
      "<p><font face=Verdana><B>The following URLs make up the component frames for the "
      "frameset at <a href=" +
      page + ">" + page + "</a> :</B></font></p><ul>";
  for (const char* name : {"left.htm", "set.htm", "gone.htm"}) {
    expected +=
        "<li><font face=Verdana><A href=" + shown(name) + " >" + shown(name) + "</A></font></li>";
  }
  EXPECT_EQ(set->BuildFrameSelectHTML(), expected + "</ul></BODY></HTML>");
}

TEST(WebPageFrames, NestingStopsEightDeep) {
  testing::TempDir dir;
  for (int i = 0; i < 12; ++i) {
    WriteFile(dir / ("f" + std::to_string(i) + ".htm"),
              "<iframe src=f" + std::to_string(i + 1) + ".htm></iframe>");
  }
  auto top = WebPage::Create();
  top->LoadFromUrl((dir / "f0.htm").string());
  int loaded_depth = 0;
  WebPagePtr page = top;
  while (page->GetFrames().Count() == 1 && page->GetFrames().Item(1)->Document()) {
    page = page->GetFrames().Item(1);
    ++loaded_depth;
  }
  EXPECT_EQ(loaded_depth, kMaxFrameDepth);
  ASSERT_EQ(page->GetFrames().Count(), 1);  // the ninth is there, not loaded
  EXPECT_EQ(page->GetFrames().Item(1)->url().FileName(), "f9.htm");
}

// ---- loading a text ---------------------------------------------------------------------------

class WebPageStringTest : public testing::RulesStoreTest {};

TEST_F(WebPageStringTest, LoadFromStringUsesATemporaryFileAndRemovesIt) {
  const auto folder = home_.Path() / "strings";
  Settings().PutOption("StringFileCreatePath", Variant(folder.string()), DataType::Str);
  auto page = WebPage::Create();
  page->LoadFromString(
      "<html><head><meta charset=windows-1252></head><body>"
      "<form action=go method=post><input name=\xC3\xA9t\xC3\xA9></form></body></html>",
      "http://a.test/dir/");
  ASSERT_EQ(page->Forms().Count(), 1);
  EXPECT_EQ(page->Forms().Item(1)->Action(), "http://a.test/dir/go");
  // The text is read as it was given, whatever charset it declares.
  EXPECT_EQ(page->Forms().Item(1)->Controls().Item(1)->Id(), "\xC3\xA9t\xC3\xA9");
  EXPECT_TRUE(std::filesystem::is_empty(folder));
  EXPECT_NE(page->ToString().find("<form action=\"go\" method=\"post\">"), std::string::npos);

  // A failure after the file was written removes it all the same.
  EXPECT_THROW(WebPage::Create()->LoadFromString("<p>x</p>", "not an address"), Error);
  EXPECT_TRUE(std::filesystem::is_empty(folder));
}

}  // namespace
}  // namespace gw
