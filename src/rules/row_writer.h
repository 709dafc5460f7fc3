// Internal to the rules layer: the partial row write that every `Save` of the data-access classes
// shares. Rows are written through an updatable recordset, never through an UPDATE text.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/db/recordset.h"
#include "rules/c_disconn_rs.h"

namespace gw {

// Deletes the row a freshly selected updatable recordset stands on, if it holds one, then cuts the
// recordset from its connection.
void DeleteSelectedRow(const db::RecordsetPtr& rs);

class PartialRowWriter {
 public:
  // Selects the row (at most one) with `select_sql` and `params`, updatable.
  PartialRowWriter(const CDisconnRS& rs, std::string_view select_sql, std::vector<Variant> params);

  // No row was found: `Write` inserts.
  bool IsInsert() const { return insert_; }
  // The stored value of a column of the found row (update only).
  Variant RowValue(std::string_view column) const;

  // Adds a column to write. A column `left_out` becomes null on insert and keeps the row's value
  // on update. Columns are written in the order they are set.
  void Set(std::string column, const Variant& value, bool left_out = false);

  // Inserts (with the key column added last) or updates the row, then cuts the recordset from
  // its connection.
  void Write(std::string_view key_column, const Variant& key_value);
  // Inserts or updates with the columns as set (the key among them).
  void Write();

 private:
  db::RecordsetPtr rs_;
  bool insert_ = false;
  std::vector<std::string> names_;
  std::vector<Variant> values_;
};

}  // namespace gw
