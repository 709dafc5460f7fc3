#include "rules/run_resume.h"

#include "platform/error.h"

namespace gw {

DateTime D_RunResume::NewestUnfinishedRun(const std::string& JobId) {
  return ReportAs("D_RunResume.NewestUnfinishedRun(JobId)", [&] {
    auto rs = Query().RunQuery(
        "SELECT job_start_time FROM job_instances WHERE job_id = ? AND job_completion_time IS "
        "NULL ORDER BY job_start_time DESC LIMIT 1",
        true, {Variant(JobId)});
    if (rs->IsEOF()) return DateTime();
    const Variant& v = rs->GetFields().Item(0L).Value();
    return v.IsEmptyOrNull() ? DateTime() : v.ToDate();
  });
}

TaskRunState D_RunResume::TaskState(const std::string& TaskId, const std::string& JobId,
                                    const DateTime& JobStartTime) {
  return ReportAs("D_RunResume.TaskState(TaskId,JobId,JobStartTime)", [&] {
    auto rs = Query().RunQuery(
        "SELECT task_completion_time FROM task_instances WHERE task_id = ? AND job_id = ? AND "
        "job_start_time = ?",
        true, {Variant(TaskId), Variant(JobId), Variant(JobStartTime)});
    if (rs->IsEOF()) return TaskRunState::kNotStarted;
    return rs->GetFields().Item(0L).Value().IsEmptyOrNull() ? TaskRunState::kUnfinished
                                                            : TaskRunState::kFinished;
  });
}

}  // namespace gw
