// What every data-access class of the rules store holds: the rules connection string, read
// through `modConnectionString::GetCnStr` when the object is made, and a `CDisconnRS` on it.
#pragma once

#include <string>

#include "rules/c_disconn_rs.h"
#include "rules/no_action.h"

namespace gw {

class RulesDataAccess {
 protected:
  RulesDataAccess();
  explicit RulesDataAccess(std::string rules_db_conn_str);

  const std::string& ConnStr() const { return rules_db_conn_str_; }
  // Sets the string here and on the `CDisconnRS`.
  void SetConnStr(std::string cn_str);
  const CDisconnRS& Query() const { return rs_; }

 private:
  std::string rules_db_conn_str_;
  CDisconnRS rs_;
};

}  // namespace gw
