// Appending the rows of one recordset to another.
#pragma once

#include "platform/db/recordset.h"

namespace gw {

class CRSAdder {
 public:
  // Appends every row of `rsSource` to `rsDest`: for each column of `rsDest` except chapters
  // (type 136), the value of the source column of the same name. Does nothing unless `rsSource`
  // is open and has rows. A source positioned on a row is first moved to its first row when its
  // cursor can move back; a source at its end adds nothing. A destination column the source lacks
  // fails with 3265. Reports under "CRSAdder.ConcatListRS(rsSource,rsDest)".
  static void ConcatListRS(const db::RecordsetPtr& rsSource, const db::RecordsetPtr& rsDest);
};

}  // namespace gw
