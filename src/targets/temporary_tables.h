// Temporary tables: the "##" tables that a datapage writes into while a user tries it out.
//
// They stand in for global temporary tables of a database server. All of them live in one
// in-memory SQLite store of the process, under their "##" names ("##t1_Prods"), and a table
// lives as long as some `TemporaryTable` object holds it: the `Tbl` that created it keeps one,
// and the `Tbl` lives in its dataset for as long as the dataset does. When the last holder goes,
// the table is dropped; when no table is left, the store vanishes.
//
// A "##" name is global to the process, whatever connection string it was created for, as a
// global temporary table is global to its server: a row sink that is asked for a "##" table asks
// `TemporaryTableConnectionString` where the table lives.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "platform/db/connection.h"

namespace gw {

class TemporaryTable {
 public:
  // A holder of the temporary table `name` ("##..."): the existing one, or a new registration
  // with its own open connection to the store (the table itself is created by the caller).
  static std::shared_ptr<TemporaryTable> Acquire(std::string_view name);
  // The last holder drops the table.
  ~TemporaryTable();
  TemporaryTable(const TemporaryTable&) = delete;
  TemporaryTable& operator=(const TemporaryTable&) = delete;

  const std::string& Name() const { return name_; }
  // An open connection to the store, kept for the life of this object.
  const db::ConnectionPtr& Connection() const { return connection_; }

 private:
  TemporaryTable(std::string name, db::ConnectionPtr connection)
      : name_(std::move(name)), connection_(std::move(connection)) {}

  std::string name_;
  db::ConnectionPtr connection_;
};

// The connection string of the temporary store, which reaches every live temporary table.
const std::string& TemporaryStoreConnectionString();
// True while some holder keeps the temporary table `table` (names ignore case).
bool IsLiveTemporaryTable(std::string_view table);

}  // namespace gw
