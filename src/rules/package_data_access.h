// The data-access classes of packages and runs: DJob, DTask, DDocSource, D_Doc, D_DownloadMgr,
// D_Metabase. They share the shape of the template classes (template_data_access.h): the rules
// connection string at creation, statements run through a `CDisconnRS` with every value bound,
// rows written through updatable recordsets, and each method reporting under its log name.
#pragma once

#include <cstdint>
#include <string>

#include "platform/date_time.h"
#include "platform/db/recordset.h"
#include "rules/rules_data_access.h"

namespace gw {

class DJob : public RulesDataAccess {
 public:
  using RulesDataAccess::RulesDataAccess;

  // Stamps the completion time of the package's unfinished runs with now; without an id, of the
  // unfinished runs of every package. A finished run keeps its completion time. Meant for when
  // nothing runs: a run under way is closed too.
  void CloseInstances(const std::string& JobId = {});
  // job_id, Name, Description, Create Date, date_modified by name.
  db::RecordsetPtr GetAllJobs();
  // The packages by category: "category" with a chapter "Chapter1" of (job_id, category, Name,
  // Description, Create Date, date_modified), as `D_DataPage::GetDatapageCategoryHierarchy`.
  db::RecordsetPtr GetPkgCategoryHierarchy();
  // Packages (job_id, job_name, description, date_created, date_modified) with a chapter
  // "Chapter1" of their tasks (task_id, job_id, task_name, description, step) by step.
  db::RecordsetPtr GetJobTaskHierarchy();
  // One run's progress: tasks (with task_id) > documents "Chapter1" (with task_id, doc_id) >
  // results by dataset "rsEntDetail".
  db::RecordsetPtr GetJobProgress(const std::string& JobId, const DateTime& JobStartTime);
  // Categories > packages "Chapter1" > runs "rsJob" (job_id, Start Time, Completion Time, Code),
  // newest first. A run without a completion code (one under way) is not listed.
  db::RecordsetPtr GetJobInstanceHierarchy();

  // Writes the run (JobId, StartTime). A completion time or code that is not given (Empty, the
  // empty date, code 0) becomes null on a new row and keeps the stored value on an existing one.
  void SaveInstance(const std::string& JobId, const DateTime& StartTime,
                    const Variant& CompleteTime = {}, const Variant& CompleteCode = {});
  // Inserts a new run row of the package, with no completion, at `StartTime` or, when a run of
  // the package already starts then (another process started it in the same millisecond), at the
  // first free millisecond after it. Returns the start time of the new row, which the caller
  // owns; a failure other than that collision is thrown.
  DateTime AddInstance(const std::string& JobId, const DateTime& StartTime);
  // Refused with 0x8612533D while a run of the package is under way; the store's cascades remove
  // its tasks, their document sources and the package's run history.
  void Delete(const std::string& JobId);
  // JobId, JobName, Description, DateCreated, DateModified.
  db::RecordsetPtr Selectx(const std::string& JobId, bool ReadOnly = false);
  void Save(const std::string& JobId, const Variant& DateCreated = NoAction(),
            const Variant& DateModified = NoAction(), const Variant& JobName = NoAction(),
            const Variant& Description = NoAction());
  // The package's runs without a completion time.
  db::RecordsetPtr GetRunningInstances(const std::string& JobId);
  // TaskId of each task, by step.
  db::RecordsetPtr GetTasks(const std::string& JobId, bool ReadOnly = false);
  // Refused with 0x8612533D while a run is under way.
  void DeleteAllTasks(const std::string& JobId);
  // What one run did with its documents, in one row: documents (all queued), failed (never
  // copied, or could not be read), not_reached (still queued when the run ended), rows_written
  // and rows_refused (over the documents that were extracted).
  db::RecordsetPtr GetRunTotals(const std::string& JobId, const DateTime& JobStartTime);
};

class DTask : public RulesDataAccess {
 public:
  using RulesDataAccess::RulesDataAccess;

  // doc_id, uri, temp_uri, copy_completion_time of the run's documents that are ready to
  // extract (their temp_uri is set).
  db::RecordsetPtr GetDownloadedDocs(const std::string& JobId, const std::string& TaskId,
                                     const DateTime& JobStartTime);
  // The same rows a slice at a time: at most `MaxRows` of those after the row numbered `AfterRow`
  // (0 for the first slice), in the same order, each with its number in `row_no`.
  db::RecordsetPtr GetDownloadedDocsAfter(const std::string& JobId, const std::string& TaskId,
                                          const DateTime& JobStartTime, std::int64_t AfterRow,
                                          long MaxRows);
  // How many rows `GetDownloadedDocs` gives.
  long CountDownloadedDocs(const std::string& JobId, const std::string& TaskId,
                           const DateTime& JobStartTime);
  // Does nothing: documents are queued by their sources.
  void NewDoc(const std::string& TaskId, const std::string& JobId, const DateTime& JobStartTime,
              const std::string& DocId, const std::string& URI);
  // DocSrcId of each document source of the task.
  db::RecordsetPtr GetDocSources(const std::string& TaskId);
  // Writes the task's run row. A completion time or code that is empty (Empty, the empty date,
  // 0, "") is stored as null. `ThrottleWaitMSecs` has no column.
  void SaveInstance(const std::string& TaskId, const std::string& JobId,
                    const DateTime& JobStartTime, const DateTime& TaskStartTime,
                    const Variant& CompleteTime = {}, const Variant& CompleteCode = {},
                    long ThrottleWaitMSecs = 0);
  void Delete(const std::string& TaskId);
  // TaskId, JobId, TaskName, Description, DatapageId, Step, DisplaySrcType, ThrottleWaitMSecs.
  db::RecordsetPtr Selectx(const std::string& TaskId, bool ReadOnly = false);
  // An empty `DatapageId` is stored as null.
  void Save(const std::string& TaskId, const Variant& JobId = NoAction(),
            const Variant& TaskName = NoAction(), const Variant& Description = NoAction(),
            const Variant& Step = NoAction(), const Variant& DisplaySrcType = NoAction(),
            const Variant& ThrottleWaitMSecs = NoAction(), const Variant& DatapageId = NoAction());
};

class DDocSource : public RulesDataAccess {
 public:
  using RulesDataAccess::RulesDataAccess;

