// Helpers shared by the classes of the extraction library; not for other layers.
#pragma once

#include <string>
#include <string_view>

namespace gw::extraction_internal {

// Load, Save and Delete reach the rules store, which this build does not have yet. `what` is the
// operation ("Entity.Load").
[[noreturn]] void ThrowRulesStoreUnavailable(std::string_view what);

// The target store's rewrites of a dataset's connection string on the way to its row sink. Until
// the target store is linked they hand the string back as it is, which is what they do for the
// file-based providers anyway.
std::string ChangeDefaultDB(const std::string& cn_str, const std::string& db_name);
std::string ReformatMySQLCnStr(const std::string& cn_str);

}  // namespace gw::extraction_internal
