#include "engine/meta/meta_entity.h"

#include "engine/meta/meta_doc.h"

namespace gw {

MetaEntityPtr MetaEntity::Create(std::string entity_id) {
  auto e = std::make_shared<MetaEntity>();
  e->entity_id_ = std::move(entity_id);
  return e;
}

float MetaEntity::ExtractionPct() const {
  if (occur_count_ == 0) return 100;
  const double pct = static_cast<double>(extract_count_) / static_cast<double>(occur_count_) * 100;
  return pct < 100 ? static_cast<float>(pct) : 100.0f;
}

float MetaEntity::AvgErrorsPerExtraction() const {
  if (extract_count_ == 0) return 0;
  return static_cast<float>(total_error_count_) / static_cast<float>(extract_count_);
}

float MetaEntity::AvgSuccessCoefficient() const {
  if (extract_count_ == 0) return 0;
  return static_cast<float>(success_coeff_sum_ / static_cast<double>(extract_count_));
}

void MetaEntity::GetMetaFieldValues(MetaFields& fields) const {
  const std::shared_ptr<MetaDoc> doc = meta_doc_.lock();
  for (const MetaFieldPtr& field : fields) {
    const std::string& member = field->MetadataClassMember();
    const auto is = [&](std::string_view name) { return member == name; };
    // A document that belongs to a package step is not modelled yet, so the members of the step
    // and of the package always miss their owner.
    if (is("MetaJob.JobId") || is("MetaJob.JobStartTime") || is("MetaJob.JobName") ||
        is("MetaTask.TaskId")) {
      field->SetValue(Variant(field->DefaultValue()));
    } else if (member.rfind("MetaDoc.", 0) == 0) {
      Variant value;
      bool known = true;
      if (doc) {
        if (is("MetaDoc.DataPageName")) {
          value = Variant(doc->DatapageName());
        } else if (is("MetaDoc.DataPageId")) {
          value = Variant(doc->DatapageId());
        } else if (is("MetaDoc.DocId")) {
          value = Variant(doc->DocId());
        } else if (is("MetaDoc.LocalPath")) {
          value = Variant(doc->LocalPath());
        } else if (is("MetaDoc.SourceUri")) {
          value = Variant(doc->SourceUri());
        } else if (is("MetaDoc.DownloadComplete")) {
          value = Variant(doc->DownloadComplete());
        } else if (is("MetaDoc.ExtractionStart")) {
          value = Variant(doc->ExtractionStart());
        } else {
          known = false;
        }
      } else {
        known = is("MetaDoc.DataPageName") || is("MetaDoc.DataPageId") || is("MetaDoc.DocId") ||
                is("MetaDoc.LocalPath") || is("MetaDoc.SourceUri") ||
                is("MetaDoc.DownloadComplete") || is("MetaDoc.ExtractionStart");
        value = Variant(field->DefaultValue());
      }
      if (known) field->SetValue(std::move(value));
    } else if (is("MetaEntity.EntityId")) {
      field->SetValue(Variant(entity_id_));
    } else if (is("MetaEntity.OccurCount")) {
      field->SetValue(Variant(static_cast<int>(occur_count_)));
    } else if (is("MetaEntity.OnPageOrder")) {
      field->SetValue(Variant(static_cast<int>(on_page_order_)));
    } else if (is("MetaEntity.ParentOnPageOrder")) {
      field->SetValue(Variant(static_cast<int>(parent_on_page_order_)));
    }
  }
}

MetaEntityPtr MetaEntities::Add(MetaEntityPtr meta_entity,
                                const std::shared_ptr<MetaDoc>& meta_doc) {
  const std::string key = meta_entity->EntityId();
  MetaEntityPtr& stored = items_.Add(std::move(meta_entity), key);
  stored->SetMetaDoc(meta_doc);
  return stored;
}

}  // namespace gw
