#include "meta/meta_job.h"

#include "meta/meta_internal.h"
#include "platform/error.h"
#include "rules/package_data_access.h"

namespace gw {

float MetaJob::AvgExtractionPct() const {
  if (meta_tasks_.Count() == 0) return 0;
  double sum = 0;
  for (const MetaTaskPtr& task : meta_tasks_) sum += task->AvgExtractionPct();
  const double mean = sum / static_cast<double>(meta_tasks_.Count());
  return mean > 100 ? 100.0f : static_cast<float>(mean);
}

std::string MetaJob::SuccessCode() const {
  return ReportAs("MetaJob.SuccessCode", [&] {
    return meta_internal::SuccessCodeName(D_Metabase().GetJobSuccessCode(AvgExtractionPct()));
  });
}

std::int16_t MetaJob::SuccessCodeId() const {
  return ReportAs("MetaJob.SuccessCodeId", [&] {
    return meta_internal::SuccessCodeId(D_Metabase().GetJobSuccessCode(AvgExtractionPct()),
                                        "job_success_code_id");
  });
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
