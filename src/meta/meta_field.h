// Custom columns of a dataset's target table, whose values come from the run metadata.
//
// A `MetaField` names a column (`ColumnName`, `ColumnLength`) and the member of the metadata tree
// that feeds it (`MetadataClassMember`, such as "MetaDoc.SourceUri"). `MetaEntity` fills `Value`
// row by row (`GetMetaFieldValues`); the extraction engine writes it into the row when the target
// table has that column.
//
// The catalogue of custom columns and each dataset's choice of them live in the rules store
// (`MetaField.Load`, `MetaFields.SaveAll`).
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "platform/collection.h"
#include "platform/db/recordset.h"
#include "platform/variant.h"

namespace gw {

class MetaField : public Object {
 public:
  static std::shared_ptr<MetaField> Create() { return std::make_shared<MetaField>(); }
  std::string TypeName() const override { return "MetaField"; }

  // Reads the custom column `CustColId` from the rules store: failure 0xBC83FFCA when there is
  // none, 0xBC83FFCB when there are several; columns are taken only when not null.
  MetaField& Load(long CustColId);

  long Id() const { return id_; }
  void SetId(long id) { id_ = id; }
  const std::string& DefaultValue() const { return default_value_; }
  void SetDefaultValue(std::string v) { default_value_ = std::move(v); }
  const Variant& DataType() const { return data_type_; }
  void SetDataType(Variant v) { data_type_ = std::move(v); }
  const std::string& ColumnName() const { return column_name_; }
  void SetColumnName(std::string v) { column_name_ = std::move(v); }
  long ColumnLength() const { return column_length_; }
  void SetColumnLength(long v) { column_length_ = v; }
  const std::string& MetadataClassMember() const { return class_member_; }
  void SetMetadataClassMember(std::string v) { class_member_ = std::move(v); }
  const std::string& GroupName() const { return group_name_; }
  void SetGroupName(std::string v) { group_name_ = std::move(v); }
  const std::string& Description() const { return description_; }
  void SetDescription(std::string v) { description_ = std::move(v); }
  const std::string& DisplayName() const { return display_name_; }
  void SetDisplayName(std::string v) { display_name_ = std::move(v); }
  const Variant& Value() const { return value_; }
  void SetValue(Variant v) { value_ = std::move(v); }

 private:
  long id_ = 0;
  std::string default_value_;
  Variant data_type_;
  std::string column_name_;
  long column_length_ = 0;
  std::string class_member_;
  std::string group_name_;
  std::string description_;
  std::string display_name_;
  Variant value_;
};

using MetaFieldPtr = std::shared_ptr<MetaField>;

// The custom columns a dataset stores, keyed by the text of each field's `Id`.
class MetaFields : public Object, public CollectionOf<MetaFieldPtr> {
 public:
  static std::shared_ptr<MetaFields> Create() { return std::make_shared<MetaFields>(); }
  std::string TypeName() const override { return "MetaFields"; }

  void Clear() { items_.Clear(); }
  // Fails with 457 when a field with the same `Id` is already there.
  MetaFieldPtr Add(MetaFieldPtr field);

  // An empty, in-memory recordset with one text column per field, in order: `ColumnName` with
  // `ColumnLength` characters. The shape in which custom columns join a dataset's row.
  std::shared_ptr<db::Recordset> GetCustomColsRecordset() const;
  // Stores this selection as the custom columns of the dataset `EntityId`, in order, replacing
  // what was stored.
  void SaveAll(const std::string& EntityId) const;
};

using MetaFieldsPtr = std::shared_ptr<MetaFields>;

}  // namespace gw
