#include "extraction/internal.h"

#include <limits>
#include <unordered_map>

#include "extraction/failures.h"
#include "platform/db/write_batch.h"
#include "rules/connection_string.h"
#include "targets/database.h"

namespace gw::extraction_internal {

std::string ChangeDefaultDB(const std::string& cn_str, const std::string& db_name) {
  return Database::ChangeDefaultDB(cn_str, db_name);
}

std::string ReformatMySQLCnStr(const std::string& cn_str) {
  std::string cn = cn_str;
  return modConnectionString::ReformatMySQLCnStr(cn, false);
}

bool IsRulesStore(std::string_view cn_str) {
  std::string rules_key;
  try {
    rules_key = db::StoreKey(modConnectionString::GetCnStr());
  } catch (const Error&) {
    return false;  // no rules store to protect
  }
  return db::StoreKey(cn_str) == rules_key;
}

bool AddressesRulesStore(std::string_view cn_str) {
  // Worked out once per write batch: the rules connection string does not change within one.
  static std::uint64_t serial = std::numeric_limits<std::uint64_t>::max();
  static std::string rules_key;
  static std::unordered_map<std::string, bool> answers;
  if (serial != db::WriteBatch::Serial()) {
    serial = db::WriteBatch::Serial();
    answers.clear();
    try {
      rules_key = db::StoreKey(modConnectionString::GetCnStr());
    } catch (const Error&) {
      rules_key.clear();  // no rules store to protect
    }
  }
  auto [it, inserted] = answers.try_emplace(std::string(cn_str), false);
  if (inserted) it->second = !rules_key.empty() && db::StoreKey(cn_str) == rules_key;
  return it->second;
}

}  // namespace gw::extraction_internal
