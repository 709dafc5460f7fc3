// Creating, filling and upgrading the rules database from the scripts built into the library.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/db/connection.h"

namespace gw {

class RulesSchema {
 public:
  // Creates the tables, keys and cascades that are missing (the dialect's "schema" script), as
  // one transaction. A SQLite store is switched to write-ahead logging first, so that readers
  // never block a writer and two processes can write run rows at once.
  static void Load(db::Connection& cn);
  // Adds the reference rows that are missing (the "base_data" script).
  static void LoadBaseData(db::Connection& cn);
  // The upgrade run at every start (the "upgrade" script): each step runs, as one transaction,
  // only when its guard says it has not been applied. Returns the names of the steps that ran,
  // so a second run returns none.
  static std::vector<std::string> Upgrade(db::Connection& cn);
  // True when the store holds the rules tables.
  static bool Exists(db::Connection& cn);
  // Load, LoadBaseData and Upgrade on a store without the rules tables; returns whether it did.
  // A store whose dialect has no scripts is left alone.
  static bool Ensure(db::Connection& cn);
};

// Opens a connection on the rules store named by `cn_str`. The first time in a process that a
// connection string is opened here, a store without the rules tables is given them, so the
// embedded store is created on first use. The caller owns the connection.
db::ConnectionPtr OpenRulesConnection(std::string_view cn_str);

}  // namespace gw
