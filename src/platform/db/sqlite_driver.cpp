// The SQLite driver: "Provider=SQLite;Data Source=<file>" (":memory:" and "file:" URIs work too).
//
// Each physical connection waits up to 30 seconds for a lock held by another process instead of
// failing at once, enforces foreign keys, and keeps its prepared statements for reuse, since the
// same few statements (a row insert, a row lookup) run thousands of times.

#include <sqlite3.h>

#include <filesystem>
#include <list>
#include <map>
#include <memory>
#include <unordered_map>

#include "platform/db/driver.h"
#include "platform/text.h"

namespace gw::db {

namespace {

constexpr int kBusyTimeoutMs = 30000;
constexpr std::size_t kStatementCacheSize = 64;

// A failure of the database file itself rather than of a statement: it names the file.
bool IsFileFault(int rc) {
  switch (rc & 0xFF) {
    case SQLITE_READONLY:
    case SQLITE_CANTOPEN:
    case SQLITE_IOERR:
    case SQLITE_FULL:
    case SQLITE_CORRUPT:
    case SQLITE_NOTADB:
    case SQLITE_PERM:
      return true;
    default:
      return false;
  }
}

std::string FileFaultText(sqlite3* db, std::string msg) {
  const char* file = db ? sqlite3_db_filename(db, "main") : nullptr;
  if (file && *file) msg += " (the database file " + std::string(file) + ")";
  return msg;
}

[[noreturn]] void ThrowSqlite(sqlite3* db, int rc, std::string_view context = {}) {
  std::string msg = db ? sqlite3_errmsg(db) : sqlite3_errstr(rc);
  ErrorNumber n = dberr::kProvider;
  switch (rc & 0xFF) {
    case SQLITE_CONSTRAINT:
      n = dberr::kIntegrity;
      break;
    case SQLITE_ERROR:
      n = msg.rfind("no such table", 0) == 0 ? dberr::kNoSuchTable : dberr::kSyntax;
      break;
    case SQLITE_TOOBIG:
    case SQLITE_MISMATCH:
      n = dberr::kMultipleStep;
      break;
    default:
      if (IsFileFault(rc)) {
        n = dberr::kStoreFault;
        msg = FileFaultText(db, std::move(msg));
      }
      break;
  }
  std::string text = msg;
  if (!context.empty()) text += " (" + std::string(context) + ")";
  throw Error(n, "SQLite", text);
}

struct DeclType {
  DataType type;
  std::int32_t size;
};

// Reads a declared column type ("VARCHAR(50)", "INT", "DATETIME") into a type and width.
DeclType ParseDeclType(const char* decl) {
  if (!decl || !*decl) return {DataType::Variant, kUnboundedTextSize};
  const std::string u = text::AsciiUpper(decl);
  auto has = [&](const char* s) { return u.find(s) != std::string::npos; };
  auto width = [&]() -> std::int32_t {
    const std::size_t open = u.find('(');
    if (open == std::string::npos) return kUnboundedTextSize;
    const std::size_t close = u.find_first_of(",)", open);
    const std::string inside(text::TrimWhitespace(u.substr(open + 1, close - open - 1)));
    if (inside == "MAX" || inside.empty()) return kUnboundedTextSize;
    try {
      const long n = std::stol(inside);
      return n > 0 && n < kUnboundedTextSize ? static_cast<std::int32_t>(n) : kUnboundedTextSize;
    } catch (...) {
      return kUnboundedTextSize;
    }
  };
  if (has("CHAR")) {
    const std::int32_t w = width();
    if (w == kUnboundedTextSize) return {DataType::LongVarWChar, w};
    return {has("VAR") ? DataType::VarWChar : DataType::WChar, w};
  }
  if (has("CLOB") || has("TEXT")) return {DataType::LongVarWChar, kUnboundedTextSize};
  if (has("BIGINT")) return {DataType::BigInt, 8};
  if (has("SMALLINT") || has("TINYINT")) return {DataType::SmallInt, 2};
  if (has("INT")) return {DataType::Integer, 4};
  if (has("BIT") || has("BOOL")) return {DataType::Boolean, 2};
  if (has("REAL") || has("FLOA") || has("DOUB")) return {DataType::Double, 8};
  if (has("DEC") || has("NUM") || has("MONEY")) return {DataType::Numeric, 16};
  if (has("DATE") || has("TIME")) return {DataType::Date, 8};
  if (has("BLOB") || has("BINARY")) return {DataType::LongVarBinary, kUnboundedTextSize};
  if (has("GUID") || has("UNIQUEIDENTIFIER")) return {DataType::Guid, 16};
  return {DataType::Variant, kUnboundedTextSize};
}

Variant ReadValue(sqlite3_stmt* st, int col, DataType type) {
  const int storage = sqlite3_column_type(st, col);
  if (storage == SQLITE_NULL) return Variant(kNull);
  if (storage == SQLITE_BLOB) {
    const auto* p = static_cast<const char*>(sqlite3_column_blob(st, col));
    return Variant(
        std::string(p ? p : "", static_cast<std::size_t>(sqlite3_column_bytes(st, col))));
  }
  if (storage == SQLITE_INTEGER) {
    const sqlite3_int64 v = sqlite3_column_int64(st, col);
    switch (type) {
      case DataType::Boolean:
        return Variant(v != 0);
      case DataType::SmallInt:
        if (v >= -32768 && v <= 32767) return Variant(static_cast<std::int16_t>(v));
        return Variant(static_cast<long long>(v));
      case DataType::BigInt:
        return Variant(static_cast<long long>(v));
      case DataType::Double:
      case DataType::Numeric:
        return Variant(static_cast<double>(v));
      default:
        if (IsTextType(type) || type == DataType::Guid) return Variant(std::to_string(v));
        if (v >= INT32_MIN && v <= INT32_MAX) return Variant(static_cast<int>(v));
        return Variant(static_cast<long long>(v));
    }
  }
  if (storage == SQLITE_FLOAT) {
    const double d = sqlite3_column_double(st, col);
    if (IsTextType(type)) return Variant(FormatNumber(d));
    if (type == DataType::Boolean) return Variant(d != 0);
    return Variant(d);
  }
  const auto* p = reinterpret_cast<const char*>(sqlite3_column_text(st, col));
  std::string s(p ? p : "", static_cast<std::size_t>(sqlite3_column_bytes(st, col)));
  if (IsDateType(type)) {
    if (auto d = DateTime::Parse(s)) return Variant(*d);
    return Variant(std::move(s));
  }
  if (type == DataType::Boolean) {
    if (text::EqualsNoCase(s, "true")) return Variant(true);
    if (text::EqualsNoCase(s, "false")) return Variant(false);
  }
  if (IsNumericType(type)) {
    double d;
    if (ParseNumber(s, d)) {
      if (type == DataType::Boolean) return Variant(d != 0);
      if (type == DataType::Double || type == DataType::Numeric || type == DataType::Single)
        return Variant(d);
      if (d >= INT32_MIN && d <= INT32_MAX && d == static_cast<double>(static_cast<long long>(d))) {
        return Variant(static_cast<int>(d));
      }
      return Variant(d);
    }
  }
  return Variant(std::move(s));
}

void Bind(sqlite3* db, sqlite3_stmt* st, int index, const Variant& v) {
  int rc = SQLITE_OK;
  switch (v.Type()) {
    case VarType::Empty:
    case VarType::Null:
      rc = sqlite3_bind_null(st, index);
      break;
    case VarType::Boolean:
      rc = sqlite3_bind_int(st, index, v.ToBool() ? 1 : 0);
      break;
    case VarType::Integer:
    case VarType::Long:
    case VarType::LongLong:
      rc = sqlite3_bind_int64(st, index, v.ToLongLong());
      break;
    case VarType::Single:
    case VarType::Double:
      rc = sqlite3_bind_double(st, index, v.ToDouble());
      break;
    case VarType::Date: {
      // The empty date is no date at all: it is stored as null, never as an empty text.
      if (v.ToDate().IsEmpty()) {
        rc = sqlite3_bind_null(st, index);
        break;
      }
      const std::string iso = v.ToDate().ToIsoText();
      rc = sqlite3_bind_text(st, index, iso.data(), static_cast<int>(iso.size()), SQLITE_TRANSIENT);
      break;
    }
    case VarType::String: {
      // The text is read where it stands: the caller's value outlives the statement's run, and
      // the bindings are cleared before the statement is left.
      const auto& s = std::get<std::string>(v.Raw());
      rc = sqlite3_bind_text(st, index, s.data(), static_cast<int>(s.size()), SQLITE_STATIC);
      break;
    }
    case VarType::Object:
      throw Error(dberr::kBadArgument, "SQLite", "An object cannot be a statement parameter.");
  }
  if (rc != SQLITE_OK) ThrowSqlite(db, rc);
}

class SqliteDriver final : public Driver {
 public:
  explicit SqliteDriver(const ConnectionProperties& props) {
    std::string path = props.Get("Data Source");
    if (path.empty()) path = props.Get("Database");
    if (path.empty()) {
      throw Error(dberr::kProvider, "SQLite",
                  "The connection string names no file: add \"Data Source=<file>\".");
    }
    const int flags =
        SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_URI | SQLITE_OPEN_NOMUTEX;
    const int rc = sqlite3_open_v2(path.c_str(), &db_, flags, nullptr);
    if (rc != SQLITE_OK) {
      const std::string msg = db_ ? sqlite3_errmsg(db_) : sqlite3_errstr(rc);
      sqlite3_close_v2(db_);
      db_ = nullptr;
      throw Error(dberr::kStoreFault, "SQLite",
                  "Could not open the database file " + path + ": " + msg);
    }
    sqlite3_busy_timeout(db_, kBusyTimeoutMs);
    sqlite3_extended_result_codes(db_, 1);
    ExecuteScript("PRAGMA foreign_keys = ON");
    in_memory_ = path == ":memory:" || text::FindNoCase(path, "mode=memory") != text::npos ||
                 text::FindNoCase(path, "vfs=memdb") != text::npos;
  }

