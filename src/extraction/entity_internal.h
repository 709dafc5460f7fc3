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
