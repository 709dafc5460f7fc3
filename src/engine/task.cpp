#include "engine/task.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <fstream>
#include <optional>

#include "engine/components.h"
#include "engine/doc.h"
#include "engine/doc_source.h"
#include "engine/engine_internal.h"
#include "engine/job.h"
#include "extraction/data_page.h"
#include "infra/c_guid_gen.h"
#include "infra/object_frame.h"
#include "meta/meta_job.h"
#include "meta/meta_task.h"
#include "platform/db/connection.h"
#include "platform/db/connection_string.h"
#include "platform/error.h"
#include "platform/event_loop.h"
#include "platform/process.h"
#include "platform/property_table.h"
#include "platform/text.h"
#include "rules/connection_string.h"
#include "rules/package_data_access.h"
#include "rules/rules_transaction.h"
#include "rules/settings.h"
#include "rules/stored_row.h"

namespace gw {

namespace {

// The frames of the four pieces of a task's text form.
constexpr const char* kTaskFrame = "TSK";
constexpr const char* kCrawlerFrame = "CRL";
constexpr const char* kHttpClientFrame = "HTP";
constexpr const char* kFileSaverFrame = "FIL";

// What the task's own XML leaves out: the properties with columns of their own, the run's
// values, and the objects that have pieces of their own. "MetaData" is spelled as it always was;
// the serializer compares without case.
constexpr const char* kTaskIgnoreList =
    "Task.CompleteCode;Task.CompleteTime;Task.DataPage;Task.Docs;Task.DocSources;Task.IsDirty;"
    "Task.IsInstance;Task.Job;Task.MetaData;Task.StartTime;Task.Step;Task.TaskId;Task.TaskName;"
    "Task.CrawlerAgent;Task.SaveAsTemplate;Task.TemplateHttpClient";

bool IsDownloadingKind(TaskTypes type) {
  return type == TaskTypes::CrawlOnly || type == TaskTypes::DownloadOnly ||
         type == TaskTypes::DownloadAndExtract;
}

// Writes `text` as a Unicode text file (UTF-16, little-endian, with a byte-order mark),
// replacing an old one.
void WriteUnicodeTextFile(const std::string& path, const std::string& text) {
  std::string bytes = "\xFF\xFE";
  for (std::size_t i = 0; i < text.size();) {
    char32_t cp = text::DecodeUtf8(text, i);
    auto put = [&](char16_t unit) {
      bytes += static_cast<char>(unit & 0xFF);
      bytes += static_cast<char>(unit >> 8);
    };
    if (cp >= 0x10000) {
      cp -= 0x10000;
      put(static_cast<char16_t>(0xD800 + (cp >> 10)));
      put(static_cast<char16_t>(0xDC00 + (cp & 0x3FF)));
    } else {
      put(static_cast<char16_t>(cp));
    }
  }
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  if (!out || !out.write(bytes.data(), static_cast<std::streamsize>(bytes.size())) ||
      !out.flush()) {
    throw Error(errnum::kPathNotFound, "Task.Execute", "Path not found: " + path);
  }
}
}  // namespace

Task::Task() : task_id_(CGUIDGen::NewGUID()) {}
Task::~Task() = default;

std::shared_ptr<Task> Task::Create() { return std::shared_ptr<Task>(new Task()); }

const std::string& Task::TaskId() {
  if (task_id_.empty()) task_id_ = CGUIDGen::NewGUID();
  return task_id_;
}

std::string Task::Method() const { return text::AsciiUpper(text::TrimSpaces(method_)); }
void Task::SetMethod(const std::string& v) {
  method_ = text::AsciiUpper(text::TrimSpaces(v));
  Touch();
}
void Task::SetDoValidation(std::int16_t v) {
  do_validation_ = static_cast<std::int16_t>((v > 0) - (v < 0));
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
      HoldDataPage(std::move(page));
    }
    return data_page_;
  });
}

