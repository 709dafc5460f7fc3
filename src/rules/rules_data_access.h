// What every data-access class of the rules store holds: the rules connection string, read
// through `modConnectionString::GetCnStr` when the object is made, and a `CDisconnRS` on it.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "rules/c_disconn_rs.h"
#include "rules/no_action.h"

namespace gw {

class RulesDataAccess {
 public:
  // On the rules store of the process, or on the one `rules_db_conn_str` names. Every
  // data-access class takes these two constructors as they are.
  RulesDataAccess();
  explicit RulesDataAccess(std::string rules_db_conn_str);

 protected:
  const std::string& ConnStr() const { return rules_db_conn_str_; }
  // Sets the string here and on the `CDisconnRS`.
  void SetConnStr(std::string cn_str);
  const CDisconnRS& Query() const { return rs_; }
  // Runs a read-only `SELECT COUNT(*) ...` (or any statement whose first column is a number) and
  // gives its first row's first value; 0 when there is no row or the value is NULL.
  long Count(std::string_view SQLStatement, const std::vector<Variant>& params) const;

 private:
  std::string rules_db_conn_str_;
  CDisconnRS rs_;
};

}  // namespace gw
