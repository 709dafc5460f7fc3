#include "rules/package_data_access.h"

#include "platform/error.h"
#include "platform/report_connection_string.h"
#include "platform/text.h"
#include "rules/failures.h"
#include "rules/row_writer.h"
#include "rules/rules_schema.h"
#include "rules/rules_transaction.h"
#include "rules/shape.h"

namespace gw {

namespace {

// A refusal's reason as the run history keeps it: at most the 4000 characters of its column.
std::string CutToWidth(const std::string& reason) {
  return std::string(text::TruncateCodePoints(reason, 4000));
}

// Not given: Empty, the empty date, the number 0 or the empty text.
bool IsNotGiven(const Variant& v) {
  if (v.IsEmpty() || v.IsNull()) return true;
  if (v.IsDate()) return v.ToDate().IsEmpty();
  if (v.IsString()) return v.ToString().empty();
  if (v.IsNumeric()) return v.ToDouble() == 0;
  return false;
}

Variant DateOrNull(const DateTime& d) { return d.IsEmpty() ? Variant(kNull) : Variant(d); }

// The first column of the first row as text, or "".
std::string FirstValueText(const db::RecordsetPtr& rs) {
  if (!rs->IsOpen() || rs->IsEOF()) return {};
  return rs->GetFields().Item(0L).Value().ToText();
}

// Every package as the child level of the package category tree.
db::RecordsetPtr PackagesByCategory(const CDisconnRS& shape) {
  auto jobs = shape.RunQuery(
      "SELECT job_id, job_name, description, date_created, date_modified FROM jobs", true);
  return CategoryChildRecordset(*jobs, "job_id", "job_name", "date_modified",
                                CategoryOrder::ByFullName);
}

}  // namespace

// ---- DJob ------------------------------------------------------------------------------------

void DJob::CloseInstances(const std::string& JobId) {
  ReportAs("DJob.CloseInstances(JobId)", Args(JobId), [&] {
    std::vector<Variant> params{Variant(DateTime::Now())};
    // Only runs under way: a finished run keeps its real completion time.
    std::string sql =
        "UPDATE job_instances SET job_completion_time=? WHERE job_completion_time "
        "IS NULL";
    if (!JobId.empty()) {
      sql += " AND job_id = ?";
      params.emplace_back(JobId);
    }
    Query().RunQuery(sql, false, params);
  });
}

db::RecordsetPtr DJob::GetAllJobs() {
  return ReportAs("DJob.GetAllJobs", [&] {
    return Query().RunQuery(
        "SELECT job_id, job_name AS Name, description as Description, date_created as 'Create "
        "Date', date_modified From jobs ORDER BY job_name",
        true);
  });
}

db::RecordsetPtr DJob::GetPkgCategoryHierarchy() {
  return ReportAs("DJob.GetPkgCategoryHierarchy", [&] {
    const CDisconnRS shape(ShapeConnectionString());
    return CategoryTree(*PackagesByCategory(shape));
  });
}

db::RecordsetPtr DJob::GetJobTaskHierarchy() {
  return ReportAs("DJob.GetJobTaskHierarchy", [&] {
    const CDisconnRS shape(ShapeConnectionString());
    auto jobs = shape.RunQuery(
        "SELECT job_id, job_name, description, date_created, date_modified From jobs ORDER BY "
        "job_name",
        true);
    auto tasks = shape.RunQuery(
        "SELECT     task_id, job_id, task_name, description, step FROM tasks ORDER BY step", true);
    return ShapeAppend(*jobs, *tasks, "job_id", "job_id");
  });
}

db::RecordsetPtr DJob::GetJobProgress(const std::string& JobId, const DateTime& JobStartTime) {
  return ReportAs("DJob.GetJobProgress(JobId,JobStartTime)", Args(JobId, JobStartTime), [&] {
    const CDisconnRS shape(ShapeConnectionString());
    const std::vector<Variant> run{Variant(JobId), Variant(JobStartTime)};
    auto tasks = shape.RunQuery("Exec usp_Progress_GetTaskStatusesForJobInstance ?, ? ", true, run);
    auto docs = shape.RunQuery("Exec usp_Progress_GetDocStatusesForJobInstance ?, ? ", true, run);
    auto results =
        shape.RunQuery("Exec usp_Progress_GetEntityStatusesForJobInstance ?, ? ", true, run);
    auto docs_with_results = ShapeAppend(*docs, *results, "doc_id", "doc_id", "rsEntDetail");
    return ShapeAppend(*tasks, *docs_with_results, "task_id", "task_id");
  });
}

db::RecordsetPtr DJob::GetJobInstanceHierarchy() {
  return ReportAs("DJob.GetJobInstanceHierarchy", [&] {
    const CDisconnRS shape(ShapeConnectionString());
    auto child = PackagesByCategory(shape);
    auto runs = shape.RunQuery(
        "select job_id, job_start_time as 'Start Time', job_completion_time as 'Completion Time', "
        "c.display_name as Code from job_instances inner join job_success_codes c on "
        "job_instances.completion_code = c.job_success_code_id order by job_start_time desc ",
        true);
    auto jobs_with_runs = ShapeAppend(*child, *runs, "job_id", "job_id", "rsJob");
    return CategoryTree(*jobs_with_runs);
  });
}

void DJob::SaveInstance(const std::string& JobId, const DateTime& StartTime,
                        const Variant& CompleteTime, const Variant& CompleteCode) {
  ReportAs("DJob.SaveInstance(JobId,StartTime,CompleteTime,CompleteCode)",
           Args(JobId, StartTime, CompleteTime, CompleteCode), [&] {
             PartialRowWriter row(
                 Query(), "SELECT * FROM job_instances WHERE (job_id = ? AND job_start_time = ?)",
                 {Variant(JobId), Variant(StartTime)});
             row.Set("job_id", Variant(JobId));
             row.Set("job_start_time", Variant(StartTime));
             row.Set("job_completion_time", CompleteTime, IsNotGiven(CompleteTime));
             row.Set("completion_code", CompleteCode, IsNotGiven(CompleteCode));
             row.Write();
           });
}

DateTime DJob::AddInstance(const std::string& JobId, const DateTime& StartTime) {
  return ReportAs("DJob.AddInstance(JobId,StartTime)", Args(JobId, StartTime), [&] {
    // The insert itself decides which process has a start time: a look first would let two
    // processes both find the time free. After a collision the next free millisecond is worked
    // out from the starts already there, and tried in turn.
    constexpr int kMaxTries = 100;
    DateTime start = StartTime;
    for (int attempt = 1;; ++attempt) {
      try {
        Query().RunQuery("INSERT INTO job_instances (job_id, job_start_time) VALUES (?, ?)", false,
                         {Variant(JobId), Variant(start)});
        return start;
      } catch (const Error&) {
        auto taken = Query().RunQuery(
            "SELECT job_start_time FROM job_instances WHERE job_id = ? AND job_start_time >= ? "
            "ORDER BY job_start_time",
            true, {Variant(JobId), Variant(start)});
        // Only a run that holds this very start time is a reason to take another one.
        if (taken->IsEOF() || (*taken)[0L].Value().ToDate() != start || attempt == kMaxTries) {
          throw;
        }
        for (; !taken->IsEOF(); taken->MoveNext()) {
          const DateTime t = (*taken)[0L].Value().ToDate();
          if (t > start) break;
          if (t == start) start = start.AddMilliseconds(1);
        }
      }
    }
  });
}

void DJob::Delete(const std::string& JobId) {
  ReportAs("DJob.Delete(JobId)", Args(JobId), [&] {
    if (GetRunningInstances(JobId)->RecordCount() > 0) {
      throw Error(ruleserr::kPackageRunning, "DJob.Delete",
                  "One or more instances of this package is currently executing.  Deletion of the "
                  "package is not allowed during execution.  Delete cancelled.  This may be "
                  "because a package terminated abnormally.  You can force all running packages "
                  "to complete with the command 'gleanwright close-instances'.");
    }
    DeleteSelectedRow(Selectx(JobId, false));
  });
}

db::RecordsetPtr DJob::Selectx(const std::string& JobId, bool ReadOnly) {
  return ReportAs("DJob.Selectx(JobId,ReadOnly)", Args(JobId, ReadOnly), [&] {
    return Query().RunQuery(
        "SELECT job_id AS JobId, job_name AS JobName, description AS Description, date_created "
        "as DateCreated, date_modified as DateModified From jobs Where job_id = ?",
        ReadOnly, {Variant(JobId)});
  });
}

void DJob::Save(const std::string& JobId, const Variant& DateCreated, const Variant& DateModified,
                const Variant& JobName, const Variant& Description) {
  ReportAs("DJob.Save(JobId,DateCreated,DateModified,JobName,Description)",
           Args(JobId, DateCreated, DateModified, JobName, Description), [&] {
             PartialRowWriter row(Query(), "SELECT * FROM jobs WHERE job_id = ?", {Variant(JobId)});
             row.Set("job_name", JobName, IsNoAction(JobName));
             row.Set("description", Description, IsNoAction(Description));
             row.Set("date_created", DateCreated, IsNoActionDate(DateCreated));
             row.Set("date_modified", DateModified, IsNoActionDate(DateModified));
             row.Write("job_id", Variant(JobId));
           });
}

db::RecordsetPtr DJob::GetRunningInstances(const std::string& JobId) {
  return ReportAs("DJob.GetRunningInstances(JobId)", Args(JobId), [&] {
    return Query().RunQuery("Exec usp_GetRunningJobs ?", true, {Variant(JobId)});
  });
}

db::RecordsetPtr DJob::GetTasks(const std::string& JobId, bool ReadOnly) {
  return ReportAs("DJob.GetTasks(JobId,ReadOnly)", Args(JobId, ReadOnly), [&] {
    return Query().RunQuery("Exec usp_GetTasks ?", ReadOnly, {Variant(JobId)});
  });
}

void DJob::DeleteAllTasks(const std::string& JobId) {
  ReportAs("DJob.DeleteAllTasks(JobId)", Args(JobId), [&] {
    if (GetRunningInstances(JobId)->RecordCount() > 0) {
      throw Error(ruleserr::kPackageRunning, "DJob.DeleteAllTasks",
                  "One or more instances of this package is currently executing.  Deletion of the "
                  "package is not allowed during execution.  Delete cancelled.");
    }
    auto rs = GetTasks(JobId, false);
    while (!rs->IsEOF()) {
      rs->Delete();
      rs->MoveNext();
    }
    rs->SetActiveConnection(nullptr);
  });
}

db::RecordsetPtr DJob::GetRunTotals(const std::string& JobId, const DateTime& JobStartTime) {
  return ReportAs("DJob.GetRunTotals(JobId,JobStartTime)", Args(JobId, JobStartTime), [&] {
    return Query().RunQuery("Exec usp_Progress_GetRunTotals ?, ?", true,
                            {Variant(JobId), Variant(JobStartTime)});
  });
}

// ---- DTask -----------------------------------------------------------------------------------

db::RecordsetPtr DTask::GetDownloadedDocs(const std::string& JobId, const std::string& TaskId,
                                          const DateTime& JobStartTime) {
  return ReportAs(
      "DTask.GetDownloadedDocs(JobId,TaskId,JobStartTime)", Args(JobId, TaskId, JobStartTime), [&] {
        return Query().RunQuery("Exec usp_GetDownLoadedDocs ?, ?, ?", true,
                                {Variant(JobId), Variant(TaskId), Variant(JobStartTime)});
      });
}

// The conditions of usp_GetDownLoadedDocs, which the partial index of unread rows holds.
constexpr const char* kDownloadedDocsWhere =
    " FROM task_instance_docs WHERE job_id = ? AND task_id = ? AND job_start_time = ? AND "
    "temp_uri IS NOT NULL AND temp_uri <> ''";

db::RecordsetPtr DTask::GetDownloadedDocsAfter(const std::string& JobId, const std::string& TaskId,
                                               const DateTime& JobStartTime, std::int64_t AfterRow,
                                               long MaxRows) {
  return ReportAs("DTask.GetDownloadedDocsAfter(JobId,TaskId,JobStartTime,AfterRow)",
                  Args(JobId, TaskId, JobStartTime, AfterRow), [&] {
                    return Query().RunQuery(
                        std::string("SELECT rowid AS row_no, doc_id, uri, temp_uri, "
                                    "copy_completion_time") +
                            kDownloadedDocsWhere + " AND rowid > ? ORDER BY rowid LIMIT ?",
                        true,
                        {Variant(JobId), Variant(TaskId), Variant(JobStartTime),
                         Variant(static_cast<long long>(AfterRow)),
                         Variant(static_cast<std::int32_t>(MaxRows))});
                  });
}

long DTask::CountDownloadedDocs(const std::string& JobId, const std::string& TaskId,
                                const DateTime& JobStartTime) {
  return ReportAs("DTask.CountDownloadedDocs(JobId,TaskId,JobStartTime)",
                  Args(JobId, TaskId, JobStartTime), [&] {
                    return Count(std::string("SELECT COUNT(*) AS n") + kDownloadedDocsWhere,
                                 {Variant(JobId), Variant(TaskId), Variant(JobStartTime)});
                  });
}

void DTask::NewDoc(const std::string&, const std::string&, const DateTime&, const std::string&,
                   const std::string&) {}

db::RecordsetPtr DTask::GetDocSources(const std::string& TaskId) {
  return ReportAs("DTask.GetDocSources(TaskId)", Args(TaskId), [&] {
    return Query().RunQuery("Exec usp_GetDocSources ?", true, {Variant(TaskId)});
  });
}

void DTask::SaveInstance(const std::string& TaskId, const std::string& JobId,
                         const DateTime& JobStartTime, const DateTime& TaskStartTime,
                         const Variant& CompleteTime, const Variant& CompleteCode,
                         long /*ThrottleWaitMSecs: no column*/) {
  ReportAs(
      "DTask.SaveInstance(TaskId,JobId,JobStartTime,TaskStartTime,CompleteTime,CompleteCode,"
      "ThrottleWaitMSecs)",
      Args(TaskId, JobId, JobStartTime, TaskStartTime, CompleteTime, CompleteCode), [&] {
        PartialRowWriter row(Query(),
                             "SELECT * FROM task_instances WHERE (task_id = ? AND job_id = ? AND "
                             "job_start_time = ?)",
                             {Variant(TaskId), Variant(JobId), Variant(JobStartTime)});
        row.Set("task_id", Variant(TaskId));
        row.Set("job_id", Variant(JobId));
        row.Set("job_start_time", Variant(JobStartTime));
        row.Set("task_start_time", DateOrNull(TaskStartTime));
        row.Set("task_completion_time", IsNotGiven(CompleteTime) ? Variant(kNull) : CompleteTime);
        row.Set("completion_code", IsNotGiven(CompleteCode) ? Variant(kNull) : CompleteCode);
        row.Write();
      });
}

void DTask::Delete(const std::string& TaskId) {
  ReportAs("DTask.Delete(TaskId)", Args(TaskId),
           [&] { DeleteSelectedRow(Selectx(TaskId, false)); });
}

db::RecordsetPtr DTask::Selectx(const std::string& TaskId, bool ReadOnly) {
  return ReportAs("DTask.Selectx(TaskId,ReadOnly)", Args(TaskId, ReadOnly), [&] {
    return Query().RunQuery(
        "SELECT task_id as TaskId, job_id AS JobId, task_name AS TaskName, description AS "
        "Description, datapage_id as DatapageId, step as Step, source_type as DisplaySrcType, "
        "throttle_wait_msecs as ThrottleWaitMSecs From tasks Where task_id = ?",
        ReadOnly, {Variant(TaskId)});
  });
}

void DTask::Save(const std::string& TaskId, const Variant& JobId, const Variant& TaskName,
                 const Variant& Description, const Variant& Step, const Variant& DisplaySrcType,
                 const Variant& ThrottleWaitMSecs, const Variant& DatapageId) {
  ReportAs(
      "DTask.Save(TaskId,JobId,TaskName,Description,Step,DisplaySrcType,ThrottleWaitMSecs,"
      "DatapageId)",
      Args(TaskId, JobId, TaskName, Description, Step, DisplaySrcType, ThrottleWaitMSecs,
           DatapageId),
      [&] {
        PartialRowWriter row(Query(), "SELECT * FROM tasks WHERE task_id = ?", {Variant(TaskId)});
        const bool no_datapage =
            !IsNoAction(DatapageId) && !DatapageId.IsNull() && DatapageId.ToText().empty();
        row.Set("job_id", JobId, IsNoAction(JobId));
        row.Set("task_name", TaskName, IsNoAction(TaskName));
        row.Set("description", Description, IsNoAction(Description));
        row.Set("datapage_id", no_datapage ? Variant(kNull) : DatapageId, IsNoAction(DatapageId));
        row.Set("step", Step, IsNoActionNumber(Step));
        row.Set("source_type", DisplaySrcType, IsNoActionNumber(DisplaySrcType));
        row.Set("throttle_wait_msecs", ThrottleWaitMSecs, IsNoActionNumber(ThrottleWaitMSecs));
        row.Write("task_id", Variant(TaskId));
      });
}

// ---- DDocSource ------------------------------------------------------------------------------

void DDocSource::Delete(const std::string&) {}

void DDocSource::DeleteAll(const std::string& TaskId) {
  ReportAs("DDocSource.DeleteAll(TaskId)", Args(TaskId),
           [&] { Query().RunQuery("Exec usp_DelAllDocSources ?", false, {Variant(TaskId)}); });
}

db::RecordsetPtr DDocSource::Selectx(const std::string& DocSrcId, bool ReadOnly) {
  return ReportAs("DDocSource.Selectx(DocSrcId,ReadOnly)", Args(DocSrcId, ReadOnly), [&] {
    return Query().RunQuery("Exec usp_GetDocSource ?", ReadOnly, {Variant(DocSrcId)});
  });
}

void DDocSource::Save(const std::string& DocSrcId, const Variant& DBName, const Variant& ConnStr,
                      const Variant& TaskId, const Variant& Source, const Variant& SourceType) {
  ReportAs("DDocSource.Save(DocSrcId,DBName,ConnStr,TaskId,Source,SourceType)",
           Args(DocSrcId, DBName, AsConnectionString(ConnStr), TaskId, Source, SourceType), [&] {
             PartialRowWriter row(Query(), "Exec usp_GetDocSource ?", {Variant(DocSrcId)});
             row.Set("db_name", DBName, IsNoAction(DBName));
             row.Set("conn_str", ConnStr, IsNoAction(ConnStr));
             row.Set("task_id", TaskId, IsNoAction(TaskId));
             row.Set("source", Source, IsNoAction(Source));
             row.Set("source_type", SourceType, IsNoActionNumber(SourceType));
             row.Write("doc_location_id", Variant(DocSrcId));
           });
}

// ---- D_Doc -----------------------------------------------------------------------------------

db::RecordsetPtr D_Doc::GetDoc(const std::string& DocId) {
  return ReportAs("D_Doc.GetDoc(DocId)", Args(DocId), [&] {
    return Query().RunQuery(
        "SELECT [doc_id], [task_id], [job_id], [job_start_time], [uri], [temp_uri], "
        "[copy_completion_code], [copy_completion_time], [doc_start_time], "
        "[doc_completion_time], [copy_try_count], [extraction_completion_code] FROM "
        "[task_instance_docs] WHERE [doc_id] = ?",
        true, {Variant(DocId)});
  });
}

void D_Doc::SaveRowCounts(const std::string& DocId, long RowsWritten, long RowsRefused,
                          const std::string& Refusal) {
  ReportAs(
      "D_Doc.SaveRowCounts(DocId,RowsWritten,RowsRefused,Refusal)",
      Args(DocId, RowsWritten, RowsRefused, Refusal), [&] {
        Query().RunQuery(
            "UPDATE task_instance_docs SET rows_written = ?, rows_refused = ?, refusal = ? WHERE "
            "doc_id = ?",
            false,
            {Variant(RowsWritten), Variant(RowsRefused),
             Refusal.empty() ? Variant(kNull) : Variant(CutToWidth(Refusal)), Variant(DocId)});
      });
}

void D_Doc::SaveDocument(const std::string& DocId, const std::string& TaskId,
                         const std::string& JobId, const DateTime& JobStartTime,
                         const std::string& URI, const std::string& TempURI,
                         const std::string& CopyCompleteCode, const DateTime& DocStartTime,
                         const DateTime& DocCompletionTime, std::int16_t CopyTryCount,
                         std::int16_t SuccessCode) {
  ReportAs(
      "D_Doc.SaveDocument(DocId,TaskId,JobId,JobStartTime,URI,TempURI,CopyCompleteCode,"
      "DocStartTime,DocCompletionTime,CopyTryCount,SuccessCode)",
      Args(DocId, TaskId, JobId, JobStartTime, URI, TempURI, CopyCompleteCode, DocStartTime,
           DocCompletionTime, CopyTryCount, SuccessCode),
      [&] {
        PartialRowWriter row(Query(), "SELECT * FROM task_instance_docs WHERE doc_id = ?",
                             {Variant(DocId)});
        // On an existing row an empty argument keeps the stored value; on a new one it is
        // written as it is (an empty date as null).
        const bool update = !row.IsInsert();
        row.Set("doc_id", Variant(DocId));
        row.Set("task_id", Variant(TaskId), update && TaskId.empty());
        row.Set("job_id", Variant(JobId), update && JobId.empty());
        row.Set("job_start_time", DateOrNull(JobStartTime), update && JobStartTime.IsEmpty());
        row.Set("uri", Variant(URI), update && URI.empty());
        row.Set("temp_uri", Variant(TempURI), update && TempURI.empty());
        row.Set("copy_completion_code", Variant(CopyCompleteCode),
                update && CopyCompleteCode.empty());
        row.Set("doc_start_time", DateOrNull(DocStartTime), update && DocStartTime.IsEmpty());
        row.Set("doc_completion_time", DateOrNull(DocCompletionTime),
                update && DocCompletionTime.IsEmpty());
        row.Set("copy_try_count", Variant(CopyTryCount), update && CopyTryCount == 0);
        row.Set("extraction_completion_code", Variant(SuccessCode), update && SuccessCode == 0);
        row.Write();
      });
}

// ---- D_DownloadMgr ---------------------------------------------------------------------------

std::string D_DownloadMgr::GetSaveAsFileExt(const std::string& InputFileExt) {
  return ReportAs("D_DownloadMgr.GetSaveAsFileExt(InputFileExt)", Args(InputFileExt), [&] {
    return FirstValueText(
        Query().RunQuery("SELECT save_as_file_ext FROM file_ext_map WHERE url_file_ext = ?", true,
                         {Variant(InputFileExt)}));
  });
}

std::string D_DownloadMgr::GetFileExtFromMimeType(const std::string& MimeType) {
  return ReportAs("D_DownloadMgr.GetFileExtFromMimeType(MimeType)", Args(MimeType), [&] {
    return FirstValueText(
        Query().RunQuery("Exec usp_GetFileExtFromMime ?", true, {Variant(MimeType)}));
  });
}

std::string D_DownloadMgr::GetDefaultFileExt(int ResType) {
  return ReportAs("D_DownloadMgr.GetDefaultFileExt(ResType)", Args(ResType), [&]() -> std::string {
    const char* column = nullptr;
    switch (ResType) {
      case 0:
        column = "http_default";
        break;
      case 1:
        column = "file_system_default";
        break;
      case 2:
        column = "ftp_default";
        break;
      case 4:
        column = "unknown_default";
        break;
      case 5:
        column = "invalid_default";
        break;
      default:
        return {};
    }
    // The column name comes from the fixed list above, never from a caller's text.
    return FirstValueText(Query().RunQuery(
        std::string("SELECT file_ext FROM file_extensions WHERE ") + column + " = 1", true));
  });
}

db::RecordsetPtr D_DownloadMgr::GetNonDownloadedFiles(const std::string& JobId,
                                                      const std::string& TaskId,
                                                      const DateTime& JobStartTime) {
  return ReportAs("D_DownloadMgr.GetNonDownloadedFiles(JobId,TaskId,JobStartTime)",
                  Args(JobId, TaskId, JobStartTime), [&] {
                    return Query().RunQuery(
                        "Exec usp_GetNonDownLoadedDocs ?, ?, ?", false,
                        {Variant(JobId), Variant(TaskId), Variant(JobStartTime)});
                  });
}

db::RecordsetPtr D_DownloadMgr::GetNonDownloadedFilesAfter(const std::string& JobId,
                                                           const std::string& TaskId,
                                                           const DateTime& JobStartTime,
                                                           std::int64_t AfterRow, long MaxRows) {
  return ReportAs("D_DownloadMgr.GetNonDownloadedFilesAfter(JobId,TaskId,JobStartTime,AfterRow)",
                  [&] {
                    // The conditions are those of the partial index of open rows, which holds
                    // the row numbers in order.
                    return Query().RunQuery(
                        "SELECT rowid AS row_no, doc_id, uri, copy_completion_code, "
                        "copy_try_count FROM task_instance_docs WHERE job_id = ? AND task_id = ? "
                        "AND job_start_time = ? AND (copy_completion_code <> 'Success') AND "
                        "(copy_try_count < 10) AND rowid > ? ORDER BY rowid LIMIT ?",
                        true,
                        {Variant(JobId), Variant(TaskId), Variant(JobStartTime),
                         Variant(static_cast<long long>(AfterRow)),
                         Variant(static_cast<std::int32_t>(MaxRows))});
                  });
}

long D_DownloadMgr::CountNonDownloadedFiles(const std::string& JobId, const std::string& TaskId,
                                            const DateTime& JobStartTime) {
  return ReportAs("D_DownloadMgr.CountNonDownloadedFiles(JobId,TaskId,JobStartTime)", [&] {
    return Count(
        "SELECT COUNT(*) AS n FROM task_instance_docs WHERE job_id = ? AND task_id = ? AND "
        "job_start_time = ? AND (copy_completion_code <> 'Success') AND (copy_try_count < 10)",
        {Variant(JobId), Variant(TaskId), Variant(JobStartTime)});
  });
}

db::ConnectionPtr D_DownloadMgr::OutcomeConnection() {
  if (auto cn = RulesSession::ActiveConnection(ConnStr())) return cn;
  return OpenRulesConnection(ConnStr());
}

void D_DownloadMgr::SetCopyOutcome(db::Connection& cn, const std::string& DocId,
                                   const std::string& Code, long Tries, const std::string* TempUri,
                                   const DateTime* CompletionTime) {
  const Variant tries(static_cast<std::int32_t>(Tries));
  if (TempUri && CompletionTime) {
    const Variant params[] = {Variant(Code), Variant(*TempUri), Variant(*CompletionTime), tries,
                              Variant(DocId)};
    cn.ExecuteNonQuery(
        "UPDATE task_instance_docs SET copy_completion_code = ?, temp_uri = ?, "
        "copy_completion_time = ?, copy_try_count = ? WHERE doc_id = ?",
        params);
  } else if (TempUri) {
    const Variant params[] = {Variant(Code), Variant(*TempUri), tries, Variant(DocId)};
    cn.ExecuteNonQuery(
        "UPDATE task_instance_docs SET copy_completion_code = ?, temp_uri = ?, copy_try_count = ? "
        "WHERE doc_id = ?",
        params);
  } else {
    const Variant params[] = {Variant(Code), tries, Variant(DocId)};
    cn.ExecuteNonQuery(
        "UPDATE task_instance_docs SET copy_completion_code = ?, copy_try_count = ? WHERE doc_id "
        "= ?",
        params);
  }
}

void D_DownloadMgr::SetCachePathToSrcPath(const std::string& JobId, const std::string& TaskId,
                                          const DateTime& JobStartTime) {
  ReportAs("D_DownloadMgr.SetCachePathToSrcPath(JobId,TaskId,JobStartTime)",
           Args(JobId, TaskId, JobStartTime), [&] {
             Query().RunQuery(
                 "Update task_instance_docs Set temp_uri = Uri where (job_id = ?)  AND  (task_id = "
                 "?) AND "
                 "(job_start_time = ?) AND (copy_completion_code <> 'Success') AND  "
                 "(copy_try_count < 10)",
                 false, {Variant(JobId), Variant(TaskId), Variant(JobStartTime)});
           });
}

long D_DownloadMgr::GetTotalDocCount(const std::string& JobId, const std::string& TaskId,
                                     const DateTime& JobStartTime) {
  return ReportAs("D_DownloadMgr.GetTotalDocCount(JobId,TaskId,JobStartTime)",
                  Args(JobId, TaskId, JobStartTime), [&] {
                    auto rs =
                        Query().RunQuery("Exec usp_GetTotalDocCount ?, ?, ?", true,
                                         {Variant(JobId), Variant(TaskId), Variant(JobStartTime)});
                    return static_cast<long>((*rs)["TotalDocCount"].Value().ToLong());
                  });
}

// ---- D_Metabase ------------------------------------------------------------------------------

db::RecordsetPtr D_Metabase::GetTaskSuccessCode(double sngDeterminantVal) {
  return ReportAs("D_Metabase.GetTaskSuccessCode(sngDeterminantVal)", Args(sngDeterminantVal), [&] {
    return Query().RunQuery("Exec usp_Meta_GetTaskSuccessCode ?", true,
                            {Variant(sngDeterminantVal)});
  });
}

db::RecordsetPtr D_Metabase::GetDocSuccessCode(double sngDeterminantVal) {
  return ReportAs("D_Metabase.GetDocSuccessCode(sngDeterminantVal)", Args(sngDeterminantVal), [&] {
    return Query().RunQuery("Exec usp_Meta_GetDocSuccessCode ?", true,
                            {Variant(sngDeterminantVal)});
  });
}

db::RecordsetPtr D_Metabase::GetEntitySuccessCode(double sngDeterminantVal) {
  return ReportAs("D_Metabase.GetEntitySuccessCode(sngDeterminantVal)", Args(sngDeterminantVal),
                  [&] {
                    return Query().RunQuery("Exec usp_Meta_GetEntitySuccessCode ?", true,
                                            {Variant(sngDeterminantVal)});
                  });
}

db::RecordsetPtr D_Metabase::GetJobSuccessCode(double sngDeterminantVal) {
  return ReportAs("D_Metabase.GetJobSuccessCode(sngDeterminantVal)", Args(sngDeterminantVal), [&] {
    return Query().RunQuery("Exec usp_Meta_GetJobSuccessCode ?", true,
                            {Variant(sngDeterminantVal)});
  });
}

bool D_Metabase::SaveMetaEnt(const std::string& DocId, const std::string& EntityId, long OccurCount,
                             long ExtractCount, float AvgSuccessCoeff, std::int16_t SuccessCode,
                             long TotalErrorCount, float AvgErrorCount, long RowsRefused,
                             const std::string& Refusal) {
  return ReportAs(
      "D_Metabase.SaveMetaEnt(DocId,EntityId,OccurCount,ExtractCount,AvgSuccessCoeff,SuccessCode,"
      "TotalErrorCount,AvgErrorCount)",
      Args(DocId, EntityId, OccurCount, ExtractCount, AvgSuccessCoeff, SuccessCode, TotalErrorCount,
           AvgErrorCount),
      [&] {
        PartialRowWriter row(Query(),
                             "SELECT * FROM task_inst_doc_results_by_ent WHERE doc_id = ? AND "
                             "entity_id = ?",
                             {Variant(DocId), Variant(EntityId)});
        row.Set("doc_id", Variant(DocId));
        row.Set("entity_id", Variant(EntityId));
        row.Set("ent_occur_count", Variant(OccurCount));
        row.Set("ent_extract_count", Variant(ExtractCount));
        row.Set("avg_success_coeff", Variant(AvgSuccessCoeff));
        row.Set("success_code", Variant(SuccessCode));
        row.Set("error_count", Variant(TotalErrorCount));
        row.Set("avg_error_count", Variant(AvgErrorCount));
        row.Set("rows_refused", Variant(RowsRefused));
        row.Set("refusal", Refusal.empty() ? Variant(kNull) : Variant(CutToWidth(Refusal)));
        row.Write();
        return true;
      });
}

}  // namespace gw