  // Does nothing: sources go only with `DeleteAll`.
  void Delete(const std::string& DocSrcId);
  void DeleteAll(const std::string& TaskId);
  // The row of doc_locations.
  db::RecordsetPtr Selectx(const std::string& DocSrcId, bool ReadOnly = false);
  void Save(const std::string& DocSrcId, const Variant& DBName = NoAction(),
            const Variant& ConnStr = NoAction(), const Variant& TaskId = NoAction(),
            const Variant& Source = NoAction(), const Variant& SourceType = NoAction());
};

class D_Doc : public RulesDataAccess {
 public:
  using RulesDataAccess::RulesDataAccess;

  db::RecordsetPtr GetDoc(const std::string& DocId);
  // Writes the document row `DocId`. On an existing row every argument at its empty value
  // ("", the empty date, 0) keeps the stored value, so a count or code cannot be put back to 0.
  // `copy_completion_time` is not written here.
  void SaveDocument(const std::string& DocId, const std::string& TaskId = {},
                    const std::string& JobId = {}, const DateTime& JobStartTime = {},
                    const std::string& URI = {}, const std::string& TempURI = {},
                    const std::string& CopyCompleteCode = {}, const DateTime& DocStartTime = {},
                    const DateTime& DocCompletionTime = {}, std::int16_t CopyTryCount = 0,
                    std::int16_t SuccessCode = 0);
  // Writes what the targets did with the document's rows: how many they took and refused, and
  // the first refusal's reason (cut to the column's width).
  void SaveRowCounts(const std::string& DocId, long RowsWritten, long RowsRefused,
                     const std::string& Refusal);
};

class D_DownloadMgr : public RulesDataAccess {
 public:
  using RulesDataAccess::RulesDataAccess;

  // What a file with this extension in its address is saved as; "" when unknown.
  std::string GetSaveAsFileExt(const std::string& InputFileExt);
  // The extension of a Content-Type value; "" when unknown.
  std::string GetFileExtFromMimeType(const std::string& MimeType);
  // The default extension of a `ResourceType` value (http 0, FileSystem 1, FTP 2, Unknown 4,
  // Invalid 5); "" for a type without one (email 3).
  std::string GetDefaultFileExt(int ResType);
  // The run's rows still to fetch (not "Success", tried fewer than 10 times), updatable.
  db::RecordsetPtr GetNonDownloadedFiles(const std::string& JobId, const std::string& TaskId,
                                         const DateTime& JobStartTime);
  // A slice of the run's rows still to fetch, for reading a long list a few thousand rows at a
  // time: the open rows after row number `AfterRow` (0: from the first), at most `MaxRows`, in the
  // order of `GetNonDownloadedFiles`; read-only, with the columns "row_no" (the row's number in
  // the store, the next slice's `AfterRow`), "doc_id", "uri", "copy_completion_code" and
  // "copy_try_count". An outcome written meanwhile never moves a row into a later slice, so a pass
  // that reads slice after slice tries each row once.
  db::RecordsetPtr GetNonDownloadedFilesAfter(const std::string& JobId, const std::string& TaskId,
                                              const DateTime& JobStartTime, std::int64_t AfterRow,
                                              long MaxRows);
  long CountNonDownloadedFiles(const std::string& JobId, const std::string& TaskId,
                               const DateTime& JobStartTime);
  // The connection that a download run writes its rows' outcomes on: the run's rules session
  // when one is active, else a new connection (the caller's to keep).
  db::ConnectionPtr OutcomeConnection();
  // One row's outcome of a try, written on `cn` by its `DocId`: its code and try count and, when
  // given, its file (`TempUri`) and `CompletionTime`. The statement is prepared once per
  // connection.
  static void SetCopyOutcome(db::Connection& cn, const std::string& DocId, const std::string& Code,
                             long Tries, const std::string* TempUri,
                             const DateTime* CompletionTime);
  // Points the run's rows still to fetch at their source (temp_uri = uri).
  void SetCachePathToSrcPath(const std::string& JobId, const std::string& TaskId,
                             const DateTime& JobStartTime);
  long GetTotalDocCount(const std::string& JobId, const std::string& TaskId,
                        const DateTime& JobStartTime);
};

class D_Metabase : public RulesDataAccess {
 public:
  using RulesDataAccess::RulesDataAccess;

  // The one code row (id, display_name) whose band holds the determinant.
  db::RecordsetPtr GetTaskSuccessCode(double sngDeterminantVal);
  db::RecordsetPtr GetDocSuccessCode(double sngDeterminantVal);
  db::RecordsetPtr GetEntitySuccessCode(double sngDeterminantVal);
  db::RecordsetPtr GetJobSuccessCode(double sngDeterminantVal);
  // Inserts or updates the result of one dataset on one document. Returns true.
  // `RowsRefused` and `Refusal` (the first refused row's reason) are what the dataset's targets
  // refused on the document.
  bool SaveMetaEnt(const std::string& DocId, const std::string& EntityId, long OccurCount,
                   long ExtractCount, float AvgSuccessCoeff, std::int16_t SuccessCode,
                   long TotalErrorCount, float AvgErrorCount, long RowsRefused = 0,
                   const std::string& Refusal = {});
};

}  // namespace gw
