// Task: one step of a package. The same object is the stored definition (`tasks`) and, once
// `Execute` has begun, the running instance (`task_instances`); `IsInstance` tells which.
//
// The text form. A task keeps most of its settings in the `description` column as one text of up
// to four framed pieces (infra/object_frame.h): "[!TSK!]" the object XML of the task (the
// properties without columns of their own) "[iTSKi]", then "[!CRL!]" its crawler, "[!HTP!]" its
// template HTTP client and "[!FIL!]" its file saver, each framed the same way and each the
// object's own text form. The crawler is made on first read through the component registry
// (engine/components.h); without a registered crawler its piece is kept as read and written back
// unchanged.
//
// The run (`Execute`) queues the documents of the task's sources, has the download manager fetch
// them, and for an extracting task creates the target tables and runs the datapage over every
// downloaded document, recording each document's result; see `Execute`. The task listens to the
// events of the datapage it holds and of the run's download manager and re-raises them.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "engine/download_manager.h"
#include "engine/failures.h"
#include "engine/file_saver.h"
#include "infra/xml_serializer.h"
#include "platform/date_time.h"
#include "platform/error.h"
#include "platform/signal.h"
#include "platform/variant.h"

namespace gw {

class Job;
class DocSources;
class DataPage;
class Docs;
class MetaTask;
class IDocPlugin;

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
  const PropertyTable* GetPropertyTable() const override;

  // Runs the task once, in this order:
  //  1. a fresh `Docs` and `Metadata` (start time now, tied to the package's `MetaJob`); the
  //     instance row is written (`IsInstance` true);
  //  2. unless disabled: `Uri` and `SourceText` both given fails with 0xAA931984; a
  //     `SourceText` is written to "<StringFileCreatePath><new id>.txt" (UTF-16 with a byte-order
  //     mark) and becomes the `Uri`; a `Uri` is queued alone, otherwise a downloading kind
  //     queues its document sources; with `ClearRootFolderBeforeDownload` the saver's root
  //     folder is emptied (a failure is 0x801380E9, naming the folder); with `InheritHttpClient`
  //     the template client takes over the session in `*AncestralHttpClient`
  //     (`HttpClient.InheritFrom`), and the saver is told this task;
  //  3. the download manager fetches (or, with `DisableLocalFileCopy`, points the rows at their
  //     sources), a crawl crawls, an SQL task runs its statements, a command-line task its
  //     command lines; a downloading kind raises OnAllDownloadsComplete, OnExtractionBegin and
  //     OnExtractionComplete here around nothing;
  //  4. an extracting task with a datapage: status "Creating Database", `DataPage.CreateDB`,
  //     with `ClearTableBeforeExtraction` status "Deleting Existing Data..." and the tables
  //     emptied, OnExtractionBegin, then for each downloaded document its text through the
  //     document plug-in (after cleansing) and `DataPage.Extract`, its result saved, and status
  //     "Datapage Extraction Complete". A document whose text cannot be read at all (its file
  //     vanished, is a folder, cannot be opened or is empty) is not extracted: the reason goes
  //     to its `copy_completion_code` and its result is that of a document with no datasets;
  //  5. OnExtractionComplete, completion time, the task's and documents' results saved,
  //     OnExecuteComplete, `IsInstance` false.
  // A status of steps 4 answered with flgCancel leaves at once: no completion, no results by
  // dataset, `IsInstance` stays true. `*AncestralHttpClient` (the pointer may be null) receives
  // the session the downloads or the crawl ended with, for the next task. Failures unwind under
  // "Task.Execute(URI,SourceText)" and leave `IsInstance` true. Returns "".
  std::string Execute(std::string Uri = {}, const std::string& SourceText = {},
                      HttpClientPtr* AncestralHttpClient = nullptr);
  // Does nothing for a disabled task or when `DoValidation` is not 1. Otherwise validates the
  // datapage (status "Validating datapage <name> in the task <task>..."); an extracting task
  // without one becomes `DownloadOnly`. Fails with 0x8552A940 without document sources; for a
  // downloading kind reads each source's list (status "Validating files or file sources for the
  // task <task>..."): a path source's failure is raised as it is, an sql source's as 0x81E33591
  // with an explanation and its description.
  void Validate();
  // A new task in the same package: next step, "Copy of <name>", the settings and the document
  // sources copied (new ids); saved, loaded back and added to the package's tasks.
  std::shared_ptr<Task> Copy();

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

