// Fields: how one value is cut out of a row's text.
//
// An `Attrib` finds its `StartTag` in the text, then its `EndTag` after it, takes what lies
// between, runs it through the filter its `ColumnType` names, and leaves the text beginning with
// the end tag: everything before the end tag is consumed, the end tag itself stays, so the end
// tag of one field may be (part of) the start tag of the next. A missing tag is a soft failure: the
// caller's `Status` gets the number, `Extract` returns an empty value, and the text stays as it
// was.
//
// `Attributes` is the ordered collection of a dataset's fields. It holds its fields; a field's
// `Entity` is a back reference that does not keep the dataset alive.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "extraction/owner_link.h"
#include "extraction/skip_map.h"
#include "extraction/token_type.h"
#include "filters/column_filter.h"
#include "platform/collection.h"
#include "platform/error.h"
#include "platform/signal.h"
#include "platform/text.h"
#include "platform/variant.h"

namespace gw {

class Entity;

// The stored form of a column type and its parameter: "TYPE , parameter" (the separator also when
// the parameter is empty).
std::string JoinColumnType(std::string_view column_type, std::string_view parameter);
// Reads the stored form back: split at the first comma into at most two pieces, each trimmed of
// spaces. A parameter may therefore hold further commas; without a comma there is no parameter.
struct ColumnTypeParts {
  std::string column_type;
  std::optional<std::string> parameter;
};
ColumnTypeParts SplitColumnType(std::string_view stored);

class Attrib : public Object {
 public:
  // Objects of the library live in shared pointers: make them with `Create`.
  static std::shared_ptr<Attrib> Create();
  std::string TypeName() const override { return "Attrib"; }

  // Cuts this field's value out of `SrcHTML`, which is consumed up to (not including) the end tag.
  // Returns the filtered value, also kept in `Extraction`. A missing tag leaves `SrcHTML` alone,
  // returns "" and fills `status` with 0x800403FC (start tag) or 0x80040406 (end tag); any other
  // fault unwinds. `SrcHTML` is empty while this runs: handlers must not use it.
  std::string Extract(std::string& SrcHTML, Status& status);
  // The same on a view, which moves forward instead of being copied.
  std::string Extract(std::string_view& SrcHTML, Status& status);

  // Need the rules store (not available in this build yet: they fail with 0x80004001).
  bool Save();
  void Delete();
  bool Load(std::string_view Id);
  bool Unload() { return false; }

  // The owning dataset. Without one, a new `Entity` is made and kept (loaded by `EntityId` when
  // that is set).
  std::shared_ptr<Entity> GetEntity();

  bool IsPK() const { return is_pk_; }
  // Setting true on a field that was not the key first takes the key from the dataset's current
  // key field, ends a surrogate key, and makes this field's column the dataset's `PKColumn`.
  void SetIsPK(bool value);
  const std::string& ColumnType() const { return column_type_; }
  void SetColumnType(std::string value);
  const std::string& ColumnTypeParameter() const { return column_type_parameter_; }
  void SetColumnTypeParameter(std::string value) {
    SetProperty(column_type_parameter_, std::move(value), is_dirty_);
  }
  // Negative: the value is written whole; 0 or more: it is cut to the target column's width.
  std::int32_t ColumnSize() const { return column_size_; }
  void SetColumnSize(std::int32_t value) { SetProperty(column_size_, value, is_dirty_); }
  // Order inside the dataset, and the field's identity in a skip map.
  std::int16_t Step() const { return step_; }
  void SetStep(std::int16_t value) { SetProperty(step_, value, is_dirty_); }
  const std::string& StartTag() const { return start_tag_.Needle(); }
  void SetStartTag(std::string_view value);
  const std::string& EndTag() const { return end_tag_.Needle(); }
  void SetEndTag(std::string_view value);
  const std::string& ColumnName() const { return column_name_; }
  void SetColumnName(std::string value) { SetProperty(column_name_, std::move(value), is_dirty_); }
  // The row may do without this field: it takes part in the skip-map search.
  bool IsOptional() const { return is_optional_; }
  void SetIsOptional(bool value) { SetProperty(is_optional_, value, is_dirty_); }

