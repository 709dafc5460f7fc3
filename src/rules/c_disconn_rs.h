// CDisconnRS: the one way the data-access classes run a statement on the rules database.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/db/recordset.h"
#include "platform/variant.h"

namespace gw {

class CDisconnRS {
 public:
  explicit CDisconnRS(std::string rules_db_conn_str = {})
      : rules_db_conn_str_(std::move(rules_db_conn_str)) {}

  const std::string& RulesDBConnStr() const { return rules_db_conn_str_; }
  void SetRulesDBConnStr(std::string cn_str) { rules_db_conn_str_ = std::move(cn_str); }

  // Runs `SQLStatement` on a new connection to `RulesDBConnStr` (command timeout 300 s) with
  // `params` bound to its "?" placeholders; values are never spliced into the text.
  //  - "Exec usp_Name ?, 'x'" runs the stored procedure of the store's dialect; other statements
  //    in SQL Server's dialect are translated (`TranslateSql`).
  //  - ReadOnly: a static, read-only recordset, cut from its connection, which is closed; it can
  //    be read, counted and navigated for as long as the caller keeps it.
  //  - not ReadOnly: a keyset, optimistic recordset that keeps the connection, so `AddNew`,
  //    `Update` and `Delete` write through until the caller detaches it.
  //  - a statement that yields no rows (UPDATE, an inserting procedure) runs and gives a closed
  //    recordset.
  // Failures of the store unwind with the store's number.
  db::RecordsetPtr RunQuery(std::string_view SQLStatement, bool ReadOnly = false,
                            const std::vector<Variant>& params = {}) const;
  // Runs `SQLStatement` as `RunQuery(SQLStatement, true, params)` does, but hands its rows to
  // `each` one at a time as the store reads them instead of keeping them, so the memory is the
  // same whatever their number. Returns false for a statement that yields no rows (it has run).
  // A failure of `each` stops the reading and unwinds as it stands; a failure of the store
  // unwinds with the store's number. Inside a rules transaction or session (whose connection the
  // caller may write through meanwhile) the rows are read whole first.
  bool ForEachRow(std::string_view SQLStatement, const std::function<void(const db::Row&)>& each,
                  const std::vector<Variant>& params = {}) const;

 private:
  std::string rules_db_conn_str_;
};

}  // namespace gw
