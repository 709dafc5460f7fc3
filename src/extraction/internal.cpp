#include "extraction/internal.h"

#include "extraction/failures.h"
#include "rules/connection_string.h"

namespace gw::extraction_internal {

std::string ChangeDefaultDB(const std::string& cn_str, const std::string& /*db_name*/) {
  return cn_str;
}

std::string ReformatMySQLCnStr(const std::string& cn_str) {
  std::string cn = cn_str;
  return modConnectionString::ReformatMySQLCnStr(cn, false);
}

}  // namespace gw::extraction_internal
