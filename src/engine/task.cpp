#include "engine/task.h"

#include "engine/doc_source.h"
#include "engine/job.h"
#include "extraction/data_page.h"
#include "infra/c_guid_gen.h"
#include "platform/error.h"
#include "platform/text.h"
#include "rules/package_data_access.h"

namespace gw {

namespace {
constexpr ErrorNumber kNoSuchTask = 0x8004041F;
constexpr ErrorNumber kDuplicateTask = 0x80040420;
constexpr ErrorNumber kTaskSaveWhileRunning = 0x86125343;
constexpr ErrorNumber kTaskDeleteWhileRunning = 0x86125399;
}  // namespace

Task::Task() : task_id_(CGUIDGen::NewGUID()) {}
Task::~Task() = default;

std::shared_ptr<Task> Task::Create() { return std::shared_ptr<Task>(new Task()); }

const std::string& Task::TaskId() {
  if (task_id_.empty()) task_id_ = CGUIDGen::NewGUID();
  return task_id_;
}

void Task::SetTaskName(std::string v) {
  task_name_ = std::move(v);
  Touch();
}
void Task::SetDescription(std::string v) {
  description_ = std::move(v);
  Touch();
}
void Task::SetStep(std::int32_t v) {
  step_ = v;
  Touch();
}
void Task::SetTaskType(TaskTypes v) {
  task_type_ = v;
  Touch();
}
void Task::SetDisplaySrcType(TaskSrcType v) {
  display_src_type_ = v;
  Touch();
}
void Task::SetThrottleWaitMSecs(std::int32_t v) {
  throttle_wait_msecs_ = v;
  Touch();
}
std::string Task::Method() const { return text::AsciiUpper(text::TrimSpaces(method_)); }
void Task::SetMethod(std::string_view v) {
  method_ = text::AsciiUpper(text::TrimSpaces(v));
  Touch();
}
void Task::SetInheritHttpClient(bool v) {
  inherit_http_client_ = v;
  Touch();
}
void Task::SetClearTableBeforeExtraction(bool v) {
  clear_table_before_extraction_ = v;
  Touch();
}
void Task::SetClearRootFolderBeforeDownload(bool v) {
  clear_root_folder_before_download_ = v;
  Touch();
}
void Task::SetIsDisabled(bool v) {
  is_disabled_ = v;
  Touch();
}
void Task::SetSaveErrorPages(bool v) {
  save_error_pages_ = v;
  Touch();
}
void Task::SetDisableLocalFileCopy(bool v) {
  disable_local_file_copy_ = v;
  Touch();
}
void Task::SetDoValidation(std::int16_t v) {
  do_validation_ = static_cast<std::int16_t>((v > 0) - (v < 0));
  Touch();
}
void Task::SetDocCleanseMethod(std::string v) {
  doc_cleanse_method_ = std::move(v);
  Touch();
}
void Task::SetDocCleanseParams(std::string v) {
  doc_cleanse_params_ = std::move(v);
  Touch();
}
void Task::SetDocCleanseMethod2(std::string v) {
  doc_cleanse_method2_ = std::move(v);
  Touch();
}
void Task::SetDocCleanseParams2(std::string v) {
  doc_cleanse_params2_ = std::move(v);
  Touch();
}
void Task::SetStartTime(DateTime v) {
  start_time_ = v;
  Touch();
}
void Task::SetCompleteTime(DateTime v) {
  complete_time_ = v;
  Touch();
}
void Task::SetCompleteCode(std::string v) {
  complete_code_ = std::move(v);
  Touch();
}
void Task::SetDataPageId(std::string v) {
  if (data_page_ && data_page_->Id() != v) data_page_.reset();
  data_page_id_ = std::move(v);
  Touch();
}

std::shared_ptr<DataPage> Task::GetDataPage() {
  return ReportAs("Task.DataPage", [&]() -> std::shared_ptr<DataPage> {
    if (!data_page_ && !data_page_id_.empty()) {
      auto page = DataPage::Create();
      page->Load(data_page_id_);
      page->SetTask(shared_from_this());
      data_page_ = std::move(page);
    }
    return data_page_;
  });
}

void Task::SetDataPage(std::shared_ptr<DataPage> page) {
  data_page_id_ = page ? page->Id() : std::string();
  data_page_ = std::move(page);
  Touch();
}

void Task::Deserialize(std::string_view xml) {
  // An empty text leaves the object as it is.
  if (!xml.empty()) stored_form_ = std::string(xml);
}

void Task::SetJob(const std::shared_ptr<Job>& job) {
  job_ = job;
  loaded_job_.reset();
  if (job) job_id_ = job->JobId();
  Touch();
}

std::shared_ptr<Job> Task::GetJob() {
  return ReportAs("Task.Job", [&] {
    if (auto owner = job_.lock()) return owner;
    if (!loaded_job_) {
      auto job = Job::Create();
      if (!job_id_.empty()) {
        job->Load(job_id_);
      } else {
        job_id_ = job->JobId();
      }
      loaded_job_ = std::move(job);
    }
    return loaded_job_;
  });
}

DocSources& Task::GetDocSources() {
  return *ReportAs("Task.DocSources", [&] {
    if (!doc_sources_) {
      auto sources = std::make_unique<DocSources>();
      sources->SetTask(std::static_pointer_cast<Task>(shared_from_this()));
      auto rs = DTask().GetDocSources(TaskId());
      for (; !rs->IsEOF(); rs->MoveNext()) {
        const std::string id = (*rs)["DocSrcId"].Value().ToString();
        auto source = DocSource::Create();
        source->Load(id);
        sources->Add(source, id);
      }
      doc_sources_ = std::move(sources);
    }
    return doc_sources_.get();
  });
}

bool Task::Load(const std::string& Id) {
  return ReportAs("Task.Load(Id)", [&] {
    auto rs = DTask().Selectx(Id, true);
    if (rs->RecordCount() == 0) {
      throw Error(kNoSuchTask, "Task.Load", "The specified Task Id " + Id + " does not exist.");
    }
    if (rs->RecordCount() > 1) {
      throw Error(kDuplicateTask, "Task.Load",
                  "Data consistency error within the database.  There is more than one "
                  "Attribute with the specified ID " +
                      Id + " .");
    }
    auto& f = rs->GetFields();
    auto take = [&](const char* column, auto&& assign) {
      const Variant& v = f[column].Value();
      if (!v.IsNull()) assign(v);
    };
    take("TaskId", [&](const Variant& v) { task_id_ = v.ToString(); });
    take("JobId", [&](const Variant& v) { job_id_ = v.ToString(); });
    take("TaskName", [&](const Variant& v) { task_name_ = v.ToString(); });
    take("Description", [&](const Variant& v) { Deserialize(v.ToString()); });
    take("DataPageId", [&](const Variant& v) { data_page_id_ = v.ToString(); });
    take("Step", [&](const Variant& v) { step_ = v.ToLong(); });
    take("ThrottleWaitMSecs", [&](const Variant& v) { throttle_wait_msecs_ = v.ToLong(); });
    take("DisplaySrcType",
         [&](const Variant& v) { display_src_type_ = static_cast<TaskSrcType>(v.ToLong()); });
    doc_sources_.reset();
    is_dirty_ = false;
    return true;
  });
}

void Task::Save() {
  ReportAs("Task.Save", [&] {
    const std::string& id = TaskId();
    auto job = GetJob();
    if (!is_instance_) {
      if (job->IsAnyInstanceRunning()) {
        throw Error(kTaskSaveWhileRunning, "Task.Save",
                    "One or more instances of this package is currently executing.  No editing "
                    "is allowed during package execution.  Save cancelled.  This may be because a "
                    "package terminated abnormally.  You can force all running packages to "
                    "complete from the Console Tool menu.");
      }
      DTask().Save(id, job->JobId(), task_name_, Serialize(), step_,
                   static_cast<int>(display_src_type_), throttle_wait_msecs_, data_page_id_);
    } else {
      DTask().SaveInstance(id, job->JobId(), job->StartTime(), start_time_, Variant(complete_time_),
                           Variant(complete_code_), throttle_wait_msecs_);
    }
    GetDocSources().SaveAll();
    is_dirty_ = false;
  });
}

void Task::Delete() {
  ReportAs("Task.Delete", [&] {
    if (GetJob()->IsAnyInstanceRunning()) {
      throw Error(kTaskDeleteWhileRunning, "Task.Delete",
                  "One or more instances of this is currently executing.  Deletion is not allowed "
                  "during package execution.  Delete cancelled.");
    }
    DTask().Delete(TaskId());
  });
}

}  // namespace gw
