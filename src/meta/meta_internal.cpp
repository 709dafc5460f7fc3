#include "meta/meta_internal.h"

#include "platform/error.h"

namespace gw::meta_internal {

namespace {

db::RecordsetPtr CodeRow(const SuccessCodeLookup& lookup, float determinant) {
  D_Metabase store;
  return (store.*lookup.query)(determinant);
}

}  // namespace

std::string SuccessCodeName(const SuccessCodeLookup& lookup, float determinant) {
  return ReportAs(std::string(lookup.level) + ".SuccessCode", [&] {
    return CodeRow(lookup, determinant)->GetFields()["display_name"].Value().ToString();
  });
}

std::int16_t SuccessCodeId(const SuccessCodeLookup& lookup, float determinant) {
  return ReportAs(std::string(lookup.level) + ".SuccessCodeId", [&] {
    return CodeRow(lookup, determinant)
        ->GetFields()[std::string(lookup.id_column)]
        .Value()
        .ToInteger();
  });
}

}  // namespace gw::meta_internal
