#include "meta/meta_internal.h"

#include "platform/error.h"

namespace gw::meta_internal {

std::string SuccessCodeName(const db::RecordsetPtr& code_row) {
  return code_row->GetFields()["display_name"].Value().ToString();
}

std::int16_t SuccessCodeId(const db::RecordsetPtr& code_row, std::string_view id_column) {
  return code_row->GetFields()[std::string(id_column)].Value().ToInteger();
}

}  // namespace gw::meta_internal
