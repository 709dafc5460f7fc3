#include "infra/c_registry.h"

#include <gtest/gtest.h>

#include "support/test_support.h"

namespace gw {
namespace {

constexpr std::string_view kProductKey = "SOFTWARE\\Tallowmere\\Zentrovo";
constexpr std::string_view kAdviceEnd =
    "on it, and select permissions.  Give the your user account, or Everyone if you prefer, full "
    "control.  Then, run the program again.";

// The failure `f` raises, checked for the wrapper's source and text.
Error FailureOf(const std::function<void()>& f) {
  const Error e = testing::CaughtError(f);
  EXPECT_EQ(e.Source(), "C_Registry");
  const std::string& d = e.Description();
  EXPECT_TRUE(d.ends_with(kAdviceEnd)) << d;
  return e;
}

class C_RegistryTest : public ::testing::Test {
 protected:
  testing::ScopedHome home_;
  C_Registry reg_;
};

TEST_F(C_RegistryTest, ValuesOfEveryTypeComeBackAsVariants) {
  struct Case {
    const char* name;
    long type;
    Variant written;
    Variant read;
  };
  const Case cases[] = {
      {"CnStr", C_Registry::REG_SZ, Variant("abc"), Variant("abc")},
      {"Number", C_Registry::REG_SZ, Variant(12), Variant("12")},
      {"IsFirstRun", C_Registry::REG_DWORD, Variant(1), Variant(1)},
      {"AsText", C_Registry::REG_DWORD, Variant("42"), Variant(42)},
      {"AllBits", C_Registry::REG_DWORD, Variant(-1), Variant(-1)},
      {"Path", C_Registry::REG_EXPAND_SZ, Variant("%TEMP%\\x"), Variant("%TEMP%\\x")},
      {"Blob", C_Registry::REG_BINARY, Variant(std::string("\x00\xff", 2)),
       Variant(std::string("\x00\xff", 2))},
      {"List", C_Registry::REG_MULTI_SZ, Variant(std::string("a\0b", 3)),
       Variant(std::string("a\0b", 3))},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    reg_.SetKeyValue(C_Registry::HKEY_LOCAL_MACHINE, kProductKey, c.name, c.written, c.type);
    const Variant got = reg_.QueryValue(C_Registry::HKEY_LOCAL_MACHINE, kProductKey, c.name);
    EXPECT_EQ(got.Type(), c.read.Type());
    EXPECT_EQ(got, c.read);
  }
  // Another object (another process would do the same) reads the store file below the home.
  EXPECT_EQ(C_Registry().QueryValue(C_Registry::HKEY_LOCAL_MACHINE,
                                    "software\\TALLOWMERE\\zentrovo", "isfirstrun"),
            Variant(1));
  EXPECT_TRUE(std::filesystem::exists(home_.Path() / "registry.txt"));
}

TEST_F(C_RegistryTest, MissingValuesAndKeysFail) {
  const Error missing_value = FailureOf(
      [&] { reg_.QueryValue(C_Registry::HKEY_LOCAL_MACHINE, kProductKey, "DoStartSQL"); });
  EXPECT_EQ(missing_value.Number(), 0x80070002u);
  EXPECT_EQ(missing_value.CallStack(),
            std::vector<std::string>{"C_Registry.QueryValue(lPredefinedKey,sKeyName,sValueName)"});

  EXPECT_EQ(FailureOf([&] { reg_.DeleteKey(C_Registry::HKEY_CURRENT_USER, "Nowhere"); }).Number(),
            0x80070002u);
  EXPECT_EQ(
      FailureOf([&] { reg_.DeleteValue(C_Registry::HKEY_CURRENT_USER, "Nowhere", "x"); }).Number(),
      0x80070002u);
  // A value under one root is not under another.
  reg_.SetKeyValue(C_Registry::HKEY_CURRENT_USER, kProductKey, "x", Variant(1),
                   C_Registry::REG_DWORD);
  EXPECT_EQ(FailureOf([&] {
              reg_.QueryValue(C_Registry::HKEY_LOCAL_MACHINE, kProductKey, "x");
            }).Number(),
            0x80070002u);
}

TEST_F(C_RegistryTest, KeysAreCreatedAndDeletedLikeRegistryKeys) {
  reg_.CreateNewKey(C_Registry::HKEY_CURRENT_USER, "Software\\A\\B");
  reg_.CreateNewKey(C_Registry::HKEY_CURRENT_USER, "software\\a\\b");  // exists: nothing happens
  EXPECT_EQ(
      FailureOf([&] { reg_.DeleteKey(C_Registry::HKEY_CURRENT_USER, "Software\\A"); }).Number(),
      0x80070005u);  // it still has a subkey
  reg_.DeleteKey(C_Registry::HKEY_CURRENT_USER, "SOFTWARE\\A\\B");
  reg_.DeleteKey(C_Registry::HKEY_CURRENT_USER, "Software\\A");
  EXPECT_FALSE(reg_.Store().Read().HasKey(RegRoot::CurrentUser, "Software\\A"));
}

TEST_F(C_RegistryTest, ExFormsReturnResultCodes) {
  const C_Registry::KeyHandle product{C_Registry::HKEY_LOCAL_MACHINE, std::string(kProductKey)};
  EXPECT_EQ(reg_.SetValueEx(product, "v", C_Registry::REG_SZ, Variant("x")),
            C_Registry::kFileNotFound);  // the key is not there yet
  reg_.CreateNewKey(C_Registry::HKEY_LOCAL_MACHINE, kProductKey);
  EXPECT_EQ(reg_.SetValueEx(product, "v", C_Registry::REG_SZ, Variant("x")), C_Registry::kSuccess);
  EXPECT_EQ(reg_.SetValueEx(product, "v", 99, Variant("x")), C_Registry::kInvalidParameter);
  EXPECT_EQ(
      reg_.SetValueEx(C_Registry::HKEY_USERS, "on the root", C_Registry::REG_SZ, Variant("r")),
      C_Registry::kSuccess);

  Variant value("untouched");
  EXPECT_EQ(reg_.QueryValueEx(product, "missing", value), C_Registry::kFileNotFound);
  EXPECT_EQ(value, Variant("untouched"));
  EXPECT_EQ(reg_.QueryValueEx(product, "V", value), C_Registry::kSuccess);
  EXPECT_EQ(value, Variant("x"));
  EXPECT_EQ(reg_.QueryValueEx(C_Registry::HKEY_USERS, "on the root", value), C_Registry::kSuccess);
  EXPECT_EQ(value, Variant("r"));

  reg_.DeleteValue(C_Registry::HKEY_LOCAL_MACHINE, kProductKey, "v");
  EXPECT_EQ(reg_.QueryValueEx(product, "v", value), C_Registry::kFileNotFound);
  reg_.Main();
}

TEST_F(C_RegistryTest, ADamagedStoreIsReportedNotIgnored) {
  testing::WriteFile(home_.Path() / "registry.txt", "[HKEY_LOCAL_MACHINE\\x]\n\"v\"=what:1\n");
  Variant value;
  EXPECT_EQ(reg_.QueryValueEx({C_Registry::HKEY_LOCAL_MACHINE, "x"}, "v", value),
            C_Registry::kBadDb);
  EXPECT_EQ(FailureOf([&] { reg_.QueryValue(C_Registry::HKEY_LOCAL_MACHINE, "x", "v"); }).Number(),
            0x800703F9u);
}

}  // namespace
}  // namespace gw
