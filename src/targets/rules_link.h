// What the target store takes from the rules store: the connection-string edits of
// `modConnectionString` and the `providers` table. Kept in one place so that the rest of the target
// store reads as if they were its own.
#pragma once

#include <string>
#include <string_view>

#include "platform/db/recordset.h"

namespace gw::targets_internal {

std::string GetParameter(std::string_view sParam, std::string_view sConnectString,
                         std::string_view sEndDelimiter);
// `modConnectionString::ReformatMySQLCnStr` on a copy.
std::string ReformatMySQLCnStr(std::string CnStr, bool flag);
// The row of `[providers]` for `provider` (columns ProviderId, PageLength, MaxVarcharSize,
// MaxNameLength), read-only and disconnected; no row when the rules store does not know it.
db::RecordsetPtr QueryProviderProperties(std::string_view provider);

}  // namespace gw::targets_internal
