// Failure numbers of the target store that callers and tests compare with.
#pragma once

#include "platform/failures.h"

namespace gw::targeterr {

// An empty connection string given to `Database.Create`, `Database.Drop` or `Entity.CreateTable`.
inline constexpr ErrorNumber kNoConnectionString = 0xB735CB8C;
// `Database.Create` and `Database.Drop` for a provider they cannot create or drop databases for.
inline constexpr ErrorNumber kDatabaseNotSupported = 0xBCD0239A;
// `Tbl.Create` for a provider it cannot create tables for; harmless to `Entity.Validate`.
inline constexpr ErrorNumber kTableNotSupported = 0xBCD023A1;

// A database, table or column name that the store cannot hold (too long, characters it refuses,
// a name it keeps for itself); found before anything is written.
inline constexpr ErrorNumber kUnusableName = 0xBCD023A8;
}  // namespace gw::targeterr
