#include "run_report.h"

#include "platform/text.h"
#include "rules/c_disconn_rs.h"
#include "rules/connection_string.h"
#include "rules/package_data_access.h"

namespace gw::app {

namespace {

long Number(db::Recordset& rs, const char* column) {
  const Variant& v = rs[column].Value();
  return v.IsNull() || v.IsEmpty() ? 0 : v.ToLong();
}

std::string Text(db::Recordset& rs, const char* column) {
  const Variant& v = rs[column].Value();
  return v.IsNull() || v.IsEmpty() ? std::string() : v.ToText();
}

std::string Plural(long n, const char* one, const char* many) {
  return std::to_string(n) + " " + (n == 1 ? one : many);
}

}  // namespace

RunTotals ReadRunTotals(const std::string& job_id, const DateTime& start) {
  auto rs = DJob().GetRunTotals(job_id, start);
  RunTotals t;
  if (rs->IsEOF()) return t;
  t.documents = Number(*rs, "documents");
  t.failed = Number(*rs, "failed");
  t.not_reached = Number(*rs, "not_reached");
  t.rows_written = Number(*rs, "rows_written");
  t.rows_refused = Number(*rs, "rows_refused");
  return t;
}

std::string TotalsText(const RunTotals& t) {
  std::string out = Plural(t.documents, "document", "documents") + ": " + std::to_string(t.Done()) +
                    " done, " + std::to_string(t.failed) + " failed";
  if (t.not_reached > 0) out += ", " + std::to_string(t.not_reached) + " not reached";
  out += "; " + Plural(t.rows_written, "row", "rows") + " written, " +
         std::to_string(t.rows_refused) + " refused";
  return out;
}

void PrintDocumentLosses(std::ostream& out, const std::string& job_id, const DateTime& start) {
  // The documents as the run totals count them: never copied, unreadable, or with refusals.
  auto docs = CDisconnRS(modConnectionString::GetCnStr())
                  .RunQuery(
                      "SELECT uri, copy_completion_code, rows_refused, refusal FROM "
                      "task_instance_docs WHERE job_id = ? AND job_start_time = ? AND "
                      "((COALESCE(temp_uri, '') = '' AND copy_completion_code <> 'Queued') OR "
                      "(doc_start_time IS NOT NULL AND rows_written IS NULL) OR rows_refused > 0) "
                      "ORDER BY rowid",
                      true, {Variant(job_id), Variant(start)});
  for (; !docs->IsEOF(); docs->MoveNext()) {
    const std::string uri = text::EscapeControlCharacters(Text(*docs, "uri"));
    const long refused = Number(*docs, "rows_refused");
    if (refused > 0) {
      out << "  " << uri << ": " << Plural(refused, "row", "rows")
          << " refused: " << text::EscapeControlCharacters(Text(*docs, "refusal")) << "\n";
    } else {
      out << "  " << uri
          << ": failed: " << text::EscapeControlCharacters(Text(*docs, "copy_completion_code"))
          << "\n";
    }
  }
}

}  // namespace gw::app
