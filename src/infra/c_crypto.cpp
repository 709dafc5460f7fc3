#include "infra/c_crypto.h"

#include <sodium.h>

#include <array>
#include <fstream>
#include <optional>
#include <sstream>
#include <vector>

#include "infra/c_registry.h"
#include "platform/paths.h"
#include "platform/text.h"

namespace gw {

namespace {

using Key = std::array<unsigned char, crypto_aead_xchacha20poly1305_ietf_KEYBYTES>;

constexpr std::string_view kProductKey = "SOFTWARE\\Tallowmere\\Zentrovo";
constexpr std::string_view kKeyConstant = "#7@1&3PlOkIjUhYgTfRdEsWa";
constexpr std::size_t kNonceBytes = crypto_aead_xchacha20poly1305_ietf_NPUBBYTES;
constexpr std::size_t kTagBytes = crypto_aead_xchacha20poly1305_ietf_ABYTES;

void InitSodium() {
  static const bool ready = sodium_init() >= 0;
  if (!ready) throw Error(errnum::kProviderError, "CCrypto", "The cipher library failed to start");
}

Key DeriveKey(std::string_view material) {
  Key key{};
  crypto_generichash(key.data(), key.size(),
                     reinterpret_cast<const unsigned char*>(material.data()), material.size(),
                     nullptr, 0);
  return key;
}

const Key& DefaultKey() {
  static const Key key = DeriveKey(kKeyConstant);
  return key;
}

// The key of the machine's key file, when the settings name one that can be read.
std::optional<Key> MachineKey() {
  Variant setting;
  C_Registry registry;
  const long rc = registry.QueryValueEx({C_Registry::HKEY_LOCAL_MACHINE, std::string(kProductKey)},
                                        CCrypto::kKeyFileValueName, setting);
  if (rc != C_Registry::kSuccess || !setting.IsString()) return std::nullopt;
  std::filesystem::path path = setting.ToString();
  if (path.empty()) return std::nullopt;
  if (path.is_relative()) path = HomeDir() / path;
  std::ifstream in(path, std::ios::binary);
  if (!in) return std::nullopt;
  std::ostringstream content;
  content << in.rdbuf();
  const std::string bytes = content.str();
  if (bytes.empty()) return std::nullopt;
  return DeriveKey(bytes);
}

std::string ToBase64(const std::vector<unsigned char>& bytes) {
  std::string out(sodium_base64_encoded_len(bytes.size(), sodium_base64_VARIANT_ORIGINAL), '\0');
  sodium_bin2base64(out.data(), out.size(), bytes.data(), bytes.size(),
                    sodium_base64_VARIANT_ORIGINAL);
  out.resize(out.size() - 1);  // the terminating NUL
  return out;
}

std::optional<std::vector<unsigned char>> FromBase64(std::string_view text) {
  std::vector<unsigned char> bytes(text.size() / 4 * 3 + 3);
  std::size_t length = 0;
  const char* end = nullptr;
  if (sodium_base642bin(bytes.data(), bytes.size(), text.data(), text.size(), nullptr, &length,
                        &end, sodium_base64_VARIANT_ORIGINAL) != 0 ||
      end != text.data() + text.size()) {
    return std::nullopt;
  }
  bytes.resize(length);
  return bytes;
}

std::string Encrypt(std::string_view clear, const Key& key) {
  std::vector<unsigned char> out(kNonceBytes + clear.size() + kTagBytes);
  randombytes_buf(out.data(), kNonceBytes);
  unsigned long long written = 0;
  crypto_aead_xchacha20poly1305_ietf_encrypt(
      out.data() + kNonceBytes, &written, reinterpret_cast<const unsigned char*>(clear.data()),
      clear.size(), nullptr, 0, nullptr, out.data(), key.data());
  out.resize(kNonceBytes + written);
  return ToBase64(out);
}

std::optional<std::string> Decrypt(const std::vector<unsigned char>& sealed, const Key& key) {
  std::string clear(sealed.size() - kNonceBytes - kTagBytes, '\0');
  unsigned long long length = 0;
  if (crypto_aead_xchacha20poly1305_ietf_decrypt(reinterpret_cast<unsigned char*>(clear.data()),
                                                 &length, nullptr, sealed.data() + kNonceBytes,
                                                 sealed.size() - kNonceBytes, nullptr, 0,
                                                 sealed.data(), key.data()) != 0) {
    return std::nullopt;
  }
  clear.resize(length);
  return clear;
}

[[noreturn]] void ThrowBadData() { throw Error(infraerr::kNotACiphertext, "CCrypto", "Bad Data."); }

}  // namespace

std::string CCrypto::EncryptText(std::string_view ClearText) const {
  return ReportAs("CCrypto.EncryptText(ClearText)", [&] {
    InitSodium();
    const std::optional<Key> machine = MachineKey();
    const Key& key = machine ? *machine : DefaultKey();
    std::string out = Encrypt(ClearText, key);
    // About one text in 10^12 would show "rovider" by chance; a new nonce changes the text.
    while (text::FindNoCase(out, "rovider") != text::npos) out = Encrypt(ClearText, key);
    return out;
  });
}

std::string CCrypto::DecryptText(std::string_view CipherText) const {
  return ReportAs("CCrypto.DecryptText(CipherText)", [&] {
    InitSodium();
    if (CipherText.empty()) return std::string();
    const auto sealed = FromBase64(CipherText);
    if (!sealed || sealed->size() < kNonceBytes + kTagBytes) ThrowBadData();
    if (const std::optional<Key> machine = MachineKey()) {
      if (auto clear = Decrypt(*sealed, *machine)) return std::move(*clear);
    }
    if (auto clear = Decrypt(*sealed, DefaultKey())) return std::move(*clear);
    ThrowBadData();
  });
}

std::string CCrypto::EncryptOrKeep(std::string_view ClearText) const {
  if (ClearText.empty()) return {};
  try {
    return EncryptText(ClearText);
  } catch (const Error&) {
    return std::string(ClearText);
  }
}

std::string CCrypto::DecryptOrKeep(std::string_view Stored) const {
  try {
    std::string clear = DecryptText(Stored);
    if (!clear.empty()) return clear;
  } catch (const Error&) {
    // Not a ciphertext of ours: it stays as stored.
  }
  return std::string(Stored);
}

}  // namespace gw
