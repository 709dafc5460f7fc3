// Creating, filling and upgrading the rules database from the scripts built into the library.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/db/connection.h"
#include "platform/error.h"

namespace gw {

class RulesSchema {
 public:
  // The schema version this program makes and upgrades to. A SQLite store records its version in
  // `PRAGMA user_version` (0: made before versions were recorded).
  // 2: the crawl queue's column and indexes.
  // 3: no separate index of a task's rows in a run (the crawl queue's address index serves).
  static constexpr int kVersion = 3;

  // The version the store records; 0 when it records none (or its dialect has no such notion).
  static int StoredVersion(db::Connection& cn);
  // Records `kVersion` as the store's version.
  static void RecordVersion(db::Connection& cn);
  // Fails with `ruleserr::kNewerSchema`, naming the store and both versions, when the store is of a
  // newer version than this program knows; nothing in it is touched.
  static void RefuseNewer(db::Connection& cn);
  // Brings a store to `kVersion`: a store without the rules tables is given them (as `Ensure`);
  // one of an older version gets what it lacks (`Load`, `LoadBaseData`, `Upgrade`) and its new
  // version. Refuses a newer store (`RefuseNewer`). Returns the upgrade steps that ran, and sets
  // `created` when it made the tables. Runs under the same lock as `Ensure`.
  static std::vector<std::string> BringUpToDate(db::Connection& cn, bool& created);

  // Creates the tables, keys and cascades that are missing (the dialect's "schema" script), as
  // one transaction. A SQLite store is switched to write-ahead logging first, so that readers
  // never block a writer and two processes can write run rows at once.
  static void Load(db::Connection& cn);
  // Adds the reference rows that are missing (the "base_data" script).
  static void LoadBaseData(db::Connection& cn);
  // The upgrade (the "upgrade" script): each step runs, as one transaction, only when its guard
  // says it has not been applied, and keeps the columns it does not know. Returns the names of
  // the steps that ran, so a second run returns none.
  static std::vector<std::string> Upgrade(db::Connection& cn);
  // True when the store holds the rules tables.
  static bool Exists(db::Connection& cn);
  // Load, LoadBaseData and Upgrade on a store without the rules tables; returns whether it did.
  // A store whose dialect has no scripts is left alone.
  static bool Ensure(db::Connection& cn);
};

// Opens a connection on the rules store named by `cn_str`. The first time in a process that a
// connection string is opened here, the store is brought up to date (`BringUpToDate`): a store
// without the rules tables is given them, so the embedded store is created on first use; an older
// one is upgraded; a newer one is refused. The caller owns the connection.
db::ConnectionPtr OpenRulesConnection(std::string_view cn_str);

}  // namespace gw