  // ISerializable: the text form (see the file comment). `Deserialize` takes the pieces out
  // whatever their order; an empty piece, or a text without markers, changes nothing.
  std::string Serialize() override;
  void Deserialize(std::string_view xml) override;

  // ---- properties ----
  // Never empty: the getter makes a new id if it finds none.
  const std::string& TaskId();
  const std::string& TaskName() const { return task_name_; }
  void SetTaskName(std::string v) { SetProperty(task_name_, std::move(v), is_dirty_); }
  const std::string& Description() const { return description_; }
  void SetDescription(std::string v) { SetProperty(description_, std::move(v), is_dirty_); }
  std::int32_t Step() const { return step_; }
  void SetStep(std::int32_t v) { SetProperty(step_, v, is_dirty_); }
  TaskTypes TaskType() const { return task_type_; }
  void SetTaskType(TaskTypes v) { SetProperty(task_type_, v, is_dirty_); }
  TaskSrcType DisplaySrcType() const { return display_src_type_; }
  void SetDisplaySrcType(TaskSrcType v) { SetProperty(display_src_type_, v, is_dirty_); }
  std::int32_t ThrottleWaitMSecs() const { return throttle_wait_msecs_; }
  void SetThrottleWaitMSecs(std::int32_t v) { SetProperty(throttle_wait_msecs_, v, is_dirty_); }
  // Trimmed and in capitals, both when set and when read.
  std::string Method() const;
  void SetMethod(const std::string& v);
  bool InheritHttpClient() const { return inherit_http_client_; }
  void SetInheritHttpClient(bool v) { SetProperty(inherit_http_client_, v, is_dirty_); }
  bool ClearTableBeforeExtraction() const { return clear_table_before_extraction_; }
  void SetClearTableBeforeExtraction(bool v) {
    SetProperty(clear_table_before_extraction_, v, is_dirty_);
  }
  bool ClearRootFolderBeforeDownload() const { return clear_root_folder_before_download_; }
  void SetClearRootFolderBeforeDownload(bool v) {
    SetProperty(clear_root_folder_before_download_, v, is_dirty_);
  }
  bool IsDisabled() const { return is_disabled_; }
  void SetIsDisabled(bool v) { SetProperty(is_disabled_, v, is_dirty_); }
  bool SaveErrorPages() const { return save_error_pages_; }
  void SetSaveErrorPages(bool v) { SetProperty(save_error_pages_, v, is_dirty_); }
  bool DisableLocalFileCopy() const { return disable_local_file_copy_; }
  void SetDisableLocalFileCopy(bool v) { SetProperty(disable_local_file_copy_, v, is_dirty_); }
  // Keeps only the sign of what is set: -1, 0 or 1; only 1 validates.
  std::int16_t DoValidation() const { return do_validation_; }
  void SetDoValidation(std::int16_t v);
  const std::string& DocCleanseMethod() const { return doc_cleanse_method_; }
  void SetDocCleanseMethod(std::string v) {
    SetProperty(doc_cleanse_method_, std::move(v), is_dirty_);
  }
  const std::string& DocCleanseParams() const { return doc_cleanse_params_; }
  void SetDocCleanseParams(std::string v) {
    SetProperty(doc_cleanse_params_, std::move(v), is_dirty_);
  }
  const std::string& DocCleanseMethod2() const { return doc_cleanse_method2_; }
  void SetDocCleanseMethod2(std::string v) {
    SetProperty(doc_cleanse_method2_, std::move(v), is_dirty_);
  }
  const std::string& DocCleanseParams2() const { return doc_cleanse_params2_; }
  void SetDocCleanseParams2(std::string v) {
    SetProperty(doc_cleanse_params2_, std::move(v), is_dirty_);
  }
  const DateTime& StartTime() const { return start_time_; }
  void SetStartTime(DateTime v) { SetProperty(start_time_, std::move(v), is_dirty_); }
  const DateTime& CompleteTime() const { return complete_time_; }
  void SetCompleteTime(DateTime v) { SetProperty(complete_time_, std::move(v), is_dirty_); }
  const std::string& CompleteCode() const { return complete_code_; }
  void SetCompleteCode(std::string v) { SetProperty(complete_code_, std::move(v), is_dirty_); }
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
  // The run's documents ready for extraction, read on first use from the store (those of this
  // run with a local copy), keyed by document id.
  Docs& GetDocs();
  // This run's metadata, made on first use with the task's id, name and start time.
  std::shared_ptr<MetaTask> Metadata();
  // How and where downloaded files are written; made (empty) on first read.
  const FileSaverPtr& SaveAsTemplate();
  void SetSaveAsTemplate(FileSaverPtr v) { save_as_template_ = std::move(v); }
  // The crawler; made on first read (`CreateCrawler`) with the crawler piece of the stored text.
  // Null only when no crawler is registered.
  const ObjectPtr& CrawlerAgent();
  void SetCrawlerAgent(ObjectPtr v) {
    crawler_agent_ = std::move(v);
    crawler_piece_.clear();
  }
  // The session template of the task's downloads; made (a new client) on first read.
  const HttpClientPtr& TemplateHttpClient();
  void SetTemplateHttpClient(HttpClientPtr v) { template_http_client_ = std::move(v); }