void Task::SetDataPage(std::shared_ptr<DataPage> page) {
  data_page_id_ = page ? page->Id() : std::string();
  HoldDataPage(std::move(page));
  Touch();
}

void Task::HoldDataPage(std::shared_ptr<DataPage> page) {
  data_page_events_.clear();
  data_page_ = std::move(page);
  if (!data_page_) return;
  DataPage& p = *data_page_;
  data_page_events_.emplace_back(p.OnProgressChange.Connect(
      [this](long change, long max) { OnMinorProgressChange.Emit(change, max); }));
  data_page_events_.emplace_back(p.OnStatusChange.Connect(
      [this](const std::string& status, bool& cancel) { OnStatusChange.Emit(status, cancel); }));
  data_page_events_.emplace_back(
      p.OnExtractionBegin.Connect([this] { OnDatapageExtractBegin.Emit(); }));
  data_page_events_.emplace_back(p.OnExtractionComplete.Connect([this] {
    // Fetching a document weighs 1 and extracting it 3 on the major bar.
    OnDatapageExtractComplete.Emit();
    OnMajorProgressChange.Emit(3, 4 * download_progress_max_);
  }));
}

void Task::ListenToDownloadMgr(IDownloadMgr& mgr) {
  download_mgr_events_.clear();
  download_mgr_events_.emplace_back(mgr.OnProgressChange.Connect([this](long change, long max) {
    download_progress_max_ = max;
    OnMinorProgressChange.Emit(change, max);
    OnMajorProgressChange.Emit(change, 4 * max);
  }));
  download_mgr_events_.emplace_back(mgr.OnStatusChange.Connect(
      [this](const std::string& status, bool& cancel) { OnStatusChange.Emit(status, cancel); }));
}

// ---- text form --------------------------------------------------------------------------------

const PropertyTable* Task::GetPropertyTable() const {
  // In the order of the class's interface. The object properties (SaveAsTemplate, CrawlerAgent,
  // TemplateHttpClient, Docs, DocSources, DataPage, Job, Metadata) are all on the ignore list and
  // load things when read, so they are not offered.
  static const PropertyTable table =
      PropertyTableBuilder<Task>("Task")
          .Value("InheritHttpClient", &Task::InheritHttpClient, &Task::SetInheritHttpClient)
          .Value("Method", &Task::Method, &Task::SetMethod)
          .Value("ClearTableBeforeExtraction", &Task::ClearTableBeforeExtraction,
                 &Task::SetClearTableBeforeExtraction)
          .Value("ClearRootFolderBeforeDownload", &Task::ClearRootFolderBeforeDownload,
                 &Task::SetClearRootFolderBeforeDownload)
          .Value("IsDisabled", &Task::IsDisabled, &Task::SetIsDisabled)
          .Value("TaskType", &Task::TaskType, &Task::SetTaskType)
          .Value("SaveErrorPages", &Task::SaveErrorPages, &Task::SetSaveErrorPages)
          .Value("CompleteCode", &Task::CompleteCode, &Task::SetCompleteCode)
          .Value("ThrottleWaitMSecs", &Task::ThrottleWaitMSecs, &Task::SetThrottleWaitMSecs)
          .Value("StartTime", &Task::StartTime, &Task::SetStartTime)
          .Value("CompleteTime", &Task::CompleteTime, &Task::SetCompleteTime)
          .Value("Description", &Task::Description, &Task::SetDescription)
          .Value("Step", &Task::Step, &Task::SetStep)
          .Value("DocCleanseMethod", &Task::DocCleanseMethod, &Task::SetDocCleanseMethod)
          .Value("DocCleanseParams", &Task::DocCleanseParams, &Task::SetDocCleanseParams)
          .Value("DocCleanseMethod2", &Task::DocCleanseMethod2, &Task::SetDocCleanseMethod2)
          .Value("DocCleanseParams2", &Task::DocCleanseParams2, &Task::SetDocCleanseParams2)
          .Value("DisableLocalFileCopy", &Task::DisableLocalFileCopy,
                 &Task::SetDisableLocalFileCopy)
          .Value("DoValidation", &Task::DoValidation, &Task::SetDoValidation)
          .Value("DisplaySrcType", &Task::DisplaySrcType, &Task::SetDisplaySrcType)
          .Value("TaskName", &Task::TaskName, &Task::SetTaskName)
          .Value("TaskId", [](const Task& t) { return t.task_id_; })
          .Value("IsDirty", &Task::IsDirty)
          .Value("IsInstance", &Task::IsInstance)
          .Build();
  return &table;
}

