#include "meta/meta_job.h"

#include "meta/meta_internal.h"
#include "platform/error.h"
#include "rules/package_data_access.h"

namespace gw {

float MetaJob::AvgExtractionPct() const {
  if (meta_tasks_.Count() == 0) return 0;
  double sum = 0;
  for (const MetaTaskPtr& task : meta_tasks_) sum += task->AvgExtractionPct();
  return meta_internal::MeanHeldAt100(sum, meta_tasks_.Count());
}

std::string MetaJob::SuccessCode() const {
  return meta_internal::SuccessCodeName(meta_internal::kJobCode, AvgExtractionPct());
}

std::int16_t MetaJob::SuccessCodeId() const {
  return meta_internal::SuccessCodeId(meta_internal::kJobCode, AvgExtractionPct());
}

void MetaJob::SaveToMetabase() {
  ReportAs("MetaJob.SaveToMetabase", [&] {
    // The completion time is not given, so the run's row keeps the one `Job` wrote.
    DJob().SaveInstance(job_id_, job_start_time_, Variant(), Variant(SuccessCodeId()));
  });
}

void MetaJob::SaveAll() {
  ReportAs("MetaJob.SaveAll", [&] {
    SaveToMetabase();
    meta_tasks_.SaveAll();
  });
}

}  // namespace gw
