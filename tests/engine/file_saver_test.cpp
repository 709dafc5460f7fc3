// The file saver: path templates, limits, names that never overwrite, and files on disk.
#include "engine/file_saver.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>

#include "engine/run_fixture.h"
#include "platform/text.h"
#include "rules/settings.h"

namespace gw::engine_test {
namespace {

namespace fs = std::filesystem;
using testing::CaughtError;
using testing::FailureNumber;
using testing::ReadFile;
using testing::WriteFile;

class FileSaverTest : public RunTest {
 protected:
  FileSaverTest() { saver_->SetRootFolder(root_.Path().string()); }
  static std::shared_ptr<web::Uri> Url(const std::string& text) {
    return std::make_shared<web::Uri>(text);
  }
  // Every regular file below `dir`, as paths relative to it.
  static std::vector<std::string> FilesBelow(const fs::path& dir) {
    std::vector<std::string> files;
    for (const auto& e : fs::recursive_directory_iterator(dir)) {
      if (e.is_regular_file()) files.push_back(fs::relative(e.path(), dir).string());
    }
    std::sort(files.begin(), files.end());
    return files;
  }
  static std::string Today() {
    const DateTime now = DateTime::Now();
    return std::to_string(now.Month()) + "-" + std::to_string(now.Day()) + "-" +
           std::to_string(now.Year());
  }

