// Internal to the run metadata: reading a success code row.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/db/recordset.h"

namespace gw::meta_internal {

// The row the rules store gave for a determinant: its `display_name`, and its id in `id_column`.
// A store that gave no row fails with 3021.
std::string SuccessCodeName(const db::RecordsetPtr& code_row);
std::int16_t SuccessCodeId(const db::RecordsetPtr& code_row, std::string_view id_column);

}  // namespace gw::meta_internal
