#include "meta/meta_task.h"

#include "meta/meta_internal.h"
#include "meta/meta_job.h"
#include "platform/error.h"
#include "rules/package_data_access.h"

namespace gw {

float MetaTask::AvgExtractionPct() const {
  // Settled documents count as the documents they were, in the order they came.
  const long count = meta_docs_.SettledCount() + meta_docs_.Count();
  if (count == 0) return 100;
  double sum = meta_docs_.SettledExtractionPctSum();
  for (const MetaDocPtr& doc : meta_docs_) sum += doc->AvgExtractionPct();
  return meta_internal::MeanHeldAt100(sum, count);
}

std::string MetaTask::SuccessCode() const {
  return meta_internal::SuccessCodeName(meta_internal::kTaskCode, AvgExtractionPct());
}

std::int16_t MetaTask::SuccessCodeId() const {
  return meta_internal::SuccessCodeId(meta_internal::kTaskCode, AvgExtractionPct());
}

bool MetaTask::SaveToMetabase() {
  return ReportAs("MetaTask.SaveToMetabase", [&] {
    const std::shared_ptr<MetaJob> job = GetMetaJob();
    if (!job) ThrowObjectNotSet("MetaTask.SaveToMetabase");
    DTask().SaveInstance(task_id_, job->JobId(), job->JobStartTime(), start_time_,
                         Variant(complete_time_), Variant(SuccessCodeId()), 0);
    return true;
  });
}

MetaTaskPtr MetaTasks::Add(MetaTaskPtr NewMetaTask, const std::shared_ptr<MetaJob>& ParentMetaJob) {
  const std::string key = NewMetaTask->TaskId();
  MetaTaskPtr& stored = items_.Add(std::move(NewMetaTask), key);
  stored->SetMetaJob(ParentMetaJob);
  return stored;
}

MetaTaskPtr MetaTasks::Find(std::string_view task_id) const {
  const MetaTaskPtr* found = items_.Find(IndexKey(task_id));
  return found ? *found : nullptr;
}

void MetaTasks::SaveAll() {
  ReportAs("MetaTasks.SaveAll", [&] {
    for (const MetaTaskPtr& task : items_) {
      task->SaveToMetabase();
      task->GetMetaDocs().SaveAll();
    }
  });
}

}  // namespace gw