  // The last filtered value; a failed extraction keeps the previous one.
  const std::string& Extraction() const { return extraction_; }
  const std::string& Id() const { return id_; }
  bool IsDirty() const { return is_dirty_; }

  // (AttribName, TokenType, StartIndex, TokenValue, SourceText, message). Positions are 1-based
  // in the text of the moment; -1 when a tag is missing.
  Signal<std::string_view, TokenTypeEnum, long, std::string_view, std::string_view,
         std::string_view>
      OnParserAction;

  const std::string& EntityId() const { return entity_id_; }
  void SetEntityId(std::string value) { SetProperty(entity_id_, std::move(value), is_dirty_); }

 private:
  friend class Attributes;
  friend class Entity;
  // The skip-map trials cut fields as rows do (entity_internal.h).
  friend float TrySkipMap(Entity& entity, const SkipMap& skip_map, std::string_view SrcText);
  Attrib();
  std::string FilterAsColumnType(std::string_view rawText);
  // The owner, as a back reference.
  void SetEntity(const std::shared_ptr<Entity>& entity);
  void SetExtraction(std::string_view value);
  void SetId(std::string value) { id_ = std::move(value); }
  // `Extract` without the copy: the value stays in `extraction_`; null on a soft failure.
  const std::string* Cut(std::string_view& SrcHTML, Status& status);
  void RaiseParserAction(TokenTypeEnum type, long start_index, std::string_view value,
                         std::string_view source, std::string_view message);
  // The dataset, if one is set or was made, without making one.
  std::shared_ptr<Entity> EntityIfSet() const;

  std::string id_;
  OwnerLink<Entity> entity_;
  std::string column_name_;
  text::NoCaseSearcher end_tag_;
  text::NoCaseSearcher start_tag_;
  std::int16_t step_ = 0;
  std::string extraction_;
  std::string spare_;  // the buffer the next value is built in
  std::string entity_id_;
  bool is_dirty_ = false;
  bool is_pk_ = false;
  std::string column_type_;
  filters::ColumnFilter filter_ = filters::ColumnFilter::Raw;
  std::int32_t column_size_ = 0;
  bool is_optional_ = false;
  std::string column_type_parameter_;
  // The dataset that re-raises this field's events while it cuts a real row (not a trial).
  Entity* relay_ = nullptr;
};

using AttribPtr = std::shared_ptr<Attrib>;

// A dataset's fields, in order.
class Attributes {
 public:
  // Puts `attrib` in place by `index`: into an empty collection it is appended; an index above 1
  // and below the count puts it after position index - 1; above 1 and not below the count, after
  // the last; 1 or below, before the first. Without an index it is appended. A non-empty `sKey`
  // is its key. The field's owner becomes this collection's dataset first.
  AttribPtr Add(AttribPtr attrib, std::string_view sKey = {}, std::optional<long> index = {});
  // Null for an unknown key or position.
  AttribPtr Item(const IndexKey& vntIndexKey) const;
  long Count() const { return items_.Count(); }
  // By key or position; failing that, the first field whose `Id` is the argument's text. An
  // unknown field is no error.
  void Remove(const IndexKey& vntIndexKey);
  void Clear() { items_.Clear(); }
  auto begin() const { return items_.begin(); }
  auto end() const { return items_.end(); }

  std::shared_ptr<Entity> GetEntity() const { return entity_.lock(); }

 private:
  friend class Entity;
  void SetEntity(const std::weak_ptr<Entity>& entity) { entity_ = entity; }

  Collection<AttribPtr> items_;
  std::weak_ptr<Entity> entity_;
};

}  // namespace gw