  ~SqliteDriver() override {
    for (auto& [sql, entry] : cache_) sqlite3_finalize(entry.stmt);
    sqlite3_close_v2(db_);
  }

  std::string_view Dialect() const override { return "sqlite"; }

  ResultSet Execute(std::string_view sql, std::span<const Variant> params, long max_rows) override {
    Prepared& p = Prepare(sql);
    sqlite3_stmt* st = p.stmt;
    BindAll(st, params);

    ResultSet result;
    int rc = sqlite3_step(st);
    // A kept statement that SQLite had to prepare again (its tables changed since, say a column
    // was added by another connection) may yield other columns than it was described with.
    if (sqlite3_stmt_status(st, SQLITE_STMTSTATUS_REPREPARE, 0) != p.reprepared) Describe(p);
    const int ncol = sqlite3_column_count(st);
    result.has_columns = ncol > 0;
    if (ncol > 0) result.columns = p.columns;
    for (; rc == SQLITE_ROW; rc = sqlite3_step(st)) {
      if (max_rows > 0 && static_cast<long>(result.rows.size()) >= max_rows) break;
      Row row;
      row.reserve(static_cast<std::size_t>(ncol));
      for (int c = 0; c < ncol; ++c)
        row.push_back(ReadValue(st, c, p.types[static_cast<std::size_t>(c)]));
      result.rows.push_back(std::move(row));
    }
    if (rc != SQLITE_ROW && rc != SQLITE_DONE) {
      sqlite3_reset(st);
      sqlite3_clear_bindings(st);
      ThrowSqlite(db_, rc);
    }
    sqlite3_reset(st);
    sqlite3_clear_bindings(st);
    if (ncol == 0) result.rows_affected = sqlite3_changes64(db_);
    // Expression columns have no declared type: take it from the values.
    for (int c = 0; c < ncol; ++c) {
      auto& info = result.columns[static_cast<std::size_t>(c)];
      if (info.type != DataType::Variant) continue;
      info.type = DataType::LongVarWChar;
      info.defined_size = kUnboundedTextSize;
      for (const auto& row : result.rows) {
        const VarType t = row[static_cast<std::size_t>(c)].Type();
        if (t == VarType::Null) continue;
        if (t == VarType::Long) {
          info.type = DataType::Integer;
        } else if (t == VarType::LongLong) {
          info.type = DataType::BigInt;
        } else if (t == VarType::Double) {
          info.type = DataType::Double;
        }
        if (info.type != DataType::LongVarWChar) info.defined_size = FixedSizeOf(info.type);
        break;
      }
    }
    return result;
  }

