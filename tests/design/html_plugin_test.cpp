// The HTML document plug-in: reading documents and cleansing them in place, on real files.
#include <gtest/gtest.h>

#include <filesystem>

#include "design/html_plugin.h"
#include "platform/error.h"
#include "support/test_support.h"

namespace gw {
namespace {

using testing::FailureNumber;
using testing::ReadFile;
using testing::WriteFile;

class HtmlPluginTest : public ::testing::Test {
 protected:
  // Writes `content` to a fresh file and cleanses it.
  std::string Cleanse(const std::string& content, const std::string& method,
                      const std::string& parameters = {}) {
    WriteFile(file_, content);
    plugin_->CleanseDocument(file_.string(), method, parameters);
    return ReadFile(file_);
  }

  testing::TempDir dir_;
  std::filesystem::path file_ = dir_ / "page.htm";
  std::shared_ptr<CHTMLPlugin> plugin_ = CHTMLPlugin::Create();
};

TEST_F(HtmlPluginTest, CleansingMethods) {
  struct Case {
    const char* what;
    std::string content;
    std::string method;
    std::string parameters;
    std::string want;
  };
  const Case cases[] = {
      {"stray markup outside the outermost tags goes", "junk<HTML>a<html>b</HTML>c</HTML>tail",
       "DEFAULT", "", "<HTML>abc</HTML>"},
      {"a file with no <HTML> still gets both tags", "<p>x</p>", "", "", "<HTML><p>x</p></HTML>"},
      {"a tag with attributes is no <HTML>; the stray closing tag goes",
       "<html lang=en><p>x</p></html>", "", "", "<HTML><html lang=en><p>x</p></HTML>"},
      {"error traps are disarmed by misspelling, in either case",
       "<body OnError=\"a()\"><img onerror=b()>", "default", "",
       "<HTML><body OnEror=\"a()\"><img OnEror=b()></HTML>"},
      {"an unknown method cleans", "<p>", "SHINE", "", "<HTML><p></HTML>"},
      {"NONE leaves the file alone", "junk<HTML>a</HTML>", "NONE", "", "junk<HTML>a</HTML>"},
      {"OBJECTS removes objects with their content, in any case",
       "<p>a<OBJECT id=1><param x></object>b<Object>c</Object>d", "objects", "",
       "<HTML><p>abd</HTML>"},
      {"REMOVETAGS removes each pair", "a<!--x-->b<!--y-->c", "REMOVETAGS", "<!--,-->",
       "<HTML>abc</HTML>"},
      {"a stray end tag ahead of the first start tag ends the removal", "a-->b<!--x-->c",
       "REMOVETAGS", "<!--,-->", "<HTML>a-->b<!--x-->c</HTML>"},
      {"an end tag without a start tag fails the step, which is skipped", "<!--x-->b-->c",
       "REMOVETAGS", "<!--,-->", "<HTML><!--x-->b-->c</HTML>"},
      {"REPLACE replaces every occurrence, ignoring case", "Cat cat CAT", "REPLACE", "cat,dog",
       "<HTML>dog dog dog</HTML>"},
      {"REPLACE without a comma fails at item 1 after cleaning", "<p>a</p>", "REPLACE", "p",
       "<HTML><p>a</p></HTML>"},
      {"REGEXREPLACE is global and case-sensitive", "a1 b22 A3", "REGEXREPLACE", "[a-z]\\d+,#",
       "<HTML># # A3</HTML>"},
      {"a bad pattern skips the step", "x", "REGEXREPLACE", "(,y", "<HTML>x</HTML>"},
      {"REMOVESTART removes characters, then cleans", "\xC3\xA9\xC3\xA9<p>x", "REMOVESTART", "1",
       "<HTML>\xC3\xA9<p>x</HTML>"},
      {"REMOVESTART with a text for a number still cleans", "<p>x", "REMOVESTART", "many",
       "<HTML><p>x</HTML>"},
      // The tags come back as the method names them.
      {"PRETAGS acts inside <Pre> only, then cleans", "a  b\r\n<pre>x y\r\n\tz</PRE>c  d\n",
       "PRETAGS", "", "<HTML>a  b\r\n<Pre>x&nbsp;y<BR>&nbsp;&nbsp;&nbsp;z</Pre>c  d\n</HTML>"},
      {"PRETAGS takes a lone line feed for a line end too", "<pre>x\ny</pre>", "pretags", "",
       "<HTML><Pre>x<BR>y</Pre></HTML>"},
      // Cleansing writes back in the character set it read (what a set cannot hold becomes a
      // reference, as the encoder's own table shows).
      {"windows-1252 stays windows-1252", "<meta charset=windows-1252>caf\xE9 \x80", "", "",
       "<HTML><meta charset=windows-1252>caf\xE9 \x80</HTML>"},
      {"a character the set lacks becomes a reference", "<meta charset=iso-8859-1>x", "REPLACE",
       "x,\xE2\x82\xAC \xC3\xA9",
       // ISO-8859-1 is read (and written) as windows-1252, which has the euro sign.
       "<HTML><meta charset=iso-8859-1>\x80 \xE9</HTML>"},
      {"UTF-8 keeps its byte-order mark", "\xEF\xBB\xBFx\xC3\xA9", "", "",
       "\xEF\xBB\xBF<HTML>x\xC3\xA9</HTML>"},
      {"UTF-16 keeps its byte-order mark and width", std::string("\xFF\xFEh\0i\0", 6), "", "",
       std::string("\xFF\xFE<\0H\0T\0M\0L\0>\0h\0i\0<\0/\0H\0T\0M\0L\0>\0", 32)},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    EXPECT_EQ(Cleanse(c.content, c.method, c.parameters), c.want);
  }
}

// A run cleanses and reads each document in one call, in memory: the file must end byte for byte
// as the passes on the file leave it, and the text must be what reading it back gives, also when a
// step changes how the file is read (a mark, a declared character set).
TEST_F(HtmlPluginTest, CleansingInMemoryLeavesTheFileAndTextOfCleansingTheFile) {
  struct Case {
    const char* what;
    std::string content;
    IDocPlugin::CleansePass first, second;
  };
  const Case cases[] = {
      {"the run's default: two plain cleanings", "junk<html><p>caf\xC3\xA9</html>tail", {}, {}},
      {"nothing to do", "<HTML>a</HTML>", {"NONE", ""}, {"none", ""}},
      {"objects, then a replacement",
       "<p>a<object>x</object>b",
       {"OBJECTS", ""},
       {"REPLACE", "b,c"}},
      {"pre tags and a pattern",
       "<pre>x y\r\n\tz</pre>\xE2\x80\x9Cq\xE2\x80\x9D",
       {"PRETAGS", ""},
       {"REGEXREPLACE", "q+,r"}},
      {"a failing step among others",
       "<!--x-->b-->c",
       {"REMOVETAGS", "<!--,-->"},
       {"REPLACE", "only"}},
      {"windows-1252 both ways",
       "<meta charset=windows-1252>caf\xE9 \x93q\x94 \x81",
       {},
       {"REPLACE", "q,\xD0\x96"}},
      {"UTF-8 with its mark", "\xEF\xBB\xBFx\xC3\xA9", {}, {"REMOVESTART", "1"}},
      {"UTF-16", std::string("\xFF\xFEh\0i\0", 6), {}, {"REPLACE", "i,\xC3\xA9"}},
      {"a step declares another set, and the next reads the file in it",
       "x\xC3\xA9",
       {"REPLACE", "x,<meta charset=windows-1252>"},
       {}},
      {"a step takes away the declaration the file was read by",
       "<meta charset=windows-1252>caf\xE9",
       {"REPLACE", "<meta charset=windows-1252>,"},
       {}},
      {"a step leaves a mark at the start, which the next reads as one",
       "a\xEF\xBB\xBF\xC3\xA9"
       "b",
       {"REMOVESTART", "1"},
       {}},
      {"invalid UTF-8 becomes replacement characters", "<p>\xC3(\xFF</p>", {}, {}},
  };
  const std::filesystem::path twin = dir_ / "twin.htm";
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    WriteFile(file_, c.content);
    plugin_->CleanseDocument(file_.string(), c.first.method, c.first.parameters);
    plugin_->CleanseDocument(file_.string(), c.second.method, c.second.parameters);
    plugin_->OpenDocument(file_.string());
    const std::string want_text = plugin_->GetSource();

    WriteFile(twin, c.content);
    const auto fresh = CHTMLPlugin::Create();
    EXPECT_EQ(fresh->CleanseAndGetSource(twin.string(), {c.first, c.second}), want_text);
    EXPECT_EQ(fresh->SourceText(), want_text);
    EXPECT_EQ(ReadFile(twin), ReadFile(file_));
  }
  // The file is written over in place: one cleansed to fewer bytes must end where its new
  // content ends, whichever way it was cleansed (a replacement keeps the page in its HTML tags).
  for (const std::string result : {"z", "", "<p>a longer text than the one it replaces</p>"}) {
    SCOPED_TRACE("cleansed to \"" + result + "\"");
    const IDocPlugin::CleansePass replace{"REPLACE", "<p>abcdefghij</p>," + result};
    WriteFile(file_, "<p>abcdefghij</p>");
    plugin_->CleanseDocument(file_.string(), replace.method, replace.parameters);
    EXPECT_EQ(ReadFile(file_), "<HTML>" + result + "</HTML>");
    WriteFile(twin, "<p>abcdefghij</p>");
    CHTMLPlugin::Create()->CleanseAndGetSource(twin.string(), {replace, {"NONE", ""}});
    EXPECT_EQ(ReadFile(twin), "<HTML>" + result + "</HTML>");
  }
  // A file that is not there, or a folder, reads as nothing and nothing is made.
  EXPECT_EQ(plugin_->CleanseAndGetSource((dir_ / "gone.htm").string(), {{}, {}}), "");
  EXPECT_FALSE(std::filesystem::exists(dir_ / "gone.htm"));
  EXPECT_EQ(plugin_->CleanseAndGetSource(dir_.Path().string(), {{}, {}}), "");
}

TEST_F(HtmlPluginTest, CleansingAMissingFileRaisesNothing) {
  EXPECT_NO_THROW(plugin_->CleanseDocument((dir_ / "gone.htm").string(), "OBJECTS"));
  EXPECT_NO_THROW(plugin_->CleanseDocument(dir_.Path().string(), "DEFAULT"));
  EXPECT_FALSE(std::filesystem::exists(dir_ / "gone.htm"));
}

TEST_F(HtmlPluginTest, GetSourceDecodesAndNormalisesTheOpenedFile) {
  WriteFile(file_, "<meta charset=windows-1252>\x93quoted\x94\r\nnext\rline\n\xE9");
  EXPECT_TRUE(plugin_->OpenDocument(file_.string()).IsEmpty());
  const std::string want = "<meta charset=windows-1252>\"quoted\"nextline\xC3\xA9";
  EXPECT_EQ(plugin_->GetSource(), want);
  EXPECT_EQ(plugin_->SourceText(), want);
  // A "file://" address names the same file.
  plugin_->OpenDocument("file://" + file_.string());
  EXPECT_EQ(plugin_->GetSource(), want);
  // A file that is not there reads as nothing.
  plugin_->OpenDocument((dir_ / "gone.htm").string());
  EXPECT_EQ(plugin_->GetSource(), "");
  EXPECT_EQ(plugin_->SourceText(), "");
}

TEST_F(HtmlPluginTest, HostObjectsAndNoticesWithoutTheBrowser) {
  auto tunnel = std::make_shared<EventTunnel>();
  int doc_notices = 0;
  ScopedConnection c = tunnel->OnActiveDocChange.Connect([&](const ObjectPtr&) { ++doc_notices; });
  plugin_->SetActiveDocument(std::make_shared<Object>());
  EXPECT_EQ(doc_notices, 0) << "no tunnel yet";
  plugin_->SetEventSvc(tunnel);
  auto doc = std::make_shared<Object>();
  plugin_->SetActiveDocument(doc);
  EXPECT_EQ(doc_notices, 1);
  EXPECT_EQ(plugin_->ActiveDocument(), doc);

  // Each test that is asked for must hold; the others are not looked at.
  EXPECT_TRUE(plugin_->IsReady(false, false, false, true, false, false, false, false, false));
  EXPECT_FALSE(plugin_->IsReady(false, false, false, true, false, true, false, false, false));
  plugin_->SetTreeCtrl(std::make_shared<Object>());
  EXPECT_TRUE(plugin_->IsReady(false, false, false, true, false, true, false, false, false));
  EXPECT_FALSE(plugin_->IsReady(false, false, false, false, true, false, false, false, false))
      << "no document text";
  WriteFile(file_, "<p>");
  plugin_->OpenDocument(file_.string());
  EXPECT_TRUE(plugin_->IsReady(false, false, false, false, true, false, false, false, false));

  // What needs the browser says so with 438.
  long start = 0, length = 0;
  EXPECT_EQ(FailureNumber([&] { plugin_->GetBrowserSelection(start, length); }),
            errnum::kNotSupported);
  EXPECT_EQ(FailureNumber([&] { plugin_->AddAttribute(); }), errnum::kNotSupported);
  EXPECT_EQ(FailureNumber([&] { plugin_->SetIsBrowserSelFrozen(true); }), errnum::kNotSupported);
  EXPECT_NO_THROW(plugin_->ShowDataPage());
}

}  // namespace
}  // namespace gw
