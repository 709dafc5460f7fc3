// Target tables: one table per dataset, with a text column per field and per selected metadata
// column, made idempotently per provider.
//
// A run may meet a table that exists already, with some or all of its columns: `Create` leaves it
// with the right columns and no failure (a column that grew is widened; with SQLite also
// narrowed, as long as no stored value is too long). Per provider:
//   SQLite            add-or-alter in SQLite's dialect (`CreateSQLite`); keys and the parent's key
//                     column as for SQL Server
//   Access, Excel     `CreateExcel`: one CREATE TABLE with a TEXT column each; an existing table
//                     is left as it is
//   MySQL, MariaDB    `CreateMySQL`: add-or-change, no keys
//   SQL Server        `CreateSQL`: cannot be reached from this platform (fails on connecting)
//   temporary tables  the "##" table in the process's temporary store (see temporary_tables.h),
//                     built as for SQLite, whatever the provider; this `Tbl` keeps it alive
//   anything else     failure 0xBCD023A1 (source "Table.Create")
// Every name (table, columns) is quoted for the store's dialect, so spaces, quotes and keywords
// ("order") are names like any other. A name the store cannot hold at all fails with 0xBCD023A8
// (source "Table.Create") before anything is made.
// Failures report under the method's log name ("Tbl.CreateMySQL(CnStr,Ent)") with their numbers.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/db/connection.h"
#include "targets/table_description.h"
#include "targets/temporary_tables.h"

namespace gw {

class Tbl {
 public:
  // Builds the table of `ent` (with `UniqueTblPrefix` and "##" for temporary tables where the
  // provider's path uses them). Returns true.
  bool Create(std::string_view CnStr, const TableDescription& ent, bool UseTmpTbls,
              std::string_view UniqueTblPrefix = {});

  // Empties the table: a workbook's file is deleted and the sheet made again (deleting the other
  // sheets of the workbook with it); other stores run a DELETE.
  void DeleteAllRows(std::string_view CnStr, const TableDescription& Ent);

  // The temporary tables this object keeps alive.
  const std::vector<std::shared_ptr<TemporaryTable>>& TemporaryTables() const { return temporary_; }

 private:
  // The paths of `Create`, one per provider.
  void CreateSQL(std::string_view CnStr, const TableDescription& Ent, bool UseTmpTbls,
                 std::string_view UniqueTblPrefix);
  void CreateSQLite(std::string_view CnStr, const TableDescription& Ent, bool UseTmpTbls,
                    std::string_view UniqueTblPrefix);
  void CreateMySQL(std::string_view CnStr, const TableDescription& Ent);
  bool CreateExcel(std::string_view CnStr, const TableDescription& Ent);
  void DeleteExcelFile(std::string_view CnStr);

  // The connection `CreateSQL` keeps with temporary tables.
  db::ConnectionPtr connection_;
  std::vector<std::shared_ptr<TemporaryTable>> temporary_;
};

}  // namespace gw
