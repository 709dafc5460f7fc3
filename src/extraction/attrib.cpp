#include "extraction/attrib.h"

#include "extraction/data_page.h"
#include "extraction/entity.h"
#include "extraction/failures.h"
#include "extraction/internal.h"
#include "extraction/text_search.h"
#include "infra/c_guid_gen.h"
#include "rules/stored_row.h"
#include "rules/template_data_access.h"

namespace gw {

using exerr::kDuplicateAttrib;
using exerr::kNoSuchAttrib;

std::string JoinColumnType(std::string_view column_type, std::string_view parameter) {
  std::string stored(column_type);
  stored += " , ";
  stored += parameter;
  return stored;
}

ColumnTypeParts SplitColumnType(std::string_view stored) {
  ColumnTypeParts parts;
  const std::size_t comma = stored.find(',');
  if (comma == std::string_view::npos) {
    parts.column_type = std::string(text::TrimSpaces(stored));
    return parts;
  }
  parts.column_type = std::string(text::TrimSpaces(stored.substr(0, comma)));
  parts.parameter = std::string(text::TrimSpaces(stored.substr(comma + 1)));
  return parts;
}

// ---- Attrib ------------------------------------------------------------------------------------

Attrib::Attrib() : id_(CGUIDGen::NewGUID()) {}

std::shared_ptr<Attrib> Attrib::Create() { return std::shared_ptr<Attrib>(new Attrib()); }

std::string Attrib::Extract(std::string& SrcHTML, Status& status) {
  PageText text(SrcHTML);
  return Extract(text.Rest(), status);
}

std::string Attrib::Extract(std::string_view& SrcHTML, Status& status) {
  const std::string* value = Cut(SrcHTML, status);
  return value ? *value : std::string();
}

const std::string* Attrib::Cut(std::string_view& SrcHTML, Status& status) {
  if (!status.Ok()) status.Clear();
  return ReportAs("Attrib.Extract(SrcHTML)", Args(SrcHTML), [&]() -> const std::string* {
    // Asked once: a handler can only connect others while an event is being raised.
    const bool report = OnParserAction.HasHandlers() || (relay_ && relay_->HasParserListeners());
    const auto raise = [&](TokenTypeEnum type, long start_index, std::string_view value,
                           std::string_view source, std::string_view message) {
      if (report) RaiseParserAction(type, start_index, value, source, message);
    };
    const std::size_t start = FindIn(start_tag_, SrcHTML);
    if (start == text::npos) {
      raise(TokenTypeEnum::FieldStartTagNotFound, -1, StartTag(), {},
            "Could not find the field start tag.");
      status = Status(exerr::kStartTagMissing, "Attrib.Extract",
                      "Start Tag " + StartTag() + " Does not exist in SrcHTML.");
      return nullptr;
    }
    raise(TokenTypeEnum::FieldStartTag, static_cast<long>(start + 1), StartTag(), SrcHTML,
          "Found field start tag.");
    const std::size_t value_start = start + StartTag().size();
    const std::size_t end = FindIn(end_tag_, SrcHTML, value_start);
    if (end == text::npos) {
      raise(TokenTypeEnum::FieldEndTagNotFound, -1, EndTag(), {},
            "Could not find the field end tag.");
      status = Status(exerr::kEndTagMissing, "Attrib.Extract",
                      "End Tag " + EndTag() + " Does not exist in SrcHTML.");
      return nullptr;
    }
    raise(TokenTypeEnum::FieldEndTag, static_cast<long>(end + 1), EndTag(), {},
          "Found field end tag.");
    const std::string_view raw = SrcHTML.substr(value_start, end - value_start);
    raise(TokenTypeEnum::FieldValue, static_cast<long>(value_start + 1), raw, {},
          "Extracted field value from between the start and end tags.");
    // The end tag stays: it may be (part of) the next field's start tag.
    SrcHTML.remove_prefix(end);
    // The value is built in a spare buffer and swapped in, so that cutting rows reuses the
    // field's buffers instead of allocating for every value.
    if (filter_ == filters::ColumnFilter::Raw) {
      spare_.assign(raw);
    } else {
      spare_ = FilterAsColumnType(raw);
    }
    raise(TokenTypeEnum::FilteredFieldValue, static_cast<long>(value_start + 1), spare_, {},
          "Applied any applicable cleansing filters to the field value.");
    extraction_.swap(spare_);
    is_dirty_ = true;
    return &extraction_;
  });
}

void Attrib::RaiseParserAction(TokenTypeEnum type, long start_index, std::string_view value,
                               std::string_view source, std::string_view message) {
  if (OnParserAction.HasHandlers()) {
    OnParserAction.Emit(column_name_, type, start_index, value, source, message);
  }
  if (relay_ && relay_->HasParserListeners()) {
    relay_->RelayFieldAction(column_name_, type, start_index, value, source, message);
  }
}

std::string Attrib::FilterAsColumnType(std::string_view rawText) {
  if (filter_ == filters::ColumnFilter::Raw) return std::string(rawText);
  return ReportAs("Attrib.FilterAsColumnType(rawText)", Args(rawText), [&] {
    if (filter_ != filters::ColumnFilter::Url || !column_type_parameter_.empty()) {
      return filters::RunColumnFilter(filter_, rawText, column_type_parameter_);
    }
    // Links resolve against the document being extracted when the whole chain is there.
    std::string base = column_type_parameter_;
    if (const auto entity = EntityIfSet()) {
      if (const auto page = entity->DataPageIfSet()) {
        if (const auto& doc = page->Doc()) base = doc->SourceUri();
      }
    }
    return filters::RunColumnFilter(filter_, rawText, base);
  });
}

bool Attrib::Save() {
  return ReportAs("Attrib.Save", [&] {
    D_Attrib().Save(id_, entity_id_, column_name_, StartTag(), EndTag(), step_, is_pk_,
                    JoinColumnType(column_type_, column_type_parameter_), column_size_,
                    is_optional_);
    is_dirty_ = false;
    return true;
  });
}

void Attrib::Delete() {
  ReportAs("Attrib.Delete", [&] {
    D_Attrib().Delete(id_);
    GetEntity()->GetAttributes().Remove(IndexKey(id_));
  });
}

bool Attrib::Load(std::string_view Id) {
  return ReportAs("Attrib.Load(Id)", Args(Id), [&] {
    auto rs = D_Attrib().Selectx(std::string(Id));
    const StoredRow row(*rs, MissingRow(kNoSuchAttrib, "Attrib.Load", "Attribute"),
                        DuplicateRow(kDuplicateAttrib, "Attrib.Load", "Attribute"));
    row.Take("A_Id", [&](const Variant& v) { id_ = v.ToString(); });
    row.Take("ColumnName", [&](const Variant& v) { column_name_ = v.ToString(); });
    row.Take("EndTag", [&](const Variant& v) { end_tag_ = text::NoCaseSearcher(v.ToString()); });
    row.Take("StartTag",
             [&](const Variant& v) { start_tag_ = text::NoCaseSearcher(v.ToString()); });
    row.Take("Step", [&](const Variant& v) { step_ = v.ToInteger(); });
    row.Take("EntityId", [&](const Variant& v) { entity_id_ = v.ToString(); });
    // The key flag is read as stored: the dataset's key bookkeeping runs only when a user sets it.
    row.Take("IsPK", [&](const Variant& v) { is_pk_ = v.ToBool(); });
    row.Take("ColumnType", [&](const Variant& v) {
      ColumnTypeParts parts = SplitColumnType(v.ToString());
      SetColumnType(std::move(parts.column_type));
      if (parts.parameter) column_type_parameter_ = std::move(*parts.parameter);
    });
    row.Take("ColumnSize", [&](const Variant& v) { column_size_ = v.ToLong(); });
    row.Take("IsOptional", [&](const Variant& v) { is_optional_ = v.ToBool(); });
    is_dirty_ = false;
    return true;
  });
}

std::shared_ptr<Entity> Attrib::EntityIfSet() const { return entity_.IfSet(); }

std::shared_ptr<Entity> Attrib::GetEntity() { return entity_.Get(entity_id_); }

void Attrib::SetEntity(const std::shared_ptr<Entity>& entity) {
  entity_.Set(entity);
  is_dirty_ = true;
}

void Attrib::SetIsPK(bool value) {
  if (value && !is_pk_) {
    const auto entity = GetEntity();
    if (const auto current = entity->PKAttribute(); current && current.get() != this) {
      current->SetIsPK(false);
    }
    if (entity->IsPKSurrogate()) entity->SetIsPKSurrogate(false);
    entity->SetPKColumn(column_name_);
  }
  is_pk_ = value;
  is_dirty_ = true;
}

void Attrib::SetColumnType(std::string value) {
  filter_ = filters::ColumnFilterOf(value);
  column_type_ = std::move(value);
  is_dirty_ = true;
}

void Attrib::SetStartTag(std::string_view value) {
  start_tag_ = text::NoCaseSearcher(value);
  is_dirty_ = true;
}

void Attrib::SetEndTag(std::string_view value) {
  end_tag_ = text::NoCaseSearcher(value);
  is_dirty_ = true;
}

void Attrib::SetExtraction(std::string_view value) {
  extraction_.assign(value);
  is_dirty_ = true;
}

// ---- Attributes --------------------------------------------------------------------------------

AttribPtr Attributes::Add(AttribPtr attrib, std::string_view sKey, std::optional<long> index) {
  if (const auto entity = entity_.lock()) {
    attrib->SetEntity(entity);
    attrib->SetEntityId(entity->Id());
  }
  const long count = items_.Count();
  if (count == 0 || !index) return items_.Add(std::move(attrib), sKey);
  const long at = *index;
  if (at > 1 && at < count) return items_.AddAfter(std::move(attrib), sKey, IndexKey(at - 1));
  if (at > 1) return items_.AddAfter(std::move(attrib), sKey, IndexKey(count));
  return items_.AddBefore(std::move(attrib), sKey, IndexKey(1));
}

AttribPtr Attributes::Item(const IndexKey& vntIndexKey) const {
  const AttribPtr* found = items_.Find(vntIndexKey);
  return found ? *found : nullptr;
}

void Attributes::Remove(const IndexKey& vntIndexKey) {
  if (items_.TryRemove(vntIndexKey)) return;
  const std::string id =
      vntIndexKey.IsKey() ? vntIndexKey.Key() : std::to_string(vntIndexKey.Index());
  for (long k = 1; k <= items_.Count(); ++k) {
    if (items_.Item(k)->Id() == id) {
      items_.Remove(k);
      return;
    }
  }
}

}  // namespace gw
