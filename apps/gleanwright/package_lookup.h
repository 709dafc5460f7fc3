// Finding a package by what a user types (its id, or its name), and one of its runs by its start.
#pragma once

#include <string>

#include "platform/date_time.h"

namespace gw::app {

// "yyyy-mm-dd hh:mm:ss.fff": how runs are shown, down to the millisecond that tells two runs of
// one second apart. "" for the empty date.
std::string RunTimeText(const DateTime& t);

// The start of the run of package `job_id` whose start shown by `RunTimeText` begins with
// `start_text` ("latest" names the newest run). Fails with `engineerr::kNoSuchJob` when no run
// matches and `engineerr::kDuplicateJob` when several do.
DateTime FindRunStart(const std::string& job_id, const std::string& start_text);

// The id of the package whose id is `id_or_name`, else of the one package with that name
// (compared without case). Fails with `engineerr::kNoSuchJob` when there is none and with
// `engineerr::kDuplicateJob` when several packages have that name.
std::string FindPackageId(const std::string& id_or_name);

}  // namespace gw::app
