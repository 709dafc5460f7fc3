// Job: a package, an ordered list of tasks run one after the other with one web session handed
// along. The same object is the stored definition (`jobs`) and, once `Execute` has begun, the run
// (`job_instances`); `IsInstance` tells which. Tasks is the collection of its steps.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "engine/failures.h"
#include "engine/task.h"
#include "platform/collection.h"
#include "platform/date_time.h"
#include "platform/error.h"
#include "platform/signal.h"
#include "platform/variant.h"

namespace gw {

class Job;
class DocSource;
class MetaJob;

// The steps of a package, 1-based. `Job::Tasks` keeps it sorted by step.
class Tasks : public CollectionOf<TaskPtr> {
 public:
  // "NewTask", or "NewTask (2)", "NewTask (3)"... the first name no task has (without case).
  std::string GetDefaultName() const;
  // The largest step; an empty collection fails (9) on reading position 1.
  std::int32_t GetMaxStep() const;
  // Orders the tasks by step, equal steps keeping their order; the keys are gone afterwards.
  void Sort();
  // `Save` on each task. Returns true.
  bool SaveAll();
  // The 1-based position of the task with that id, or 0.
  long Find(const std::string& TaskId) const;
  // Sets the task's package to this collection's; a non-empty key must be new (457).
  TaskPtr Add(TaskPtr task, std::string_view sKey = {});

  std::shared_ptr<Job> GetJob() const { return job_.lock(); }
  void SetJob(const std::shared_ptr<Job>& job) { job_ = job; }

 private:
  std::weak_ptr<Job> job_;
};

class Job : public Object {
 public:
  // A new package: a fresh `JobId`, both dates now.
  static std::shared_ptr<Job> Create();
  ~Job() override;
  std::string TypeName() const override { return "Job"; }

  // Runs the package:
  //  1. `IsInstance` true, `StartTime` now, the run's row written; OnJobExecuteBegin;
  //  2. every task validated first (status "Validating Task <name>..." before each; a cancel
  //     answered there stops the validation and takes effect at the first "Task Complete");
  //  3. the tasks in step order, the count read once: each registered in `Metadata` by its id,
  //     then run with `Uri`, `SourceText` and the run's one session; a goto task instead moves
  //     on to the position its first source names (evaluated three times: 0 or more, below the
  //     count, then the target itself); after each, status "Task Complete", where flgCancel
  //     stops the run;
  //  4. completion time and code, status "Saving package results.  This could take a few
  //     minutes...", the row and the results saved, status of the success code's name,
  //     OnJobExecuteComplete. Returns the display name of the success code.
  // A cancel is no failure and ends the same way. A failure of any step closes the run's row
  // (completion time and code), raises its description as a status and OnJobExecuteComplete,
  // and goes on to the caller with its number intact under "Job.Execute(URI,SourceText)".
  std::string Execute(const std::string& Uri = {}, const std::string& SourceText = {});
  // Goes on with the unfinished run that began at `StartTime` instead of starting a new one: the
  // run keeps its row, start time and history; tasks whose row in it has a completion time are
  // passed over (status "Task already complete: <name>"), the unfinished one goes on from its
  // open rows without queueing its documents again (`Task::SetResuming`), and the tasks after it
  // run as usual. Otherwise as `Execute`.
  std::string Resume(const DateTime& StartTime);

  // Reads the definition: failure 0xAAA25B3B when there is no row, 0xAAA25B3C when there are
  // several; columns are taken only when not null. `DeepLoad` also loads every task and its
  // document sources. Tasks loaded before are dropped.
  void Load(const std::string& Id, bool DeepLoad = false);
  // A definition: an empty id gets a new one and an empty `DateCreated` now; refused with
  // 0x86125335 while a run is under way; written with now as the modification date (the member
  // keeps its value). An instance: its `job_instances` row.
  void Save();
  // Refused with 0x861253A3 while a run is under way; the store's cascades take the tasks, their
  // sources and the run history.
  void Delete();
  // Refused with 0x86125339 while a run is under way; `Save`, then `Save` on every task.
  void SaveAll();
  // Makes this object a new package that saving stores beside the old one: new ids for the
  // package, its tasks and their sources. Nothing is saved.
  void Copy();
  // Does nothing (closing runs is `DJob::CloseInstances`).
  void ForceCloseAllInstances() {}
  // A run of this package has no completion time.
  bool IsAnyInstanceRunning();

