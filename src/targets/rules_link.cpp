#include "targets/rules_link.h"

#include "rules/c_disconn_rs.h"
#include "rules/connection_string.h"

namespace gw::targets_internal {

std::string GetParameter(std::string_view sParam, std::string_view sConnectString,
                         std::string_view sEndDelimiter) {
  return modConnectionString::GetParameter(sParam, sConnectString, sEndDelimiter);
}

std::string ReformatMySQLCnStr(std::string CnStr, bool flag) {
  return modConnectionString::ReformatMySQLCnStr(CnStr, flag);
}

db::RecordsetPtr QueryProviderProperties(std::string_view provider) {
  const CDisconnRS rules(modConnectionString::GetCnStr());
  return rules.RunQuery(
      "SELECT [provider_id] as ProviderId, [page_length] as PageLength, "
      "[max_varchar_size] as MaxVarcharSize, [max_name_length] as MaxNameLength "
      "FROM [providers] "
      " WHERE [provider_id] = ?",
      true, {Variant(provider)});
}

}  // namespace gw::targets_internal