std::string Task::Serialize() {
  return ReportAs("Task.ISerializable_Serialize", [&] {
    XmlSerializer serializer;
    serializer.SetIgnoreList(kTaskIgnoreList);
    std::string text = FrameObjectText(kTaskFrame, serializer.Serialize(*this));
    // The crawler writes its own text; without a registered crawler what was read goes back.
    const ObjectPtr& crawler = CrawlerAgent();
    auto* serializable = dynamic_cast<ISerializable*>(crawler.get());
    text +=
        FrameObjectText(kCrawlerFrame, serializable ? serializable->Serialize() : crawler_piece_);
    text += FrameObjectText(kHttpClientFrame, TemplateHttpClient()->Serialize());
    text += FrameObjectText(kFileSaverFrame, SaveAsTemplate()->Serialize());
    return text;
  });
}

void Task::Deserialize(std::string_view xml) {
  ReportAs("Task.ISerializable_Deserialize(xml)", Args(xml), [&] {
    std::string crawler = UnframeObjectText(xml, kCrawlerFrame);
    std::string saver = UnframeObjectText(xml, kFileSaverFrame);
    std::string client = UnframeObjectText(xml, kHttpClientFrame);
    const std::string task = UnframeObjectText(xml, kTaskFrame);
    if (!crawler.empty()) {
      auto* serializable = dynamic_cast<ISerializable*>(crawler_agent_.get());
      if (serializable) {
        serializable->Deserialize(crawler);
      } else {
        crawler_piece_ = std::move(crawler);  // read into the crawler when it is made
      }
    }
    if (!saver.empty()) SaveAsTemplate()->Deserialize(saver);
    if (!client.empty()) TemplateHttpClient()->Deserialize(client);
    if (!task.empty()) XmlSerializer().Deserialize(*this, task);
  });
}

const ObjectPtr& Task::CrawlerAgent() {
  if (!crawler_agent_) {
    crawler_agent_ = CreateCrawler();
    auto* serializable = dynamic_cast<ISerializable*>(crawler_agent_.get());
    if (serializable && !crawler_piece_.empty()) {
      serializable->Deserialize(crawler_piece_);
      crawler_piece_.clear();
    }
  }
  return crawler_agent_;
}

void Task::SetJob(const std::shared_ptr<Job>& job) {
  job_ = job;
  loaded_job_.reset();
  if (job) job_id_ = job->JobId();
  Touch();
}

const FileSaverPtr& Task::SaveAsTemplate() {
  if (!save_as_template_) save_as_template_ = FileSaver::Create();
  return save_as_template_;
}

