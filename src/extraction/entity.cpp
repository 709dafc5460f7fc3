#include "extraction/entity.h"

#include <algorithm>

#include "extraction/data_page.h"
#include "extraction/failures.h"
#include "extraction/internal.h"
#include "infra/c_crypto.h"
#include "infra/c_guid_gen.h"
#include "platform/db/connection.h"
#include "platform/event_loop.h"
#include "platform/text.h"
#include "rules/stored_row.h"
#include "rules/template_data_access.h"
#include "text/c_string.h"

namespace gw {

namespace {

constexpr std::string_view kExtractLogName =
    "Entity.Extract(SrcHTML,UseTmpTbls,OverrideConnStr,UniqueTblPrefix)";

[[noreturn]] void ThrowObjectNotSet(std::string_view source) {
  throw Error(errnum::kObjectNotSet, std::string(source),
              "Object variable or With block variable not set");
}

// Links a dataset to the field that is cutting the real row, so that the field's events are
// re-raised; the link ends with the object.
class FieldRelay {
 public:
  FieldRelay() = default;
  FieldRelay(const FieldRelay&) = delete;
  FieldRelay& operator=(const FieldRelay&) = delete;
  ~FieldRelay() { Detach(); }
  // `slot` is the field's link to the dataset that re-raises its events.
  void Attach(Entity*& slot, Entity* entity) {
    Detach();
    slot = entity;
    slot_ = &slot;
  }
  void Detach() {
    if (slot_) *slot_ = nullptr;
    slot_ = nullptr;
  }

