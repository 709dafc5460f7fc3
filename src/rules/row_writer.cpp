#include "rules/row_writer.h"

#include "rules/no_action.h"

namespace gw {

void DeleteSelectedRow(const db::RecordsetPtr& rs) {
  if (!rs->IsEOF()) {
    rs->Delete();
    rs->Update();
  }
  rs->SetActiveConnection(nullptr);
}

bool IsNoAction(const Variant& v) {
  return v.IsEmpty() || (v.IsString() && v.ToString() == kNoAction);
}

bool IsNoActionNumber(const Variant& v) {
  if (IsNoAction(v)) return true;
  if (v.IsNull() || v.IsObject() || v.IsDate() || !v.IsNumeric()) return false;
  return v.ToDouble() <= static_cast<double>(kNoActionNumber);
}

bool IsNoActionDate(const Variant& v) {
  return IsNoAction(v) || (v.IsDate() && v.ToDate().IsEmpty());
}

PartialRowWriter::PartialRowWriter(const CDisconnRS& rs, std::string_view select_sql,
                                   std::vector<Variant> params)
    : rs_(rs.RunQuery(select_sql, false, params)) {
  insert_ = rs_->IsEOF();
}

Variant PartialRowWriter::RowValue(std::string_view column) const {
  if (insert_) return Variant(kNull);
  return (*rs_)[column].Value();
}

void PartialRowWriter::Set(std::string column, const Variant& value, bool left_out) {
  Variant v = value;
  if (left_out) v = insert_ ? Variant(kNull) : RowValue(column);
  names_.push_back(std::move(column));
  values_.push_back(std::move(v));
}

void PartialRowWriter::Write(std::string_view key_column, const Variant& key_value) {
  if (insert_) {
    names_.emplace_back(key_column);
    values_.push_back(key_value);
  }
  Write();
}

void PartialRowWriter::Write() {
  if (insert_) {
    rs_->AddNew(names_, values_);
  } else {
    rs_->Update(names_, values_);
  }
  rs_->SetActiveConnection(nullptr);
}

}  // namespace gw
