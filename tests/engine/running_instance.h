// A package made a running instance, for the tests of what a run queues and records.
#pragma once

#include "engine/job.h"
#include "engine/task.h"
#include "platform/date_time.h"

namespace gw::testing {

// Saves `job` with its tasks and makes it and `task` a running instance that started now, as a
// run does before it reads its sources.
inline void StartInstance(Job& job, Task& task) {
  job.SaveAll();
  job.SetIsInstance(true);
  job.SetStartTime(DateTime::Now());
  job.Save();
  task.SetIsInstance(true);
  task.SetStartTime(job.StartTime());
  task.Save();
}

}  // namespace gw::testing
