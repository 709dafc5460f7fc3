// gleanwright export and import, run as the program a user runs.
#include <gtest/gtest.h>

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

}  // namespace
}  // namespace gw
