// gleanwright export and import, run as the program a user runs.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "cli.h"
#include "support/test_support.h"

namespace gw {
namespace {

using testing::RunCli;
using Result = testing::CliResult;

std::string Example(const char* name) {
  return "'" + (testing::SourceDir() / "examples/exchange" / name).string() + "'";
}

TEST(ExchangeCommands, ExportedFilesMoveToAnotherStoreAndComeBackTheSame) {
  testing::TempDir here;
  ASSERT_EQ(RunCli(here.Path(), "import " + Example("shop-template.xml")).status, 0);
  Result imported = RunCli(here.Path(), "import " + Example("shop-package.xml"));
  ASSERT_EQ(imported.status, 0) << imported.output;
  EXPECT_EQ(imported.output.rfind("Created package Shop\\Nightly (", 0), 0u) << imported.output;

  const auto file = here.Path() / "nightly.xml";
  Result exported =
      RunCli(here.Path(), "export --package 'shop\\nightly' -o '" + file.string() + "'");
  ASSERT_EQ(exported.status, 0) << exported.output;
  EXPECT_EQ(exported.output, "Wrote " + file.string() + "\n");
  const std::string text = testing::ReadFile(file);
  EXPECT_EQ(RunCli(here.Path(), "export --package 'Shop\\Nightly'", false).output, text)
      << "standard output holds the same file";

  testing::TempDir there;
  Result again = RunCli(there.Path(), "import '" + file.string() + "'");
  ASSERT_EQ(again.status, 0) << again.output;
  EXPECT_NE(again.output.find("Created datapage Shop\\Products"), std::string::npos);
  EXPECT_EQ(RunCli(there.Path(), "export --package 'Shop\\Nightly'", false).output, text);
  Result twice = RunCli(there.Path(), "import '" + file.string() + "'");
  EXPECT_NE(twice.output.find("Updated package Shop\\Nightly"), std::string::npos) << twice.output;
}

TEST(ExchangeCommands, AFaultyFileIsRefusedWithItsNameAndLine) {
  testing::TempDir home;
  const auto file = home.Path() / "broken.xml";
  std::string text =
      testing::ReadFile(testing::SourceDir() / "examples/exchange/shop-template.xml");
  text.replace(text.find("</Attrib>"), 9, "</Attribute>");
  testing::WriteFile(file, text);
  Result r = RunCli(home.Path(), "import '" + file.string() + "'");
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.output.find(file.string() + ":19: "), std::string::npos) << r.output;
  Result listed = RunCli(home.Path(), "datapages");
  EXPECT_EQ(listed.output, "No datapages.\n") << "nothing was stored";

  Result missing = RunCli(home.Path(), "export --datapage Nothing");
  EXPECT_EQ(missing.status, 1);
  EXPECT_NE(missing.output.find("no datapage with the id or name \"Nothing\""), std::string::npos)
      << missing.output;
  EXPECT_NE(RunCli(home.Path(), "export").status, 0) << "one of --datapage and --package is needed";
}

TEST(ExchangeCommands, ExportWritesThroughLinksAndLeavesNoPartialFile) {
  testing::TempDir home;
  ASSERT_EQ(RunCli(home.Path(), "import " + Example("shop-template.xml")).status, 0);
  const std::string text = RunCli(home.Path(), "export --datapage 'Shop\\Products'", false).output;
  ASSERT_NE(text.find("<GleanwrightExport"), std::string::npos) << text;
  const auto dir = home.Path() / "out";
  std::filesystem::create_directories(dir / "real");
  const auto listing = [&] {
    std::vector<std::string> names;
    for (const auto& e : std::filesystem::recursive_directory_iterator(dir)) {
      names.push_back(e.path().lexically_relative(dir).string());
    }
    std::sort(names.begin(), names.end());
    return names;
  };
  const auto export_to = [&](const std::string& output) {
    return RunCli(home.Path(), "export --datapage 'Shop\\Products' -o '" + output + "'", true,
                  true);
  };

  // A link is written through: it stays a link, and the file it names holds the export.
  testing::WriteFile(dir / "real" / "t.xml", "old");
  std::filesystem::create_symlink("real/t.xml", dir / "link.xml");
  EXPECT_EQ(export_to((dir / "link.xml").string()).status, 0);
  EXPECT_TRUE(std::filesystem::is_symlink(dir / "link.xml"));
  EXPECT_EQ(testing::ReadFile(dir / "real" / "t.xml"), text);
  // A link to a file that is not there yet makes it.
  std::filesystem::create_symlink("real/new.xml", dir / "new-link.xml");
  EXPECT_EQ(export_to((dir / "new-link.xml").string()).status, 0);
  EXPECT_EQ(testing::ReadFile(dir / "real" / "new.xml"), text);
  // Standard output, by name or as a device.
  Result dash = RunCli(home.Path(), "export --datapage 'Shop\\Products' -o -", false);
  EXPECT_EQ(dash.status, 0);
  EXPECT_EQ(dash.output, text);
  Result device = RunCli(home.Path(), "export --datapage 'Shop\\Products' -o /dev/stdout", false);
  EXPECT_EQ(device.status, 0);
  EXPECT_EQ(device.output, text + "Wrote /dev/stdout\n");
  // A folder is refused, with nothing left beside it.
  Result folder = export_to((dir / "real").string());
  EXPECT_EQ(folder.status, 1);
  EXPECT_NE(folder.output.find("Cannot write " + (dir / "real").string() + ": it is a folder"),
            std::string::npos)
      << folder.output;
  // A folder that may not be written: the old file stays as it was, and nothing is left.
  testing::WriteFile(dir / "locked" / "t.xml", "old");
  std::filesystem::permissions(
      dir / "locked", std::filesystem::perms::owner_read | std::filesystem::perms::owner_exec);
  Result locked = export_to((dir / "locked" / "t.xml").string());
  std::filesystem::permissions(dir / "locked", std::filesystem::perms::owner_all);
  EXPECT_EQ(locked.status, 1);
  EXPECT_NE(locked.output.find("Permission denied"), std::string::npos) << locked.output;
  EXPECT_EQ(testing::ReadFile(dir / "locked" / "t.xml"), "old");
  EXPECT_EQ(listing(),
            (std::vector<std::string>{"link.xml", "locked", "locked/t.xml", "new-link.xml", "real",
                                      "real/new.xml", "real/t.xml"}));
}

TEST(ExchangeCommands, RefusalsBlameWhatIsAtFault) {
  testing::TempDir home;
  ASSERT_EQ(RunCli(home.Path(), "init").status, 0);
  // A folder is said to be one.
  Result folder = RunCli(home.Path(), "import '" + home.Path().string() + "'");
  EXPECT_EQ(folder.status, 1);
  EXPECT_NE(folder.output.find("Cannot read " + home.Path().string() + ": it is a folder."),
            std::string::npos)
      << folder.output;
  // A rules database that may not be written is named, and the file's lines are not blamed.
  const auto store = home.Path() / "ZentrovoDB.sqlite";
  std::filesystem::permissions(store, std::filesystem::perms::owner_read);
  Result read_only = RunCli(home.Path(), "import " + Example("shop-template.xml"), true, true);
  std::filesystem::permissions(
      store, std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
  EXPECT_EQ(read_only.status, 1);
  EXPECT_NE(read_only.output.find(store.string()), std::string::npos) << read_only.output;
  EXPECT_EQ(read_only.output.find("shop-template.xml:"), std::string::npos) << read_only.output;
  EXPECT_EQ(RunCli(home.Path(), "datapages").output, "No datapages.\n");
}

}  // namespace
}  // namespace gw
