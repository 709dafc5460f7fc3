#include "meta/meta_field.h"

#include "meta/failures.h"
#include "platform/error.h"
#include "rules/stored_row.h"
#include "rules/template_data_access.h"

namespace gw {

MetaField& MetaField::Load(long CustColId) {
  return ReportAs("MetaField.Load(CustColId)", Args(CustColId), [&]() -> MetaField& {
    auto rs = D_CustCols().Selectx(CustColId);
    const StoredRow row(
        *rs, MissingRow(metaerr::kNoSuchCustomColumn, "Metafield.Load", "Custom Column"),
        DuplicateRow(metaerr::kDuplicateCustomColumn, "Metafield.Load", "Custom Column"));
    row.Take("custom_col_id", [&](const Variant& v) { id_ = v.ToLong(); });
    row.Take("group_name", [&](const Variant& v) { group_name_ = v.ToString(); });
    row.Take("display_name", [&](const Variant& v) { display_name_ = v.ToString(); });
    row.Take("description", [&](const Variant& v) { description_ = v.ToString(); });
    row.Take("column_length", [&](const Variant& v) { column_length_ = v.ToLong(); });
    row.Take("column_name", [&](const Variant& v) { column_name_ = v.ToString(); });
    row.Take("datatype_id", [&](const Variant& v) { data_type_ = v; });
    row.Take("default_value", [&](const Variant& v) { default_value_ = v.ToString(); });
    row.Take("class_member_name", [&](const Variant& v) { class_member_ = v.ToString(); });
    return *this;
  });
}

void MetaFields::SaveAll(const std::string& EntityId) const {
  ReportAs("MetaFields.SaveAll(EntityId)", Args(EntityId), [&] {
    D_CustCols cols;
    cols.DelCustColsForEnt(EntityId);
    for (const auto& field : items_) cols.InsCustColForEnt(EntityId, field->Id());
  });
}

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
