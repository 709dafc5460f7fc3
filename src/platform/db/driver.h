// A provider driver: one physical connection to one kind of store.
//
// `Connection` picks a driver by the connection string (its `Provider` and, for some, other
// parameters) from the registry below. Drivers speak their store's own SQL dialect; they bind
// every value as a parameter ("?" placeholders) and never splice values into statement text.
#pragma once

#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/db/connection_string.h"
#include "platform/db/types.h"

namespace gw::db {

// What an identifier names, for the rules a store has for each.
enum class IdentifierKind { Database, Table, Column };

class Driver {
 public:
  virtual ~Driver() = default;

  // "sqlite", "mysql", ...: the SQL dialect the store speaks.
  virtual std::string_view Dialect() const = 0;

  // Runs one statement with "?" parameters. Reads at most `max_rows` rows (0: all).
  virtual ResultSet Execute(std::string_view sql, std::span<const Variant> params,
                            long max_rows = 0) = 0;
  // Runs one statement with "?" parameters and hands its rows to `each` one at a time, in the
  // order the store gives them; `each` returning false stops the reading. Returns false when the
  // statement yields no rows (it has run then). A store that reads row by row keeps none of them,
  // so the memory is the same whatever their number; the base reads them all with `Execute`
  // first. A failure of `each` unwinds as it stands and leaves the connection usable.
  using RowVisitor = std::function<bool(Row&)>;
  virtual bool ExecuteEach(std::string_view sql, std::span<const Variant> params,
                           const RowVisitor& each);
  // Runs a script of statements separated by ";" with no parameters.
  virtual void ExecuteScript(std::string_view sql) = 0;
  // The value the store generated for the last inserted row's auto-increment column.
  virtual long long LastInsertId() = 0;

  virtual void Begin() = 0;
  virtual void Commit() = 0;
  virtual void Rollback() = 0;
  virtual bool InTransaction() const = 0;

  // The columns of a table as the store declares them (widths, keys), for writing rows back.
  virtual std::vector<ColumnInfo> TableColumns(std::string_view table) = 0;
  virtual bool TableExists(std::string_view table) = 0;
  // The name quoted as an identifier of the dialect: any name that `IdentifierProblem` accepts
  // comes through quoting unchanged, whatever characters or keywords it holds.
  virtual std::string QuoteIdentifier(std::string_view name) const = 0;
  // Why the store cannot hold `name` as an identifier of `kind` ("it is longer than 64
  // characters"), or "" when it can. The base refuses what no store takes: an empty name, and
  // control characters (which no store shows as they are, and which would forge lines in what
  // the program prints).
  virtual std::string IdentifierProblem(IdentifierKind kind, std::string_view name) const;
  // The current database (catalog), if the store has such a notion.
  virtual std::string DefaultDatabase() { return {}; }

  // A store session (write_batch.h) starts keeping this connection between write batches, or
  // stops keeping it before it is closed. Called outside a transaction; never throw. A store
  // whose commits are costly may make them cheaper for the session and must then leave the
  // store as durable and as it found it when the session stops.
  virtual void EnterSession() noexcept {}
  virtual void LeaveSession() noexcept {}
};

// Registers a driver for connection strings that `accepts` says it serves. Later registrations
// are asked first, so a more specific driver can be put in front of a general one.
using DriverAccepts = std::function<bool(const ConnectionProperties&)>;
using DriverFactory = std::function<std::unique_ptr<Driver>(const ConnectionProperties&)>;
void RegisterDriver(std::string name, DriverAccepts accepts, DriverFactory factory);

// Opens a physical connection for `props`; fails with 0x800A0E7A when no driver serves it.
std::unique_ptr<Driver> OpenDriver(const ConnectionProperties& props);
// The name of the registered driver that serves `props` ("SQLite", "Access", "Excel",
// "MariaDB", ...), or "" when none does.
std::string DriverNameFor(const ConnectionProperties& props);

// Stores that keep appended rows in memory (workbooks) write them to disk now. The extraction
// engine calls this when the extraction of a document ends; it also runs at a normal exit.
void FlushBufferedStores();

}  // namespace gw::db
