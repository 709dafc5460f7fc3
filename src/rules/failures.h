// Failure numbers of the rules store's data-access classes that callers and tests compare with.
// (A statement a procedure is given too few arguments for fails with the provider's
// `db::dberr::kMissingParameter`.)
#pragma once

#include "platform/failures.h"

namespace gw::ruleserr {

// A `Save` given an empty id.
inline constexpr ErrorNumber kInvalidAttribId = 0x80040442;    // D_Attrib
inline constexpr ErrorNumber kInvalidDatapageId = 0x99871899;  // D_DataPage
inline constexpr ErrorNumber kInvalidEntityId = 0x9987189B;    // D_Entity
// `D_Entity` inserting a dataset without a datapage.
inline constexpr ErrorNumber kInvalidDatapageReference = 0x9987189C;
// `D_DataPage.Delete` of a datapage that packages' tasks use; the text names the packages.
inline constexpr ErrorNumber kDatapageInUse = 0xB68E1CDB;
// `DJob.Delete` and `DJob.DeleteAllTasks` while a run of the package is under way.
inline constexpr ErrorNumber kPackageRunning = 0x8612533D;
// `CEnvConfig.StartSQL`: the rules store did not answer (within 120 seconds for a server).
inline constexpr ErrorNumber kStoreDoesNotAnswer = 0x8D7CF731;
// `RulesSchema`: a store of a newer schema version than this program knows; it is left alone.
inline constexpr ErrorNumber kNewerSchema = 0x80044F10;

}  // namespace gw::ruleserr
