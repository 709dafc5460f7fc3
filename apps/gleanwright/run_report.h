// What a finished run did with its documents and rows, as `run` and `history` print it.
#pragma once

#include <ostream>
#include <string>

#include "platform/date_time.h"

namespace gw::app {

struct RunTotals {
  long documents = 0;
  long failed = 0;       // never copied, or could not be read
  long not_reached = 0;  // still queued when the run ended (a cancel)
  long rows_written = 0;
  long rows_refused = 0;

  long Done() const { return documents - failed - not_reached; }
  // Something was lost: a document failed or a target refused a row.
  bool HasLosses() const { return failed > 0 || rows_refused > 0; }
};

RunTotals ReadRunTotals(const std::string& job_id, const DateTime& start);

// "4 documents: 3 done, 1 failed; 12 rows written, 2 refused".
std::string TotalsText(const RunTotals& totals);

// One line per document of the run that failed or had rows refused, with the reason (the
// target's message for a refusal); nothing when there is none.
void PrintDocumentLosses(std::ostream& out, const std::string& job_id, const DateTime& start);

}  // namespace gw::app
