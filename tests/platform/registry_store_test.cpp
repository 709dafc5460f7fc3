#include "platform/registry_store.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

#include "support/test_support.h"

extern char** environ;

namespace gw {
namespace {

using testing::FailureNumber;

constexpr std::string_view kProductKey = "SOFTWARE\\Tallowmere\\Zentrovo";

TEST(RegistryStore, EveryTypeSurvivesTheFile) {
  testing::TempDir dir;
  const auto file = dir / "registry.txt";
  const std::string odd =
      std::string("quote \" backslash \\ tab\t line\r\n nul ") + '\0' + " bell \x07 ünïcode ]";
  const std::vector<std::pair<std::string, RegValue>> values = {
      {"CnStr", RegValue::String(odd)},
      {"", RegValue::String("default value")},
      {"Path", RegValue::String("%HOME%\\x", RegType::ExpandSz)},
      {"IsFirstRun", RegValue::Dword(1)},
      {"Max", RegValue::Dword(0xFFFFFFFFu)},
      {"Blob", RegValue::Binary(std::string("\x00\x1f\xff", 3))},
      {"Nothing", RegValue::Binary("", RegType::None)},
      {"List", RegValue::MultiString({"a", "", "c,\"d\""})},
      {"EmptyList", RegValue::MultiString({})},
  };
  {
    RegistryStore store(file);
    for (const auto& [name, value] : values) {
      store.SetValue(RegRoot::LocalMachine, kProductKey, name, value);
    }
  }
  RegistryStore fresh(file);
  const RegistryData data = fresh.Read();
  std::vector<std::string> names;
  for (const auto& [name, value] : values) {
    SCOPED_TRACE(name);
    names.push_back(name);
    const RegValue* got = data.FindValue(RegRoot::LocalMachine, kProductKey, name);
    ASSERT_NE(got, nullptr);
    EXPECT_EQ(*got, value);
  }
  EXPECT_EQ(data.ValueNames(RegRoot::LocalMachine, kProductKey), names);
  // The same path under another root is another key.
  EXPECT_FALSE(data.HasKey(RegRoot::CurrentUser, kProductKey));

  const std::string text = testing::ReadFile(file);
  EXPECT_NE(text.find("[HKEY_LOCAL_MACHINE\\SOFTWARE\\Tallowmere\\Zentrovo]\n"), std::string::npos);
  EXPECT_NE(text.find("\"IsFirstRun\"=dword:1\n"), std::string::npos);
  EXPECT_NE(text.find("\"Blob\"=binary:00,1f,ff\n"), std::string::npos);
}

TEST(RegistryStore, NamesIgnoreCaseAndKeepTheirSpelling) {
  RegistryData data;
  data.SetValue(RegRoot::LocalMachine, "Software\\Tallowmere\\Zentrovo", "CnStr",
                RegValue::String("one"));
  data.SetValue(RegRoot::LocalMachine, "SOFTWARE\\TALLOWMERE\\zentrovo\\", "CNSTR",
                RegValue::String("two"));
  const RegValue* v =
      data.FindValue(RegRoot::LocalMachine, "\\software\\tallowmere\\ZENTROVO", "cnstr");
  ASSERT_NE(v, nullptr);
  EXPECT_EQ(v->text, "two");
  EXPECT_EQ(data.ValueNames(RegRoot::LocalMachine, kProductKey), std::vector<std::string>{"CnStr"});
  EXPECT_EQ(data.SubkeyNames(RegRoot::LocalMachine, "software"),
            std::vector<std::string>{"Tallowmere"});
  EXPECT_TRUE(data.DeleteValue(RegRoot::LocalMachine, kProductKey, "CNSTR"));
  EXPECT_FALSE(data.DeleteValue(RegRoot::LocalMachine, kProductKey, "CnStr"));
  EXPECT_EQ(data.FindValue(RegRoot::LocalMachine, kProductKey, "CnStr"), nullptr);
}

TEST(RegistryStore, KeysHaveParentsAndAKeyWithSubkeysIsNotDeleted) {
  RegistryData data;
  EXPECT_TRUE(data.CreateKey(RegRoot::CurrentUser, "a\\b\\c"));
  EXPECT_FALSE(data.CreateKey(RegRoot::CurrentUser, "A\\B\\C"));
  data.CreateKey(RegRoot::CurrentUser, "a\\b d");  // sorts between "a\b" and "a\b\c"
  EXPECT_TRUE(data.HasKey(RegRoot::CurrentUser, "a\\b"));
  EXPECT_EQ(data.SubkeyNames(RegRoot::CurrentUser, "a"), (std::vector<std::string>{"b", "b d"}));
  EXPECT_EQ(data.SubkeyNames(RegRoot::CurrentUser, ""), std::vector<std::string>{"a"});
  using R = RegistryData::DeleteResult;
  EXPECT_EQ(data.DeleteKey(RegRoot::CurrentUser, "a\\b"), R::kHasSubkeys);
  EXPECT_EQ(data.DeleteKey(RegRoot::CurrentUser, "a\\x"), R::kNotFound);
  EXPECT_EQ(data.DeleteKey(RegRoot::CurrentUser, "a\\b\\c"), R::kDeleted);
  EXPECT_EQ(data.DeleteKey(RegRoot::CurrentUser, "a\\b"), R::kDeleted);
  EXPECT_EQ(data.DeleteKey(RegRoot::CurrentUser, ""), R::kHasSubkeys);  // a root stays
  EXPECT_TRUE(data.HasKey(RegRoot::CurrentUser, "a\\b d"));
  EXPECT_EQ(FailureNumber([&] { data.CreateKey(RegRoot::Users, "bad\nname"); }),
            regerr::kInvalidName);
}

TEST(RegistryStore, ReadsAHandEditedFileAndReportsDamageWithTheLine) {
  testing::TempDir dir;
  const auto file = dir / "registry.txt";
  testing::WriteFile(file,
                     "# edited by hand\r\n"
                     "[hkey_local_machine\\SOFTWARE\\Tallowmere\\Zentrovo]\r\n"
                     "  \"DoStartSQL\" = dword: 0\r\n"
                     "; another comment\n"
                     "\"List\"=multi_sz: \"x\" , \"y\"\n");
  const RegistryData data = RegistryStore(file).Read();
  const RegValue* v = data.FindValue(RegRoot::LocalMachine, kProductKey, "DoStartSQL");
  ASSERT_NE(v, nullptr);
  EXPECT_EQ(*v, RegValue::Dword(0));
  EXPECT_EQ(*data.FindValue(RegRoot::LocalMachine, kProductKey, "List"),
            RegValue::MultiString({"x", "y"}));

  const char* damaged[] = {
      "\"x\"=sz:\"before any key\"\n",
      "[HKEY_NOWHERE\\x]\n",
      "[HKEY_USERS\\x]\n\"v\"=sz:\"unterminated\n",
      "[HKEY_USERS\\x]\n\"v\"=dword:4294967296\n",
      "[HKEY_USERS\\x]\n\"v\"=binary:0g\n",
      "[HKEY_USERS\\x]\n\"v\"=float:1\n",
  };
  for (const char* text : damaged) {
    SCOPED_TRACE(text);
    testing::WriteFile(file, text);
    const Error e = testing::CaughtError([&] { RegistryStore(file).Read(); });
    EXPECT_EQ(e.Number(), regerr::kDamaged);
    EXPECT_NE(e.Description().find("line"), std::string::npos);
  }
}

TEST(RegistryStore, AFailedChangeLeavesTheFileAsItWas) {
  testing::TempDir dir;
  RegistryStore store(dir / "registry.txt");
  store.SetValue(RegRoot::LocalMachine, kProductKey, "a", RegValue::Dword(1));
  const std::string before = testing::ReadFile(store.File());
  EXPECT_THROW(store.Update([](RegistryData& data) -> bool {
    data.SetValue(RegRoot::LocalMachine, kProductKey, "b", RegValue::Dword(2));
    throw Error(1, "test", "stop");
  }),
               Error);
  EXPECT_EQ(testing::ReadFile(store.File()), before);
  EXPECT_FALSE(store.DeleteValue(RegRoot::LocalMachine, kProductKey, "missing"));
  EXPECT_EQ(testing::ReadFile(store.File()), before);
}

// The default file below the home folder is checked through C_Registry in c_registry_test.

// ---- other processes ----------------------------------------------------------------------------
//
// The test program starts itself again with a filter that selects `RegistryStoreChild.Run` and
// the work in environment variables. Run directly, that test does nothing.

constexpr const char* kChildMode = "GW_REGISTRY_CHILD_MODE";

// `quiet` sends the child's output to /dev/null (for a child that is meant to fail).
pid_t StartChild(const std::filesystem::path& file, const std::string& mode,
                 const std::string& prefix, int count, bool quiet = false) {
  const std::string exe = std::filesystem::read_symlink("/proc/self/exe").string();
  std::vector<std::string> env_storage = {
      std::string(kChildMode) + "=" + mode, "GW_REGISTRY_CHILD_FILE=" + file.string(),
      "GW_REGISTRY_CHILD_PREFIX=" + prefix, "GW_REGISTRY_CHILD_COUNT=" + std::to_string(count)};
  for (char** e = environ; *e; ++e) env_storage.emplace_back(*e);
  std::vector<char*> envp;
  for (auto& s : env_storage) envp.push_back(s.data());
  envp.push_back(nullptr);
  std::string filter = "--gtest_filter=RegistryStoreChild.Run";
  std::string exe_arg = exe;
  char* argv[] = {exe_arg.data(), filter.data(), nullptr};
  posix_spawn_file_actions_t actions;
  ::posix_spawn_file_actions_init(&actions);
  if (quiet) {
    ::posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    ::posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  }
  pid_t pid = 0;
  const int rc = ::posix_spawn(&pid, exe.c_str(), &actions, nullptr, argv, envp.data());
  ::posix_spawn_file_actions_destroy(&actions);
  EXPECT_EQ(rc, 0);
  return pid;
}

int WaitForChild(pid_t pid) {
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0) {
    if (errno != EINTR) return -1;
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::string ValueText(const std::string& prefix, int k) {
  return prefix + " value " + std::to_string(k);
}

TEST(RegistryStoreChild, Run) {
  const char* mode = std::getenv(kChildMode);
  if (!mode) GTEST_SKIP() << "the child side of the tests with several processes";
  RegistryStore store(std::getenv("GW_REGISTRY_CHILD_FILE"));
  const std::string prefix = std::getenv("GW_REGISTRY_CHILD_PREFIX");
  const int count = std::atoi(std::getenv("GW_REGISTRY_CHILD_COUNT"));
  for (int k = 0; k < count; ++k) {
    const std::string name = prefix + std::to_string(k);
    if (std::string(mode) == "write") {
      store.SetValue(RegRoot::LocalMachine, kProductKey, name,
                     RegValue::String(ValueText(prefix, k)));
    } else {
      const auto v = store.QueryValue(RegRoot::LocalMachine, kProductKey, name);
      ASSERT_TRUE(v.has_value()) << name;
      EXPECT_EQ(v->text, ValueText(prefix, k));
    }
  }
}

TEST(RegistryStoreProcesses, ValuesSurviveIntoANewProcessBothWays) {
  testing::TempDir dir;
  const auto file = dir / "registry.txt";
  RegistryStore store(file);
  for (int k = 0; k < 3; ++k) {
    store.SetValue(RegRoot::LocalMachine, kProductKey, "parent" + std::to_string(k),
                   RegValue::String(ValueText("parent", k)));
  }
  EXPECT_EQ(WaitForChild(StartChild(file, "check", "parent", 3)), 0);
  // A wrong expectation must make the child fail, or the check above proves nothing.
  EXPECT_NE(WaitForChild(StartChild(file, "check", "parent", 4, true)), 0);

  EXPECT_EQ(WaitForChild(StartChild(file, "write", "child", 3)), 0);
  for (int k = 0; k < 3; ++k) {
    const auto v = RegistryStore(file).QueryValue(RegRoot::LocalMachine, kProductKey,
                                                  "CHILD" + std::to_string(k));
    ASSERT_TRUE(v.has_value());
    EXPECT_EQ(v->text, ValueText("child", k));
  }
}

TEST(RegistryStoreProcesses, TwoWritersAtOnceLoseNoUpdate) {
  testing::TempDir dir;
  const auto file = dir / "registry.txt";
  constexpr int kCount = 60;
  const pid_t a = StartChild(file, "write", "a", kCount);
  const pid_t b = StartChild(file, "write", "b", kCount);
  // This process writes too, while the children run.
  RegistryStore store(file);
  for (int k = 0; k < kCount; ++k) {
    store.SetValue(RegRoot::LocalMachine, kProductKey, "p" + std::to_string(k),
                   RegValue::String(ValueText("p", k)));
  }
  EXPECT_EQ(WaitForChild(a), 0);
  EXPECT_EQ(WaitForChild(b), 0);
  const RegistryData data = store.Read();
  EXPECT_EQ(data.ValueNames(RegRoot::LocalMachine, kProductKey).size(), 3u * kCount);
  for (const char* prefix : {"a", "b", "p"}) {
    for (int k = 0; k < kCount; ++k) {
      const RegValue* v =
          data.FindValue(RegRoot::LocalMachine, kProductKey, prefix + std::to_string(k));
      ASSERT_NE(v, nullptr) << prefix << k;
      EXPECT_EQ(v->text, ValueText(prefix, k));
    }
  }
}

}  // namespace
}  // namespace gw
