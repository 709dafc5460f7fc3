#include "engine/job.h"

#include "engine/doc_source.h"
#include "infra/c_guid_gen.h"
#include "platform/error.h"
#include "platform/text.h"
#include "rules/package_data_access.h"

namespace gw {

namespace {
constexpr ErrorNumber kNoSuchJob = 0xAAA25B3B;
constexpr ErrorNumber kDuplicateJob = 0xAAA25B3C;
constexpr ErrorNumber kJobSaveWhileRunning = 0x86125335;
constexpr ErrorNumber kJobSaveAllWhileRunning = 0x86125339;
constexpr ErrorNumber kJobDeleteWhileRunning = 0x861253A3;

constexpr const char* kNoEditingText =
    "One or more instances of this package is currently executing.  No editing is allowed during "
    "package execution.  Save cancelled.  This may be because a package terminated abnormally.  "
    "You can force all running packages to complete from the Console Tool menu.";
}  // namespace

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
  return ReportAs("Tasks.Add(Task,sKey)", [&] {
    if (auto job = job_.lock()) task->SetJob(job);
    return items_.Add(std::move(task), sKey);
  });
}

// ---- Job -------------------------------------------------------------------------------------

Job::Job()
    : job_id_(CGUIDGen::NewGUID()), date_created_(DateTime::Now()), date_modified_(date_created_) {}

std::shared_ptr<Job> Job::Create() { return std::shared_ptr<Job>(new Job()); }

void Job::Load(const std::string& Id, bool DeepLoad) {
  ReportAs("Job.Load(Id,DeepLoad)", [&] {
    auto rs = DJob().Selectx(Id, true);
    if (rs->RecordCount() == 0) {
      throw Error(kNoSuchJob, "Job.Load", "The specified Job Id does not exist.");
    }
    if (rs->RecordCount() > 1) {
      throw Error(kDuplicateJob, "Job.Load",
                  "Data consistency error within the database.  There is more than one Job with "
                  "that ID.");
    }
    auto& f = rs->GetFields();
    auto take = [&](const char* column, auto&& assign) {
      const Variant& v = f[column].Value();
      if (!v.IsNull()) assign(v);
    };
    take("JobId", [&](const Variant& v) { job_id_ = v.ToString(); });
    take("JobName", [&](const Variant& v) { job_name_ = v.ToString(); });
    take("Description", [&](const Variant& v) { description_ = v.ToString(); });
    take("DateCreated", [&](const Variant& v) { date_created_ = v.ToDate(); });
    take("DateModified", [&](const Variant& v) { date_modified_ = v.ToDate(); });
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
      if (IsAnyInstanceRunning()) throw Error(kJobSaveWhileRunning, "Job.Save", kNoEditingText);
      DJob().Save(job_id_, Variant(date_created_), Variant(DateTime::Now()), job_name_,
                  description_);
    } else {
      DJob().SaveInstance(job_id_, start_time_, Variant(complete_time_), Variant(complete_code_));
    }
  });
}

void Job::SaveAll() {
  ReportAs("Job.SaveAll", [&] {
    if (IsAnyInstanceRunning()) throw Error(kJobSaveAllWhileRunning, "Job.SaveAll", kNoEditingText);
    Save();
    GetTasks().SaveAll();
  });
}

void Job::Delete() {
  ReportAs("Job.Delete", [&] {
    if (IsAnyInstanceRunning()) {
      throw Error(kJobDeleteWhileRunning, "Job.Delete",
                  "One or more instances of this package is currently executing.  Deletion is not "
                  "allowed during package execution.  Delete cancelled.  This may be because a "
                  "package terminated abnormally.  You can force all running packages to complete "
                  "from the Console Tool menu.");
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
