#include "infra/c_crypto.h"

#include <gtest/gtest.h>

#include <set>

#include "infra/c_registry.h"
#include "platform/text.h"
#include "support/test_support.h"

namespace gw {
namespace {

constexpr std::string_view kProductKey = "SOFTWARE\\Tallowmere\\Zentrovo";

bool IsBase64(std::string_view s) {
  if (s.empty() || s.size() % 4 != 0) return false;
  for (char c : s) {
    if (!(std::isalnum(static_cast<unsigned char>(c)) || c == '+' || c == '/' || c == '=')) {
      return false;
    }
  }
  return true;
}

void UseKeyFile(const std::string& path_setting) {
  C_Registry().SetKeyValue(C_Registry::HKEY_LOCAL_MACHINE, kProductKey, CCrypto::kKeyFileValueName,
                           Variant(path_setting), C_Registry::REG_SZ);
}

// The number of the failure of decrypting `text`.
ErrorNumber DecryptFailure(std::string_view text) {
  const Error e = testing::CaughtError([&] { CCrypto().DecryptText(text); });
  EXPECT_EQ(e.Source(), "CCrypto");
  EXPECT_EQ(e.CallStack(), std::vector<std::string>{"CCrypto.DecryptText(CipherText)"});
  return e.Number();
}

TEST(CCrypto, RoundTripsAnyTextAsBase64WithoutTheProviderMarker) {
  testing::ScopedHome home;
  const std::string texts[] = {
      "",
      "Provider=SQLOLEDB;Password=x;Persist Security Info=True;User ID=zentrovo_sys",
      "ünïcödé €",
      std::string("nul\0inside", 10),
      std::string(10000, 'p'),
  };
  const CCrypto crypto;
  for (const auto& clear : texts) {
    SCOPED_TRACE(clear.substr(0, 40));
    const std::string cipher = crypto.EncryptText(clear);
    EXPECT_TRUE(IsBase64(cipher)) << cipher;
    EXPECT_EQ(text::FindNoCase(cipher, "rovider"), text::npos);
    EXPECT_NE(crypto.EncryptText(clear), cipher);  // a fresh nonce every time
    EXPECT_EQ(crypto.DecryptText(cipher), clear);
    // What the stores keep: enciphered unless empty, read back in clear.
    const std::string stored = crypto.EncryptOrKeep(clear);
    EXPECT_EQ(stored == clear, clear.empty());
    EXPECT_EQ(crypto.DecryptOrKeep(stored), clear);
  }
  EXPECT_EQ(crypto.DecryptText(""), "");
}

TEST(CCrypto, ADefaultKeyTextDecryptsInAnotherInstallation) {
  std::string cipher;
  {
    testing::ScopedHome first_machine;
    cipher = CCrypto().EncryptText("Provider=SQLOLEDB;Data Source=(local)\\ZentrovoStd");
  }
  testing::ScopedHome second_machine;
  EXPECT_EQ(CCrypto().DecryptText(cipher), "Provider=SQLOLEDB;Data Source=(local)\\ZentrovoStd");
  // A text written by an earlier build of the product still reads.
  EXPECT_EQ(
      CCrypto().DecryptText("kC3FQQQOuNjIx9BemtNBjXMuKsB8eg2MtEx+Lu0vKfmJBst0CbL6BNt3v1hHCAHjNy"
                            "joAnlb3bLZRg=="),
      "Data Source=golden");
}

TEST(CCrypto, AKeyFileEncryptsAndTheDefaultKeyStillDecrypts) {
  testing::ScopedHome home;
  const std::string old_text = CCrypto().EncryptText("written before the key file");
  testing::WriteFile(home.Path() / "keys" / "machine.key", "0123456789abcdef0123456789abcdef");
  UseKeyFile("keys/machine.key");  // relative to the home folder

  const std::string new_text = CCrypto().EncryptText("written with the key file");
  EXPECT_EQ(CCrypto().DecryptText(new_text), "written with the key file");
  EXPECT_EQ(CCrypto().DecryptText(old_text), "written before the key file");

  // Without the file, only the default key is left, and it cannot read the new text.
  std::filesystem::remove(home.Path() / "keys" / "machine.key");
  EXPECT_EQ(DecryptFailure(new_text), infraerr::kNotACiphertext);
  EXPECT_EQ(CCrypto().DecryptText(old_text), "written before the key file");

  // An absolute path works too; another key file's text is not readable with this one.
  testing::WriteFile(home.Path() / "other.key", "another key");
  UseKeyFile((home.Path() / "other.key").string());
  EXPECT_EQ(DecryptFailure(new_text), infraerr::kNotACiphertext);
  EXPECT_EQ(CCrypto().DecryptText(CCrypto().EncryptText("x")), "x");
}

TEST(CCrypto, TextsThatAreNotCiphertextsFail) {
  testing::ScopedHome home;
  std::string tampered = CCrypto().EncryptText("secret");
  tampered[10] = tampered[10] == 'A' ? 'B' : 'A';
  const std::string not_ciphertexts[] = {
      "Provider=SQLOLEDB;Data Source=x",  // a clear connection string
      "AAAA",                             // base64, but too short to hold a nonce and tag
      "not base64 at all!",
      tampered,
  };
  for (const auto& text : not_ciphertexts) {
    SCOPED_TRACE(text);
    EXPECT_EQ(DecryptFailure(text), infraerr::kNotACiphertext);
    EXPECT_EQ(CCrypto().DecryptOrKeep(text), text);  // a store reads it as it was written
  }
}

}  // namespace
}  // namespace gw
