#include "rules/env_config.h"

#include <chrono>
#include <cstdlib>
#include <filesystem>

#include "infra/c_registry.h"
#include "infra/log_files.h"
#include "platform/db/connection_string.h"
#include "platform/db/recordset.h"
#include "platform/event_loop.h"
#include "platform/paths.h"
#include "platform/report_connection_string.h"
#include "rules/connection_string.h"
#include "rules/failures.h"
#include "rules/rules_schema.h"
#include "rules/settings.h"

namespace gw {

namespace {

constexpr std::string_view kProductKey = "SOFTWARE\\Tallowmere\\Zentrovo";

bool g_first_run_ran = false;

// The registry value as a number, or `fallback` when it is absent or no number.
long ReadNumber(std::string_view name, long fallback) {
  try {
    Variant v;
    C_Registry reg;
    if (reg.QueryValueEx(
            C_Registry::KeyHandle(C_Registry::HKEY_LOCAL_MACHINE, std::string(kProductKey)), name,
            v) != C_Registry::kSuccess ||
        v.IsEmptyOrNull()) {
      return fallback;
    }
    return static_cast<long>(v.ToDouble());
  } catch (...) {
    return fallback;
  }
}

void WriteNumber(std::string_view name, long value) {
  C_Registry().SetKeyValue(C_Registry::HKEY_LOCAL_MACHINE, kProductKey, name, Variant(value),
                           C_Registry::REG_DWORD);
}

std::string ReadText(std::string_view name) {
  try {
    Variant v;
    if (C_Registry().QueryValueEx(
            C_Registry::KeyHandle(C_Registry::HKEY_LOCAL_MACHINE, std::string(kProductKey)), name,
            v) == C_Registry::kSuccess &&
        !v.IsEmptyOrNull()) {
      return v.ToText();
    }
  } catch (...) {
  }
  return {};
}

std::string Env(const char* lower, const char* upper) {
  if (const char* v = std::getenv(lower); v && *v) return v;
  if (const char* v = std::getenv(upper); v && *v) return v;
  return {};
}

// A store reached over the network is worth waiting for; a file either opens or does not, and
// a string that no driver serves never will.
bool IsServerStore(const db::ConnectionProperties& props) {
  const std::string driver = db::DriverNameFor(props);
  return !driver.empty() && driver != "SQLite" && driver != "Access" && driver != "Excel";
}

db::ConnectionPtr OpenAndCheck(const std::string& cn_str) {
  auto cn = db::Connection::Create();
  cn->Open(cn_str);
  cn->Execute("SELECT 1");
  return cn;
}

}  // namespace

bool FirstRunTasksRan() noexcept { return g_first_run_ran; }

bool CEnvConfig::IsFirstRun() {
  if (ReadNumber(env_value::kIsFirstRun, 1) != 1) return false;
  // The flag may be stale: a store that already holds its settings was loaded before.
  try {
    // (The desktop hosts tried a second address here; the rules string is the only one.)
    const db::ConnectionPtr cn = StartSQL();
    if (!cn) return true;
    auto rs = cn->Execute("Select * from Settings");
    if (rs->RecordCount() > 0) {
      WriteNumber(env_value::kIsFirstRun, 0);
      return false;
    }
  } catch (...) {
  }
  return true;
}

bool CEnvConfig::DoFirstRunConfigTasks() {
  return ReportAs("CEnvConfig.DoFirstRunConfigTasks", [&] {
    bool ask = false;
    ConfigureWinHTTPProxy(ask);
    Trace("FirstRun", "After Configure Proxy");
    const std::string cn_str = BuildCnStr();
    // The string is kept for the next runs, as the user gave it (a --rules override is not).
    if (RulesConnectionOverride().empty()) modConnectionString::SetCnStr(cn_str);
    Trace("FirstRun", "After BuildCnStr");
    Trace("FirstRun", "Calling StartSQL(" + db::MaskPasswords(cn_str) + ")");
    StartSQL(cn_str);
    Trace("FirstRun", "After StartSQL");
    LoadDBSchema(cn_str);
    Trace("FirstRun", "After LoadDBSchema");
    LoadBaseData(cn_str);
    Trace("FirstRun", "After Base Data Load");
    DoStartTasks();
    Trace("FirstRun", "After Normal Start Tasks");
    BuildShapeCnStr();
    Trace("FirstRun", "After BuildShapeCnStr");
    SetAppPathSettings();
    Trace("FirstRun", "After AppPathSettings");
    WriteNumber(env_value::kIsFirstRun, 0);
    Trace("FirstRun", "IsFirstRun Set to False");
    g_first_run_ran = true;
    return true;
  });
}

bool CEnvConfig::DoStartTasks() {
  return ReportAs("CEnvConfig.DoStartTasks", [&] {
    StartSQL();
    Trace("Startup", "SQL Started Successfully");
    AlterDBTasks();
    Trace("Startup", "After AlterDBTasks");
    CIEOptions().DisableScriptDebugging();
    Trace("Startup", "After DisableScriptDebugging");
    return true;
  });
}

void CEnvConfig::AlterDBTasks() {
  ReportAs("CEnvConfig.AlterDBTasks", [&] {
    const std::string cn_str = BuildCnStr();
    auto cn = db::Connection::Create();
    cn->Open(cn_str);
    // A store without the rules tables has nothing to upgrade yet: its first run loads them.
    if (!RulesSchema::Exists(*cn)) return;
    // A store of a newer program is refused untouched; an older one is brought to this version.
    bool created = false;
    for (const std::string& step : RulesSchema::BringUpToDate(*cn, created)) {
      Trace("Startup", "Applied the upgrade step " + step);
    }
  });
}

void CEnvConfig::ConfigureWinHTTPProxy(bool& AskFirst) {
  // Failures are suppressed throughout: a machine without a proxy setting still starts.
  try {
    const std::string proxy = Env("https_proxy", "HTTPS_PROXY").empty()
                                  ? Env("http_proxy", "HTTP_PROXY")
                                  : Env("https_proxy", "HTTPS_PROXY");
    if (proxy.empty() || !ReadText("HttpProxy").empty()) return;
    if (AskFirst) {
      if (!Confirm || !Confirm("Proxy Server Settings",
                               "Gleanwright reads web pages through its own HTTP stack. Use the "
                               "system's proxy (" +
                                   proxy + ") for it?")) {
        return;
      }
    }
    C_Registry reg;
    reg.SetKeyValue(C_Registry::HKEY_LOCAL_MACHINE, kProductKey, "HttpProxy", Variant(proxy),
                    C_Registry::REG_SZ);
    std::string bypass = Env("no_proxy", "NO_PROXY");
    for (char& c : bypass) {
      if (c == ',') c = ';';
    }
    if (!bypass.empty() && ReadText("HttpProxyBypass").empty()) {
      reg.SetKeyValue(C_Registry::HKEY_LOCAL_MACHINE, kProductKey, "HttpProxyBypass",
                      Variant(bypass), C_Registry::REG_SZ);
    }
  } catch (...) {
  }
}

db::ConnectionPtr CEnvConfig::StartSQL(const std::string& CnStr) {
  if (ReadNumber(env_value::kDoStartSQL, 1) < 1) return nullptr;
  const std::string cn_str = CnStr.empty() ? BuildCnStr() : CnStr;
  Trace("StartSQL", "Opening the rules store " + db::MaskPasswords(cn_str));
  const bool wait = IsServerStore(db::ConnectionProperties::Parse(cn_str));
  const DateTime started = DateTime::Now();
  std::string last_failure;
  for (int attempt = 1;; ++attempt) {
    try {
      db::ConnectionPtr cn = OpenAndCheck(cn_str);
      Trace("StartSQL", "Successful Connection After " +
                            std::to_string(DateTime::Now().MillisecondsSince(started) / 1000) +
                            " seconds");
      return cn;
    } catch (const Error& e) {
      last_failure = e.Description();
    } catch (const std::exception& e) {
      last_failure = e.what();
    }
    if (attempt == 1) Trace("StartSQL", "Failed once: " + last_failure);
    if (!wait || DateTime::Now().MillisecondsSince(started) >= StartTimeoutSeconds * 1000LL) {
      break;
    }
    EventLoop::Current().DoEvents();
    EventLoop::Sleep(std::chrono::milliseconds(1000));
    EventLoop::Current().DoEvents();
  }
  throw Error(ruleserr::kStoreDoesNotAnswer, "StartInstance",
              "Could not reach the rules store (" + last_failure +
                  "). Please start it manually and restart Gleanwright.");
}

void CEnvConfig::PurgeDocDB() {
  ReportAs("CEnvConfig.PurgeDocDB", [&] {
    auto cn = db::Connection::Create();
    cn->Open(BuildCnStr());
    cn->BeginTrans();
    // The per-dataset results go with their documents; the runs themselves stay.
    cn->Execute("DELETE FROM task_inst_doc_results_by_ent");
    cn->Execute("DELETE FROM task_instance_docs");
    cn->CommitTrans();
  });
}

std::string CEnvConfig::BuildCnStr() { return modConnectionString::GetCnStr(); }

std::string CEnvConfig::BuildShapeCnStr() { return {}; }

void CEnvConfig::LoadDBSchema(const std::string& sCnStr) {
  ReportAs("CEnvConfig.LoadDBSchema(sCnStr)", Args(AsConnectionString(sCnStr)), [&] {
    db::ConnectionPtr cn = StartSQL(sCnStr);
    if (!cn) cn = OpenAndCheck(sCnStr);
    RulesSchema::Load(*cn);
  });
}

void CEnvConfig::LoadBaseData(const std::string& sCnStr) {
  ReportAs("CEnvConfig.LoadBaseData(sCnStr)", Args(AsConnectionString(sCnStr)), [&] {
    db::ConnectionPtr cn = StartSQL(sCnStr);
    if (!cn) cn = OpenAndCheck(sCnStr);
    RulesSchema::LoadBaseData(*cn);
  });
}

void CEnvConfig::SetAppPathSettings() {
  ReportAs("CEnvConfig.SetAppPathSettings", [&] {
    Settings settings(BuildCnStr());
    const std::string program = (ProgramDir() / "gleanwright").string();
    const std::string home = HomeDir().string();
    const std::pair<const char*, std::string> paths[] = {
        {"DPgEditPath", program},
        {"ConsolePath", program},
        {"PkgExecPath", program},
        // Folders keep their separator: runs append file names to them as they stand.
        {"TemplatePath", home + "/templates/"},
        {"StringFileCreatePath", home + "/strings/"},
        {"DefaultDownloadPath", home + "/downloads/"},
    };
    for (const auto& [name, value] : paths) {
      if (!settings.GetOption(name).ToText().empty()) continue;
      settings.PutOption(name, Variant(value), DataType::Str);
      if (value.back() == '/') {
        std::error_code ec;
        std::filesystem::create_directories(value, ec);
      }
    }
  });
}

}  // namespace gw
