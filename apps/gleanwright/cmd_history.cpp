// gleanwright history: the runs of packages, and what one run did task by task, document by
// document and dataset by dataset.
#include <iostream>
#include <memory>

#include "commands.h"
#include "package_lookup.h"
#include "platform/text.h"
#include "rules/c_disconn_rs.h"
#include "rules/connection_string.h"
#include "rules/package_data_access.h"
#include "run_report.h"

namespace gw::app {
namespace {

// A column as text; a name or address with a control character in it prints on one line.
std::string Text(db::Recordset& rs, const char* column) {
  const Variant& v = rs[column].Value();
  return v.IsNull() || v.IsEmpty() ? std::string() : text::EscapeControlCharacters(v.ToText());
}

std::string TimeText(db::Recordset& rs, const char* column) {
  const Variant& v = rs[column].Value();
  return v.IsNull() || v.IsEmpty() ? std::string() : RunTimeText(v.ToDate());
}

// "<name> (<id>)" of a success code, or what stands instead.
std::string CodeText(db::Recordset& rs, const char* id_column, const char* name_column) {
  const std::string id = Text(rs, id_column);
  if (id.empty()) return "-";
  const std::string name = Text(rs, name_column);
  return name.empty() ? id : name + " (" + id + ")";
}

// Every run, or the runs of one package, oldest first; a run under way (or one whose process
// died) has no completion.
int ListRuns(const std::string& package) {
  std::string sql =
      "SELECT ji.job_id, j.job_name, ji.job_start_time, ji.job_completion_time, "
      "ji.completion_code, c.display_name FROM job_instances ji "
      "LEFT JOIN jobs j ON j.job_id = ji.job_id "
      "LEFT JOIN job_success_codes c ON c.job_success_code_id = ji.completion_code";
  std::vector<Variant> params;
  if (!package.empty()) {
    sql += " WHERE ji.job_id = ?";
    params.emplace_back(FindPackageId(package));
  }
  sql += " ORDER BY ji.job_start_time";
  auto runs = CDisconnRS(modConnectionString::GetCnStr()).RunQuery(sql, true, params);
  if (runs->RecordCount() == 0) {
    std::cout << "No runs.\n";
    return 0;
  }
  for (; !runs->IsEOF(); runs->MoveNext()) {
    const std::string completed = TimeText(*runs, "job_completion_time");
    std::cout << Text(*runs, "job_name") << "  started " << TimeText(*runs, "job_start_time")
              << "  " << (completed.empty() ? "unfinished" : "completed " + completed) << "  code "
              << CodeText(*runs, "completion_code", "display_name");
    const RunTotals totals = ReadRunTotals((*runs)["job_id"].Value().ToText(),
                                           (*runs)["job_start_time"].Value().ToDate());
    if (totals.documents > 0) std::cout << "  " << TotalsText(totals);
    std::cout << "\n";
  }
  return 0;
}

// The results of one run: tasks, their documents, and the documents' datasets.
int ShowRun(const std::string& package, const std::string& start_text) {
  const std::string job_id = FindPackageId(package);
  const DateTime start = FindRunStart(job_id, start_text);
  std::cout << "Run of " << package << " started " << RunTimeText(start) << "\n";
  auto tasks = DJob().GetJobProgress(job_id, start);
  if (tasks->RecordCount() == 0) std::cout << "  No task ran.\n";
  for (; !tasks->IsEOF(); tasks->MoveNext()) {
    const std::string completed = TimeText(*tasks, "task_completion_time");
    std::cout << "  Task " << Text(*tasks, "task_name") << " (step " << Text(*tasks, "step")
              << ")  started " << TimeText(*tasks, "task_start_time") << "  "
              << (completed.empty() ? "unfinished" : "completed " + completed) << "  code "
              << CodeText(*tasks, "completion_code", "status") << "\n";
    auto docs = (*tasks)["Chapter1"].Value().ToObject();
    auto* doc_rows = dynamic_cast<db::Recordset*>(docs.get());
    if (!doc_rows) continue;
    if (doc_rows->RecordCount() > 0) doc_rows->MoveFirst();
    for (; !doc_rows->IsEOF(); doc_rows->MoveNext()) {
      db::Recordset& d = *doc_rows;
      std::cout << "    Document " << Text(d, "uri") << "\n";
      std::cout << "      copy: " << Text(d, "copy_completion_code") << " (tries "
                << Text(d, "copy_try_count") << ")";
      if (!Text(d, "temp_uri").empty()) std::cout << " -> " << Text(d, "temp_uri");
      std::cout << "\n";
      std::cout << "      extraction: code " << CodeText(d, "extraction_completion_code", "status");
      if (!TimeText(d, "doc_start_time").empty()) {
        std::cout << "  from " << TimeText(d, "doc_start_time") << " to "
                  << TimeText(d, "doc_completion_time");
      }
      std::cout << "\n";
      if (!Text(d, "rows_written").empty()) {
        std::cout << "      rows: " << Text(d, "rows_written") << " written, "
                  << (Text(d, "rows_refused").empty() ? "0" : Text(d, "rows_refused"))
                  << " refused";
        if (!Text(d, "refusal").empty()) std::cout << " (" << Text(d, "refusal") << ")";
        std::cout << "\n";
      }
      auto results = d["rsEntDetail"].Value().ToObject();
      auto* ent_rows = dynamic_cast<db::Recordset*>(results.get());
      if (!ent_rows) continue;
      if (ent_rows->RecordCount() > 0) ent_rows->MoveFirst();
      for (; !ent_rows->IsEOF(); ent_rows->MoveNext()) {
        db::Recordset& e = *ent_rows;
        const std::string name = Text(e, "entity_name");
        std::cout << "      dataset " << (name.empty() ? Text(e, "entity_id") : name)
                  << ": occurrences " << Text(e, "ent_occur_count") << ", extracted "
                  << Text(e, "ent_extract_count") << ", errors " << Text(e, "error_count")
                  << ", code " << CodeText(e, "success_code", "status");
        if (!Text(e, "rows_refused").empty() && Text(e, "rows_refused") != "0") {
          std::cout << ", refused " << Text(e, "rows_refused") << " (" << Text(e, "refusal") << ")";
        }
        std::cout << "\n";
      }
    }
  }
  return 0;
}

CommandAction SetUpHistory(CLI::App& cmd) {
  auto package = std::make_shared<std::string>();
  auto run = std::make_shared<std::string>();
  cmd.add_option("package", *package, "The package's id or name");
  cmd.add_option("--run", *run,
                 "The run's start as history shows it (a prefix will do), or \"latest\"");
  return [=] {
    if (run->empty()) return ListRuns(*package);
    if (package->empty()) throw CLI::ValidationError("--run", "needs a package");
    return ShowRun(*package, *run);
  };
}

const CommandRegistration kHistory(
    51, "history", SetUpHistory,
    "List the runs of every package, or of one, with start, completion, success code and what was "
    "lost (documents failed, rows refused); with --run, what one run did per task, document and "
    "dataset, with the targets' reasons for refused rows");

}  // namespace
}  // namespace gw::app