  // Steps a statement of its own (not the cached one, which the caller's `each` may run again),
  // so the rows are read from the file as they are handed on.
  bool ExecuteEach(std::string_view sql, std::span<const Variant> params,
                   const RowVisitor& each) override {
    Prepared p = Compile(std::string(sql));
    const std::unique_ptr<sqlite3_stmt, int (*)(sqlite3_stmt*)> owner(p.stmt, sqlite3_finalize);
    sqlite3_stmt* st = p.stmt;
    BindAll(st, params);
    const int ncol = sqlite3_column_count(st);
    Row row;
    int rc;
    while ((rc = sqlite3_step(st)) == SQLITE_ROW) {
      row.clear();
      row.reserve(static_cast<std::size_t>(ncol));
      for (int c = 0; c < ncol; ++c)
        row.push_back(ReadValue(st, c, p.types[static_cast<std::size_t>(c)]));
      if (!each(row)) return true;
    }
    if (rc != SQLITE_DONE) ThrowSqlite(db_, rc);
    return ncol > 0;
  }

  void ExecuteScript(std::string_view sql) override {
    char* err = nullptr;
    const std::string copy(sql);
    const int rc = sqlite3_exec(db_, copy.c_str(), nullptr, nullptr, &err);
    if (rc != SQLITE_OK) {
      std::string msg = err ? err : sqlite3_errstr(rc);
      sqlite3_free(err);
      ErrorNumber n = (rc & 0xFF) == SQLITE_CONSTRAINT ? dberr::kIntegrity : dberr::kSyntax;
      if ((rc & 0xFF) == SQLITE_BUSY) n = dberr::kProvider;
      if (IsFileFault(rc)) {
        n = dberr::kStoreFault;
        msg = FileFaultText(db_, std::move(msg));
      }
      throw Error(n, "SQLite", msg);
    }
  }

