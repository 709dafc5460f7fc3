#include "engine/meta/meta_field.h"

namespace gw {

MetaFieldPtr MetaFields::Add(MetaFieldPtr field) {
  const std::string key = std::to_string(field->Id());
  return items_.Add(std::move(field), key);
}

std::shared_ptr<db::Recordset> MetaFields::GetCustomColsRecordset() const {
  auto rs = db::Recordset::Create();
  for (const auto& field : items_) {
    rs->AppendField(field->ColumnName(), db::DataType::VarWChar,
                    static_cast<std::int32_t>(field->ColumnLength()));
  }
  rs->OpenFabricated();
  return rs;
}

}  // namespace gw
