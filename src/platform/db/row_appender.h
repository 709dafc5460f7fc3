// Appending many rows to one table without a recordset per row.
//
// A `RowAppender` is made once from the columns an updatable recordset on the table reported
// (`Recordset::Open` on "SELECT * FROM <table>") and then writes rows the way `AddNew`, setting
// fields and `Update` on such a recordset would: each value is converted to its column's type when
// it is set, texts are checked against their columns' widths, columns left unset take the store's
// default, and an auto-increment column left unset receives the store's new value. The failures
// are the recordset's, with the same numbers and texts. What it saves is the rest: the INSERT text
// is made once for each set of columns that rows set, a row's values are moved into the statement
// and back rather than copied, and nothing of a written row is kept.
//
// Rows live in a `Row` the caller owns (one `Row` can serve every row of a table), so the
// appender itself is not changed by writing and may be shared by the rows of several datasets.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/db/driver.h"
#include "platform/db/types.h"
#include "platform/variant.h"

namespace gw::db {

class Recordset;

// `value` converted to `column`'s type as a recordset field stores it (Null and Empty become
// Null). Fails with 0x80040E21 from "Recordset.Fields" when it does not convert.
Variant CoerceToColumn(const ColumnInfo& column, Variant value);
// Fails with 0x80040E57 from "Recordset.Update" when a text of `values` has more characters than
// its column holds.
void CheckTextWidths(const std::vector<ColumnInfo>& columns, const Row& values);
// The single table that the columns come from. Fails with 3251 from "Recordset.Update" when they
// come from none or from several.
std::string BaseTableOf(const std::vector<ColumnInfo>& columns);
// "INSERT INTO <table> (<columns>) VALUES (?, ...)" for the base columns whose value in `values`
// is not Null, in column order ("... DEFAULT VALUES" when there is none), named for `d`'s dialect.
std::string InsertText(const Driver& d, std::string_view table,
                       const std::vector<ColumnInfo>& columns, const Row& values);

class RowAppender {
 public:
  // `source` is the statement the columns were read with, kept for `ToRecordset`.
  RowAppender(std::string source, std::vector<ColumnInfo> columns);

  const std::vector<ColumnInfo>& Columns() const { return columns_; }
  // The 0-based index of a column, names compared without regard to case (the first that
  // matches), or -1.
  long IndexOf(std::string_view name) const;
  // Like `IndexOf`, but an unknown name fails with 3265 from "ADODB.Fields".
  long Require(std::string_view name) const;

  // Makes `values` an empty row of this table: every column Null.
  void Start(Row& values) const;
  // Sets a column of `values` (see `CoerceToColumn`).
  void Set(Row& values, long column, Variant value) const;
  // Checks the widths and inserts `values` through `d`; an unset auto-increment column then holds
  // the store's new value. `values` keeps the row as written, also when the insert fails.
  void Insert(Driver& d, Row& values) const;

  // A disconnected recordset of one row, `values`, positioned on it: what an updatable recordset
  // on the table holds after the row was added through it and its connection closed.
  std::shared_ptr<Recordset> ToRecordset(const Row& values) const;

 private:
  struct Statement {
    std::vector<bool> set;  // which columns the text names
    std::string sql;
  };
  const std::string& TextFor(const Driver& d, const Row& values) const;

  std::string source_;
  std::vector<ColumnInfo> columns_;
  long auto_column_ = -1;
  // Names asked for, with the column each found: later asks compare bytes, not letters' cases.
  mutable std::vector<std::pair<std::string, long>> asked_;
  // INSERT texts by the set of columns they name; a table sees very few of these.
  mutable std::vector<Statement> statements_;
  // The parameters of the insert running; kept for its capacity.
  mutable std::vector<Variant> params_;
};

}  // namespace gw::db
