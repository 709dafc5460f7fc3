// Target databases: creating and dropping the database a template writes into, per provider, and
// turning display text into legal database names.
//
// Stores by connection string (see docs/ARCHITECTURE.md and the README for examples):
//   Provider=SQLite;Data Source=<file>                      a SQLite file, made when first opened
//   Provider=Microsoft.Jet.OLEDB.4.0;Data Source=<file>     an Access target: a SQLite file
//   ...;Extended Properties="Excel 8.0;..."                 an Excel workbook (.xlsx)
//   Provider=MySQLProv;..., MSDASQL with a MySQL driver     a MySQL or MariaDB server
//   Provider=SQLOLEDB...                                    SQL Server: cannot be reached here
//
// Every method reports failures under its log name ("Database.Create(CnStr,DBName)") and
// rethrows them with their numbers. The per-provider steps are in database_internal.h.
#pragma once

#include <string>
#include <string_view>

#include "platform/db/recordset.h"
#include "platform/error.h"
#include "targets/failures.h"

namespace gw {

class Database {
 public:
  // Drops the database (a file for Access, Excel and SQLite targets; `DBName`, when given, names
  // the file or the catalog). SQL Server cannot be reached here; any other provider fails with
  // 0xBCD0239A.
  static void Drop(std::string_view CnStr, std::string_view DBName = {});
  // Makes the database on demand and returns the connection string to use from now on (with
  // `DBName` as its catalog for SQL Server and MySQLProv). A file-based target keeps an existing
  // file. Unsupported providers fail with 0xBCD0239A, SQL Server with 0x800A0E7A.
  static std::string Create(std::string_view CnStr, std::string_view DBName = {});
  // A legal table or column name: characters replaced by the name table, "_" in front, upper
  // case, cut to the provider's name length (the rules store's `providers` row, or "Default").
  static std::string MakeName(std::string_view Name, std::string_view CnStr = {});

  // The connection string for the database `DBName`: unchanged for Access, Excel and SQLite
  // targets; with `DBName` as "Initial Catalog" for SQL Server and MySQLProv.
  static std::string ChangeDefaultDB(std::string_view CnStr, std::string_view DBName);
};

}  // namespace gw
