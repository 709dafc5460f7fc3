// Schema changes that SQLite's ALTER TABLE cannot make: changing a column's declared type, and
// adding a column that carries a key or NOT NULL, or a table constraint. They are made by the
// table rebuild that SQLite documents: inside one transaction, a new table is created from the
// old one's CREATE statement with the change applied, the rows are copied, the old table is
// dropped, the new one renamed, and the old table's indexes and triggers are created again. Rows,
// other columns and constraints stay as they were.
//
// The target store changes its tables this way, and the rules store's upgrade changes a column's
// type this way, so that columns it does not know are kept.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/db/connection.h"

namespace gw::db {

struct SqliteColumn {
  std::string name;
  std::string declared_type;  // as written in CREATE TABLE
  bool not_null = false;
  bool in_primary_key = false;
};

// The columns of `table` in their order; empty when there is no such table.
std::vector<SqliteColumn> SqliteColumns(db::Connection& cn, std::string_view table);
std::optional<SqliteColumn> FindSqliteColumn(db::Connection& cn, std::string_view table,
                                             std::string_view column);

// Gives `column` the declared type `type` ("VARCHAR(40)"), keeping its constraints.
void SqliteChangeColumnType(db::Connection& cn, std::string_view table, std::string_view column,
                            std::string_view type);
// Appends a column definition (`"id" INTEGER PRIMARY KEY AUTOINCREMENT`, `"x" INT NOT NULL`) after
// the existing columns. Copying the rows fails when a row cannot satisfy it (a NOT NULL column
// without default in a table with rows), and then nothing changes.
void SqliteAddColumn(db::Connection& cn, std::string_view table, std::string_view column_def);
// Appends a table constraint (`CONSTRAINT "PK_T" PRIMARY KEY ("id")`).
void SqliteAddTableConstraint(db::Connection& cn, std::string_view table,
                              std::string_view constraint);

// The pieces of a CREATE TABLE statement, for the functions above and their tests.
struct CreateTableParts {
  std::vector<std::string> definitions;  // column definitions and table constraints, in order
  std::string tail;                      // what follows the closing parenthesis
};
// Fails with 0x80040E14 when the text is not a CREATE TABLE with a column list.
CreateTableParts SplitCreateTable(std::string_view sql);
// True when a definition is a table constraint rather than a column.
bool IsTableConstraint(std::string_view definition);
// The column name a column definition starts with (unquoted).
std::string DefinitionColumnName(std::string_view definition);
// The definition with its declared type replaced by `type`.
std::string ReplaceDeclaredType(std::string_view definition, std::string_view type);

std::string QuoteSqliteName(std::string_view name);

}  // namespace gw::db
