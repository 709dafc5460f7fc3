// Failure numbers of the extraction engine that callers and tests compare with.
#pragma once

#include "filters/failures.h"
#include "platform/failures.h"

namespace gw::exerr {

// Soft failures of a field (a `Status`, never thrown).
inline constexpr ErrorNumber kStartTagMissing = filters::errnum::kStartTagNotFound;  // 0x800403FC
inline constexpr ErrorNumber kEndTagMissing = filters::errnum::kEndTagNotFound;      // 0x80040406
// Pending failures of a row: they neither unwind nor stop the page.
inline constexpr ErrorNumber kColumnMismatch = 0xAADF6878;  // a field's column is not in the table
inline constexpr ErrorNumber kColumnRefused = 0x80058345;   // a value or static column refused
inline constexpr ErrorNumber kUpdateRefused = 0x86249EDD;   // the row's Update failed
// Faults that unwind.
inline constexpr ErrorNumber kNoConnectionString = 0xB7268F58;
// Load of a row that is not in the rules store, or is there more than once.
inline constexpr ErrorNumber kNoSuchAttrib = 0x8004041F;
inline constexpr ErrorNumber kDuplicateAttrib = 0x80040420;
inline constexpr ErrorNumber kNoSuchEntity = 0x80040412;
inline constexpr ErrorNumber kDuplicateEntity = 0x80040413;
inline constexpr ErrorNumber kNoSuchDataPage = 0x8004285C;
inline constexpr ErrorNumber kDuplicateDataPage = 0x8004285D;
// Entity.Validate: the first problem found.
inline constexpr ErrorNumber kNoDatapageOrInitString = 0x8524E4F5;
inline constexpr ErrorNumber kNoFields = 0x8524E4F6;
inline constexpr ErrorNumber kNoDatasetConnectionString = 0x8524E4F7;
inline constexpr ErrorNumber kNoTableNameOrTable = 0x8524E4F8;
inline constexpr ErrorNumber kCannotConnect = 0x8524E4F9;
inline constexpr ErrorNumber kCannotOpenTable = 0x8524E4FA;
// The dataset's target is the rules database (also from `Entity.CreateTable` and the row sink).
inline constexpr ErrorNumber kTargetIsRulesStore = 0x8524E4FB;
// A template that would lose data without failing (template_checks.h).
inline constexpr ErrorNumber kNameWithControlCharacter = 0x8524E4FC;
inline constexpr ErrorNumber kRepeatedColumn = 0x8524E4FD;
inline constexpr ErrorNumber kParentLoop = 0x8524E4FE;
inline constexpr ErrorNumber kUnknownFilter = 0x8524E4FF;
// DataPage.Validate.
inline constexpr ErrorNumber kNoDatasets = 0x8088D1B1;
inline constexpr ErrorNumber kNoDatapageId = 0x808BDEF1;

}  // namespace gw::exerr
