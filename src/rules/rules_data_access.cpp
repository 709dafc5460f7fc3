#include "rules/rules_data_access.h"

#include "rules/connection_string.h"

namespace gw {

RulesDataAccess::RulesDataAccess() : RulesDataAccess(modConnectionString::GetCnStr()) {}

RulesDataAccess::RulesDataAccess(std::string rules_db_conn_str)
    : rules_db_conn_str_(std::move(rules_db_conn_str)), rs_(rules_db_conn_str_) {}

void RulesDataAccess::SetConnStr(std::string cn_str) {
  rules_db_conn_str_ = std::move(cn_str);
  rs_.SetRulesDBConnStr(rules_db_conn_str_);
}

}  // namespace gw
