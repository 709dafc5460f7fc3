// Reading the one row that a business object's `Load(Id)` asks for.
#pragma once

#include <string>
#include <string_view>
#include <utility>

#include "platform/db/recordset.h"
#include "platform/error.h"

namespace gw {

// The failure raised when a lookup by id finds no row, or more than one.
struct RowCountFailure {
  ErrorNumber number;
  std::string source;
  std::string description;
};

// The two failures of a lookup by id, in the words every stored object uses: "The specified
// <noun> Id does not exist." and "Data consistency error within the database.  There is more than
// one <noun> with that ID."
inline RowCountFailure MissingRow(ErrorNumber number, std::string source, std::string_view noun) {
  return {number, std::move(source), "The specified " + std::string(noun) + " Id does not exist."};
}
inline RowCountFailure DuplicateRow(ErrorNumber number, std::string source, std::string_view noun) {
  return {number, std::move(source),
          "Data consistency error within the database.  There is more than one " +
              std::string(noun) + " with that ID."};
}

// The current row of `rs`, checked once: no row fails with `none`, more than one with `many`.
// `Take` hands a column's value to `assign` only when it is not null, so a null column leaves the
// member as it was.
class StoredRow {
 public:
  StoredRow(db::Recordset& rs, const RowCountFailure& none, const RowCountFailure& many)
      : fields_(rs.GetFields()) {
    if (rs.RecordCount() == 0) throw Error(none.number, none.source, none.description);
    if (rs.RecordCount() > 1) throw Error(many.number, many.source, many.description);
  }

  template <typename Assign>
  const StoredRow& Take(std::string_view column, Assign&& assign) const {
    const Variant& v = fields_.Item(column).Value();
    if (!v.IsNull()) std::forward<Assign>(assign)(v);
    return *this;
  }

 private:
  db::Fields& fields_;
};

}  // namespace gw
