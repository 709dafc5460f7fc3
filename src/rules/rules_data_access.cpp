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

long RulesDataAccess::Count(std::string_view SQLStatement,
                            const std::vector<Variant>& params) const {
  auto rs = rs_.RunQuery(SQLStatement, true, params);
  if (rs->IsEOF()) return 0L;
  const Variant& v = rs->GetFields().Item(0L).Value();
  return v.IsEmptyOrNull() ? 0L : v.ToLong();
}

}  // namespace gw
