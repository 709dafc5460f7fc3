// C_Registry: the registry wrapper, on the settings store (platform/registry_store.h).
//
// Keys are named by a predefined root and a path ("SOFTWARE\Tallowmere\Zentrovo"); names ignore
// case. The store is one file below `HomeDir()`, shared by every process of the product.
//
// Results and failures. `SetValueEx` and `QueryValueEx` return the registry's result code
// (`kSuccess`, `kFileNotFound`...). The other operations raise a failure when the code is not
// `kSuccess`: number 0x80070000 + code (0x80070002 for a missing key or value, 0x80070005 for a
// key that still has subkeys, 0x800703F4/0x800703F5/0x800703F9 for a store that cannot be read,
// written or parsed), source "C_Registry", and a text that names the key and ends with the advice
// to grant full control on it. Each failure also carries the operation's call-stack line.
//
// Values as Variants. Writing converts by `lType`: REG_SZ and REG_EXPAND_SZ take the text,
// REG_DWORD the Long (its 32 bits), REG_BINARY and REG_NONE the text's bytes, REG_MULTI_SZ the
// text split at NUL characters. Reading gives a String (REG_SZ, REG_EXPAND_SZ unexpanded, the
// bytes of REG_BINARY and REG_NONE, the strings of REG_MULTI_SZ joined by NUL characters) or a
// Long (REG_DWORD).
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/registry_store.h"
#include "platform/variant.h"

namespace gw {

class C_Registry {
 public:
  enum RegRootKeys : std::uint32_t {
    HKEY_CLASSES_ROOT = 0x80000000u,
    HKEY_CURRENT_USER = 0x80000001u,
    HKEY_LOCAL_MACHINE = 0x80000002u,
    HKEY_USERS = 0x80000003u,
  };
  enum RegDataTypes : long {
    REG_NONE = 0,
    REG_SZ = 1,
    REG_EXPAND_SZ = 2,
    REG_BINARY = 3,
    REG_DWORD = 4,
    REG_MULTI_SZ = 7,
  };

  // The registry's result codes.
  static constexpr long kSuccess = 0;
  static constexpr long kFileNotFound = 2;
  static constexpr long kAccessDenied = 5;
  static constexpr long kInvalidHandle = 6;
  static constexpr long kInvalidParameter = 87;
  static constexpr long kCantRead = 1012;
  static constexpr long kCantWrite = 1013;
  static constexpr long kBadDb = 1017;

  // An open key, as `SetValueEx` and `QueryValueEx` take it: a root and a path below it. A root
  // alone stands for the root key itself.
  struct KeyHandle {
    KeyHandle(RegRootKeys root, std::string key_name = {})
        : root(root), key_name(std::move(key_name)) {}
    RegRootKeys root;
    std::string key_name;
  };

  // The product's store below `HomeDir()`, or the store in `file`.
  C_Registry();
  explicit C_Registry(std::filesystem::path file);

  // A key that has subkeys is not deleted (kAccessDenied).
  void DeleteKey(RegRootKeys lPredefinedKey, std::string_view sKeyName);
  void DeleteValue(RegRootKeys lPredefinedKey, std::string_view sKeyName,
                   std::string_view sValueName);
  // The key must exist (kFileNotFound otherwise); an unknown `lType` is kInvalidParameter.
  long SetValueEx(const KeyHandle& hKey, std::string_view sValueName, long lType,
                  const Variant& vValue);
  // Fills `vValue` and returns kSuccess, or returns kFileNotFound and leaves it alone.
  long QueryValueEx(const KeyHandle& lhKey, std::string_view szValueName, Variant& vValue);
  // Creates the key and its parents; an existing key is left as it is.
  void CreateNewKey(RegRootKeys lPredefinedKey, std::string_view sNewKeyName);
  // Does nothing.
  void Main() {}
  // Writes one value, creating the key when it is missing (the product's own key is not made by
  // an installer here).
  void SetKeyValue(RegRootKeys lPredefinedKey, std::string_view sKeyName,
                   std::string_view sValueName, const Variant& vValueSetting, long lValueType);
  // The value, or a failure (0x80070002) when the key or the value is missing.
  Variant QueryValue(RegRootKeys lPredefinedKey, std::string_view sKeyName,
                     std::string_view sValueName);

  const RegistryStore& Store() const noexcept { return store_; }

 private:
  RegistryStore store_;
};

}  // namespace gw
