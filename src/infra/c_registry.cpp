#include "infra/c_registry.h"

#include <optional>

#include "platform/error.h"
#include "platform/report_connection_string.h"

namespace gw {

namespace {

constexpr std::string_view kSource = "C_Registry";

// Turns a store failure into the registry's result code.
long CodeOf(const Error& e) {
  switch (e.Number()) {
    case regerr::kCantRead:
      return C_Registry::kCantRead;
    case regerr::kCantWrite:
      return C_Registry::kCantWrite;
    case regerr::kDamaged:
      return C_Registry::kBadDb;
    case regerr::kInvalidName:
      return C_Registry::kInvalidParameter;
    default:
      return C_Registry::kCantWrite;
  }
}

// Runs `body` (which returns a result code) and turns store failures into codes too.
template <typename Body>
long Guarded(Body&& body) {
  try {
    return body();
  } catch (const Error& e) {
    return CodeOf(e);
  }
}

std::string KeyText(C_Registry::RegRootKeys root, std::string_view key) {
  std::string text;
  if (const auto r = RegRootFromNumber(root)) {
    text = RegRootName(*r);
  } else {
    text = "root " + std::to_string(static_cast<std::uint32_t>(root));
  }
  if (!key.empty()) {
    text += '\\';
    text += key;
  }
  return text;
}

[[noreturn]] void RaiseRegistryFailure(long code, std::string_view what,
                                       C_Registry::RegRootKeys root, std::string_view key) {
  const ErrorNumber number = 0x80070000u | static_cast<ErrorNumber>(code & 0xFFFF);
  throw Error(number, std::string(kSource),
              "Could not " + std::string(what) + " the registry key \"" + KeyText(root, key) +
                  "\" (error " + std::to_string(code) +
                  "). Open the settings store, find this key, click the right mouse button"
                  " on it, and select permissions.  Give the your user account, or Everyone if "
                  "you prefer, full control.  Then, run the program again.");
}

void Check(long code, std::string_view what, C_Registry::RegRootKeys root, std::string_view key) {
  if (code != C_Registry::kSuccess) RaiseRegistryFailure(code, what, root, key);
}

std::optional<RegValue> ToRegValue(long type, const Variant& v) {
  switch (type) {
    case C_Registry::REG_SZ:
      return RegValue::String(v.ToString(), RegType::Sz);
    case C_Registry::REG_EXPAND_SZ:
      return RegValue::String(v.ToString(), RegType::ExpandSz);
    case C_Registry::REG_DWORD:
      return RegValue::Dword(static_cast<std::uint32_t>(v.ToLong()));
    case C_Registry::REG_BINARY:
      return RegValue::Binary(v.ToString(), RegType::Binary);
    case C_Registry::REG_NONE:
      return RegValue::Binary(v.ToString(), RegType::None);
    case C_Registry::REG_MULTI_SZ: {
      const std::string all = v.ToString();
      std::vector<std::string> list;
      if (!all.empty()) {
        std::size_t start = 0;
        while (true) {
          const std::size_t nul = all.find('\0', start);
          list.push_back(all.substr(start, nul - start));
          if (nul == std::string::npos) break;
          start = nul + 1;
        }
      }
      return RegValue::MultiString(std::move(list));
    }
    default:
      return std::nullopt;
  }
}

Variant ToVariant(const RegValue& v) {
  switch (v.type) {
    case RegType::Dword:
      return Variant(static_cast<std::int32_t>(v.dword));
    case RegType::MultiSz: {
      std::string joined;
      for (std::size_t k = 0; k < v.strings.size(); ++k) {
        if (k > 0) joined += '\0';
        joined += v.strings[k];
      }
      return Variant(std::move(joined));
    }
    default:
      return Variant(v.text);
  }
}

std::optional<RegRoot> RootOf(C_Registry::RegRootKeys root) {
  return RegRootFromNumber(static_cast<std::uint32_t>(root));
}

}  // namespace

C_Registry::C_Registry() = default;

C_Registry::C_Registry(std::filesystem::path file) : store_(std::move(file)) {}

void C_Registry::DeleteKey(RegRootKeys lPredefinedKey, std::string_view sKeyName) {
  ReportAs("C_Registry.DeleteKey(lPredefinedKey,sKeyName)", Args(lPredefinedKey, sKeyName), [&] {
    const long code = Guarded([&] {
      const auto root = RootOf(lPredefinedKey);
      if (!root) return kInvalidHandle;
      long result = kSuccess;
      store_.Update([&](RegistryData& data) {
        switch (data.DeleteKey(*root, sKeyName)) {
          case RegistryData::DeleteResult::kDeleted:
            return true;
          case RegistryData::DeleteResult::kNotFound:
            result = kFileNotFound;
            break;
          case RegistryData::DeleteResult::kHasSubkeys:
            result = kAccessDenied;
            break;
        }
        return false;
      });
      return result;
    });
    Check(code, "delete", lPredefinedKey, sKeyName);
  });
}

void C_Registry::DeleteValue(RegRootKeys lPredefinedKey, std::string_view sKeyName,
                             std::string_view sValueName) {
  ReportAs("C_Registry.DeleteValue(lPredefinedKey,sKeyName,sValueName)",
           Args(lPredefinedKey, sKeyName, sValueName), [&] {
             const long code = Guarded([&] {
               const auto root = RootOf(lPredefinedKey);
               if (!root) return kInvalidHandle;
               return store_.DeleteValue(*root, sKeyName, sValueName) ? kSuccess : kFileNotFound;
             });
             Check(code, "delete the value \"" + std::string(sValueName) + "\" of", lPredefinedKey,
                   sKeyName);
           });
}

long C_Registry::SetValueEx(const KeyHandle& hKey, std::string_view sValueName, long lType,
                            const Variant& vValue) {
  return ReportAs("C_Registry.SetValueEx(hKey,sValueName,lType,vValue)",
                  Args(hKey, sValueName, lType, AsConnectionString(vValue)), [&] {
                    const auto root = RootOf(hKey.root);
                    if (!root) return kInvalidHandle;
                    std::optional<RegValue> value = ToRegValue(lType, vValue);
                    if (!value) return kInvalidParameter;
                    return Guarded([&] {
                      long result = kSuccess;
                      store_.Update([&](RegistryData& data) {
                        if (!data.HasKey(*root, hKey.key_name)) {
                          result = kFileNotFound;
                          return false;
                        }
                        data.SetValue(*root, hKey.key_name, sValueName, std::move(*value));
                        return true;
                      });
                      return result;
                    });
                  });
}

long C_Registry::QueryValueEx(const KeyHandle& lhKey, std::string_view szValueName,
                              Variant& vValue) {
  return ReportAs("C_Registry.QueryValueEx(lhKey,szValueName,vValue)",
                  Args(lhKey, szValueName, AsConnectionString(vValue)), [&] {
                    const auto root = RootOf(lhKey.root);
                    if (!root) return kInvalidHandle;
                    return Guarded([&] {
                      const auto value = store_.QueryValue(*root, lhKey.key_name, szValueName);
                      if (!value) return kFileNotFound;
                      vValue = ToVariant(*value);
                      return kSuccess;
                    });
                  });
}

void C_Registry::CreateNewKey(RegRootKeys lPredefinedKey, std::string_view sNewKeyName) {
  ReportAs(
      "C_Registry.CreateNewKey(lPredefinedKey,sNewKeyName)", Args(lPredefinedKey, sNewKeyName),
      [&] {
        const long code = Guarded([&] {
          const auto root = RootOf(lPredefinedKey);
          if (!root) return kInvalidHandle;
          store_.Update([&](RegistryData& data) { return data.CreateKey(*root, sNewKeyName); });
          return kSuccess;
        });
        Check(code, "create", lPredefinedKey, sNewKeyName);
      });
}

void C_Registry::SetKeyValue(RegRootKeys lPredefinedKey, std::string_view sKeyName,
                             std::string_view sValueName, const Variant& vValueSetting,
                             long lValueType) {
  ReportAs(
      "C_Registry.SetKeyValue(lPredefinedKey,sKeyName,sValueName,vValueSetting,lValueType)",
      Args(lPredefinedKey, sKeyName, sValueName, AsConnectionString(vValueSetting), lValueType),
      [&] {
        const auto root = RootOf(lPredefinedKey);
        std::optional<RegValue> value = ToRegValue(lValueType, vValueSetting);
        const long code = !root ? kInvalidHandle
                          : !value
                              ? kInvalidParameter
                              : Guarded([&] {
                                  store_.SetValue(*root, sKeyName, sValueName, std::move(*value));
                                  return kSuccess;
                                });
        Check(code, "write the value \"" + std::string(sValueName) + "\" of", lPredefinedKey,
              sKeyName);
      });
}

Variant C_Registry::QueryValue(RegRootKeys lPredefinedKey, std::string_view sKeyName,
                               std::string_view sValueName) {
  return ReportAs("C_Registry.QueryValue(lPredefinedKey,sKeyName,sValueName)",
                  Args(lPredefinedKey, sKeyName, sValueName), [&] {
                    Variant result;
                    const long code = Guarded([&] {
                      const auto root = RootOf(lPredefinedKey);
                      if (!root) return kInvalidHandle;
                      const auto value = store_.QueryValue(*root, sKeyName, sValueName);
                      if (!value) return kFileNotFound;
                      result = ToVariant(*value);
                      return kSuccess;
                    });
                    Check(code, "read the value \"" + std::string(sValueName) + "\" of",
                          lPredefinedKey, sKeyName);
                    return result;
                  });
}

}  // namespace gw
