#include <gtest/gtest.h>

#include <chrono>
#include <fstream>

#include "platform/charset.h"
#include "platform/document_file.h"
#include "platform/error.h"
#include "platform/event_loop.h"
#include "platform/process.h"
#include "support/test_support.h"

namespace gw {
namespace {

TEST(DecodeToUtf8, PicksTheCharacterSetInOrder) {
  struct Case {
    const char* what;
    std::string bytes;
    std::string declared;
    std::string want_text;
    std::string want_charset;
  };
  const Case cases[] = {
      {"plain UTF-8", "caf\xC3\xA9", "", "caf\xC3\xA9", "UTF-8"},
      {"BOM wins over a header",
       "\xEF\xBB\xBF"
       "a\xC3\xA9",
       "windows-1252", "a\xC3\xA9", "UTF-8"},
      {"Latin-1 header read as windows-1252", "\x93quoted\x94 \xE9", "ISO-8859-1",
       "\xE2\x80\x9Cquoted\xE2\x80\x9D \xC3\xA9", "windows-1252"},
      {"meta charset", "<meta charset=\"windows-1251\">\xCF\xF0\xE8", "",
       "<meta charset=\"windows-1251\">\xD0\x9F\xD1\x80\xD0\xB8", "windows-1251"},
      {"http-equiv meta",
       "<META HTTP-EQUIV=\"Content-Type\" CONTENT=\"text/html; charset=iso-8859-2\">\xB1", "",
       "<META HTTP-EQUIV=\"Content-Type\" CONTENT=\"text/html; charset=iso-8859-2\">\xC4\x85",
       "iso-8859-2"},
      // A declared set wins over what the bytes look like: one bad byte is one replacement
      // character, not a reason to read the page in a legacy code page.
      {"declared UTF-8 with an invalid byte",
       "Cr\xC3\xA8me br\xFBl\xC3\xA9"
       "e",
       "utf-8",
       "Cr\xC3\xA8me br\xEF\xBF\xBDl\xC3\xA9"
       "e",
       "UTF-8"},
      {"meta UTF-8 with an invalid byte", "<meta charset=\"utf-8\"><p>Cr\xC3\xA8me \xE9</p>", "",
       "<meta charset=\"utf-8\"><p>Cr\xC3\xA8me \xEF\xBF\xBD</p>", "UTF-8"},
      {"nothing declared, not UTF-8: detected",
       "caf\xE9 cr\xE8me br\xFBl\xE9"
       "e",
       "",
       "caf\xC3\xA9 cr\xC3\xA8me br\xC3\xBBl\xC3\xA9"
       "e",
       "windows-1252"},
      {"unknown declared set passed over", "abc", "no-such-charset", "abc", "UTF-8"},
      {"UTF-16 with BOM", std::string("\xFF\xFEh\0i\0", 6), "", "hi", "UTF-16LE"},
      {"empty", "", "", "", "UTF-8"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    const DecodedText d = DecodeToUtf8(c.bytes, c.declared);
    EXPECT_EQ(d.text, c.want_text);
    EXPECT_EQ(d.charset, c.want_charset);
  }
  EXPECT_EQ(CharsetFromContentType("text/html; Charset=\"Shift_JIS\""), "Shift_JIS");
  EXPECT_EQ(CharsetFromContentType("text/html"), "");
}

TEST(EncodeFromUtf8, WritesBackInTheSetAndReferencesWhatItCannotHold) {
  struct Case {
    const char* what;
    std::string text;
    std::string charset;
    std::string want;
  };
  const Case cases[] = {
      {"UTF-8 stays", "caf\xC3\xA9 \xE2\x82\xAC", "UTF-8", "caf\xC3\xA9 \xE2\x82\xAC"},
      {"windows-1252 holds the euro sign", "\xE2\x82\xAC \xC3\xA9", "windows-1252", "\x80 \xE9"},
      {"a character the set lacks",
       "a\xE2\x82\xAC"
       "b",
       "ISO-8859-1", "a&#8364;b"},
      {"several in a row, and a supplementary one", "\xD0\x9F\xF0\x9F\x98\x80!", "windows-1252",
       "&#1055;&#128512;!"},
      {"UTF-16LE", "hi", "UTF-16LE", std::string("h\0i\0", 4)},
      {"empty", "", "windows-1251", ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    EXPECT_EQ(EncodeFromUtf8(c.text, c.charset), c.want);
  }
  // What the decoder read comes back byte for byte.
  const std::string cyrillic = "<meta charset=\"windows-1251\">\xCF\xF0\xE8";
  const DecodedText d = DecodeToUtf8(cyrillic);
  EXPECT_EQ(EncodeFromUtf8(d.text, d.charset), cyrillic);
  EXPECT_THROW(EncodeFromUtf8("x", "no-such-charset"), Error);
}

// The whole file whatever its size says: exactly its bytes when the size is right, and the text
// of a file that says it has none (as the kernel's own files do).
TEST(ReadFileBytes, ReadsTheWholeFileWhateverItsSizeSays) {
  testing::TempDir dir;
  for (const std::size_t size : {std::size_t{0}, std::size_t{1}, std::size_t{4096},
                                 std::size_t{65536}, std::size_t{200001}}) {
    SCOPED_TRACE(size);
    std::string bytes(size, '\0');
    for (std::size_t k = 0; k < size; ++k) bytes[k] = static_cast<char>('a' + k % 26);
    const std::string path = (dir.Path() / ("f" + std::to_string(size))).string();
    std::ofstream(path, std::ios::binary) << bytes;
    EXPECT_EQ(ReadFileBytes(path, "Tests.Read"), bytes);
  }
  const std::string status = ReadFileBytes("/proc/self/status", "Tests.Read");
  EXPECT_EQ(status.rfind("Name:", 0), 0u) << status;
  EXPECT_NE(status.find("\nPid:"), std::string::npos) << status;
}

TEST(ChildProcess, PollingSeesTheEndWithoutBlocking) {
  gw::testing::TempDir dir;
  auto p =
      ChildProcess::StartCommandLine("sleep 0.2; echo done > out.txt; exit 3", dir.Path().string());
  EXPECT_TRUE(p->IsRunning());
  int rounds = 0;
  const bool ended = EventLoop::Current().RunUntil(
      [&] {
        ++rounds;
        return !p->IsRunning();
      },
      std::chrono::seconds(10), std::chrono::milliseconds(20));
  EXPECT_TRUE(ended);
  EXPECT_GT(rounds, 2);  // the loop kept turning while the process ran
  EXPECT_EQ(p->ExitCode(), 3);
  EXPECT_EQ(gw::testing::ReadFile(dir / "out.txt"), "done\n");
}

TEST(ChildProcess, KilledProcessReportsTheSignal) {
  auto p = ChildProcess::Start({"sleep", "30"});
  p->Kill(true);
  EXPECT_EQ(p->Wait(), 128 + 9);
  EXPECT_THROW(ChildProcess::Start({"/no/such/program"}), Error);
}

}  // namespace
}  // namespace gw