  long long LastInsertId() override { return sqlite3_last_insert_rowid(db_); }

  void Begin() override { ExecuteScript("BEGIN IMMEDIATE"); }
  void Commit() override { ExecuteScript("COMMIT"); }
  void Rollback() override {
    if (!sqlite3_get_autocommit(db_)) ExecuteScript("ROLLBACK");
  }
  bool InTransaction() const override { return !sqlite3_get_autocommit(db_); }

  std::vector<ColumnInfo> TableColumns(std::string_view table) override {
    std::vector<ColumnInfo> cols;
    const ResultSet r = Execute("SELECT name, type, \"notnull\", pk FROM pragma_table_info(?)",
                                std::vector<Variant>{Variant(table)}, 0);
    int pk_count = 0;
    for (const auto& row : r.rows) pk_count += row[3].ToLong() > 0 ? 1 : 0;
    for (const auto& row : r.rows) {
      ColumnInfo c;
      c.name = row[0].ToText();
      const std::string decl = row[1].ToText();
      const DeclType d = ParseDeclType(decl.c_str());
      c.type = d.type == DataType::Variant ? DataType::LongVarWChar : d.type;
      c.defined_size = d.size;
      c.nullable = row[2].ToLong() == 0;
      c.key = row[3].ToLong() > 0;
      c.auto_increment = c.key && pk_count == 1 && text::EqualsNoCase(decl, "INTEGER");
      c.base_table = std::string(table);
      c.base_column = c.name;
      cols.push_back(std::move(c));
    }
    return cols;
  }