  // ---- events ----
  Signal<long, long> OnMajorProgressChange;  // (ChangeAmount, ProgressMax)
  Signal<long, long> OnMinorProgressChange;
  // (Status, flgCancel): the host sets flgCancel to ask for a stop; the download manager's and
  // datapage's statuses pass through with their caller's flag.
  Signal<const std::string&, bool&> OnStatusChange;
  Signal<> OnAllDownloadsComplete;
  Signal<> OnAllDownloadsBegin;
  Signal<> OnDatapageExtractBegin;
  Signal<> OnDatapageExtractComplete;
  Signal<> OnExtractionBegin;
  Signal<> OnExtractionComplete;
  Signal<> OnExecuteComplete;

  void SetTaskId(std::string id) { task_id_ = std::move(id); }
  // Marks the object as a run's copy, as `CreateInstance` does.
  void SetIsInstance(bool v) { is_instance_ = v; }

 private:
  friend class Job;
  friend class Tasks;
  void SetJob(const std::shared_ptr<Job>& job);
  void SetIsDirty(bool v) { is_dirty_ = v; }
  // The next `Execute` goes on with this task's part of an unfinished run (the package's start
  // time is that run's): its documents are queued and its root folder cleared already, so neither
  // happens again, and the downloads or the crawl go on from the open rows. Cleared by `Execute`.
  void SetResuming(bool v) { resuming_ = v; }
  Task();
  void Touch() { is_dirty_ = true; }
  std::shared_ptr<Task> Self() { return std::static_pointer_cast<Task>(shared_from_this()); }
  // Raises a status of `Execute` itself with the run's flag.
  void RaiseStatus(const std::string& status, bool& flgCancel);
  // Holds `page` and listens to its events.
  void HoldDataPage(std::shared_ptr<DataPage> page);
  // Listens to the run's download manager.
  void ListenToDownloadMgr(IDownloadMgr& mgr);
  // Steps 2 to 4 of `Execute`; false when a status was answered with flgCancel.
  bool RunSteps(std::string& Uri, const std::string& SourceText, HttpClientPtr* AncestralHttpClient,
                bool& flgCancel);
  // The document loop; false when cancelled.
  bool ExtractDocs(DataPage& page, IDocPlugin& plugin, bool& flgCancel);
  void GetUnextractedDocs();
  void DoSQLTask();
  void DoCmdLineTask();

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
  bool resuming_ = false;
  bool save_error_pages_ = false;
  bool disable_local_file_copy_ = false;
  std::int16_t do_validation_ = 1;
  std::string doc_cleanse_method_, doc_cleanse_params_;
  std::string doc_cleanse_method2_, doc_cleanse_params2_;
  DateTime start_time_, complete_time_;
  std::string complete_code_;
  bool is_dirty_ = false;
  bool is_instance_ = false;
  // The crawler piece of a stored text, kept until its class exists.
  std::string crawler_piece_;
  FileSaverPtr save_as_template_;
  ObjectPtr crawler_agent_;
  HttpClientPtr template_http_client_;

  std::unique_ptr<DocSources> doc_sources_;
  std::unique_ptr<Docs> docs_;
  std::shared_ptr<MetaTask> metadata_;
  std::shared_ptr<DataPage> data_page_;
  std::vector<ScopedConnection> data_page_events_;
  std::vector<ScopedConnection> download_mgr_events_;
  long download_progress_max_ = 0;   // the download manager's last ProgressMax
  std::weak_ptr<Job> job_;           // the package that holds this task
  std::shared_ptr<Job> loaded_job_;  // a package loaded for a task that stands alone
};

using TaskPtr = std::shared_ptr<Task>;

}  // namespace gw