  // The tasks, loaded on first use (failing with 457 when two have the same step) and sorted by
  // step at every read.
  Tasks& GetTasks();
  // The run's metadata, made on first use.
  std::shared_ptr<MetaJob> Metadata();

  const std::string& JobId() const { return job_id_; }
  void SetJobId(std::string v) { job_id_ = std::move(v); }
  const std::string& JobName() const { return job_name_; }
  void SetJobName(std::string v) { job_name_ = std::move(v); }
  const std::string& Description() const { return description_; }
  void SetDescription(std::string v) { description_ = std::move(v); }
  const DateTime& DateCreated() const { return date_created_; }
  void SetDateCreated(DateTime v) { date_created_ = v; }
  const DateTime& DateModified() const { return date_modified_; }
  void SetDateModified(DateTime v) { date_modified_ = v; }
  const DateTime& StartTime() const { return start_time_; }
  void SetStartTime(DateTime v) { start_time_ = v; }
  const DateTime& CompleteTime() const { return complete_time_; }
  void SetCompleteTime(DateTime v) { complete_time_ = v; }
  std::int16_t CompleteCode() const { return complete_code_; }
  void SetCompleteCode(std::int16_t v) { complete_code_ = v; }
  bool IsInstance() const { return is_instance_; }

  // Marks the object as a run's copy (a running package), as `CreateInstance` does.
  void SetIsInstance(bool v) { is_instance_ = v; }

  // ---- events ----
  Signal<long, long> OnMajorProgressChange;  // the executing task's
  Signal<long, long> OnMinorProgressChange;  // the executing task's
  // The executing task's statuses and the package's own texts; the host sets flgCancel.
  Signal<const std::string&, bool&> OnStatusChange;
  Signal<> OnAllDownloadsComplete;
  Signal<> OnAllDownloadsBegin;
  // Raised for the task's datapage extraction begin, and also for its completion.
  Signal<> OnDatapageExtractBegin;
  // Never raised: the completion of a datapage's extraction reaches the host as a begin.
  Signal<> OnDatapageExtractComplete;
  Signal<> OnTaskExtractionBegin;
  Signal<> OnTaskExtractionComplete;
  Signal<> OnTaskExecuteComplete;
  Signal<const std::string&, const DateTime&> OnJobExecuteComplete;  // (JobId, StartTime)
  Signal<const std::string&, const DateTime&> OnJobExecuteBegin;     // (JobId, StartTime)

 private:
  // Loads every task and its document sources.
  void EnsureDeepLoad();
  // Removes every task row (`DJob::DeleteAllTasks`).
  void DeleteAllTasks();
  // Fails with 0x8552A95B for a package without tasks; then, for each task in order, status
  // "Validating Task <name>...", leaving the loop when `flgCancel` is set, and `Task::Validate`.
  void Validate(bool& flgCancel);
  // The target of a goto: a `path` source's `Source` when it is numeric (trimmed, rounded to an
  // integer); for an `sql` source the first column of the first row of its query, likewise; 0
  // otherwise.
  long GetGotoTaskNumber(DocSource& DocSrc);

  Job();
  // Makes `task` the executing task: its events are forwarded from now until the next one.
  void SetExecutingTask(const TaskPtr& task);
  void RunTasks(const std::string& Uri, const std::string& SourceText, bool& flgCancel);

  std::string job_id_;
  std::string job_name_;
  std::string description_;
  DateTime date_created_, date_modified_;
  DateTime start_time_, complete_time_;
  std::int16_t complete_code_ = 0;
  bool is_instance_ = false;
  // Set once this object's current run has written its own row of `job_instances`.
  bool owns_run_row_ = false;
  std::unique_ptr<Tasks> tasks_;
  std::shared_ptr<MetaJob> metadata_;
  DateTime resume_from_;  // the start time of the run `Resume` goes on with
  bool resuming_run_ = false;
  TaskPtr executing_task_;
  std::vector<ScopedConnection> executing_task_events_;
};

using JobPtr = std::shared_ptr<Job>;

}  // namespace gw