 private:
  Entity** slot_ = nullptr;
};

// `a` is what is left of a row and `b` the text that followed the row: together they are one
// stretch of the page.
std::string_view Rejoin(std::string_view a, std::string_view b) {
  return std::string_view(a.data(), a.size() + b.size());
}

}  // namespace

// ---- Entities ----------------------------------------------------------------------------------

std::shared_ptr<DataPage> Entities::GetDataPage() const {
  if (auto page = page_.lock()) return page;
  if (auto parent = parent_.lock()) return parent->DataPageIfSet();
  return nullptr;
}

EntityPtr Entities::Add(EntityPtr entity, std::string_view sKey) {
  if (auto parent = parent_.lock()) entity->SetParentEntity(parent);
  if (auto page = GetDataPage()) entity->SetDataPage(page);
  return items_.Add(std::move(entity), sKey);
}

long Entities::GetOccurCounts(std::string_view SrcText) {
  long sum = 0;
  for (const EntityPtr& e : items_) {
    const MetaEntityPtr meta = e->Metadata();
    meta->SetOccurCount(e->GetOccurCount(SrcText));
    sum += meta->OccurCount();
  }
  return sum;
}

EntityPtr Entities::FirstInStr(std::string_view SrcHTML, long& position,
                               const PageScan* scan) const {
  EntityPtr first;
  std::size_t first_hit = text::npos;
  for (const EntityPtr& e : items_) {
    const std::size_t hit = e->init_finder_.Find(scan, SrcHTML);
    if (hit != text::npos && (first_hit == text::npos || hit < first_hit)) {
      first = e;
      first_hit = hit;
    }
  }
  position = first ? static_cast<long>(first_hit + 1) : 0;
  return first;
}

void Entities::ResetMetadata() {
  for (const EntityPtr& e : items_) e->SetMetadata(nullptr);
}

void Entities::InitMetadata(const MetaDocPtr& prmMetaDoc) {
  ResetMetadata();
  for (const EntityPtr& e : items_) {
    if (!prmMetaDoc) ThrowObjectNotSet("Entities.InitMetadata");
    MetaEntities& registered = prmMetaDoc->GetMetaEntities();
    // Seen again on this document: the new counters replace the old ones. (Asked first rather
    // than caught as 457, since this runs for every parent row.)
    if (!e->Id().empty()) registered.TryRemove(e->Id());
    registered.Add(e->Metadata(), prmMetaDoc);
  }
}

// ---- Entity: life --------------------------------------------------------------------------

Entity::Entity() : id_(CGUIDGen::NewGUID()), selected_meta_fields_(MetaFields::Create()) {}

Entity::~Entity() = default;

EntityPtr Entity::Create() {
  EntityPtr e(new Entity());
  e->attributes_.SetEntity(e);
  e->all_children_.SetParentEntity(e);
  e->children_on_page_.SetParentEntity(e);
  return e;
}

namespace {

// Takes the dataset `id` out of `entities`, if it is there (found by id: items need not be keyed).
void RemoveById(Entities& entities, const std::string& id) {
  for (long k = 1; k <= entities.Count(); ++k) {
    if (entities.Item(k)->Id() == id) {
      entities.Remove(k);
      return;
    }
  }
}

void RemoveAll(Entities& entities) {
  while (entities.Count() > 0) entities.Remove(1);
}

// The datasets a rules-store query names in its column E_Id, each loaded, in the query's order.
std::vector<EntityPtr> LoadEntities(const std::shared_ptr<db::Recordset>& ids) {
  std::vector<EntityPtr> loaded;
  for (; !ids->IsEOF(); ids->MoveNext()) {
    auto e = Entity::Create();
    e->Load(ids->GetFields()["E_Id"].Value().ToString());
    loaded.push_back(std::move(e));
  }
  return loaded;
}

MetaFieldsPtr LoadMetaFields(const std::shared_ptr<db::Recordset>& ids) {
  auto fields = MetaFields::Create();
  for (; !ids->IsEOF(); ids->MoveNext()) {
    auto field = MetaField::Create();
    field->Load(ids->GetFields()["custom_col_id"].Value().ToLong());
    fields->Add(std::move(field));
  }
  return fields;
}

}  // namespace

void Entities::AddLoaded(const std::vector<EntityPtr>& loaded) {
  for (const EntityPtr& e : loaded) {
    Add(e, e->Id());
    e->is_dirty_ = false;  // linking it to its owners is no change of its own
  }
}

bool Entity::Save() {
  return ReportAs("Entity.Save", [&] {
    std::string stored;
    if (!db_conn_str_.empty()) {
      try {
        stored = CCrypto().EncryptText(db_conn_str_);
      } catch (const Error&) {
        stored = db_conn_str_;  // kept in clear rather than lost
      }
    }
    D_Entity().Save(id_, datapage_id_, entity_name_, description_, stored, table_name_, pk_column_,
                    std::string(InitString()), parent_entity_id_, on_page_order_, is_pk_surrogate_);
    if (!meta_fields_set_ && selected_meta_fields_->Count() == 0) LoadDefaultMetaFields();
    selected_meta_fields_->SaveAll(id_);
    is_dirty_ = false;
    return true;
  });
}

bool Entity::Load(std::string_view Id) {
  return ReportAs("Entity.Load(Id)", [&] {
    auto rs = D_Entity().Selectx(std::string(Id));
    const StoredRow row(
        *rs, {exerr::kNoSuchEntity, "Entity.Load", "The specified Entity Id does not exist."},
        {exerr::kDuplicateEntity, "Entity.Load",
         "Data consistency error within the database.  There is more than one Entity "
         "with that ID."});
    row.Take("E_Id", [&](const Variant& v) { id_ = v.ToString(); });
    row.Take("EntityName", [&](const Variant& v) { entity_name_ = v.ToString(); });
    row.Take("Description", [&](const Variant& v) { description_ = v.ToString(); });
    row.Take("DBConnStr", [&](const Variant& v) {
      db_conn_str_ = v.ToString();
      try {
        std::string clear = CCrypto().DecryptText(db_conn_str_);
        if (!clear.empty()) db_conn_str_ = std::move(clear);
      } catch (const Error&) {
        // Stored before connection strings were enciphered: it stays as it is.
      }
    });
    row.Take("TableName", [&](const Variant& v) { table_name_ = v.ToString(); });
    row.Take("PKColumn", [&](const Variant& v) { pk_column_ = v.ToString(); });
    row.Take("InitString", [&](const Variant& v) { init_finder_.Reset(v.ToString()); });
    row.Take("OnPageOrder", [&](const Variant& v) { on_page_order_ = v.ToInteger(); });
    row.Take("DataPageId", [&](const Variant& v) { datapage_id_ = v.ToString(); });
    row.Take("ParentEntityId", [&](const Variant& v) { parent_entity_id_ = v.ToString(); });
    row.Take("IsPKSurrogate", [&](const Variant& v) { is_pk_surrogate_ = v.ToBool(); });
    // Fields and children are read again from the store when they are next used.
    while (attributes_.Count() > 0) attributes_.Remove(1);
    RemoveAll(all_children_);
    RemoveAll(children_on_page_);
    is_stored_ = true;
    attributes_loaded_ = children_loaded_ = all_children_loaded_ = false;
    metadata_.reset();
    LoadSelectedMetaFields();
    is_dirty_ = false;
    return true;
  });
}

void Entity::Delete() {
  ReportAs("Entity.Delete", [&] {
    D_Entity().Delete(id_);
    const auto page = GetDataPage();
    RemoveById(page->GetEntities(), id_);
    RemoveById(page->RootEntities(), id_);
  });
}

void Entity::LoadDefaultMetaFields() {
  ReportAs("Entity.LoadDefaultMetaFields", [&] {
    selected_meta_fields_ = LoadMetaFields(D_CustCols().GetDefaults());
    meta_fields_set_ = true;
  });
}

void Entity::LoadSelectedMetaFields() {
  ReportAs("Entity.LoadSelectedMetaFields", [&] {
    selected_meta_fields_ = LoadMetaFields(D_CustCols().GetCustColsForEnt(id_));
    meta_fields_set_ = true;
  });
}

std::shared_ptr<db::Recordset> Entity::CustomColumns() {
  return selected_meta_fields_->GetCustomColsRecordset();
}

MetaEntityPtr Entity::Metadata() {
  if (!metadata_) metadata_ = MetaEntity::Create(id_);
  return metadata_;
}

Attributes& Entity::GetAttributes() {
  if (is_stored_ && !attributes_loaded_) {
    ReportAs("Entity.Attributes", [&] {
      // By ascending step, each added at the index of its step.
      std::vector<AttribPtr> loaded;
      for (auto rs = D_Entity().GetAttributes(id_); !rs->IsEOF(); rs->MoveNext()) {
        auto a = Attrib::Create();
        a->Load(rs->GetFields()["A_Id"].Value().ToString());
        loaded.push_back(std::move(a));
      }
      for (const AttribPtr& a : loaded) {
        attributes_.Add(a, a->Id(), a->Step());
        a->is_dirty_ = false;
      }
      attributes_loaded_ = true;
    });
  }
  return attributes_;
}

Entities& Entity::AllChildren() {
  if (is_stored_ && !all_children_loaded_) {
    ReportAs("Entity.AllChildren", [&] {
      all_children_.AddLoaded(LoadEntities(D_Entity().GetChildren(id_)));
      all_children_loaded_ = true;
    });
  }
  return all_children_;
}

Entities& Entity::ChildrenOnPage() {
  if (is_stored_ && !children_loaded_) {
    ReportAs("Entity.ChildrenOnPage", [&] {
      children_on_page_.AddLoaded(LoadEntities(D_Entity().GetChildrenOnPage(id_, datapage_id_)));
      children_loaded_ = true;
    });
  }
  return children_on_page_;
}

std::string Entity::DataProviderName() const {
  if (db_conn_str_.empty()) return {};
  auto cn = db::Connection::Create();
  cn->SetConnectionString(db_conn_str_);
  return cn->Provider();
}

AttribPtr Entity::PKAttribute() {
  for (const AttribPtr& a : GetAttributes()) {
    if (a->IsPK()) return a;
  }
  return nullptr;
}

std::shared_ptr<DataPage> Entity::DataPageIfSet() const {
  if (auto page = page_.lock()) return page;
  return own_page_;
}

std::shared_ptr<DataPage> Entity::GetDataPage() {
  if (auto page = DataPageIfSet()) return page;
  auto page = DataPage::Create();
  if (!datapage_id_.empty()) {
    page->Load(datapage_id_);
  } else {
    datapage_id_ = page->Id();
  }
  own_page_ = page;
  return page;
}

void Entity::SetDataPage(const std::shared_ptr<DataPage>& page) {
  page_ = page;
  own_page_.reset();
  if (page) datapage_id_ = page->Id();
  is_dirty_ = true;
}

EntityPtr Entity::ParentEntity() {
  if (auto parent = parent_.lock()) return parent;
  if (own_parent_) return own_parent_;
  if (parent_entity_id_.empty()) return nullptr;
  auto parent = Entity::Create();
  parent->Load(parent_entity_id_);
  own_parent_ = parent;
  return parent;
}

void Entity::SetParentEntity(const EntityPtr& parent) {
  parent_ = parent;
  own_parent_.reset();
  if (parent) parent_entity_id_ = parent->Id();
  is_dirty_ = true;
}

void Entity::SetIsPKSurrogate(bool value) {
  if (value) {
    if (const AttribPtr key = PKAttribute()) key->SetIsPK(false);
  }
  is_pk_surrogate_ = value;
  is_dirty_ = true;
}

void Entity::SetOnPageOrder(std::int16_t value) {
  on_page_order_ = value;
  is_dirty_ = true;
}
void Entity::SetEntityName(std::string value) {
  entity_name_ = std::move(value);
  is_dirty_ = true;
}
void Entity::SetDescription(std::string value) {
  description_ = std::move(value);
  is_dirty_ = true;
}
void Entity::SetInitString(std::string_view value) {
  init_finder_.Reset(value);
  is_dirty_ = true;
}
void Entity::SetPKColumn(std::string value) {
  pk_column_ = std::move(value);
  is_dirty_ = true;
}
void Entity::SetTableName(std::string value) {
  table_name_ = std::move(value);
  is_dirty_ = true;
}
void Entity::SetDBConnStr(std::string value) {
  db_conn_str_ = std::move(value);
  is_dirty_ = true;
}
void Entity::SetDatapageId(std::string value) {
  datapage_id_ = std::move(value);
  is_dirty_ = true;
}
void Entity::SetParentEntityID(std::string value) {
  parent_entity_id_ = std::move(value);
  is_dirty_ = true;
}
void Entity::SetSelectedMetaFields(MetaFieldsPtr fields) {
  selected_meta_fields_ = fields ? std::move(fields) : MetaFields::Create();
  meta_fields_set_ = true;
  is_dirty_ = true;
}

// ---- Entity: where a row begins and ends ------------------------------------------------------

std::vector<long> Entity::GetEntStartingPoints(std::string_view SrcText, long MaxCount,
                                               const PageScan* scan) const {
  return init_finder_.StartingPoints(scan, SrcText, MaxCount);
}

std::string_view Entity::GetCurrentEntText(std::string_view SrcText, const PageScan* scan) const {
  // The first two starting points, without building the list.
  const std::size_t first = init_finder_.Find(scan, SrcText);
  if (first == text::npos) return SrcText;
  const std::size_t second = init_finder_.Find(scan, SrcText, first + 1);
  if (second == text::npos) return SrcText;
  return SrcText.substr(first, second - first);
}

long Entity::GetOccurCount(std::string_view Text) const {
  return CString::CountNoCase(Text, InitString(), -1);
}

// ---- Entity: skip maps ----------------------------------------------------------------------

SkipMap Entity::GetBaseSkipMap() {
  SkipMap base;
  for (const AttribPtr& a : GetAttributes()) {
    if (a->IsOptional()) base.push_back(SkipItem{a->Step(), false});
  }
  return base;
}

float Entity::CalcSuccessCoefficient(std::int32_t ErrCount, std::int32_t MinFailedStep) {
  return gw::CalcSuccessCoefficient(ErrCount, MinFailedStep,
                                    static_cast<std::int32_t>(GetAttributes().Count()));
}

float Entity::TrySkipMap(const SkipMap& skip_map, std::string_view SrcText) {
  try {
    std::string_view rest = SrcText;
    const std::size_t p = init_finder_.Find(nullptr, rest);
    if (p != text::npos) rest.remove_prefix(p);
    std::int32_t err_count = 0;
    std::int32_t min_failed_step = 0;
    Status status;
    for (const AttribPtr& field : GetAttributes()) {
      if (IsSkipStep(field->Step(), skip_map)) continue;
      field->Cut(rest, status);
      if (!status.Ok()) {
        ++err_count;
        if (min_failed_step == 0 || min_failed_step > field->Step()) {
          min_failed_step = field->Step();
        }
      }
    }
    return CalcSuccessCoefficient(err_count, min_failed_step);
  } catch (const Error&) {
    return kFailedTrialCoefficient;
  }
}

SkipMap Entity::FindBestSkipMap(std::string_view SrcText, float& Coefficient,
                                const PageScan* scan) {
  const std::string_view row = GetCurrentEntText(SrcText, scan);
  SkipMap base = GetBaseSkipMap();
  // The number of combinations must fit a 32-bit integer.
  if (base.size() >= 31) throw Error(errnum::kOverflow, "Entity.FindBestSkipMap", "Overflow");
  const std::int32_t combinations = std::int32_t{1} << base.size();
  float best = -1;
  SkipMap best_map;
  for (std::int32_t bit_map = 0; bit_map < combinations; ++bit_map) {
    GetSkipMap(bit_map, base);
    const float c = TrySkipMap(base, row);
    // Only a strictly better score replaces the best: ties go to the lowest bit pattern.
    if (best == -1 || c < best) {
      best = c;
      best_map = base;
    }
    if (best == 0) break;
  }
  Coefficient = best;
  return best_map;
}

// ---- Entity: cutting a row -----------------------------------------------------------------

bool Entity::HasParserListeners() const {
  return OnParserAction.HasHandlers() ||
         (relay_page_ != nullptr && relay_page_->OnParserAction.HasHandlers());
}

void Entity::RaiseParserAction(std::string_view attrib_name, TokenTypeEnum type, long start_index,
                               std::string_view value, std::string_view source,
                               std::string_view message) {
  if (OnParserAction.HasHandlers()) {
    OnParserAction.Emit(entity_name_, attrib_name, type, start_index, value, source, message);
  }
  if (relay_page_ && relay_page_->OnParserAction.HasHandlers()) {
    relay_page_->OnParserAction.Emit(entity_name_, attrib_name, type, start_index, value, source,
                                     message);
  }
}

std::shared_ptr<db::Recordset> Entity::Extract(std::string& SrcHTML, bool UseTmpTbls,
                                               std::string_view OverrideConnStr,
                                               std::string_view UniqueTblPrefix,
                                               long ParentOrderOnPage,
                                               long* SrcLengthAfterFindingInitString) {
  // The text is moved in and cut as views into it; what is left is moved back out.
  std::string page = std::move(SrcHTML);
  std::string_view rest = page;
  const auto write_back = [&] {
    page.erase(0, page.size() - rest.size());
    SrcHTML = std::move(page);
  };
  RowSink* sink = &DefaultRowSink();
  if (const auto dp = DataPageIfSet(); dp && dp->GetRowSink()) sink = dp->GetRowSink().get();
  const PageScan scan = PageScan::Begin(page, sink);
  try {
    ExtractRow(scan, rest, UseTmpTbls, OverrideConnStr, UniqueTblPrefix, ParentOrderOnPage,
               SrcLengthAfterFindingInitString);
  } catch (...) {
    write_back();
    throw;
  }
  write_back();
  return nullptr;
}

void Entity::ExtractRow(const PageScan& scan, std::string_view& SrcHTML, bool UseTmpTbls,
                        std::string_view OverrideConnStr, std::string_view UniqueTblPrefix,
                        long ParentOrderOnPage, long* SrcLengthAfterFindingInitString) {
  // `text` is what the row hands back. Until the text is taken it is empty, so a fault before
  // that leaves nothing of `SrcHTML`.
  std::string_view text = SrcHTML.substr(SrcHTML.size());
  std::unique_ptr<SinkRow> row;
  FieldRelay relay;
  pending_.Clear();
  try {
    const bool overridden = !OverrideConnStr.empty();
    std::string cn_str(overridden ? OverrideConnStr : std::string_view(db_conn_str_));
    if (cn_str.empty()) {
      throw Error(exerr::kNoConnectionString, "Entity.Extract",
                  "Connection string not specified, or invalid connection string");
    }
    std::string table =
        UniqueTblPrefix.empty() ? table_name_ : std::string(UniqueTblPrefix) + table_name_;
    const std::shared_ptr<DataPage> page = GetDataPage();
    if (UseTmpTbls) {
      table = "##" + table;
    } else if (!page->DBName().empty()) {
      cn_str = extraction_internal::ChangeDefaultDB(cn_str, page->DBName());
    }
    static const text::NoCaseSearcher kMySql("MySQL");
    if (kMySql.Find(cn_str) != text::npos) {
      cn_str = extraction_internal::ReformatMySQLCnStr(cn_str);
    }

    text = SrcHTML;
    const std::size_t p = init_finder_.Find(&scan, text);
    RaiseParserAction({}, TokenTypeEnum::EntityInit, p == text::npos ? 0 : static_cast<long>(p + 1),
                      InitString(), text, "Found initialization string for row.");
    if (p != text::npos) text.remove_prefix(p);
    if (SrcLengthAfterFindingInitString) {
      *SrcLengthAfterFindingInitString = static_cast<long>(text.size());
    }

    RowSink& sink = row_sink_ ? *row_sink_ : *scan.sink;
    row = sink.OpenRow(cn_str, table);

    page->IncrementEntityPageOrder(id_);
    const MetaEntityPtr meta = Metadata();
    meta->IncrementOnPageOrder();
    if (ParentOrderOnPage > 0) meta->SetParentOnPageOrder(ParentOrderOnPage);

    // Trials are silent: no field is linked while the skip map is searched.
    relay.Detach();
    float coefficient = 0;
    const SkipMap skip_map = FindBestSkipMap(text, coefficient, &scan);

    std::string_view row_text = GetCurrentEntText(text, &scan);
    text.remove_prefix(row_text.size());

    bool row_lost = false;
    for (const AttribPtr& field : GetAttributes()) {
      if (IsSkipStep(field->Step(), skip_map)) continue;
      relay.Attach(field->relay_, this);
      Status failure;
      try {
        const std::string* cut = field->Cut(row_text, failure);
        std::string value = cut ? *cut : std::string();
        const std::string& column = field->ColumnName();
        if (field->ColumnSize() >= 0) {
          // The target's column width cuts the value, not the field's own size.
          const auto width = static_cast<std::size_t>(std::max(row->DefinedSize(column), 0));
          // A text of no more bytes than the width has no more characters either.
          if (value.size() > width) value.resize(text::TruncateCodePoints(value, width).size());
        }
        row->SetValue(column, Variant(std::move(value)));
      } catch (const Error& e) {
        failure = Status::FromError(e);
      }
      relay.Detach();
      bool leave = false;
      switch (failure.Number()) {
        case 0:
          break;
        case exerr::kStartTagMissing:
        case exerr::kEndTagMissing:
          pending_ = failure;
          meta->IncrementErrorCount();
          break;
        case errnum::kItemNotFound:
          pending_ = Status(exerr::kColumnMismatch, "Entity.Extract",
                            "The actual database column name and the expected column name do not "
                            "match.  The expected column name is: " +
                                field->ColumnName() +
                                " Please ensure that a column with this name exists in the table " +
                                table_name_ + " in the target database.  ");
          meta->IncrementErrorCount();
          row_lost = true;
          break;
        default:
          pending_ = Status(exerr::kColumnRefused, "Entity.Extract",
                            "During an extraction to the column " + field->ColumnName() +
                                " an error occurred.  This may be because the start or end tag for "
                                "the field is too short, the column size is too small or the "
                                "column may not exist.",
                            failure.HelpFile(), failure.HelpContext());
          meta->IncrementErrorCount();
          leave = true;
          break;
      }
      if (row_lost || leave) break;
      DoEvents();
    }

    // A missing column loses the row: no Update, no children, and its text stays consumed.
    if (!row_lost) {
      // What the fields left of the row goes back in front of the rest, so the children whose
      // opening strings stand after the last field's end tag are still found.
      text = Rejoin(row_text, text);
      meta->GetMetaFieldValues(*selected_meta_fields_);
      FillRSMetaFields(*row);
      bool updated = true;
      try {
        row->Update();
      } catch (const Error&) {
        updated = false;
        pending_ = Status(
            exerr::kUpdateRefused, "Entity.Extract",
            "Microsoft OLEDB raised a fairly generic error.  This usually means that the data "
            "extracted exceeds the length of the database column.  Make sure that the column "
            "length is set appropriately.  Also, the end tag may include dynamic or invalid data.  "
            "Either adjust the End tag directly or reduce the Minimum tag length option.");
      }
      if (updated) {
        extraction_ = row->Recordset();
        ExtractChildEntities(scan, text, overridden, UseTmpTbls, cn_str, UniqueTblPrefix);
        meta->IncrementExtractCount();
      }
    }
    row->Close();
    SrcHTML = text;
  } catch (...) {
    if (row) row->Close();
    SrcHTML = text;
    RethrowWithCallStack(kExtractLogName);
  }
}

void Entity::ExtractChildEntities(const PageScan& scan, std::string_view& sSrcHTML, bool overridden,
                                  bool UseTmpTbls, std::string_view CnStr,
                                  std::string_view UniqueTblPrefix) {
  const std::shared_ptr<DataPage> page = GetDataPage();
  if (!page->Doc()) ThrowObjectNotSet("Entity.ExtractChildEntities");
  Entities& children = ChildrenOnPage();
  children.InitMetadata(page->Doc()->Metadata());
  Entities& roots = page->RootEntities();

  long child_pos = 0;
  long root_pos = 0;
  EntityPtr child = children.FirstInStr(sSrcHTML, child_pos, &scan);
  roots.FirstInStr(sSrcHTML, root_pos, &scan);
  // The next root row comes first: these children belong to it.
  if (child_pos <= 0 || (root_pos > 0 && root_pos <= child_pos)) return;
  while (child) {
    const long order = page->GetEntityPageOrder(id_);
    const std::size_t before = sSrcHTML.size();
    long after = 0;
    child->ExtractRow(scan, sSrcHTML, UseTmpTbls, overridden ? CnStr : std::string_view(),
                      UniqueTblPrefix, order, &after);
    // A child row that consumed nothing would be found again at the same place for ever: drop
    // the first character of its occurrence, as the datapage does for root rows.
    if (sSrcHTML.size() == before) sSrcHTML = DropFirstCharacter(sSrcHTML, after);
    DoEvents();
    roots.FirstInStr(sSrcHTML, root_pos, &scan);
    child = children.FirstInStr(sSrcHTML, child_pos, &scan);
    if (root_pos >= 1 && root_pos <= child_pos) break;
    DoEvents();
  }
}

bool Entity::IsFieldInRecordset(std::string_view FieldName, SinkRow& row) {
  const long count = row.ColumnCount();
  for (long k = 0; k < count; ++k) {
    if (row.ColumnName(k) == FieldName) return true;
  }
  return false;
}

void Entity::FillRSMetaFields(SinkRow& row) {
  for (const MetaFieldPtr& mf : *selected_meta_fields_) {
    if (!IsFieldInRecordset(mf->ColumnName(), row)) continue;
    const std::int32_t width = row.DefinedSize(mf->ColumnName());
    if (width < 1) continue;
    const Variant& value = mf->Value();
    if (value.IsNull()) {
      row.SetValue(mf->ColumnName(), value);
      continue;
    }
    const std::string whole = value.ToText();
    row.SetValue(
        mf->ColumnName(),
        Variant(std::string(text::TruncateCodePoints(whole, static_cast<std::size_t>(width)))));
  }
}

}  // namespace gw
