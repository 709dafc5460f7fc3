#include "extraction/entity.h"

#include <algorithm>

#include "extraction/data_page.h"
#include "extraction/entity_internal.h"
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

std::vector<EntityPtr> LoadStoredEntities(const std::shared_ptr<db::Recordset>& ids) {
  std::vector<EntityPtr> loaded;
  for (; !ids->IsEOF(); ids->MoveNext()) {
    auto e = Entity::Create();
    e->Load(ids->GetFields()["E_Id"].Value().ToString());
    loaded.push_back(std::move(e));
  }
  return loaded;
}

void Entities::AddLoaded(const std::vector<EntityPtr>& loaded) {
  for (const EntityPtr& e : loaded) {
    Add(e, e->Id());
    e->is_dirty_ = false;  // linking it to its owners is no change of its own
  }
}

bool Entity::Save() {
  return ReportAs("Entity.Save", [&] {
    const std::string stored = CCrypto().EncryptOrKeep(db_conn_str_);
    D_Entity().Save(id_, datapage_id_, entity_name_, description_, stored, table_name_, pk_column_,
                    std::string(InitString()), parent_entity_id_, on_page_order_, is_pk_surrogate_);
    if (!meta_fields_set_ && selected_meta_fields_->Count() == 0) LoadDefaultMetaFields();
    selected_meta_fields_->SaveAll(id_);
    is_dirty_ = false;
    return true;
  });
}

bool Entity::Load(std::string_view Id) {
  return ReportAs("Entity.Load(Id)", Args(Id), [&] {
    auto rs = D_Entity().Selectx(std::string(Id));
    const StoredRow row(*rs, MissingRow(exerr::kNoSuchEntity, "Entity.Load", "Entity"),
                        DuplicateRow(exerr::kDuplicateEntity, "Entity.Load", "Entity"));
    row.Take("E_Id", [&](const Variant& v) { id_ = v.ToString(); });
    row.Take("EntityName", [&](const Variant& v) { entity_name_ = v.ToString(); });
    row.Take("Description", [&](const Variant& v) { description_ = v.ToString(); });
    // One stored before connection strings were enciphered stays as it is.
    row.Take("DBConnStr",
             [&](const Variant& v) { db_conn_str_ = CCrypto().DecryptOrKeep(v.ToString()); });
    row.Take("TableName", [&](const Variant& v) { table_name_ = v.ToString(); });
    row.Take("PKColumn", [&](const Variant& v) { pk_column_ = v.ToString(); });
    row.Take("InitString", [&](const Variant& v) { init_finder_.Reset(v.ToString()); });
    row.Take("OnPageOrder", [&](const Variant& v) { on_page_order_ = v.ToInteger(); });
    row.Take("DataPageId", [&](const Variant& v) { datapage_id_ = v.ToString(); });
    row.Take("ParentEntityId", [&](const Variant& v) { parent_entity_id_ = v.ToString(); });
    row.Take("IsPKSurrogate", [&](const Variant& v) { is_pk_surrogate_ = v.ToBool(); });
    // Fields and children are read again from the store when they are next used.
    attributes_.Clear();
    all_children_.Clear();
    children_on_page_.Clear();
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
      all_children_.AddLoaded(LoadStoredEntities(D_Entity().GetChildren(id_)));
      all_children_loaded_ = true;
    });
  }
  return all_children_;
}

Entities& Entity::ChildrenOnPage() {
  if (is_stored_ && !children_loaded_) {
    ReportAs("Entity.ChildrenOnPage", [&] {
      children_on_page_.AddLoaded(
          LoadStoredEntities(D_Entity().GetChildrenOnPage(id_, datapage_id_)));
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

std::shared_ptr<DataPage> Entity::DataPageIfSet() const { return page_.IfSet(); }

std::shared_ptr<DataPage> Entity::GetDataPage() { return page_.Get(datapage_id_); }

void Entity::SetDataPage(const std::shared_ptr<DataPage>& page) {
  page_.Set(page);
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

void Entity::SetInitString(std::string_view value) {
  init_finder_.Reset(value);
  is_dirty_ = true;
}
void Entity::SetSelectedMetaFields(MetaFieldsPtr fields) {
  selected_meta_fields_ = fields ? std::move(fields) : MetaFields::Create();
  meta_fields_set_ = true;
  is_dirty_ = true;
}

// ---- Entity: where a row begins and ends ------------------------------------------------------

std::string_view CurrentRowText(const Entity& entity, std::string_view SrcText,
                                const PageScan* scan) {
  // The first two starting points, without building the list.
  const std::size_t first = entity.init_finder_.Find(scan, SrcText);
  if (first == text::npos) return SrcText;
  const std::size_t second = entity.init_finder_.Find(scan, SrcText, first + 1);
  if (second == text::npos) return SrcText;
  return SrcText.substr(first, second - first);
}

EntityPtr FirstInStr(const Entities& entities, std::string_view SrcHTML, long& position,
                     const PageScan* scan) {
  EntityPtr first;
  std::size_t first_hit = text::npos;
  for (const EntityPtr& e : entities) {
    const std::size_t hit = e->init_finder_.Find(scan, SrcHTML);
    if (hit != text::npos && (first_hit == text::npos || hit < first_hit)) {
      first = e;
      first_hit = hit;
    }
  }
  position = first ? static_cast<long>(first_hit + 1) : 0;
  return first;
}

long Entity::GetOccurCount(std::string_view Text) const {
  return CString::CountNoCase(Text, InitString(), -1);
}

// ---- skip maps -------------------------------------------------------------------------------

float TrySkipMap(Entity& entity, const SkipMap& skip_map, std::string_view SrcText) {
  try {
    std::string_view rest = SrcText;
    const std::size_t p = entity.init_finder_.Find(nullptr, rest);
    if (p != text::npos) rest.remove_prefix(p);
    std::int32_t err_count = 0;
    std::int32_t min_failed_step = 0;
    Status status;
    Attributes& fields = entity.GetAttributes();
    for (const AttribPtr& field : fields) {
      if (IsSkipStep(field->Step(), skip_map)) continue;
      field->Cut(rest, status);
      if (!status.Ok()) {
        ++err_count;
        if (min_failed_step == 0 || min_failed_step > field->Step()) {
          min_failed_step = field->Step();
        }
      }
    }
    return CalcSuccessCoefficient(err_count, min_failed_step,
                                  static_cast<std::int32_t>(fields.Count()));
  } catch (const Error&) {
    return kFailedTrialCoefficient;
  }
}

SkipMap FindBestSkipMap(Entity& entity, std::string_view SrcText, float& Coefficient,
                        const PageScan* scan) {
  const std::string_view row = CurrentRowText(entity, SrcText, scan);
  // One record per optional field, in field order.
  SkipMap base;
  for (const AttribPtr& a : entity.GetAttributes()) {
    if (a->IsOptional()) base.push_back(SkipItem{a->Step(), false});
  }
  // The number of combinations must fit a 32-bit integer.
  if (base.size() >= 31) throw Error(errnum::kOverflow, "Entity.FindBestSkipMap", "Overflow");
  const std::int32_t combinations = std::int32_t{1} << base.size();
  float best = -1;
  SkipMap best_map;
  for (std::int32_t bit_map = 0; bit_map < combinations; ++bit_map) {
    GetSkipMap(bit_map, base);
    const float c = TrySkipMap(entity, base, row);
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

}  // namespace gw
