#include "extraction/internal.h"

#include <limits>
#include <optional>
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
  // The rules connection string is read once per write batch; the stores are worked out again
  // only when it changed or a new store session began (finding a store's key walks the file
  // system, and a session keeps its stores by their keys).
  static std::uint64_t batch = std::numeric_limits<std::uint64_t>::max();
  static std::uint64_t session = std::numeric_limits<std::uint64_t>::max();
  static std::optional<std::string> rules_cn_str;
  static std::string rules_key;
  static std::unordered_map<std::string, bool> answers;
  if (batch != db::WriteBatch::Serial()) {
    batch = db::WriteBatch::Serial();
    std::optional<std::string> current;
    try {
      current = modConnectionString::GetCnStr();
    } catch (const Error&) {
    }
    if (session != db::StoreSession::Serial() || current != rules_cn_str) {
      session = db::StoreSession::Serial();
      rules_cn_str = std::move(current);
      answers.clear();
      rules_key.clear();  // no rules store to protect, unless it is found
      try {
        if (rules_cn_str) rules_key = db::StoreKey(*rules_cn_str);
      } catch (const Error&) {
      }
    }
  }
  auto [it, inserted] = answers.try_emplace(std::string(cn_str), false);
  if (inserted) it->second = !rules_key.empty() && db::StoreKey(cn_str) == rules_key;
  return it->second;
}

}  // namespace gw::extraction_internal
