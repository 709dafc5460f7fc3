// Start-up configuration: what a host does before its first command.
//
// `CEnvConfig` decides whether this is the first run on the machine, makes sure the rules store
// answers, creates its schema and reference rows on the first run, applies the idempotent
// upgrade at every start, and writes the path settings. The machine-wide values stand in the
// registry store under HKEY_LOCAL_MACHINE\SOFTWARE\Tallowmere\Zentrovo:
//   "IsFirstRun"  1 until the first-run tasks have ended (absent on a fresh machine, which counts
//                 as 1: no installer wrote it);
//   "DoStartSQL"  below 1: the rules store is not checked at start;
//   "CnStr"       the rules connection string, enciphered (rules/connection_string.h).
// Every step writes a line to "TraceFile.txt" below $GLEANWRIGHT_HOME/logs with its tag
// ("FirstRun", "Startup", "StartSQL").
//
// On this platform "starting the SQL instance" means opening the rules store that the connection
// string names (an SQLite file is created when missing) and checking that it answers; a store on
// a server is waited for, at most 120 seconds. The rules store is reached with the credentials
// the user put in its connection string: no password is built in.
#pragma once

#include <functional>
#include <string>

#include "platform/collection.h"
#include "platform/db/connection.h"

namespace gw {

namespace env_value {
inline constexpr const char* kIsFirstRun = "IsFirstRun";
inline constexpr const char* kDoStartSQL = "DoStartSQL";
}  // namespace env_value

class CEnvConfig {
 public:
  // False unless "IsFirstRun" holds 1 (or is absent). Then double-checked, failures suppressed:
  // when the rules store answers and its `settings` table has rows, the flag was stale: it is set
  // to 0 and the answer is False.
  bool IsFirstRun();
  // The first-run steps, in order, each traced under "FirstRun": proxy, connection string,
  // opening the store, schema, reference rows, the start tasks, the shape string, the path
  // settings, and "IsFirstRun" := 0. Returns true.
  bool DoFirstRunConfigTasks();
  // At every start, traced under "Startup": the store is opened and checked, the upgrade
  // applied, script debugging switched off (nothing to do here). Returns true.
  bool DoStartTasks();
  // The upgrade of the rules store, made to run again at every start.
  void AlterDBTasks();
  // Reads the system's proxy (the environment's https_proxy/http_proxy and no_proxy) into the
  // machine-wide web settings "HttpProxy" and "HttpProxyBypass" when no proxy is set there.
  // With `AskFirst`, `Confirm` is asked first and a No (or no `Confirm`) changes nothing.
  void ConfigureWinHTTPProxy(bool& AskFirst);
  // Opens the rules store of `CnStr` (the rules connection string when empty) and checks that it
  // answers; a store on a server is retried for at most `StartTimeoutSeconds`. Nothing happens
  // (and null is returned) when "DoStartSQL" is below 1. Fails with 0x8D7CF731 when the store
  // does not answer.
  db::ConnectionPtr StartSQL(const std::string& CnStr = {});
  // Empties the documents of all runs and their per-dataset results; the runs stay.
  void PurgeDocDB();

  // ---- inside the library ----
  // The rules connection string (`modConnectionString::GetCnStr`): the user's own.
  std::string BuildCnStr();
  // The data shaping store is the rules store itself here: "ShapeCnStr" stays empty, which
  // means the rules store. Returns the empty string.
  std::string BuildShapeCnStr();
  // The schema (`RulesSchema::Load`) and the reference rows (`RulesSchema::LoadBaseData`).
  void LoadDBSchema(const std::string& sCnStr);
  void LoadBaseData(const std::string& sCnStr);
  // Gives the path settings a value when they have none: the three hosts' programs (all are the
  // one `gleanwright` program here), and the template, source text and download folders below
  // $GLEANWRIGHT_HOME. A value a user has set is left alone.
  void SetAppPathSettings();

  // Asked by `ConfigureWinHTTPProxy(true)`; empty means No.
  std::function<bool(const std::string& title, const std::string& text)> Confirm;
  // How long `StartSQL` waits for a store on a server.
  int StartTimeoutSeconds = 120;
};

// Whether this process has run the first-run tasks (a host tells its user what they created).
bool FirstRunTasksRan() noexcept;

// Browser options. There is no browser here whose script debugger could interrupt a package,
// and no typed-address list to read: the class keeps its interface and changes nothing.
class CIEOptions {
 public:
  void DisableScriptDebugging(bool PromptUser = false) { (void)PromptUser; }
  Collection<std::string> GetRecentUrls() { return {}; }
};

}  // namespace gw