const HttpClientPtr& Task::TemplateHttpClient() {
  if (!template_http_client_) template_http_client_ = web::HttpClient::Create();
  return template_http_client_;
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

Docs& Task::GetDocs() {
  if (!docs_) GetUnextractedDocs();
  return *docs_;
}

namespace {

// Adds the document of a row of the run's downloaded documents, keyed by its id.
void AddDownloadedDoc(Docs& docs, const std::shared_ptr<Task>& task, db::Recordset& rows) {
  const std::string id = rows["doc_id"].Value().ToText();
  const Variant& copied = rows["copy_completion_time"].Value();
  docs.Add(task, rows["temp_uri"].Value().ToText(), rows["uri"].Value().ToText(),
           copied.IsNull() || copied.IsEmpty() ? DateTime() : copied.ToDate(), id, id);
}

}  // namespace

void Task::GetUnextractedDocs() {
  ReportAs("Task.GetUnextractedDocs", [&] {
    auto job = GetJob();
    auto rows = DTask().GetDownloadedDocs(job->JobId(), TaskId(), job->StartTime());
    auto docs = std::make_unique<Docs>();
    const auto self = Self();
    for (; !rows->IsEOF(); rows->MoveNext()) AddDownloadedDoc(*docs, self, *rows);
    docs_ = std::move(docs);
  });
}

std::shared_ptr<MetaTask> Task::Metadata() {
  if (!metadata_) {
    metadata_ = MetaTask::Create();
    metadata_->SetTaskId(TaskId());
    metadata_->SetTaskName(task_name_);
    metadata_->SetStartTime(start_time_);
  }
  return metadata_;
}

bool Task::Load(const std::string& Id) {
  return ReportAs("Task.Load(Id)", Args(Id), [&] {
    auto rs = DTask().Selectx(Id, true);
    const StoredRow row(
        *rs,
        {engineerr::kNoSuchTask, "Task.Load", "The specified Task Id " + Id + " does not exist."},
        {engineerr::kDuplicateTask, "Task.Load",
         "Data consistency error within the database.  There is more than one "
         "Task with the specified ID " +
             Id + " ."});
    row.Take("TaskId", [&](const Variant& v) { task_id_ = v.ToString(); });
    row.Take("JobId", [&](const Variant& v) { job_id_ = v.ToString(); });
    row.Take("TaskName", [&](const Variant& v) { task_name_ = v.ToString(); });
    row.Take("Description", [&](const Variant& v) { Deserialize(v.ToString()); });
    row.Take("DataPageId", [&](const Variant& v) { data_page_id_ = v.ToString(); });
    row.Take("Step", [&](const Variant& v) { step_ = v.ToLong(); });
    row.Take("ThrottleWaitMSecs", [&](const Variant& v) { throttle_wait_msecs_ = v.ToLong(); });
    row.Take("DisplaySrcType",
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
        throw Error(engineerr::kTaskSaveWhileRunning, "Task.Save",
                    std::string(engine_internal::kNoEditingText));
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
      throw Error(engineerr::kTaskDeleteWhileRunning, "Task.Delete",
                  "One or more instances of this is currently executing.  Deletion is not allowed "
                  "during package execution.  Delete cancelled.");
    }
    DTask().Delete(TaskId());
  });
}

// ---- the run ----------------------------------------------------------------------------------

void Task::RaiseStatus(const std::string& status, bool& flgCancel) {
  OnStatusChange.Emit(status, flgCancel);
}

std::string Task::Execute(std::string Uri, const std::string& SourceText,
                          HttpClientPtr* AncestralHttpClient) {
  // What the run holds (the download manager and its events) is released when it ends, also
  // after a failure.
  struct ReleaseAtEnd {
    Task& task;
    ~ReleaseAtEnd() { task.download_mgr_events_.clear(); }
  } release{*this};
  ReportAs("Task.Execute(URI,SourceText)", Args(Uri, SourceText), [&] {
    // A fresh MetaTask: the one the package registered a moment ago is left behind.
    docs_.reset();
    metadata_.reset();
    auto job = GetJob();
    start_time_ = DateTime::Now();
    Metadata()->SetStartTime(start_time_);
    Metadata()->SetMetaJob(job->Metadata());
    is_instance_ = true;
    Save();

    bool cancel = false;
    if (!is_disabled_ && !RunSteps(Uri, SourceText, AncestralHttpClient, cancel)) return;

    OnExtractionComplete.Emit();
    complete_time_ = DateTime::Now();
    Metadata()->SetCompleteTime(DateTime::Now());
    Metadata()->SaveToMetabase();
    Metadata()->GetMetaDocs().SaveAll();
    OnExecuteComplete.Emit();
    is_instance_ = false;
  });
  return {};
}

bool Task::RunSteps(std::string& Uri, const std::string& SourceText,
                    HttpClientPtr* AncestralHttpClient, bool& flgCancel) {
  auto job = GetJob();
  if (!Uri.empty() && !SourceText.empty()) {
    throw Error(engineerr::kUriAndSourceText, "Task.Execute",
                "Both the URI and the SourceText Parameters were specified.  Please choose only "
                "one or the other, or neither.");
  }
  if (!SourceText.empty()) {
    // The text becomes a document like any other; its file stays.
    Uri = Settings().GetOption("StringFileCreatePath").ToText() + CGUIDGen::NewGUID() + ".txt";
    WriteUnicodeTextFile(Uri, SourceText);
  }
  const bool resuming = resuming_;
  resuming_ = false;
  if (resuming) {
    // The rows of this run were queued by the run that is resumed.
  } else if (!Uri.empty()) {
    // An ad hoc source, neither saved nor added: the task's own sources sit this run out.
    auto source = DocSource::Create();
    source->SetTask(Self());
    source->SetSourceType(SrcType::path);
    source->SetSource(Uri);
    source->SetIncludeSubFolders(false);
    source->BuildDocTableFromURIList();
  } else if (IsDownloadingKind(task_type_)) {
    GetDocSources().CreateDocList(job->JobId(), TaskId(), job->StartTime());
  }
  if (clear_root_folder_before_download_ && !resuming) {
    try {
      SaveAsTemplate()->ClearRootFolder();
    } catch (const Error&) {
      throw Error(engineerr::kClearRootFolderFailed, "Task.Execute",
                  "Could not delete all files and folders in the root directory (" +
                      SaveAsTemplate()->RootFolder() +
                      ").  One or may files may be locked by Windows.  Try manually deleting the "
                      "folder.  If the problem persists, uncheck the 'Delete all files and "
                      "folders in the root folder each time this task starts' checkbox on the "
                      "Download Path dialog and use a [DATETIME], [PKGTIME], or similar prefix "
                      "to the Package Folder as a way of versioning the package.");
    }
  }

  Settings().GetOption("DefaultDownloadPath");
  const DownloadMgrPtr mgr = CreateDownloadMgr();
  ListenToDownloadMgr(*mgr);
  OnAllDownloadsBegin.Emit();
  DoEvents();
  if (inherit_http_client_ && AncestralHttpClient && *AncestralHttpClient) {
    TemplateHttpClient()->InheritFrom(**AncestralHttpClient);
  }
  SaveAsTemplate()->SetTask(Self());

  switch (task_type_) {
    case TaskTypes::CrawlOnly: {
      HttpClientPtr client = mgr->Crawl(Self(), SaveAsTemplate(), TemplateHttpClient());
      if (AncestralHttpClient) *AncestralHttpClient = std::move(client);
      DoEvents();
      OnAllDownloadsComplete.Emit();
      break;
    }
    case TaskTypes::DownloadOnly:
    case TaskTypes::DownloadAndExtract:
      if (disable_local_file_copy_) {
        mgr->DontDownloadDocs(job->JobId(), TaskId(), job->StartTime());
      } else {
        HttpClientPtr client =
            mgr->DownloadDocs(job->JobId(), TaskId(), job->StartTime(), SaveAsTemplate(),
                              TemplateHttpClient(), Method(), save_error_pages_);
        if (AncestralHttpClient) *AncestralHttpClient = std::move(client);
      }
      DoEvents();
      // The pair is raised here around nothing, and again around the real extraction.
      OnAllDownloadsComplete.Emit();
      OnExtractionBegin.Emit();
      OnExtractionComplete.Emit();
      break;
    case TaskTypes::SQLStatement:
      DoSQLTask();
      break;
    case TaskTypes::CmdLine:
      DoCmdLineTask();
      break;
    default:
      break;
  }
  if (data_page_id_.empty() || task_type_ != TaskTypes::DownloadAndExtract) return true;

  RaiseStatus("Creating Database", flgCancel);
  if (flgCancel) return false;
  auto page = GetDataPage();
  page->CreateDB(false, "", "", "");
  if (clear_table_before_extraction_) {
    RaiseStatus("Deleting Existing Data...", flgCancel);
    if (flgCancel) return false;
    page->DeleteExistingTableData();
  }
  OnExtractionBegin.Emit();
  const DocPluginPtr plugin = CreateDocPlugin();
  return ExtractDocs(*page, *plugin, flgCancel);
}

bool Task::ExtractDocs(DataPage& page, IDocPlugin& plugin, bool& flgCancel) {
  // The documents of `Docs`, in its order and number (counted once, before the first), read a
  // slice at a time and let go of one by one: the run's memory does not grow with them.
  constexpr long kDocsPerSlice = 1000;
  auto job = GetJob();
  const std::string job_id = job->JobId();
  const DateTime job_start = job->StartTime();
  const long count = DTask().CountDownloadedDocs(job_id, TaskId(), job_start);
  const std::string rules_cn_str = modConnectionString::GetCnStr();
  const auto self = Self();
  Docs slice;
  long in_slice = 0;
  std::int64_t after_row = 0;
  for (long i = 1; i <= count; ++i) {
    if (in_slice == slice.Count()) {
      slice = Docs();
      in_slice = 0;
      auto rows =
          DTask().GetDownloadedDocsAfter(job_id, TaskId(), job_start, after_row, kDocsPerSlice);
      for (; !rows->IsEOF(); rows->MoveNext()) {
        after_row = (*rows)["row_no"].Value().ToLongLong();
        AddDownloadedDoc(slice, self, *rows);
      }
      if (slice.Count() == 0) break;
    }
    const DocPtr doc = slice.Item(++in_slice);
    page.SetDoc(doc);
    const MetaDocPtr meta = Metadata()->GetMetaDocs().Add(doc->Metadata(), Metadata());
    DoEvents();
    const Status readable = doc->CheckReadable();
    if (readable.Ok()) {
      std::string text = doc->GetSrcText(plugin);
      page.Extract(text, false);
    }
    {
      // The document's history is one transaction (inside a caller's, part of that one).
      std::optional<RulesTransaction> history;
      if (!RulesTransaction::ActiveConnection(rules_cn_str)) history.emplace(rules_cn_str);
      if (!readable.Ok()) {
        // Nothing to extract: the document says why, and with no dataset counted its result is
        // the lowest.
        D_Doc().SaveDocument(doc->DocId(), {}, {}, {}, {}, {}, readable.Description());
        meta->SetFailure(readable.Description());
        meta->SetExtractionStart(DateTime::Now());
        meta->SetExtractionComplete(DateTime::Now());
      }
      meta->SaveToMetabase();
      if (history) history->Commit();
    }
    // Done with the document: the end of the task needs only what it writes for it, so the
    // objects of a run of many documents do not pile up.
    Metadata()->GetMetaDocs().SettleAll();
    slice.Release(in_slice);
    RaiseStatus("Datapage Extraction Complete", flgCancel);
    if (flgCancel) return false;
  }
  return true;
}

void Task::DoSQLTask() {
  ReportAs("Task.DoSQLTask", [&] {
    db::ConnectionPtr cn;
    for (const auto& source : GetDocSources()) {
      if (!cn) cn = db::Connection::Create();
      cn->Open(source->ConnStr());
      cn->Execute(source->Source());
      cn->Close();
    }
  });
}

void Task::DoCmdLineTask() {
  ReportAs("Task.DoCmdLineTask", [&] {
    EventLoop& loop = EventLoop::Current();
    for (const auto& source : GetDocSources()) {
      // No time limit and no cancel: the host keeps running while the command does.
      auto process = ChildProcess::StartCommandLine(source->Source());
      while (process->IsRunning()) {
        loop.DoEvents();
        loop.WaitForActivity(std::chrono::milliseconds(100));
      }
    }
  });
}

void Task::Validate() {
  ReportAs("Task.Validate", [&] {
    if (is_disabled_ || do_validation_ != 1) return;
    bool ignored = false;  // the host's answer is not looked at while validating
    if (!data_page_id_.empty()) {
      auto page = GetDataPage();
      RaiseStatus(
          "Validating datapage " + page->DisplayName() + " in the task " + task_name_ + "...",
          ignored);
      DoEvents();
      page->Validate();
    } else if (task_type_ == TaskTypes::DownloadAndExtract) {
      SetTaskType(TaskTypes::DownloadOnly);  // a task without a datapage downloads
    }
    if (GetDocSources().Count() < 1) {
      throw Error(engineerr::kNoDocSources, "Task.Validate",
                  "There are no files or file sources listed for the task " + task_name_ + ".");
    }
    if (!IsDownloadingKind(task_type_)) return;
    for (const auto& source : GetDocSources()) {
      RaiseStatus("Validating files or file sources for the task " + task_name_ + "...", ignored);
      DoEvents();
      try {
        // Every address is read (a query can fail on a later row) but none is kept.
        source->ForEachUri([](const Variant&) {});
      } catch (const Error& e) {
        if (source->SourceType() == SrcType::path) throw;
        throw Error(
            engineerr::kSqlSourceUnreachable, "Task.Validate",
            "There was an issue connecting to the database or file that you specified as the "
            "source of a file or url list for the task " +
                task_name_ +
                ".  Ensure that the database and table or file exists and that the user name and "
                "password (if necessary) are correct.  A database that requires a password needs "
                "it in the connection string, which is stored enciphered.  The connection string "
                "that you are using is (passwords hidden): " +
                db::MaskPasswords(source->ConnStr()) +
                " Additional Error Info: " + e.Description());
      }
    }
  });
}

std::shared_ptr<Task> Task::Copy() {
  return ReportAs("Task.Copy", [&] {
    auto job = GetJob();
    auto copy = Task::Create();
    copy->SetStep(job->GetTasks().GetMaxStep() + 1);
    // Every setting the property table lists is copied, except the run's values and what a copy
    // does not take over (it is enabled and validates).
    constexpr std::array<std::string_view, 7> kNotCopied = {
        "Step",      "TaskName",     "IsDisabled",  "DoValidation",
        "StartTime", "CompleteTime", "CompleteCode"};
    for (const PropertyInfo& property : GetPropertyTable()->properties) {
      const bool excluded =
          std::find(kNotCopied.begin(), kNotCopied.end(), property.name) != kNotCopied.end();
      if (property.IsReadOnly() || excluded) continue;
      property.set(*copy, property.get(*this));
    }
    // The datapage and the objects with pieces of their own are not in the table.
    copy->SetDataPageId(data_page_id_);
    copy->SetCrawlerAgent(crawler_agent_);
    copy->crawler_piece_ = crawler_piece_;
    copy->SetSaveAsTemplate(save_as_template_);
    copy->SetTemplateHttpClient(template_http_client_);
    copy->SetTaskName("Copy of " + task_name_);
    copy->SetJob(job);
    for (const auto& source : GetDocSources()) {
      auto twin = DocSource::Create();
      twin->SetConnStr(source->ConnStr());
      twin->SetDBName(source->DBName());
      twin->SetIncludeSubFolders(source->IncludeSubFolders());
      twin->SetSource(source->Source());
      twin->SetSourceType(source->SourceType());
      copy->GetDocSources().Add(twin, twin->DocSrcId());
    }
    // Saved and read back, the copy has objects of its own.
    copy->Save();
    copy->Load(copy->TaskId());
    job->GetTasks().Add(copy);
    return copy;
  });
}

}  // namespace gw
