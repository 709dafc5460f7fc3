// D_RunResume: what the rules store knows of a package run that did not finish, so that a host
// can go on with it instead of starting a new one (the run's row, its tasks' rows and their
// document rows stay what they were; a crawl's queue is its document rows).
#pragma once

#include <string>

#include "platform/date_time.h"
#include "rules/rules_data_access.h"

namespace gw {

enum class TaskRunState { kNotStarted, kUnfinished, kFinished };

class D_RunResume : public RulesDataAccess {
 public:
  using RulesDataAccess::RulesDataAccess;

  // The start time of the package's newest run without a completion time; empty when there is
  // none.
  DateTime NewestUnfinishedRun(const std::string& JobId);
  // Whether the task has a row in the run, and whether that row has a completion time.
  TaskRunState TaskState(const std::string& TaskId, const std::string& JobId,
                         const DateTime& JobStartTime);
};

}  // namespace gw
