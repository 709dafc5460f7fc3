#include "engine/job.h"

#include <optional>

#include "engine/doc_source.h"
#include "engine/engine_internal.h"
#include "engine/run_session.h"
#include "infra/c_guid_gen.h"
#include "meta/meta_job.h"
#include "meta/meta_task.h"
#include "platform/db/connection.h"
#include "platform/db/recordset.h"
#include "platform/error.h"
#include "platform/event_loop.h"
#include "platform/text.h"
#include "rules/package_data_access.h"
#include "rules/run_resume.h"
#include "rules/stored_row.h"

namespace gw {

// ---- Tasks -----------------------------------------------------------------------------------

std::string Tasks::GetDefaultName() const {
  return ReportAs("Tasks.GetDefaultName", [&] {
    auto taken = [&](const std::string& name) {
      for (const auto& t : items_) {
        if (text::EqualsNoCase(t->TaskName(), name)) return true;
      }
      return false;
    };
    std::string name = "NewTask";
    for (int n = 2; taken(name); ++n) name = "NewTask (" + std::to_string(n) + ")";
    return name;
  });
}

std::int32_t Tasks::GetMaxStep() const {
  return ReportAs("Tasks.GetMaxStep", [&] {
    std::int32_t max = items_.Item(1)->Step();
    for (const auto& t : items_) max = std::max(max, t->Step());
    return max;
  });
}

void Tasks::Sort() {
  // Selection into a new collection: the first of the smallest steps goes next, so equal steps
  // keep their order.
  Collection<TaskPtr> sorted;
  while (items_.Count() > 0) {
    long smallest = 1;
    for (long k = 2; k <= items_.Count(); ++k) {
      if (items_.Item(k)->Step() < items_.Item(smallest)->Step()) smallest = k;
    }
    sorted.Add(items_.Item(smallest));
    items_.Remove(smallest);
  }
  items_ = std::move(sorted);
}

bool Tasks::SaveAll() {
  return ReportAs("Tasks.SaveAll", [&] {
    for (const auto& t : items_) t->Save();
    return true;
  });
}

long Tasks::Find(const std::string& TaskId) const {
  for (long k = 1; k <= items_.Count(); ++k) {
    if (items_.Item(k)->TaskId() == TaskId) return k;
  }
  return 0;
}

TaskPtr Tasks::Add(TaskPtr task, std::string_view sKey) {
  return ReportAs("Tasks.Add(Task,sKey)", Args(task, sKey), [&] {
    if (auto job = job_.lock()) task->SetJob(job);
    return items_.Add(std::move(task), sKey);
  });
}

// ---- Job -------------------------------------------------------------------------------------

Job::Job()
    : job_id_(CGUIDGen::NewGUID()), date_created_(DateTime::Now()), date_modified_(date_created_) {}

Job::~Job() = default;

std::shared_ptr<Job> Job::Create() { return std::shared_ptr<Job>(new Job()); }

std::shared_ptr<MetaJob> Job::Metadata() {
  if (!metadata_) metadata_ = MetaJob::Create();
  return metadata_;
}

// ---- the run ----------------------------------------------------------------------------------

void Job::SetExecutingTask(const TaskPtr& task) {
  executing_task_events_.clear();
  executing_task_ = task;
  if (!task) return;
  Task& t = *task;
  auto& ev = executing_task_events_;
  ev.emplace_back(t.OnMajorProgressChange.Connect(
      [this](long change, long max) { OnMajorProgressChange.Emit(change, max); }));
  ev.emplace_back(t.OnMinorProgressChange.Connect(
      [this](long change, long max) { OnMinorProgressChange.Emit(change, max); }));
  ev.emplace_back(t.OnStatusChange.Connect(
      [this](const std::string& status, bool& cancel) { OnStatusChange.Emit(status, cancel); }));
  ev.emplace_back(t.OnAllDownloadsComplete.Connect([this] { OnAllDownloadsComplete.Emit(); }));
  ev.emplace_back(t.OnAllDownloadsBegin.Connect([this] { OnAllDownloadsBegin.Emit(); }));
  ev.emplace_back(t.OnDatapageExtractBegin.Connect([this] { OnDatapageExtractBegin.Emit(); }));
  // The completion of a datapage's extraction has always reached hosts as a second begin, and
  // hosts count on it.
  ev.emplace_back(t.OnDatapageExtractComplete.Connect([this] { OnDatapageExtractBegin.Emit(); }));
  ev.emplace_back(t.OnExtractionBegin.Connect([this] { OnTaskExtractionBegin.Emit(); }));
  ev.emplace_back(t.OnExtractionComplete.Connect([this] { OnTaskExtractionComplete.Emit(); }));
  ev.emplace_back(t.OnExecuteComplete.Connect([this] { OnTaskExecuteComplete.Emit(); }));
}

std::string Job::Execute(const std::string& Uri, const std::string& SourceText) {
  std::optional<Error> failure;
  // The run's connections: one per target store and one to the rules store, for every task and
  // document, also while a failed run's row is closed.
  std::optional<RunSession> session;
  try {
    session.emplace();
    is_instance_ = true;
    owns_run_row_ = false;
    if (resume_from_.IsEmpty()) {
      start_time_ = DJob().AddInstance(job_id_, DateTime::Now());
    } else {
      // A resumed run goes on in its own row: the same start time, no new row.
      start_time_ = resume_from_;
      resume_from_ = DateTime();
      Save();
    }
    owns_run_row_ = true;
    OnJobExecuteBegin.Emit(job_id_, start_time_);
    auto meta = Metadata();
    meta->SetJobId(job_id_);
    meta->SetJobName(job_name_);
    meta->SetJobStartTime(start_time_);
    // The answer to the validation statuses stays set and stops the run at the first
    // "Task Complete", so one task still runs.
    bool cancel = false;
    Validate(cancel);
    RunTasks(Uri, SourceText, cancel);
    SetExecutingTask(nullptr);

    complete_time_ = DateTime::Now();
    complete_code_ = meta->SuccessCodeId();
    OnStatusChange.Emit("Saving package results.  This could take a few minutes...", cancel);
    Save();
    meta->SaveToMetabase();
    const std::string code = meta->SuccessCode();
    OnStatusChange.Emit(code, cancel);
    OnJobExecuteComplete.Emit(job_id_, start_time_);
    return code;
  } catch (const Error& e) {
    failure = e;
  } catch (const std::exception& e) {
    failure = Error(errnum::kProviderError, "Job.Execute", e.what());
  }
  // The run's row is closed; the rest of the results is not saved. Closing it may fail too (the
  // store that failed the run may be the rules store): the failure that ended the run is still
  // the one that goes on, and it says that the row stays open. A run whose row could not be
  // written has none to close: the row at its start time is another run's.
  SetExecutingTask(nullptr);
  const auto noting = [&](auto&& step) {
    try {
      step();
    } catch (const Error& e) {
      failure->AddCallStackLine("Job.Execute: the run could not be closed: " + e.NumberText() +
                                " " + e.Description());
    }
  };
  complete_time_ = DateTime::Now();
  noting([&] { complete_code_ = Metadata()->SuccessCodeId(); });
  if (owns_run_row_) noting([&] { Save(); });
  bool ignored = false;
  OnStatusChange.Emit(failure->Description(), ignored);
  OnJobExecuteComplete.Emit(job_id_, start_time_);
  const auto args = Args(Uri, SourceText);
  failure->AddFrame("Job.Execute(URI,SourceText)", &args);
  throw *failure;
}

std::string Job::Resume(const DateTime& StartTime) {
  resume_from_ = StartTime;
  resuming_run_ = true;
  return Execute();
}

void Job::RunTasks(const std::string& Uri, const std::string& SourceText, bool& flgCancel) {
  HttpClientPtr session;  // the one session of the run, handed from task to task
  bool resuming = resuming_run_;
  resuming_run_ = false;
  auto meta = Metadata();
  const long count = GetTasks().Count();
  for (long i = 1; i <= count; ++i) {
    const TaskPtr task = GetTasks().Item(i);
    SetExecutingTask(task);
    // A task run again by a goto keeps its first entry.
    if (!meta->GetMetaTasks().Find(task->TaskId())) {
      meta->GetMetaTasks().Add(task->Metadata(), meta);
    }
    if (resuming) {
      const TaskRunState state = D_RunResume().TaskState(task->TaskId(), job_id_, start_time_);
      if (state == TaskRunState::kFinished) {
        OnStatusChange.Emit("Task already complete: " + task->TaskName(), flgCancel);
        if (flgCancel) return;
        continue;
      }
      // Once a task goes on from where the run stood, the tasks after it run as usual.
      if (state == TaskRunState::kUnfinished) {
        task->SetResuming(true);
        resuming = false;
      }
    }
    if (task->TaskType() == TaskTypes::GotoTask) {
      DocSource& target = *task->GetDocSources().Item(1);
      // Asked three times: a query may answer differently each time. A target of 0 asks for
      // position 0 next, which fails; the last task can't be a target.
      const bool not_negative = GetGotoTaskNumber(target) >= 0;
      const bool below_count = GetGotoTaskNumber(target) < GetTasks().Count();
      if (not_negative && below_count) i = GetGotoTaskNumber(target) - 1;
    } else {
      task->Execute(Uri, SourceText, &session);
    }
    OnStatusChange.Emit("Task Complete", flgCancel);
    if (flgCancel) return;
    DoEvents();
  }
}

void Job::Validate(bool& flgCancel) {
  ReportAs("Job.Validate(flgCancel)", Args(flgCancel), [&] {
    Tasks& tasks = GetTasks();
    if (tasks.Count() == 0) {
      throw Error(engineerr::kPackageWithoutTasks, "Job.Validate",
                  "Package " + job_name_ + " does not have any tasks associated with it.");
    }
    for (const auto& task : tasks) {
      OnStatusChange.Emit("Validating Task " + task->TaskName() + "...", flgCancel);
      if (flgCancel) break;
      task->Validate();
    }
  });
}

long Job::GetGotoTaskNumber(DocSource& DocSrc) {
  return ReportAs("Job.GetGotoTaskNumber(DocSrc)", Args(DocSrc), [&]() -> long {
    Variant value;
    if (DocSrc.SourceType() == SrcType::path) {
      value = Variant(std::string(text::TrimSpaces(DocSrc.Source())));
    } else {
      auto cn = db::Connection::Create();
      cn->Open(DocSrc.ConnStr());
      auto rs = cn->Execute(DocSrc.Source());
      if (!rs->IsOpen() || rs->IsBOF() || rs->IsEOF()) return 0;
      const Variant& first = rs->GetFields()[0L].Value();
      if (first.IsNull()) return 0;
      value = Variant(std::string(text::TrimSpaces(first.ToText())));
    }
    return value.IsNumeric() ? value.ToLong() : 0;
  });
}

void Job::Load(const std::string& Id, bool DeepLoad) {
  ReportAs("Job.Load(Id,DeepLoad)", Args(Id, DeepLoad), [&] {
    auto rs = DJob().Selectx(Id, true);
    const StoredRow row(*rs, MissingRow(engineerr::kNoSuchJob, "Job.Load", "Job"),
                        DuplicateRow(engineerr::kDuplicateJob, "Job.Load", "Job"));
    row.Take("JobId", [&](const Variant& v) { job_id_ = v.ToString(); });
    row.Take("JobName", [&](const Variant& v) { job_name_ = v.ToString(); });
    row.Take("Description", [&](const Variant& v) { description_ = v.ToString(); });
    row.Take("DateCreated", [&](const Variant& v) { date_created_ = v.ToDate(); });
    row.Take("DateModified", [&](const Variant& v) { date_modified_ = v.ToDate(); });
    tasks_.reset();
    if (DeepLoad) EnsureDeepLoad();
  });
}

bool Job::IsAnyInstanceRunning() {
  return ReportAs("Job.IsAnyInstanceRunning",
                  [&] { return DJob().GetRunningInstances(job_id_)->RecordCount() > 0; });
}

void Job::Save() {
  ReportAs("Job.Save", [&] {
    if (job_id_.empty()) job_id_ = CGUIDGen::NewGUID();
    if (date_created_.IsEmpty()) date_created_ = DateTime::Now();
    if (!is_instance_) {
      if (IsAnyInstanceRunning())
        throw Error(engineerr::kJobSaveWhileRunning, "Job.Save",
                    std::string(engine_internal::kNoEditingText));
      DJob().Save(job_id_, Variant(date_created_), Variant(DateTime::Now()), job_name_,
                  description_);
    } else {
      DJob().SaveInstance(job_id_, start_time_, Variant(complete_time_), Variant(complete_code_));
    }
  });
}

void Job::SaveAll() {
  ReportAs("Job.SaveAll", [&] {
    if (IsAnyInstanceRunning())
      throw Error(engineerr::kJobSaveAllWhileRunning, "Job.SaveAll",
                  std::string(engine_internal::kNoEditingText));
    Save();
    GetTasks().SaveAll();
  });
}

void Job::Delete() {
  ReportAs("Job.Delete", [&] {
    if (IsAnyInstanceRunning()) {
      throw Error(engineerr::kJobDeleteWhileRunning, "Job.Delete",
                  std::string(engine_internal::kNoDeletionText));
    }
    DJob().Delete(job_id_);
  });
}

void Job::Copy() {
  ReportAs("Job.Copy", [&] {
    EnsureDeepLoad();
    job_id_ = CGUIDGen::NewGUID();
    auto self = std::static_pointer_cast<Job>(shared_from_this());
    for (const auto& task : GetTasks()) {
      task->SetTaskId(CGUIDGen::NewGUID());
      task->SetJob(self);
      // The sources go back into the task under their fresh ids.
      DocSources& sources = task->GetDocSources();
      std::vector<DocSourcePtr> copied(sources.begin(), sources.end());
      sources.MemoryClearAll();
      for (auto& source : copied) {
        source->SetDocSrcId(CGUIDGen::NewGUID());
        sources.Add(source, source->DocSrcId());
      }
    }
  });
}

Tasks& Job::GetTasks() {
  return *ReportAs("Job.Tasks", [&] {
    if (!tasks_) {
      auto tasks = std::make_unique<Tasks>();
      tasks->SetJob(std::static_pointer_cast<Job>(shared_from_this()));
      auto rs = DJob().GetTasks(job_id_, true);
      for (; !rs->IsEOF(); rs->MoveNext()) {
        auto task = Task::Create();
        task->Load((*rs)["TaskId"].Value().ToString());
        // Keyed by step: two tasks with one step fail here with the collection's 457.
        tasks->Add(task, std::to_string(task->Step()));
        task->SetIsDirty(false);
      }
      tasks_ = std::move(tasks);
    }
    tasks_->Sort();
    return tasks_.get();
  });
}

void Job::EnsureDeepLoad() {
  ReportAs("Job.EnsureDeepLoad", [&] {
    for (const auto& task : GetTasks()) task->GetDocSources().Count();
  });
}

void Job::DeleteAllTasks() {
  ReportAs("Job.DeleteAllTasks", [&] { DJob().DeleteAllTasks(job_id_); });
}

}  // namespace gw