  testing::TempDir root_;
  FileSaverPtr saver_ = FileSaver::Create();
};

TEST_F(FileSaverTest, TemplatesBecomeFileSystemNames) {
  struct Case {
    const char* name;
    const char* url;  // "" for none
    const char* file_template;
    std::string want;
  };
  const std::vector<Case> cases = {
      {"a dynamic page is saved as a page", "http://h/list.php?x=1", "[FILENAME]", "list.htm"},
      {"the address decides the extension", "http://h/list.php?x=1", "data.txt", "data.txt.htm"},
      {"an unmapped extension stays", "http://h/a/report.pdf", "[FILE]", "report.pdf"},
      {"a folder address", "http://h/a/", "[URLFILENAME]", "default.htm"},
      {"no query, no stray separator", "http://h/x.htm", "[FILENAME]?[URLQUERY]", "x.htm"},
      {"a query joins with an underscore", "http://h/x.htm?a=1", "[FILENAME]?[URLQUERY]",
       "x.htm_a=1.htm"},
      {"forbidden characters", "", "a:b|c*d<e>f\"g\\h/i.txt", "a_b_c_d(e)f'g_h_i.txt"},
      {"a name without anything", "", "", "default.htm"},
      {"a mapped extension without an address", "", "page.php", "page.php.htm"},
      {"an unknown tag passes through", "", "[NOPE].txt", "[NOPE].txt"},
      {"aliases ignore case", "http://h/p", "[host_name]", "h.htm"},
      {"a date pattern", "", "MM-DD-YYYY.txt", Today() + ".txt"},
      {"a date pattern inside a word", "", "ymm-x.txt",
       "y" + std::to_string(DateTime::Now().Month()) + "-x.txt"},
      {"a name that is only dots", "", "..", "...htm"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    saver_->SetSrcUrl(*c.url ? Url(c.url) : nullptr);
    saver_->SetFileName(c.file_template);
    EXPECT_EQ(saver_->CalcFileName(), c.want);
  }
}

TEST_F(FileSaverTest, FolderLevelsJoinUnderTheRoot) {
  const std::string root = root_.Path().string();
  struct Case {
    const char* name;
    std::string root_folder;
    const char *job, *task, *doc;
    const char* url;
    std::string want;
  };
  const std::vector<Case> cases = {
      {"one separator between root and level", root + "/", "[PKGNAME]", "", "", "",
       root + "/[PKGNAME]/"},
      {"the date alias", root, "[TODAY]", "", "", "", root + "/" + Today() + "/"},
      {"a slash makes a level", root, "", "", "a/b", "", root + "/a/b/"},
      {"so does a backslash", root, "", "a\\b", "", "", root + "/a/b/"},
      {"the address as folders", root, "[URL]", "", "", "http://a/b.htm", root + "/http_a/b.htm/"},
      {"blank levels are left out", root, " ", "", "x", "", root + "/x/"},
      {"an empty root is the product's folder", "", "x", "", "", "",
       (home_.Path() / "downloads").string() + "/x/"},
      {"the top of the file system", "/", "x", "", "", "", "/x/"},
  };
  Settings().PutOption("DefaultDownloadPath", Variant(""), DataType::Str);
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    auto saver = FileSaver::Create();
    saver->SetRootFolder(c.root_folder);
    saver->SetJobFolder(c.job);
    saver->SetTaskFolder(c.task);
    saver->SetDocFolder(c.doc);
    if (*c.url) saver->SetSrcUrl(Url(c.url));
    EXPECT_EQ(saver->BuildFolderPath(), c.want);
  }
}

TEST_F(FileSaverTest, TheDefaultRootIsTheSettingReadOnce) {
  Settings().PutOption("DefaultDownloadPath", Variant("/srv/dl/"), DataType::Str);
  auto saver = FileSaver::Create();
  saver->SetTaskFolder("t");
  EXPECT_EQ(saver->BuildFolderPath(), "/srv/dl/t/");
  Settings().PutOption("DefaultDownloadPath", Variant("/other"), DataType::Str);
  EXPECT_EQ(saver->BuildFolderPath(), "/srv/dl/t/");
}

TEST_F(FileSaverTest, TheTaskFillsItsTags) {
  auto job = NewJob("Shop\\Nightly");
  auto task = AddTask(job, "Fetch pages", 1, TaskTypes::DownloadOnly);
  task->SetStartTime(DateTime::FromParts(2026, 5, 6, 7, 8, 9));
  saver_->SetTask(task);
  saver_->SetDocID("doc-1");
  saver_->SetJobFolder("[JOBNAME]");
  saver_->SetTaskFolder("[TSK]_[TASK_START]");
  saver_->SetDocFolder("[PKGID]");
  saver_->SetFileName("[DOCID]");
  EXPECT_EQ(saver_->CalcFullPath(), root_.Path().string() +
                                        "/Shop/Nightly/Fetch pages_05-06-2026 07_08_09/" +
                                        job->JobId() + "/doc-1");
}

TEST_F(FileSaverTest, SavingNeverOverwrites) {
  saver_->SetFileName("x.htm");
  std::vector<std::string> paths;
  for (const char* body : {"one", "two", "three"}) {
    Stream s;
    s.Open();
    s.Write(body);
    paths.push_back(saver_->SaveStream(s));
    EXPECT_FALSE(s.IsOpen());
  }
  const std::string r = root_.Path().string();
  EXPECT_EQ(paths, (std::vector<std::string>{r + "/x.htm", r + "/x(1).htm", r + "/x(2).htm"}));
  EXPECT_EQ(ReadFile(paths[0]), "one");
  EXPECT_EQ(ReadFile(paths[2]), "three");
  EXPECT_EQ(FilesBelow(root_.Path()), (std::vector<std::string>{"x(1).htm", "x(2).htm", "x.htm"}))
      << "no temporary file is left";
}

TEST_F(FileSaverTest, EachNameIsToldBeforeTheFileHasIt) {
  // A listener hears every name tried, in order, before it is given: the taken one (someone
  // else's file there), then the free one, which nothing holds yet; saves and copies alike.
  const std::string r = root_.Path().string() + "/";
  WriteFile(r + "x.htm", "theirs");
  WriteFile(r + "source.txt", "copied");
  struct Notice {
    std::string path;
    bool existed;
  };
  std::vector<Notice> notices;
  saver_->SetNamingListener([&](const std::string& path) {
    notices.push_back({path, fs::exists(path)});
  });
  saver_->SetFileName("x.htm");
  EXPECT_EQ(saver_->SaveBytes("mine"), r + "x(1).htm");
  EXPECT_EQ(saver_->CopyFile(r + "source.txt"), r + "x(2).htm");
  ASSERT_EQ(notices.size(), 3U);
  EXPECT_EQ(notices[0].path, r + "x.htm");
  EXPECT_TRUE(notices[0].existed);
  for (std::size_t i = 1; i < notices.size(); ++i) {
    SCOPED_TRACE(notices[i].path);
    EXPECT_EQ(notices[i].path, r + "x(" + std::to_string(i) + ").htm");
    EXPECT_FALSE(notices[i].existed) << "told after the file had its name";
  }
  EXPECT_EQ(ReadFile(r + "x.htm"), "theirs");
  EXPECT_EQ(ReadFile(r + "x(2).htm"), "copied");
  // Without a listener nothing is told.
  saver_->SetNamingListener(nullptr);
  saver_->SaveBytes("more");
  EXPECT_EQ(notices.size(), 3U);
}

TEST_F(FileSaverTest, TheNextFreeNumberFollowsTheFilesThatAreThere) {
  saver_->SetFileName("x.htm");
  const std::string r = root_.Path().string() + "/";
  for (int i = 0; i < 4; ++i) saver_->SaveBytes("a");
  // Another writer took the next number: it is skipped.
  WriteFile(r + "x(4).htm", "other");
  EXPECT_EQ(saver_->SaveBytes("b"), r + "x(5).htm");
  EXPECT_EQ(ReadFile(r + "x(5).htm"), "b");
  // The files went (by hand, not by ClearRootFolder): numbering starts again at the plain name.
  for (const auto& entry : fs::directory_iterator(root_.Path())) fs::remove(entry.path());
  EXPECT_EQ(saver_->SaveBytes("c"), r + "x.htm");
  EXPECT_EQ(saver_->SaveBytes("d"), r + "x(1).htm");
  // Only the numbered files went: the plain name is taken, (1) is free again.
  saver_->SaveBytes("e");
  fs::remove(r + "x(1).htm");
  fs::remove(r + "x(2).htm");
  EXPECT_EQ(saver_->SaveBytes("f"), r + "x(1).htm");
  // Another saver, or the same folder under another name, knows nothing of these numbers.
  auto other = FileSaver::Create();
  other->SetRootFolder(root_.Path().string());
  other->SetFileName("x.htm");
  EXPECT_EQ(other->SaveBytes("g"), r + "x(2).htm");
  EXPECT_EQ(ReadFile(r + "x(1).htm"), "f");
}

TEST_F(FileSaverTest, ANameTakenBeforeTheFirstSaveIsLeftAsItIs) {
  // Whatever holds the name (a file, a folder, a link to nothing, a link to a file), the first
  // save under it takes the next number and touches none of it; a name cut to fit the path's 255
  // characters is taken the same way.
  struct Case {
    const char* name;
    bool cut;
    std::function<void(const fs::path&)> take;
  };
  const std::vector<Case> cases = {
      {"a file", false, [](const fs::path& p) { WriteFile(p, "theirs"); }},
      {"a folder", false, [](const fs::path& p) { fs::create_directory(p); }},
      {"a link to nothing", false,
       [](const fs::path& p) { fs::create_symlink(p.parent_path() / "nowhere", p); }},
      {"a link to a file", false,
       [](const fs::path& p) {
         WriteFile(p.parent_path() / "target.txt", "theirs");
         fs::create_symlink(p.parent_path() / "target.txt", p);
       }},
      {"a cut name", true, [](const fs::path& p) { WriteFile(p, "theirs"); }},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    testing::TempDir folder;
    const fs::path root = folder.Path();
    // Cut, "<n...>extra.htm" loses "extra" (and three more characters beside a number).
    const std::string base(250 - root.string().size(), 'n');
    auto saver = FileSaver::Create();
    saver->SetRootFolder(root.string());
    saver->SetFileName(c.cut ? base + "extra.htm" : "x.htm");
    const std::string plain = c.cut ? base : "x";
    const std::string numbered = c.cut ? base.substr(3) : "x";
    c.take(root / (plain + ".htm"));
    const auto before = FilesBelow(root);
    const std::string first = saver->SaveBytes("mine");
    EXPECT_EQ(first, (root / (numbered + "(1).htm")).string());
    EXPECT_EQ(saver->LastPathWasShortened(), c.cut);
    EXPECT_EQ(ReadFile(first), "mine");
    // The next save goes on after it.
    EXPECT_EQ(saver->SaveBytes("again"), (root / (numbered + "(2).htm")).string());
    if (fs::is_regular_file(root / (plain + ".htm"))) {
      EXPECT_EQ(ReadFile(root / (plain + ".htm")), "theirs");
    }
    auto after = FilesBelow(root);
    std::erase(after, numbered + "(1).htm");
    std::erase(after, numbered + "(2).htm");
    EXPECT_EQ(after, before);
  }
}

TEST_F(FileSaverTest, LongPathsAreShortenedToTheLimits) {
  // A folder of 200 characters and a name of 70: the name's base is cut so the path is 255.
  const std::string folder =
      root_.Path().string() + "/" + std::string(200 - root_.Path().string().size() - 1, 'f');
  saver_->SetRootFolder(folder);
  saver_->SetFileName(std::string(66, 'n') + ".htm");
  const std::string first = saver_->SaveBytes("a");
  EXPECT_EQ(text::CountCodePoints(first), 255u);
  EXPECT_TRUE(saver_->LastPathWasShortened());
  const std::string second = saver_->SaveBytes("b");
  EXPECT_EQ(text::CountCodePoints(second), 255u);
  EXPECT_TRUE(second.ends_with("(1).htm")) << second;

  // A level of 300 two-byte characters: the folder path is cut to 243 characters, and no
  // component is longer than 255 bytes.
  auto saver = FileSaver::Create();
  saver->SetRootFolder(root_.Path().string());
  std::string wide;
  for (int i = 0; i < 300; ++i) wide += "\xC3\xA9";
  saver->SetJobFolder(wide);
  saver->SetTaskFolder("t");
  saver->SetFileName("f.txt");
  const std::string path = saver->SaveBytes("c");
  EXPECT_TRUE(saver->LastPathWasShortened());
  for (const auto& part : fs::path(path)) EXPECT_LE(part.string().size(), 255u);
  EXPECT_LE(text::CountCodePoints(fs::path(path).parent_path().string()), 243u);
  EXPECT_EQ(ReadFile(path), "c");

  // A short path is not shortened.
  saver_->SetRootFolder(root_.Path().string());
  saver_->SetFileName("short.txt");
  saver_->SaveBytes("d");
  EXPECT_FALSE(saver_->LastPathWasShortened());
}

TEST_F(FileSaverTest, NothingAnAddressSaysClimbsOutOfTheRoot) {
  const fs::path root = root_.Path() / "root";
  saver_->SetRootFolder(root.string());
  struct Case {
    const char* url;
    const char *job, *doc, *file;
  };
  const std::vector<Case> cases = {
      {"http://h/a/..%2F..%2F..%2Fescaped/x.htm", "[URL]", "", "[FILENAME]"},
      {"http://h/../../../../escaped/x.htm", "[URLPATH]", "[URLPATH]", "[FILENAME]"},
      {"http://h/x.htm?..%2F..%2F..%2Fescaped", "", "[URLQUERY]", "[URLQUERY]"},
      {"http://h/..", "[FILENAME]", "", "[QUERY]"},
      {"http://../../escaped", "[HOST]", "", "[HOST]"},
      {"http://h/%00/%0A/x.htm", "[URL]", "", "[URL]"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.url);
    saver_->SetSrcUrl(Url(c.url));
    saver_->SetJobFolder(c.job);
    saver_->SetDocFolder(c.doc);
    saver_->SetFileName(c.file);
    const std::string path = saver_->SaveBytes("x");
    const fs::path canonical = fs::weakly_canonical(path);
    EXPECT_EQ(canonical.string().rfind(root.string() + "/", 0), 0u) << path;
    EXPECT_TRUE(fs::is_regular_file(canonical)) << path;
  }
  // Only the root folder is in the temporary folder.
  std::vector<std::string> top;
  for (const auto& e : fs::directory_iterator(root_.Path()))
    top.push_back(e.path().filename().string());
  EXPECT_EQ(top, std::vector<std::string>{"root"});
}

TEST_F(FileSaverTest, AFolderThatCannotBeMadeIsAFailure) {
  WriteFile(root_ / "file", "in the way");
  saver_->SetRootFolder((root_ / "file").string());
  saver_->SetJobFolder("sub");
  const Error e = CaughtError([&] { saver_->SaveBytes("x"); });
  EXPECT_EQ(e.Number(), engineerr::kCannotCreateFolder);
  EXPECT_EQ(e.Source(), "FileSaver.EnsureFileExists");
  EXPECT_NE(
      e.Description().find("Could not create folder '" + (root_ / "file").string() + "/sub/'."),
      std::string::npos)
      << e.Description();
}

TEST_F(FileSaverTest, AFolderRemovedBetweenSavesIsMadeAgainOrReportedAsBefore) {
  // The saver makes its folder once and then trusts it: whatever happens to the folder between
  // two saves, the next save behaves as if it were the first.
  struct Case {
    const char* name;
    std::function<void(const fs::path& folder)> meanwhile;
    bool fails;
  };
  const std::vector<Case> cases = {
      {"folder removed", [](const fs::path& f) { fs::remove_all(f); }, false},
      {"folder and its parent removed", [](const fs::path& f) { fs::remove_all(f.parent_path()); },
       false},
      {"folder emptied", [](const fs::path& f) { fs::remove_all(f), fs::create_directory(f); },
       false},
      {"folder replaced by a file",
       [](const fs::path& f) { fs::remove_all(f), WriteFile(f, "in the way"); }, true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    testing::TempDir root;
    auto saver = FileSaver::Create();
    saver->SetRootFolder(root.Path().string());
    saver->SetJobFolder("job");
    saver->SetTaskFolder("task");
    saver->SetFileName("x.htm");
    const fs::path folder = root / "job" / "task";
    EXPECT_EQ(saver->SaveBytes("one"), (folder / "x.htm").string());
    EXPECT_EQ(saver->SaveBytes("two"), (folder / "x(1).htm").string());
    c.meanwhile(folder);
    if (c.fails) {
      const Error e = CaughtError([&] { saver->SaveBytes("three"); });
      EXPECT_EQ(e.Number(), engineerr::kCannotCreateFolder);
      EXPECT_EQ(e.Source(), "FileSaver.EnsureFileExists");
      continue;
    }
    const std::string third = saver->SaveBytes("three");
    EXPECT_EQ(third, (folder / "x.htm").string()) << "numbering starts again in the new folder";
    EXPECT_EQ(ReadFile(third), "three");
    EXPECT_EQ(saver->SaveBytes("four"), (folder / "x(1).htm").string());
    testing::TempDir src;
    WriteFile(src / "a.htm", "page");
    fs::remove_all(root / "job");
    EXPECT_EQ(saver->CopyFile((src / "a.htm").string()), (folder / "x.htm").string())
        << "a copy makes the folder again too";
    EXPECT_EQ(ReadFile(folder / "x.htm"), "page");
    EXPECT_EQ(FilesBelow(root.Path()), (std::vector<std::string>{"job/task/x.htm"}));
  }
}

TEST_F(FileSaverTest, TextIsNewInUtf16AndAppendedInUtf8) {
  saver_->SetFileName("list.txt");
  const std::string path = saver_->SaveText("\xC3\xA9");
  EXPECT_EQ(ReadFile(path), std::string("\xFF\xFE\xE9\x00", 4));
  saver_->SaveText("ab", false, true);
  EXPECT_EQ(ReadFile(path), std::string("\xFF\xFE\xE9\x00"
                                        "ab",
                                        6));
  // Without Append a second file is made; with Overwrite the first is replaced.
  EXPECT_TRUE(saver_->SaveText("c").ends_with("list(1).txt"));
  EXPECT_EQ(saver_->SaveText("d", true), path);
  EXPECT_EQ(ReadFile(path), std::string("\xFF\xFE"
                                        "d\x00",
                                        4));
}

TEST_F(FileSaverTest, CopiesAndClearsFiles) {
  testing::TempDir src;
  WriteFile(src / "a.htm", "page");
  saver_->SetFileName("[DOCID].htm");
  saver_->SetDocID("d1");
  fs::permissions(src / "a.htm", fs::perms::owner_read | fs::perms::owner_write |
                                     fs::perms::group_read | fs::perms::others_exec);
  const std::string copy = saver_->CopyFile("file://" + (src / "a.htm").string());
  EXPECT_EQ(copy, (root_ / "d1.htm").string());
  EXPECT_EQ(ReadFile(copy), "page");
  EXPECT_EQ(fs::status(copy).permissions(), fs::status(src / "a.htm").permissions())
      << "the copy keeps the source's permissions";
  EXPECT_EQ(saver_->CopyFile((src / "a.htm").string()), (root_ / "d1(1).htm").string());
  EXPECT_EQ(FailureNumber([&] { saver_->CopyFile((src / "gone.htm").string()); }),
            errnum::kFileNotFound);

  fs::create_directories(root_ / "sub" / "deeper");
  WriteFile(root_ / "sub" / "deeper" / "f", "x");
  saver_->ClearRootFolder();
  EXPECT_TRUE(fs::is_directory(root_.Path()));
  EXPECT_TRUE(fs::is_empty(root_.Path()));
  EXPECT_EQ(ReadFile(src / "a.htm"), "page") << "the source is not touched";
}

// A copy is the whole file and says how many bytes it holds, whatever the size the file was looked
// at with says (the kernel's own files say nothing and hold text).
TEST_F(FileSaverTest, ACopyIsTheWholeFileAndCountsItsBytes) {
  testing::TempDir src;
  saver_->SetFileName("c.htm");
  for (const std::size_t size :
       {std::size_t{0}, std::size_t{1}, std::size_t{65537}, std::size_t{3} << 20}) {
    SCOPED_TRACE(size);
    std::string bytes(size, '\0');
    for (std::size_t k = 0; k < size; ++k) bytes[k] = static_cast<char>('a' + k % 26);
    const fs::path file = src / ("f" + std::to_string(size));
    WriteFile(file, bytes);
    long long copied = -1;
    const std::string copy = saver_->CopyFile(file.string(), &copied);
    EXPECT_EQ(copied, static_cast<long long>(size));
    EXPECT_EQ(ReadFile(copy), bytes);
  }
  long long copied = -1;
  const std::string copy = saver_->CopyFile("/proc/self/status", &copied);
  const std::string text = ReadFile(copy);
  EXPECT_EQ(text.rfind("Name:", 0), 0u) << text;
  EXPECT_EQ(copied, static_cast<long long>(text.size()));
}

TEST_F(FileSaverTest, TheTextFormHoldsTheFiveTemplates) {
  saver_->SetRootFolder("/r");
  saver_->SetJobFolder("[PKGNAME]");
  saver_->SetTaskFolder("t");
  saver_->SetDocFolder("d");
  saver_->SetFileName("[DOCID]");
  const std::string text = saver_->Serialize();
  EXPECT_EQ(text,
            "<FileSaver><DocFolder value=\"d\"/><FileName value=\"[DOCID]\"/><JobFolder "
            "value=\"[PKGNAME]\"/><RootFolder value=\"/r\"/><TaskFolder value=\"t\"/></FileSaver>");
  auto back = FileSaver::Create();
  back->Deserialize(text);
  EXPECT_EQ(back->Serialize(), text);
  // A text that does not parse changes nothing; unknown elements are passed over.
  back->Deserialize("<FileSaver><RootFolder value=\"a & b\"/></FileSaver>");
  back->Deserialize("<FileSaver><Other value=\"x\"/><TaskFolder value=\"u\"/></FileSaver>");
  EXPECT_EQ(back->RootFolder(), "/r");
  EXPECT_EQ(back->TaskFolder(), "u");
}

TEST_F(FileSaverTest, ATaskKeepsItsSaverAndClientInItsTextForm) {
  auto job = NewJob("P");
  auto task = AddTask(job, "T", 1, TaskTypes::DownloadOnly);
  task->SaveAsTemplate()->SetRootFolder("/data");
  task->SaveAsTemplate()->SetFileName("[DOCID]");
  task->TemplateHttpClient()->SetUserAgent("Agent/1");
  job->SaveAll();
  auto loaded = Task::Create();
  loaded->Load(task->TaskId());
  EXPECT_EQ(loaded->SaveAsTemplate()->RootFolder(), "/data");
  EXPECT_EQ(loaded->SaveAsTemplate()->FileName(), "[DOCID]");
  EXPECT_EQ(loaded->TemplateHttpClient()->UserAgent(), "Agent/1");
}

}  // namespace
}  // namespace gw::engine_test
