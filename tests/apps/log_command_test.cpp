// What a failed command leaves behind, and the start-up on a fresh machine, as a user sees them.
#include <gtest/gtest.h>

#include <filesystem>

#include "cli.h"
#include "support/test_support.h"

namespace gw {
namespace {

using testing::RunCli;

TEST(FailedCommand, ShowsAndLogsItsFullReportAndLogPrintsIt) {
  testing::TempDir home;
  const auto r = RunCli(home.Path(), "--rules 'Provider=Nothing;Data Source=x' datapages");
  EXPECT_EQ(r.status, 1);
  // The one-line form first, then the report with the number in hexadecimal.
  EXPECT_NE(r.output.find("gleanwright: error 0x800A0E7A"), std::string::npos) << r.output;
  EXPECT_NE(r.output.find("  Number: -2146824582 = &H800A0E7A = vbObjectError "), std::string::npos)
      << r.output;
  EXPECT_NE(r.output.find("  Active Form='datapages' \n"), std::string::npos) << r.output;
  EXPECT_NE(r.output.find("    D_DataPage.GetDatapageCategoryHierarchy"), std::string::npos)
      << r.output;
  EXPECT_NE(r.output.find("    Value Of CommandLine:'--rules Provider=Nothing;Data Source=x "
                          "datapages'\n"),
            std::string::npos)
      << r.output;

  const auto log = home.Path() / "logs" / "LogFile.txt";
  ASSERT_TRUE(std::filesystem::exists(log));
  const std::string logged = testing::ReadFile(log);
  EXPECT_NE(logged.find("  Number: -2146824582 = &H800A0E7A"), std::string::npos) << logged;
  EXPECT_EQ(logged.substr(logged.size() - 2), "\n\n");

  // The report ends with a line end, and each entry is followed by two more.
  const auto tail = RunCli(home.Path(), "log --tail 4", false);
  EXPECT_EQ(tail.status, 0);
  EXPECT_EQ(tail.output,
            "    Value Of CommandLine:'--rules Provider=Nothing;Data Source=x "
            "datapages'\n" +
                std::string(100, '-') + "\n\n\n");
}

TEST(FailedCommand, LogSaysSoWhenNothingWasLogged) {
  testing::TempDir home;
  const auto r = RunCli(home.Path(), "log", false);
  EXPECT_EQ(r.status, 0);
  EXPECT_NE(r.output.find("Nothing logged yet"), std::string::npos) << r.output;
  // `log` runs no start-up tasks: nothing was created.
  EXPECT_FALSE(std::filesystem::exists(home.Path() / "ZentrovoDB.sqlite"));
}

TEST(StartUp, AFreshMachineIsSetUpByAnyCommandAndOnlyOnce) {
  testing::TempDir home;
  const auto first = RunCli(home.Path(), "packages");
  ASSERT_EQ(first.status, 0) << first.output;
  EXPECT_EQ(first.output, "No packages.\n");
  EXPECT_TRUE(std::filesystem::exists(home.Path() / "ZentrovoDB.sqlite"));
  EXPECT_TRUE(std::filesystem::is_directory(home.Path() / "downloads"));
  const std::string registry = testing::ReadFile(home.Path() / "registry.txt");
  EXPECT_NE(registry.find("\"IsFirstRun\"=dword:0"), std::string::npos) << registry;
  const auto trace = RunCli(home.Path(), "log --trace --tail 100", false);
  EXPECT_NE(trace.output.find("[FirstRun] IsFirstRun Set to False"), std::string::npos)
      << trace.output;

  const auto second = RunCli(home.Path(), "packages");
  ASSERT_EQ(second.status, 0) << second.output;
  EXPECT_EQ(testing::ReadFile(home.Path() / "registry.txt"), registry);
  const auto trace2 = RunCli(home.Path(), "log --trace --tail 3", false);
  EXPECT_NE(trace2.output.find("[Startup] After DisableScriptDebugging"), std::string::npos)
      << trace2.output;
}

}  // namespace
}  // namespace gw
