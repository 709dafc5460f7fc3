// CCrypto: the text cipher that protects stored connection strings.
//
// Cipher: XChaCha20-Poly1305 (libsodium), a fresh random nonce per text. The text form is
// standard base64 (with padding) of nonce followed by ciphertext and tag. It never contains
// "rovider" in any letter case (callers tell a clear connection string by that text): an output
// that would, by chance, is encrypted again with another nonce.
//
// Keys. The default key is BLAKE2b-256 of a fixed constant, so every installation has the same
// one and a stored text moves between machines: it obscures, it does not protect. A machine may
// name its own key file in the settings store, value `kKeyFileValueName` (REG_SZ or
// REG_EXPAND_SZ) under HKEY_LOCAL_MACHINE\SOFTWARE\Tallowmere\Zentrovo; a relative path is taken
// below `HomeDir()`. The key is BLAKE2b-256 of the file's whole content (32 random bytes are the
// intended content; any non-empty content works). When that file can be read and is not empty:
//  - `EncryptText` uses its key;
//  - `DecryptText` tries its key first and then the default key, so texts written before the
//    file existed still read.
// Otherwise the default key is used. The setting and the file are read at every call.
//
// Failures: a text that is not a ciphertext of one of these keys (bad base64, too short, or not
// authentic) fails with `infraerr::kNotACiphertext`, source "CCrypto", text "Bad Data.", reported
// as "CCrypto.DecryptText(CipherText)". An empty `CipherText` decrypts to "".
#pragma once

#include <string>
#include <string_view>

#include "infra/failures.h"
#include "platform/error.h"

namespace gw {

class CCrypto {
 public:
  static constexpr std::string_view kKeyFileValueName = "CryptoKeyFile";

  std::string EncryptText(std::string_view ClearText) const;
  std::string DecryptText(std::string_view CipherText) const;

  // A text as a store keeps it: `EncryptText` of it, or the text itself when it cannot be
  // enciphered (kept in clear rather than lost); "" stays "".
  std::string EncryptOrKeep(std::string_view ClearText) const;
  // The clear form of a stored text: `DecryptText` of it when that gives a text, otherwise the
  // text as stored (one written before texts were enciphered, or not a ciphertext at all).
  std::string DecryptOrKeep(std::string_view Stored) const;
};

}  // namespace gw
