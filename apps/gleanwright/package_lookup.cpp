#include "package_lookup.h"

#include <cstdio>
#include <vector>

#include "engine/failures.h"
#include "platform/error.h"
#include "platform/text.h"
#include "rules/c_disconn_rs.h"
#include "rules/connection_string.h"
#include "rules/package_data_access.h"

namespace gw::app {

std::string RunTimeText(const DateTime& t) {
  if (t.IsEmpty()) return {};
  char text[40];
  std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d.%03d", t.Year(), t.Month(),
                t.Day(), t.Hour(), t.Minute(), t.Second(), t.Millisecond());
  return text;
}

DateTime FindRunStart(const std::string& job_id, const std::string& start_text) {
  auto runs = CDisconnRS(modConnectionString::GetCnStr())
                  .RunQuery(
                      "SELECT job_start_time FROM job_instances WHERE job_id = ? "
                      "ORDER BY job_start_time DESC",
                      true, {Variant(job_id)});
  std::vector<DateTime> found;
  for (; !runs->IsEOF(); runs->MoveNext()) {
    const DateTime start = (*runs)["job_start_time"].Value().ToDate();
    if (text::EqualsNoCase(start_text, "latest")) return start;
    if (RunTimeText(start).starts_with(start_text)) found.push_back(start);
  }
  if (found.empty()) {
    throw Error(
        engineerr::kNoSuchJob, "gleanwright",
        "The package has no run that started at " + start_text + " (see gleanwright history).");
  }
  if (found.size() > 1) {
    throw Error(engineerr::kDuplicateJob, "gleanwright",
                "Several runs started at " + start_text + "; give the start to the millisecond.");
  }
  return found.front();
}

std::string FindPackageId(const std::string& id_or_name) {
  std::vector<std::string> by_name;
  for (auto rs = DJob().GetAllJobs(); !rs->IsEOF(); rs->MoveNext()) {
    const std::string id = (*rs)["job_id"].Value().ToText();
    if (text::EqualsNoCase(id, id_or_name)) return id;
    if (text::EqualsNoCase((*rs)["Name"].Value().ToText(), id_or_name)) by_name.push_back(id);
  }
  if (by_name.empty()) {
    throw Error(engineerr::kNoSuchJob, "gleanwright",
                "There is no package with the id or name '" + id_or_name + "'.");
  }
  if (by_name.size() > 1) {
    throw Error(engineerr::kDuplicateJob, "gleanwright",
                "Several packages are named '" + id_or_name + "'; give the package's id.");
  }
  return by_name.front();
}

}  // namespace gw::app
