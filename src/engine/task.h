// Task: one step of a package, as it is stored (`tasks`, and `task_instances` for a run).
//
// Only what the rules store keeps lives here: ids, names, step, flags, the document sources, the
// owning package and the datapage (loaded on first use). The run (`Execute`, `Validate`) and the
// task's own text form (the object XML inside `description`) belong to the package engine; until it
// provides them, `Serialize` gives back the stored form as it was read, so a load and save keep it
// intact.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "infra/xml_serializer.h"
#include "platform/date_time.h"
#include "platform/variant.h"

namespace gw {

class Job;
class DocSources;
class DataPage;

// `TaskTypes`.
enum class TaskTypes : int {
  CrawlOnly = 0,
  DownloadOnly = 1,
  DownloadAndExtract = 2,
  SQLStatement = 3,
  CmdLine = 4,
  GotoTask = 5,
};

// `TaskSrcType`, remembered for the user interface only.
enum class TaskSrcType : int { PathGroup = 0, SQLGroup = 1, DPageGroup = 2 };

class Task : public Object, public ISerializable {
 public:
  // A new task with a fresh `TaskId`.
  static std::shared_ptr<Task> Create();
  ~Task() override;
  std::string TypeName() const override { return "Task"; }

  // Reads the definition: failure 0x8004041F ("The specified Task Id <id> does not exist.") when
  // there is no row, 0x80040420 when there are several. Columns are taken only when not null; the
  // description goes through `Deserialize`. Clears `IsDirty`. Returns true.
  bool Load(const std::string& Id);
  // A definition: refused with 0x86125343 while a run of the package is under way, otherwise
  // written to `tasks`. A running instance: its `task_instances` row. Then the document sources
  // are saved. An empty `TaskId` gets a new id first. Clears `IsDirty`.
  void Save();
  // Refused with 0x86125399 while a run of the package is under way; otherwise the row goes, and
  // the store's cascades take the document sources.
  void Delete();

  // ISerializable: the stored text form (see the file comment).
  std::string Serialize() override { return stored_form_; }
  void Deserialize(std::string_view xml) override;

  // ---- properties ----
  // Never empty: the getter makes a new id if it finds none.
  const std::string& TaskId();
  const std::string& TaskName() const { return task_name_; }
  void SetTaskName(std::string v);
  const std::string& Description() const { return description_; }
  void SetDescription(std::string v);
  std::int32_t Step() const { return step_; }
  void SetStep(std::int32_t v);
  TaskTypes TaskType() const { return task_type_; }
  void SetTaskType(TaskTypes v);
  TaskSrcType DisplaySrcType() const { return display_src_type_; }
  void SetDisplaySrcType(TaskSrcType v);
  std::int32_t ThrottleWaitMSecs() const { return throttle_wait_msecs_; }
  void SetThrottleWaitMSecs(std::int32_t v);
  // Trimmed and in capitals, both when set and when read.
  std::string Method() const;
  void SetMethod(std::string_view v);
  bool InheritHttpClient() const { return inherit_http_client_; }
  void SetInheritHttpClient(bool v);
  bool ClearTableBeforeExtraction() const { return clear_table_before_extraction_; }
  void SetClearTableBeforeExtraction(bool v);
  bool ClearRootFolderBeforeDownload() const { return clear_root_folder_before_download_; }
  void SetClearRootFolderBeforeDownload(bool v);
  bool IsDisabled() const { return is_disabled_; }
  void SetIsDisabled(bool v);
  bool SaveErrorPages() const { return save_error_pages_; }
  void SetSaveErrorPages(bool v);
  bool DisableLocalFileCopy() const { return disable_local_file_copy_; }
  void SetDisableLocalFileCopy(bool v);
  // Keeps only the sign of what is set: -1, 0 or 1; only 1 validates.
  std::int16_t DoValidation() const { return do_validation_; }
  void SetDoValidation(std::int16_t v);
  const std::string& DocCleanseMethod() const { return doc_cleanse_method_; }
  void SetDocCleanseMethod(std::string v);
  const std::string& DocCleanseParams() const { return doc_cleanse_params_; }
  void SetDocCleanseParams(std::string v);
  const std::string& DocCleanseMethod2() const { return doc_cleanse_method2_; }
  void SetDocCleanseMethod2(std::string v);
  const std::string& DocCleanseParams2() const { return doc_cleanse_params2_; }
  void SetDocCleanseParams2(std::string v);
  const DateTime& StartTime() const { return start_time_; }
  void SetStartTime(DateTime v);
  const DateTime& CompleteTime() const { return complete_time_; }
  void SetCompleteTime(DateTime v);
  const std::string& CompleteCode() const { return complete_code_; }
  void SetCompleteCode(std::string v);
  bool IsDirty() const { return is_dirty_; }
  bool IsInstance() const { return is_instance_; }

  // The id of the datapage this task extracts with ("" for none).
  const std::string& DataPageId() const { return data_page_id_; }
  void SetDataPageId(std::string v);
  // The datapage: with an id and none held, it is loaded, told that this task owns it, and held.
  // Null without an id.
  std::shared_ptr<DataPage> GetDataPage();
  // Holds `page` and takes its id; null clears both.
  void SetDataPage(std::shared_ptr<DataPage> page);
  // The owning package's id.
  const std::string& JobId() const { return job_id_; }

  // The document sources, loaded from the store on first use (in the stored order, keyed by id).
  DocSources& GetDocSources();
  // The owning package: the one that holds this task, or, for a task loaded on its own, the
  // package of its job id, loaded on first use.
  std::shared_ptr<Job> GetJob();

  // ---- inside the library ----
  void SetJob(const std::shared_ptr<Job>& job);
  void SetTaskId(std::string id) { task_id_ = std::move(id); }
  void SetIsInstance(bool v) { is_instance_ = v; }
  void SetIsDirty(bool v) { is_dirty_ = v; }

 private:
  Task();
  void Touch() { is_dirty_ = true; }

  std::string task_id_;
  std::string job_id_;
  std::string task_name_;
  std::string description_;
  std::string data_page_id_;
  std::int32_t step_ = 0;
  TaskTypes task_type_ = TaskTypes::DownloadAndExtract;
  TaskSrcType display_src_type_ = TaskSrcType::PathGroup;
  std::int32_t throttle_wait_msecs_ = 0;
  std::string method_;
  bool inherit_http_client_ = true;
  bool clear_table_before_extraction_ = false;
  bool clear_root_folder_before_download_ = false;
  bool is_disabled_ = false;
  bool save_error_pages_ = false;
  bool disable_local_file_copy_ = false;
  std::int16_t do_validation_ = 1;
  std::string doc_cleanse_method_, doc_cleanse_params_;
  std::string doc_cleanse_method2_, doc_cleanse_params2_;
  DateTime start_time_, complete_time_;
  std::string complete_code_;
  bool is_dirty_ = false;
  bool is_instance_ = false;
  std::string stored_form_;

  std::unique_ptr<DocSources> doc_sources_;
  std::shared_ptr<DataPage> data_page_;
  std::weak_ptr<Job> job_;           // the package that holds this task
  std::shared_ptr<Job> loaded_job_;  // a package loaded for a task that stands alone
};

using TaskPtr = std::shared_ptr<Task>;

}  // namespace gw