  bool TableExists(std::string_view table) override {
    const ResultSet r = Execute(
        "SELECT 1 FROM sqlite_master WHERE type IN ('table','view') AND name = ? COLLATE NOCASE "
        "UNION ALL SELECT 1 FROM sqlite_temp_master WHERE type IN ('table','view') AND name = ? "
        "COLLATE NOCASE",
        std::vector<Variant>{Variant(table), Variant(table)}, 1);
    return !r.rows.empty();
  }

  std::string QuoteIdentifier(std::string_view name) const override {
    return "\"" + text::ReplaceAll(name, "\"", "\"\"") + "\"";
  }

  std::string DefaultDatabase() override { return "main"; }

  std::string IdentifierProblem(IdentifierKind kind, std::string_view name) const override {
    std::string problem = Driver::IdentifierProblem(kind, name);
    if (problem.empty() && kind == IdentifierKind::Table &&
        text::StartsWithNoCase(name, "sqlite_")) {
      problem = "SQLite keeps the names that begin with \"sqlite_\" for itself";
    }
    return problem;
  }

  // For a session the file takes its rows through a write-ahead log that is not synced at every
  // commit: a commit is a write, not three syncs, a journal file made and one removed. A commit
  // still survives the program's crash; the checkpoint at the end makes it durable.
  void EnterSession() noexcept override {
    if (in_memory_ || InTransaction()) return;
    try {
      const ResultSet mode = Execute("PRAGMA journal_mode", {}, 1);
      if (mode.rows.empty()) return;
      const std::string before = text::AsciiLower(mode.rows[0][0].ToText());
      if (before != "wal") {
        const ResultSet now = Execute("PRAGMA journal_mode = WAL", {}, 1);
        if (now.rows.empty() || text::AsciiLower(now.rows[0][0].ToText()) != "wal") return;
        journal_mode_before_session_ = before;
      }
      ExecuteScript("PRAGMA synchronous = NORMAL");
    } catch (const Error&) {
      // Another connection holds the file: the session writes in the file's own mode.
    }
  }

  void LeaveSession() noexcept override {
    if (in_memory_ || InTransaction()) return;
    try {
      ExecuteScript("PRAGMA synchronous = FULL");
      if (journal_mode_before_session_.empty()) {
        // The file was in write-ahead-log mode before: the log is synced now, and copied into
        // the file as far as other connections' reads allow, without waiting for them.
        ExecuteScript("PRAGMA wal_checkpoint(PASSIVE)");
        return;
      }
      // Leaving write-ahead-log mode checkpoints and syncs the file, and removes the log.
      const std::string mode = journal_mode_before_session_;
      journal_mode_before_session_.clear();
      Execute("PRAGMA journal_mode = " + mode, {}, 1);
    } catch (const Error&) {
      // Another connection still reads the file: it stays in write-ahead-log mode, which loses
      // nothing; the log is synced when the last connection closes.
    }
  }

 private:
  struct Prepared {
    sqlite3_stmt* stmt = nullptr;
    std::vector<ColumnInfo> columns;
    std::vector<DataType> types;
    // SQLite's count of the times it prepared the statement again, when it was described.
    int reprepared = 0;
    std::list<std::string>::iterator lru;
  };

  void BindAll(sqlite3_stmt* st, std::span<const Variant> params) {
    const int expected = sqlite3_bind_parameter_count(st);
    if (expected != static_cast<int>(params.size())) {
      throw Error(dberr::kBadArgument, "SQLite",
                  "The statement takes " + std::to_string(expected) + " parameters but " +
                      std::to_string(params.size()) + " were given.");
    }
    try {
      for (std::size_t k = 0; k < params.size(); ++k)
        Bind(db_, st, static_cast<int>(k + 1), params[k]);
    } catch (...) {
      sqlite3_clear_bindings(st);  // no text of the caller's stays bound
      throw;
    }
  }

