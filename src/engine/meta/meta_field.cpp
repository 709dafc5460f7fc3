#include "engine/meta/meta_field.h"

#include "platform/error.h"
#include "rules/template_data_access.h"

namespace gw {

namespace {
constexpr ErrorNumber kNoSuchCustomColumn = 0xBC83FFCA;
constexpr ErrorNumber kDuplicateCustomColumn = 0xBC83FFCB;
}  // namespace

MetaField& MetaField::Load(long CustColId) {
  return ReportAs("MetaField.Load(CustColId)", [&]() -> MetaField& {
    auto rs = D_CustCols().Selectx(CustColId);
    if (rs->RecordCount() == 0) {
      throw Error(kNoSuchCustomColumn, "Metafield.Load",
                  "The specified Custom Column Id does not exist.");
    }
    if (rs->RecordCount() > 1) {
      throw Error(kDuplicateCustomColumn, "Metafield.Load",
                  "Data consistency error within the database.  There is more than one Custom "
                  "Column with that ID.");
    }
    auto& f = rs->GetFields();
    auto take = [&](const char* column, auto&& assign) {
      const Variant& v = f[column].Value();
      if (!v.IsNull()) assign(v);
    };
    take("custom_col_id", [&](const Variant& v) { id_ = v.ToLong(); });
    take("group_name", [&](const Variant& v) { group_name_ = v.ToString(); });
    take("display_name", [&](const Variant& v) { display_name_ = v.ToString(); });
    take("description", [&](const Variant& v) { description_ = v.ToString(); });
    take("column_length", [&](const Variant& v) { column_length_ = v.ToLong(); });
    take("column_name", [&](const Variant& v) { column_name_ = v.ToString(); });
    take("datatype_id", [&](const Variant& v) { data_type_ = v; });
    take("default_value", [&](const Variant& v) { default_value_ = v.ToString(); });
    take("class_member_name", [&](const Variant& v) { class_member_ = v.ToString(); });
    return *this;
  });
}

void MetaFields::SaveAll(const std::string& EntityId) const {
  ReportAs("MetaFields.SaveAll(EntityId)", [&] {
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
