// Inside the target store: the per-provider steps of `Database.Create` and `Database.Drop`, for
// the classes and tests of this layer. Other layers use database.h.
#pragma once

#include <string_view>

#include "platform/db/recordset.h"

namespace gw::targets_internal {

void DropJet(std::string_view CnStr);
void DropSQL(std::string_view CnStr);
// Drops the database the string names as its catalog; `Database.Drop` does not route MySQL here.
void DropMySQL(std::string_view CnStr);
void CreateSQL(std::string_view CnStr);
void CreateMySQL(std::string_view CnStr);
bool CreateJet(std::string_view CnStr);
// The `providers` row of `Provider` (ProviderId, PageLength, MaxVarcharSize, MaxNameLength);
// an empty recordset when the rules store does not know it.
db::RecordsetPtr GetProviderProperties(std::string_view Provider);

}  // namespace gw::targets_internal
