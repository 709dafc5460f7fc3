// What one dataset did on one document: how often its initialization string occurred, how many
// rows it wrote, how many of its fields failed, and the order numbers that custom columns record.
//
// The counters change only through the operations marked below, which the extraction
// engine calls while it cuts rows. The dataset's success code is chosen by the rules store from
// `ExtractionPct` at every read (`usp_Meta_GetEntitySuccessCode`), never cached.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "meta/meta_field.h"
#include "platform/collection.h"

namespace gw {

class MetaDoc;

class MetaEntity : public Object {
 public:
  static std::shared_ptr<MetaEntity> Create(std::string entity_id = {});
  std::string TypeName() const override { return "MetaEntity"; }

  // Writes this dataset's result on its document (`D_Metabase.SaveMetaEnt`): counts, average
  // success coefficient, success code, errors and errors per row. Fails with 91 without a
  // document. Returns true.
  bool SaveToMetabase();
  // ExtractCount / OccurCount x 100, held at 100; 100 when nothing occurred.
  float ExtractionPct() const;
  // The document this dataset counts for; null until `MetaEntities.Add` sets it. A back
  // reference: it does not keep the document alive.
  std::shared_ptr<MetaDoc> GetMetaDoc() const { return meta_doc_.lock(); }
  long ParentOnPageOrder() const { return parent_on_page_order_; }
  long TotalErrorCount() const { return total_error_count_; }
  // TotalErrorCount / ExtractCount; 0 when no row was written.
  float AvgErrorsPerExtraction() const;
  long OccurCount() const { return occur_count_; }
  long ExtractCount() const { return extract_count_; }
  // The display name and the id of the code the rules store gives `ExtractionPct`; each read
  // asks the store.
  std::string SuccessCode() const;
  std::int16_t SuccessCodeId() const;
  // Sum of success coefficients / ExtractCount; 0 when no row was written.
  float AvgSuccessCoefficient() const;
  const std::string& EntityId() const { return entity_id_; }
  // The on-page order counter: rows of this dataset so far on the document.
  long OnPageOrder() const { return on_page_order_; }

  // ---- what the extraction engine counts while it cuts rows ----
  void SetEntityId(std::string id) { entity_id_ = std::move(id); }
  void SetMetaDoc(const std::shared_ptr<MetaDoc>& doc) { meta_doc_ = doc; }
  void SetOccurCount(long count) { occur_count_ = count; }
  void SetParentOnPageOrder(long order) { parent_on_page_order_ = order; }
  // A row of this dataset was written; its document counts it too.
  void IncrementExtractCount();
  // The target refused a row of this dataset (`reason`: its message); the row is lost. Its
  // document counts it.
  void RecordRefusal(std::string reason);
  long RefusedCount() const { return refused_count_; }
  void IncrementOnPageOrder() { ++on_page_order_; }
  void ResetOnPageOrder() { on_page_order_ = 0; }
  void IncrementErrorCount() { ++total_error_count_; }
  void IncrementSuccessCoeffSum(double SuccessCoefficient) {
    success_coeff_sum_ += SuccessCoefficient;
  }

  // Fills the `Value` of each field from this run, by its `MetadataClassMember` (see the table in
  // meta_entity.cpp): "MetaJob.*" from the document's step's package, "MetaTask.*" from the
  // document's step, "MetaDoc.*" from the document, "MetaEntity.*" from this dataset. A member
  // whose owner is not there takes the field's `DefaultValue`; a member that is not known leaves
  // the value alone.
  void GetMetaFieldValues(MetaFields& MetaFlds) const;

 private:
  std::string entity_id_;
  long occur_count_ = 0;
  long extract_count_ = 0;
  long refused_count_ = 0;
  long total_error_count_ = 0;
  long parent_on_page_order_ = 0;
  long on_page_order_ = 0;
  double success_coeff_sum_ = 0;
  std::weak_ptr<MetaDoc> meta_doc_;
};

using MetaEntityPtr = std::shared_ptr<MetaEntity>;

// The datasets of one document, keyed by `EntityId`.
class MetaEntities : public CollectionOf<MetaEntityPtr> {
 public:
  // `SaveToMetabase` on each dataset, in order.
  void SaveAll();
  // Adds under the entity's id and sets its document. Fails with 457 when that id is there.
  MetaEntityPtr Add(MetaEntityPtr MetaEnt, const std::shared_ptr<MetaDoc>& MetaDoc);
  bool Exists(std::string_view entity_id) const { return items_.Exists(entity_id); }
  // Removes the dataset of that id if it is there; false when it is not.
  bool TryRemove(std::string_view entity_id) { return items_.TryRemove(entity_id); }
};

}  // namespace gw
