#include "extraction/internal.h"

#include "extraction/failures.h"

namespace gw::extraction_internal {

void ThrowRulesStoreUnavailable(std::string_view what) {
  throw Error(exerr::kRulesStoreUnavailable, std::string(what),
              "The rules store is not available in this build yet, so " + std::string(what) +
                  " cannot reach it.");
}

std::string ChangeDefaultDB(const std::string& cn_str, const std::string& /*db_name*/) {
  return cn_str;
}

std::string ReformatMySQLCnStr(const std::string& cn_str) { return cn_str; }

}  // namespace gw::extraction_internal
