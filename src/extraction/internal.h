// Helpers shared by the classes of the extraction library; not for other layers.
#pragma once

#include <string>
#include <string_view>

namespace gw::extraction_internal {

// The target store's rewrites of a dataset's connection string on the way to its row sink
// (`Database.ChangeDefaultDB` and the MySQL repair).
std::string ChangeDefaultDB(const std::string& cn_str, const std::string& db_name);
// `modConnectionString::ReformatMySQLCnStr` for a table in the database (flag false).
std::string ReformatMySQLCnStr(const std::string& cn_str);

// True when `cn_str` reaches the store that holds the rules database. Meant for rows written in a
// write batch: the answer is worked out once per batch.
bool AddressesRulesStore(std::string_view cn_str);
// The same, asked anew every time (outside a write batch, where the rules store may change).
bool IsRulesStore(std::string_view cn_str);

}  // namespace gw::extraction_internal
