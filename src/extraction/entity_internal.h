// Inside the extraction library: what its classes, and the tests of them, use of datasets beyond
// their public interface. Other layers use entity.h.
#pragma once

#include <memory>
#include <string_view>
#include <vector>

#include "extraction/entity.h"
#include "platform/db/recordset.h"
#include "platform/error.h"

namespace gw {

// ---- the searches under every row (entity.cpp) ----
// The text of the current row: from the first occurrence of `InitString` up to the second, or all
// of `SrcText` with fewer than two. `scan`, when given, is the page that `SrcText` is a view into.
std::string_view CurrentRowText(const Entity& entity, std::string_view SrcText,
                                const PageScan* scan);
// The dataset of `entities` whose initialization string occurs first in `SrcHTML` (the earlier
// one in the collection on a tie) and its 1-based position; null and 0 when none occurs.
EntityPtr FirstInStr(const Entities& entities, std::string_view SrcHTML, long& position,
                     const PageScan* scan);

// ---- skip maps (see skip_map.h) ----
// Cuts the fields of `SrcText` (its own copy: nothing reaches the real row) leaving out those
// the map skips, and scores the result (`CalcSuccessCoefficient` over the dataset's fields).
float TrySkipMap(Entity& entity, const SkipMap& skip_map, std::string_view SrcText);
// Tries every combination of skipped optional fields on the current row of `SrcText`, lowest bit
// pattern first, and returns the first one with the lowest score; stops at a score of 0. Fails
// with 6 (overflow) at 31 optional fields or more.
SkipMap FindBestSkipMap(Entity& entity, std::string_view SrcText, float& Coefficient,
                        const PageScan* scan);

// The datasets a rules-store query names in its column E_Id, each loaded, in the query's order.
std::vector<EntityPtr> LoadStoredEntities(const std::shared_ptr<db::Recordset>& ids);

// What the failure of one field does to the row being cut.
enum class FieldFailureAction {
  None,       // no failure: on to the next field
  Count,      // a missing tag: the failure stands and is counted; on to the next field
  LoseRow,    // the column is not in the table: counted; no Update, no children, the row is lost
  EndFields,  // anything else (a value the column refused): counted; no further fields, but the
              // row is still written
};

struct FieldFailure {
  FieldFailureAction action = FieldFailureAction::None;
  // What the row keeps pending (`Entity.PendingFailure`); number 0 with `None`.
  Status pending;
};

// Classifies `failure`, the outcome of cutting the field of column `column_name` into a row of
// `table_name`: a field's soft failure, or the target's refusal of the value.
FieldFailure ClassifyFieldFailure(const Status& failure, std::string_view column_name,
                                  std::string_view table_name);

}  // namespace gw
