// Helpers shared by the classes of the extraction library; not for other layers.
#pragma once

#include <string>
#include <string_view>

namespace gw::extraction_internal {

// The target store's rewrite of a dataset's connection string on the way to its row sink. Until
// the target store is linked it hands the string back as it is, which is what it does for the
// file-based providers anyway.
std::string ChangeDefaultDB(const std::string& cn_str, const std::string& db_name);
// `modConnectionString::ReformatMySQLCnStr` for a table in the database (flag false).
std::string ReformatMySQLCnStr(const std::string& cn_str);

}  // namespace gw::extraction_internal