  // A statement of its own, not kept in the cache; its columns described.
  Prepared Compile(const std::string& key) {
    sqlite3_stmt* st = nullptr;
    const char* tail = nullptr;
    const int rc = sqlite3_prepare_v2(db_, key.data(), static_cast<int>(key.size()), &st, &tail);
    if (rc != SQLITE_OK) ThrowSqlite(db_, rc);
    if (!st) {
      throw Error(dberr::kSyntax, "SQLite", "The statement is empty.");
    }
    if (tail && !text::TrimWhitespace(tail).empty() && text::TrimWhitespace(tail) != ";") {
      sqlite3_finalize(st);
      throw Error(dberr::kSyntax, "SQLite",
                  "Only one statement can run at a time with parameters; use a script for more.");
    }
    Prepared p;
    p.stmt = st;
    Describe(p);
    return p;
  }

  // The columns the statement yields, as it stands now.
  void Describe(Prepared& p) {
    sqlite3_stmt* st = p.stmt;
    p.columns.clear();
    p.types.clear();
    p.reprepared = sqlite3_stmt_status(st, SQLITE_STMTSTATUS_REPREPARE, 0);
    const int ncol = sqlite3_column_count(st);
    for (int c = 0; c < ncol; ++c) {
      ColumnInfo info;
      info.name = sqlite3_column_name(st, c);
      const DeclType d = ParseDeclType(sqlite3_column_decltype(st, c));
      info.type = d.type;
      info.defined_size = d.size;
      const char* table = sqlite3_column_table_name(st, c);
      const char* origin = sqlite3_column_origin_name(st, c);
      const char* dbname = sqlite3_column_database_name(st, c);
      if (table && origin) {
        info.base_table = table;
        info.base_column = origin;
        const char* decl = nullptr;
        const char* coll = nullptr;
        int notnull = 0, pk = 0, autoinc = 0;
        if (sqlite3_table_column_metadata(db_, dbname, table, origin, &decl, &coll, &notnull, &pk,
                                          &autoinc) == SQLITE_OK) {
          info.nullable = notnull == 0;
          info.key = pk != 0;
          info.auto_increment =
              autoinc != 0 || (pk != 0 && decl && text::EqualsNoCase(decl, "INTEGER"));
        }
      }
      p.types.push_back(info.type);
      p.columns.push_back(std::move(info));
    }
  }

  Prepared& Prepare(std::string_view sql) {
    if (auto it = cache_.find(sql); it != cache_.end()) {
      lru_.splice(lru_.begin(), lru_, it->second.lru);
      return it->second;
    }
    const std::string key(sql);
    Prepared p = Compile(key);
    lru_.push_front(key);
    p.lru = lru_.begin();
    if (cache_.size() >= kStatementCacheSize) {
      const std::string& victim = lru_.back();
      auto vit = cache_.find(victim);
      sqlite3_finalize(vit->second.stmt);
      cache_.erase(vit);
      lru_.pop_back();
    }
    return cache_.emplace(key, std::move(p)).first->second;
  }

  sqlite3* db_ = nullptr;
  bool in_memory_ = false;
  // The journal mode the file had when a session switched it to write-ahead logging.
  std::string journal_mode_before_session_;
  // Looked up by the text as given, without a copy of it.
  struct TextHash {
    using is_transparent = void;
    std::size_t operator()(std::string_view s) const noexcept {
      return std::hash<std::string_view>{}(s);
    }
  };
  std::unordered_map<std::string, Prepared, TextHash, std::equal_to<>> cache_;
  std::list<std::string> lru_;
};

}  // namespace

bool SqliteAccepts(const ConnectionProperties& props) {
  return text::StartsWithNoCase(props.Get("Provider"), "SQLite");
}

std::unique_ptr<Driver> MakeSqliteDriver(const ConnectionProperties& props) {
  return std::make_unique<SqliteDriver>(props);
}

}  // namespace gw::db
