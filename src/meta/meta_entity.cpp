#include "meta/meta_entity.h"

#include <array>
#include <optional>

#include "meta/meta_doc.h"
#include "meta/meta_internal.h"
#include "meta/meta_job.h"
#include "meta/meta_task.h"
#include "platform/error.h"
#include "rules/package_data_access.h"

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

std::string MetaEntity::SuccessCode() const {
  return meta_internal::SuccessCodeName(meta_internal::kEntityCode, ExtractionPct());
}

std::int16_t MetaEntity::SuccessCodeId() const {
  return meta_internal::SuccessCodeId(meta_internal::kEntityCode, ExtractionPct());
}

bool MetaEntity::SaveToMetabase() {
  return ReportAs("MetaEntity.SaveToMetabase", [&] {
    const std::shared_ptr<MetaDoc> doc = GetMetaDoc();
    if (!doc) ThrowObjectNotSet("MetaEntity.SaveToMetabase");
    return meta_internal::SaveDatasetResult(doc->DocId(), entity_id_,
                                            meta_internal::ResultOf(*this, *doc));
  });
}

meta_internal::DatasetResult meta_internal::ResultOf(const MetaEntity& dataset,
                                                     const MetaDoc& doc) {
  RowTally tally = doc.RowsOf(dataset.EntityId());
  return DatasetResult{dataset.OccurCount(),
                       dataset.ExtractCount(),
                       dataset.TotalErrorCount(),
                       dataset.AvgSuccessCoefficient(),
                       dataset.AvgErrorsPerExtraction(),
                       dataset.ExtractionPct(),
                       tally.refused,
                       std::move(tally.first_refusal)};
}

bool meta_internal::SaveDatasetResult(const std::string& doc_id, const std::string& entity_id,
                                      const DatasetResult& r) {
  return D_Metabase().SaveMetaEnt(doc_id, entity_id, r.occur_count, r.extract_count,
                                  r.avg_success_coeff, SuccessCodeId(kEntityCode, r.extraction_pct),
                                  r.error_count, r.avg_errors, r.rows_refused, r.first_refusal);
}

void MetaEntity::IncrementExtractCount() {
  ++extract_count_;
  if (const auto doc = GetMetaDoc()) doc->CountRowWritten(entity_id_);
}

void MetaEntity::RecordRefusal(std::string reason) {
  ++refused_count_;
  if (const auto doc = GetMetaDoc()) doc->CountRowRefused(entity_id_, std::move(reason));
}

namespace {

// The levels of the tree a custom column can read from.
enum class Level { Job, Task, Doc, Entity };

struct RunContext {
  const MetaJob* job;
  const MetaTask* task;
  const MetaDoc* doc;
  const MetaEntity* entity;

  bool Has(Level level) const {
    switch (level) {
      case Level::Job:
        return job != nullptr;
      case Level::Task:
        return task != nullptr;
      case Level::Doc:
        return doc != nullptr;
      case Level::Entity:
        return entity != nullptr;
    }
    return false;
  }
};

struct MemberSource {
  std::string_view member;
  Level level;
  Variant (*read)(const RunContext&);
};

// The members a custom column may name. The comparison is exact, as the names are written.
constexpr std::array<MemberSource, 15> kMemberSources{{
    {"MetaJob.JobId", Level::Job, [](const RunContext& c) { return Variant(c.job->JobId()); }},
    {"MetaJob.JobStartTime", Level::Job,
     [](const RunContext& c) { return Variant(c.job->JobStartTime()); }},
    {"MetaJob.JobName", Level::Job, [](const RunContext& c) { return Variant(c.job->JobName()); }},
    {"MetaTask.TaskId", Level::Task, [](const RunContext& c) { return Variant(c.task->TaskId()); }},
    {"MetaDoc.DataPageName", Level::Doc,
     [](const RunContext& c) { return Variant(c.doc->DatapageName()); }},
    {"MetaDoc.DataPageId", Level::Doc,
     [](const RunContext& c) { return Variant(c.doc->DatapageId()); }},
    {"MetaDoc.DocId", Level::Doc, [](const RunContext& c) { return Variant(c.doc->DocId()); }},
    {"MetaDoc.LocalPath", Level::Doc,
     [](const RunContext& c) { return Variant(c.doc->LocalPath()); }},
    {"MetaDoc.SourceUri", Level::Doc,
     [](const RunContext& c) { return Variant(c.doc->SourceUri()); }},
    {"MetaDoc.DownloadComplete", Level::Doc,
     [](const RunContext& c) { return Variant(c.doc->DownloadComplete()); }},
    {"MetaDoc.ExtractionStart", Level::Doc,
     [](const RunContext& c) { return Variant(c.doc->ExtractionStart()); }},
    {"MetaEntity.EntityId", Level::Entity,
     [](const RunContext& c) { return Variant(c.entity->EntityId()); }},
    {"MetaEntity.OccurCount", Level::Entity,
     [](const RunContext& c) { return Variant(static_cast<int>(c.entity->OccurCount())); }},
    {"MetaEntity.OnPageOrder", Level::Entity,
     [](const RunContext& c) { return Variant(static_cast<int>(c.entity->OnPageOrder())); }},
    {"MetaEntity.ParentOnPageOrder", Level::Entity,
     [](const RunContext& c) { return Variant(static_cast<int>(c.entity->ParentOnPageOrder())); }},
}};

}  // namespace

void MetaEntity::GetMetaFieldValues(MetaFields& MetaFlds) const {
  ReportAs("MetaEntity.GetMetaFieldValues(MetaFlds)", Args(MetaFlds), [&] {
    const std::shared_ptr<MetaDoc> doc = GetMetaDoc();
    const std::shared_ptr<MetaTask> task = doc ? doc->GetMetaTask() : nullptr;
    const std::shared_ptr<MetaJob> job = task ? task->GetMetaJob() : nullptr;
    const RunContext context{job.get(), task.get(), doc.get(), this};
    for (const MetaFieldPtr& field : MetaFlds) {
      for (const MemberSource& source : kMemberSources) {
        if (source.member != field->MetadataClassMember()) continue;
        field->SetValue(context.Has(source.level) ? source.read(context)
                                                  : Variant(field->DefaultValue()));
        break;
      }
    }
  });
}

void MetaEntities::SaveAll() {
  ReportAs("MetaEntities.SaveAll", [&] {
    for (const MetaEntityPtr& e : items_) e->SaveToMetabase();
  });
}

MetaEntityPtr MetaEntities::Add(MetaEntityPtr MetaEnt, const std::shared_ptr<MetaDoc>& MetaDoc) {
  const std::string key = MetaEnt->EntityId();
  MetaEntityPtr& stored = items_.Add(std::move(MetaEnt), key);
  stored->SetMetaDoc(MetaDoc);
  return stored;
}

}  // namespace gw
