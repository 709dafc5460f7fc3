#include "rules/connection_string.h"

#include "infra/c_crypto.h"
#include "infra/c_registry.h"
#include "platform/db/connection_string.h"
#include "platform/error.h"
#include "platform/paths.h"
#include "platform/report_connection_string.h"
#include "platform/text.h"

namespace gw {

namespace {

std::string& OverrideSlot() {
  static std::string value;
  return value;
}

// The module's `ConnectionString`.
std::string& CachedCnStr() {
  static std::string value;
  return value;
}

constexpr std::string_view kProductKey = "SOFTWARE\\Tallowmere\\Zentrovo";
constexpr std::string_view kCnStrValue = "CnStr";

// The stored "CnStr" as the rules layer uses it: deciphered unless it is a clear connection
// string; "" when nothing is stored.
std::string ReadStoredCnStr() {
  Variant stored;
  C_Registry registry;
  if (registry.QueryValueEx(
          C_Registry::KeyHandle(C_Registry::HKEY_LOCAL_MACHINE, std::string(kProductKey)),
          kCnStrValue, stored) != C_Registry::kSuccess) {
    return {};
  }
  const std::string read = stored.ToText();
  if (text::InStr(1, read, "rovider", true) >= 1) return read;  // a clear connection string
  // Not a ciphertext: a value written before strings were enciphered.
  return CCrypto().DecryptOrKeep(read);
}

void WriteStoredCnStr(const std::string& cn_str) {
  C_Registry().SetKeyValue(C_Registry::HKEY_LOCAL_MACHINE, kProductKey, kCnStrValue,
                           Variant(CCrypto().EncryptText(cn_str)), C_Registry::REG_SZ);
}

constexpr long kMaxPosition = 32767;

// A 1-based position as the 16-bit variable that held it: past 32767 it overflows.
long AsPosition(long position) {
  if (position > kMaxPosition) {
    throw Error(errnum::kOverflow, "modConnectionString", "Overflow");
  }
  return position;
}

struct ValueSpan {
  long start = 0;  // s: first character of the value
  long stop = 0;   // t: the delimiter, or the end + 1
  bool ok = false;
};

// Finds the value of `param` as GetParameter and SetParameter both read it.
ValueSpan FindValue(std::string_view param, std::string_view cn, std::string_view delim) {
  ValueSpan span;
  if (param.empty() || cn.empty() || delim.empty()) return span;
  const long p = AsPosition(text::InStr(1, cn, param, false));
  if (p <= 0) return span;
  const long e = AsPosition(text::InStr(p + static_cast<long>(param.size()), cn, "=", false));
  const long s = AsPosition(e + 1);
  long t = AsPosition(text::InStr(s, cn, delim, false));
  if (t == 0) t = AsPosition(static_cast<long>(cn.size()) + 1);
  if (s < 1 || t <= s) return span;
  span.start = s;
  span.stop = t;
  span.ok = true;
  return span;
}

}  // namespace

void SetRulesConnectionOverride(std::string cn_str) { OverrideSlot() = std::move(cn_str); }

const std::string& RulesConnectionOverride() { return OverrideSlot(); }

std::string DefaultRulesConnectionString() {
  db::ConnectionProperties props;
  props.Set("Provider", "SQLite");
  props.Set("Data Source", (HomeDir() / "ZentrovoDB.sqlite").string());
  return props.ToString();
}

namespace modConnectionString {

std::string GetParameter(std::string_view sParam, std::string_view sConnectString,
                         std::string_view sEndDelimiter) {
  return ReportAs(
      "modConnectionString.GetParameter(sParam,sConnectString,sEndDelimiter)",
      Args(sParam, AsConnectionString(sConnectString), sEndDelimiter), [&] {
        const ValueSpan v = FindValue(sParam, sConnectString, sEndDelimiter);
        if (!v.ok) return std::string();
        return std::string(text::TrimSpaces(sConnectString.substr(
            static_cast<std::size_t>(v.start - 1), static_cast<std::size_t>(v.stop - v.start))));
      });
}

std::string SetParameter(std::string_view sParam, std::string_view Value,
                         std::string_view sConnectString, std::string_view sEndDelimiter) {
  return ReportAs(
      "modConnectionString.SetParameter(sParam,Value,sConnectString,sEndDelimiter)",
      // The value may be a password: a report does not show it.
      Args(sParam, report_value::kNotShown, AsConnectionString(sConnectString), sEndDelimiter),
      [&] {
        const ValueSpan v = FindValue(sParam, sConnectString, sEndDelimiter);
        if (!v.ok) return std::string(sConnectString);
        std::string out(sConnectString.substr(0, static_cast<std::size_t>(v.start - 1)));
        out += Value;
        out += sConnectString.substr(static_cast<std::size_t>(v.stop - 1));
        return out;
      });
}

std::string ReformatMySQLCnStr(std::string& CnStr, bool flag) {
  return ReportAs(
      "modConnectionString.ReformatMySQLCnStr(CnStr)", Args(AsConnectionString(CnStr)), [&] {
        if (text::FindNoCase(GetParameter("Provider", CnStr, ";"), "MSDASQL") == text::npos) {
          return CnStr;
        }
        constexpr std::string_view kExt = "Extended Properties";
        constexpr std::string_view kExtEnd = "\";";

        const std::string catalog = GetParameter("Initial Catalog", CnStr, ";");
        if (!catalog.empty()) CnStr = SetParameter("Initial Catalog", "", CnStr, ";");

        std::string ext = GetParameter(kExt, CnStr, kExtEnd);
        const std::string db = GetParameter("Database", ext, ";");
        if (!catalog.empty() && db.empty()) {
          const bool names_database = text::FindNoCase(ext, "Database") != text::npos;
          if (!names_database && !flag) {
            ext = ext + ";Database=" + catalog + ";";
          } else if (names_database && flag) {
            ext = text::ReplaceAll(ext, "Database=", "", true);
          } else if (names_database && !flag) {
            ext = SetParameter("Database", catalog, ext, ";");
          }
          CnStr = SetParameter(kExt, ext, CnStr, kExtEnd);
        } else if (flag) {
          ext = SetParameter("Database", "", ext, ";");
          ext = text::ReplaceAll(ext, "Database=", "", true);
          CnStr = SetParameter(kExt, ext, CnStr, kExtEnd);
        }

        ext = GetParameter(kExt, CnStr, kExtEnd);
        if (GetParameter("Options", ext, ";").empty()) {
          if (ext.find("Option") != std::string::npos) {
            ext = SetParameter("Option", "18475", ext, ";");
          } else {
            ext = ext + ";" + "Option=" + "18475" + ";";
          }
          CnStr = SetParameter(kExt, ext, CnStr, kExtEnd);
        }
        return CnStr;
      });
}

std::string GetCnStr() {
  return ReportAs("modConnectionString.GetCnStr", [&] {
    if (!RulesConnectionOverride().empty()) return RulesConnectionOverride();
    if (CachedCnStr().empty()) CachedCnStr() = ReadStoredCnStr();
    if (!CachedCnStr().empty()) return CachedCnStr();
    return DefaultRulesConnectionString();
  });
}

void SetCnStr(const std::string& CnStr) {
  ReportAs("modConnectionString.SetCnStr(CnStr)", Args(AsConnectionString(CnStr)), [&] {
    if (CnStr.empty()) return;
    WriteStoredCnStr(CnStr);
    CachedCnStr() = CnStr;
  });
}

void ClearCachedCnStr() { CachedCnStr().clear(); }

}  // namespace modConnectionString

std::string CConnectionString::GetCnStr() {
  return ReportAs("CConnectionString.GetCnStr", [&] {
    if (!RulesConnectionOverride().empty()) return RulesConnectionOverride();
    if (connection_string_.empty()) connection_string_ = ReadStoredCnStr();
    if (!connection_string_.empty()) return connection_string_;
    return DefaultRulesConnectionString();
  });
}

void CConnectionString::SetCnStr(const std::string& CnStr) {
  ReportAs("CConnectionString.SetCnStr(CnStr)", Args(AsConnectionString(CnStr)), [&] {
    if (CnStr.empty()) return;
    WriteStoredCnStr(CnStr);
    connection_string_ = CnStr;
  });
}

}  // namespace gw
