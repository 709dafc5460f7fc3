// The MariaDB/MySQL driver, through the MariaDB client library.
//
// It serves every connection string that names MySQL: "Provider=MySQLProv;...", an ODBC-style
// "Provider=MSDASQL;Extended Properties="DRIVER={MySQL ODBC 3.51 Driver};SERVER=...;DATABASE=...""
// and anything else that mentions MySQL. Parameters are read from the top level and from inside
// "Extended Properties", under their ADO and ODBC names:
//   server: Server, Data Source (when it looks like a host), Location, Host  (default 127.0.0.1)
//   port: Port; socket: Socket
//   database: Initial Catalog, Database (MySQLProv: Data Source names the database)
//   user: User ID, UID, User; password: Password, PWD
// Statements with parameters run as prepared statements (kept for reuse); statements without run
// through the text protocol, which accepts every statement the server knows.

#include <mysql.h>

#include <list>
#include <memory>
#include <unordered_map>

#include "platform/db/driver.h"
#include "platform/text.h"

namespace gw::db {

namespace {

constexpr std::size_t kStatementCacheSize = 32;

std::string FirstOf(const ConnectionProperties& top, const ConnectionProperties& ext,
                    std::initializer_list<const char*> names) {
  for (const char* n : names) {
    if (auto v = top.Find(n); v && !v->empty()) return *v;
    if (auto v = ext.Find(n); v && !v->empty()) return *v;
  }
  return {};
}

ErrorNumber NumberFor(unsigned int err) {
  switch (err) {
    case 1146:  // ER_NO_SUCH_TABLE
      return dberr::kNoSuchTable;
    case 1064:  // ER_PARSE_ERROR
    case 1054:  // ER_BAD_FIELD_ERROR
    case 1050:  // ER_TABLE_EXISTS_ERROR
    case 1060:  // ER_DUP_FIELDNAME
    case 1091:  // ER_CANT_DROP_FIELD_OR_KEY
      return dberr::kSyntax;
    case 1062:  // ER_DUP_ENTRY
    case 1451:
    case 1452:
    case 1048:  // ER_BAD_NULL_ERROR
      return dberr::kIntegrity;
    case 1406:  // ER_DATA_TOO_LONG
      return dberr::kDataTruncated;
    case 1366:  // ER_TRUNCATED_WRONG_VALUE_FOR_FIELD
    case 1292:
      return dberr::kMultipleStep;
    default:
      return dberr::kProvider;
  }
}

DataType TypeOf(const MYSQL_FIELD& f) {
  const bool binary = f.charsetnr == 63;
  switch (f.type) {
    case MYSQL_TYPE_TINY:
      return f.length == 1 ? DataType::Boolean : DataType::SmallInt;
    case MYSQL_TYPE_SHORT:
      return DataType::SmallInt;
    case MYSQL_TYPE_LONG:
    case MYSQL_TYPE_INT24:
      return DataType::Integer;
    case MYSQL_TYPE_LONGLONG:
      return DataType::BigInt;
    case MYSQL_TYPE_FLOAT:
      return DataType::Single;
    case MYSQL_TYPE_DOUBLE:
      return DataType::Double;
    case MYSQL_TYPE_DECIMAL:
    case MYSQL_TYPE_NEWDECIMAL:
      return DataType::Numeric;
    case MYSQL_TYPE_BIT:
      return DataType::Boolean;
    case MYSQL_TYPE_DATE:
    case MYSQL_TYPE_DATETIME:
    case MYSQL_TYPE_TIMESTAMP:
    case MYSQL_TYPE_NEWDATE:
      return DataType::Date;
    case MYSQL_TYPE_VARCHAR:
    case MYSQL_TYPE_VAR_STRING:
      return binary ? DataType::VarBinary : DataType::VarWChar;
    case MYSQL_TYPE_STRING:
      return binary ? DataType::Binary : DataType::WChar;
    case MYSQL_TYPE_TINY_BLOB:
    case MYSQL_TYPE_MEDIUM_BLOB:
    case MYSQL_TYPE_LONG_BLOB:
    case MYSQL_TYPE_BLOB:
      return binary ? DataType::LongVarBinary : DataType::LongVarWChar;
    default:
      return DataType::LongVarWChar;
  }
}

ColumnInfo Describe(const MYSQL_FIELD& f) {
  ColumnInfo c;
  c.name = f.name ? f.name : "";
  c.type = TypeOf(f);
  if (IsTextType(c.type)) {
    unsigned maxlen = 1;
    if (const MARIADB_CHARSET_INFO* cs = mariadb_get_charset_by_nr(f.charsetnr)) {
      maxlen = cs->char_maxlen ? cs->char_maxlen : 1;
    }
    const unsigned long chars = f.length / maxlen;
    c.defined_size = (c.type == DataType::LongVarWChar || chars >= kUnboundedTextSize)
                         ? kUnboundedTextSize
                         : static_cast<std::int32_t>(chars);
  } else {
    c.defined_size = FixedSizeOf(c.type);
  }
  c.nullable = (f.flags & NOT_NULL_FLAG) == 0;
  c.key = (f.flags & PRI_KEY_FLAG) != 0;
  c.auto_increment = (f.flags & AUTO_INCREMENT_FLAG) != 0;
  if (f.org_table && *f.org_table && f.org_name && *f.org_name) {
    c.base_table = f.org_table;
    c.base_column = f.org_name;
  }
  return c;
}

Variant Convert(const char* data, unsigned long len, DataType type) {
  std::string s(data, len);
  switch (type) {
    case DataType::Boolean:
      if (len == 1 && (data[0] == '\0' || data[0] == '\1')) return Variant(data[0] == '\1');
      return Variant(s != "0" && !s.empty());
    case DataType::SmallInt:
    case DataType::Integer: {
      double d;
      if (ParseNumber(s, d)) return Variant(static_cast<int>(d));
      return Variant(std::move(s));
    }
    case DataType::BigInt: {
      try {
        return Variant(static_cast<long long>(std::stoll(s)));
      } catch (...) {
        return Variant(std::move(s));
      }
    }
    case DataType::Single:
    case DataType::Double:
    case DataType::Numeric: {
      double d;
      if (ParseNumber(s, d)) return Variant(d);
      return Variant(std::move(s));
    }
    case DataType::Date:
      if (auto d = DateTime::Parse(s)) return Variant(*d);
      return Variant(kNull);  // zero dates ("0000-00-00") read as no date
    default:
      return Variant(std::move(s));
  }
}

class MariaDbDriver final : public Driver {
 public:
  explicit MariaDbDriver(const ConnectionProperties& props) {
    const ConnectionProperties ext = ConnectionProperties::Parse(props.Get("Extended Properties"));
    const bool mysqlprov = text::StartsWithNoCase(props.Get("Provider"), "MySQLProv");
    std::string host = FirstOf(props, ext, {"Server", "Location", "Host"});
    std::string database = FirstOf(props, ext, {"Initial Catalog", "Database"});
    const std::string data_source = props.Get("Data Source");
    if (!data_source.empty()) {
      if (mysqlprov && database.empty()) {
        database = data_source;
      } else if (host.empty()) {
        host = data_source;
      }
    }
    if (host.empty()) host = "127.0.0.1";
    const std::string user = FirstOf(props, ext, {"User ID", "UID", "User", "User Id"});
    const std::string password = FirstOf(props, ext, {"Password", "PWD"});
    const std::string socket = FirstOf(props, ext, {"Socket"});
    unsigned int port = 0;
    if (const std::string p = FirstOf(props, ext, {"Port"}); !p.empty()) {
      try {
        port = static_cast<unsigned int>(std::stoul(p));
      } catch (...) {
        throw Error(dberr::kProvider, "MariaDB", "The port \"" + p + "\" is not a number.");
      }
    }

    db_ = mysql_init(nullptr);
    if (!db_) throw Error(errnum::kOutOfMemory, "MariaDB", "Out of memory");
    mysql_options(db_, MYSQL_SET_CHARSET_NAME, "utf8mb4");
    const unsigned int timeout = 30;
    mysql_options(db_, MYSQL_OPT_CONNECT_TIMEOUT, &timeout);
    if (!mysql_real_connect(db_, host.c_str(), user.empty() ? nullptr : user.c_str(),
                            password.c_str(), database.empty() ? nullptr : database.c_str(), port,
                            socket.empty() ? nullptr : socket.c_str(), CLIENT_FOUND_ROWS)) {
      const std::string msg = mysql_error(db_);
      mysql_close(db_);
      db_ = nullptr;
      throw Error(dberr::kProvider, "MariaDB",
                  "Could not connect to the MySQL server at " + host +
                      (port ? ":" + std::to_string(port) : std::string()) + ": " + msg);
    }
  }

  ~MariaDbDriver() override {
    for (auto& [sql, entry] : cache_) mysql_stmt_close(entry.stmt);
    if (db_) mysql_close(db_);
  }

  std::string_view Dialect() const override { return "mysql"; }

  ResultSet Execute(std::string_view sql, std::span<const Variant> params, long max_rows) override {
    LimitSelectedRows(sql, max_rows);
    if (params.empty()) return ExecuteText(sql, max_rows);
    return ExecutePrepared(sql, params, max_rows);
  }

  // A statement without parameters is read row by row from the server (`mysql_use_result`);
  // with parameters the rows are read whole first, as `Execute` does. Rows left unread when the
  // reading stops are fetched and dropped, so the connection can run its next statement.
  bool ExecuteEach(std::string_view sql, std::span<const Variant> params,
                   const RowVisitor& each) override {
    if (!params.empty()) return Driver::ExecuteEach(sql, params, each);
    LimitSelectedRows(sql, 0);
    if (mysql_real_query(db_, sql.data(), static_cast<unsigned long>(sql.size())) != 0) Fail();
    const std::unique_ptr<MYSQL_RES, void (*)(MYSQL_RES*)> res(mysql_use_result(db_),
                                                               mysql_free_result);
    if (!res) {
      if (mysql_field_count(db_) != 0) Fail();
      last_insert_id_ = mysql_insert_id(db_);
      return false;
    }
    const unsigned int n = mysql_num_fields(res.get());
    MYSQL_FIELD* fields = mysql_fetch_fields(res.get());
    std::vector<DataType> types;
    for (unsigned int k = 0; k < n; ++k) types.push_back(Describe(fields[k]).type);
    Row r;
    while (MYSQL_ROW row = mysql_fetch_row(res.get())) {
      const unsigned long* lengths = mysql_fetch_lengths(res.get());
      r.clear();
      r.reserve(n);
      for (unsigned int k = 0; k < n; ++k)
        r.push_back(row[k] ? Convert(row[k], lengths[k], types[k]) : Variant(kNull));
      if (!each(r)) return true;
    }
    if (mysql_errno(db_) != 0) Fail();
    return true;
  }

  void ExecuteScript(std::string_view sql) override {
    for (const auto& piece : SplitScript(sql)) ExecuteText(piece, 0);
  }

  long long LastInsertId() override { return static_cast<long long>(last_insert_id_); }

  void Begin() override {
    ExecuteText("START TRANSACTION", 0);
    in_tx_ = true;
  }
  void Commit() override {
    ExecuteText("COMMIT", 0);
    in_tx_ = false;
  }
  void Rollback() override {
    if (in_tx_) ExecuteText("ROLLBACK", 0);
    in_tx_ = false;
  }
  bool InTransaction() const override { return in_tx_; }

  std::vector<ColumnInfo> TableColumns(std::string_view table) override {
    const std::string sql = "SELECT * FROM " + QuoteIdentifier(table) + " LIMIT 0";
    return ExecuteText(sql, 0).columns;
  }

  bool TableExists(std::string_view table) override {
    const std::vector<Variant> p{Variant(table)};
    return !ExecutePrepared(
                "SELECT 1 FROM information_schema.TABLES WHERE TABLE_SCHEMA = DATABASE() AND "
                "TABLE_NAME = ?",
                p, 1)
                .rows.empty();
  }

  std::string QuoteIdentifier(std::string_view name) const override {
    return "`" + text::ReplaceAll(name, "`", "``") + "`";
  }

  // MariaDB's own rules for quoted names: at most 64 characters, no trailing space, and only
  // characters of the Basic Multilingual Plane (names are stored as three-byte UTF-8).
  std::string IdentifierProblem(IdentifierKind kind, std::string_view name) const override {
    std::string problem = Driver::IdentifierProblem(kind, name);
    if (!problem.empty()) return problem;
    if (text::CountCodePoints(name) > 64) return "MariaDB names hold at most 64 characters";
    if (name.back() == ' ') return "MariaDB names cannot end with a space";
    for (std::size_t i = 0; i < name.size();) {
      if (text::DecodeUtf8(name, i) > 0xFFFF) {
        return "MariaDB names cannot hold characters beyond U+FFFF";
      }
    }
    return {};
  }

  std::string DefaultDatabase() override {
    const ResultSet r = ExecuteText("SELECT DATABASE()", 0);
    return r.rows.empty() ? std::string() : r.rows[0][0].ToText();
  }

 private:
  struct Prepared {
    MYSQL_STMT* stmt = nullptr;
    std::list<std::string>::iterator lru;
  };

  [[noreturn]] void Fail(const char* what = nullptr) {
    const unsigned int err = mysql_errno(db_);
    std::string msg = mysql_error(db_);
    if (what) msg = std::string(what) + ": " + msg;
    throw Error(NumberFor(err), "MariaDB", msg);
  }
  [[noreturn]] void FailStmt(MYSQL_STMT* st) {
    const unsigned int err = mysql_stmt_errno(st);
    throw Error(NumberFor(err), "MariaDB", mysql_stmt_error(st));
  }

  // A row limit is kept by the server, so that a table opened for appending does not send all of
  // its rows: the session's sql_select_limit follows the limit of each SELECT (it applies to
  // top-level SELECTs only), changed only when it differs from the last one.
  void LimitSelectedRows(std::string_view sql, long max_rows) {
    if (!text::StartsWithNoCase(text::TrimWhitespace(sql), "SELECT")) return;
    const long wanted = max_rows > 0 ? max_rows : 0;
    if (wanted == select_limit_) return;
    ExecuteText(wanted > 0 ? "SET SESSION sql_select_limit = " + std::to_string(wanted)
                           : std::string("SET SESSION sql_select_limit = DEFAULT"),
                0);
    select_limit_ = wanted;
  }

  static std::vector<std::string> SplitScript(std::string_view sql) {
    std::vector<std::string> out;
    std::string cur;
    char quote = 0;
    for (char c : sql) {
      if (quote) {
        if (c == quote) quote = 0;
      } else if (c == '\'' || c == '"' || c == '`') {
        quote = c;
      } else if (c == ';') {
        if (!text::TrimWhitespace(cur).empty()) out.push_back(cur);
        cur.clear();
        continue;
      }
      cur += c;
    }
    if (!text::TrimWhitespace(cur).empty()) out.push_back(cur);
    return out;
  }

  ResultSet ExecuteText(std::string_view sql, long max_rows) {
    if (mysql_real_query(db_, sql.data(), static_cast<unsigned long>(sql.size())) != 0) Fail();
    ResultSet result;
    MYSQL_RES* res = mysql_store_result(db_);
    if (!res) {
      if (mysql_field_count(db_) != 0) Fail();
      result.rows_affected = static_cast<long long>(mysql_affected_rows(db_));
      last_insert_id_ = mysql_insert_id(db_);
      return result;
    }
    result.has_columns = true;
    const unsigned int n = mysql_num_fields(res);
    MYSQL_FIELD* fields = mysql_fetch_fields(res);
    for (unsigned int k = 0; k < n; ++k) result.columns.push_back(Describe(fields[k]));
    while (MYSQL_ROW row = mysql_fetch_row(res)) {
      if (max_rows > 0 && static_cast<long>(result.rows.size()) >= max_rows) break;
      const unsigned long* lengths = mysql_fetch_lengths(res);
      Row r;
      r.reserve(n);
      for (unsigned int k = 0; k < n; ++k) {
        r.push_back(row[k] ? Convert(row[k], lengths[k], result.columns[k].type) : Variant(kNull));
      }
      result.rows.push_back(std::move(r));
    }
    mysql_free_result(res);
    return result;
  }

  MYSQL_STMT* Prepare(std::string_view sql) {
    const std::string key(sql);
    if (auto it = cache_.find(key); it != cache_.end()) {
      lru_.splice(lru_.begin(), lru_, it->second.lru);
      return it->second.stmt;
    }
    MYSQL_STMT* st = mysql_stmt_init(db_);
    if (!st) Fail("mysql_stmt_init");
    if (mysql_stmt_prepare(st, key.data(), static_cast<unsigned long>(key.size())) != 0) {
      const unsigned int err = mysql_stmt_errno(st);
      const std::string msg = mysql_stmt_error(st);
      mysql_stmt_close(st);
      throw Error(NumberFor(err), "MariaDB", msg);
    }
    if (cache_.size() >= kStatementCacheSize) {
      auto victim = cache_.find(lru_.back());
      mysql_stmt_close(victim->second.stmt);
      cache_.erase(victim);
      lru_.pop_back();
    }
    lru_.push_front(key);
    cache_.emplace(key, Prepared{st, lru_.begin()});
    return st;
  }

  ResultSet ExecutePrepared(std::string_view sql, std::span<const Variant> params, long max_rows) {
    MYSQL_STMT* st = Prepare(sql);
    const unsigned long expected = mysql_stmt_param_count(st);
    if (expected != params.size()) {
      throw Error(dberr::kBadArgument, "MariaDB",
                  "The statement takes " + std::to_string(expected) + " parameters but " +
                      std::to_string(params.size()) + " were given.");
    }
    // Parameter buffers live until execution ends.
    std::vector<MYSQL_BIND> binds(params.size());
    std::vector<std::string> texts(params.size());
    std::vector<long long> ints(params.size());
    std::vector<double> doubles(params.size());
    for (std::size_t k = 0; k < params.size(); ++k) {
      MYSQL_BIND& b = binds[k];
      b = MYSQL_BIND{};
      const Variant& v = params[k];
      switch (v.Type()) {
        case VarType::Empty:
        case VarType::Null:
          b.buffer_type = MYSQL_TYPE_NULL;
          break;
        case VarType::Boolean:
        case VarType::Integer:
        case VarType::Long:
        case VarType::LongLong:
          ints[k] = v.IsBoolean() ? (v.ToBool() ? 1 : 0) : v.ToLongLong();
          b.buffer_type = MYSQL_TYPE_LONGLONG;
          b.buffer = &ints[k];
          break;
        case VarType::Single:
        case VarType::Double:
          doubles[k] = v.ToDouble();
          b.buffer_type = MYSQL_TYPE_DOUBLE;
          b.buffer = &doubles[k];
          break;
        case VarType::Date:
          texts[k] = v.ToDate().ToIsoText();
          b.buffer_type = MYSQL_TYPE_STRING;
          b.buffer = texts[k].data();
          b.buffer_length = texts[k].size();
          break;
        case VarType::String:
          texts[k] = v.ToText();
          b.buffer_type = MYSQL_TYPE_STRING;
          b.buffer = texts[k].data();
          b.buffer_length = texts[k].size();
          break;
        case VarType::Object:
          throw Error(dberr::kBadArgument, "MariaDB", "An object cannot be a statement parameter.");
      }
    }
    if (!binds.empty() && mysql_stmt_bind_param(st, binds.data())) FailStmt(st);
    if (mysql_stmt_execute(st) != 0) FailStmt(st);

    ResultSet result;
    MYSQL_RES* meta = mysql_stmt_result_metadata(st);
    if (!meta) {
      result.rows_affected = static_cast<long long>(mysql_stmt_affected_rows(st));
      last_insert_id_ = mysql_stmt_insert_id(st);
      return result;
    }
    result.has_columns = true;
    const unsigned int n = mysql_num_fields(meta);
    MYSQL_FIELD* fields = mysql_fetch_fields(meta);
    for (unsigned int k = 0; k < n; ++k) result.columns.push_back(Describe(fields[k]));
    mysql_free_result(meta);

    if (mysql_stmt_store_result(st) != 0) FailStmt(st);
    std::vector<MYSQL_BIND> out(n);
    std::vector<std::string> buffers(n, std::string(256, '\0'));
    std::vector<unsigned long> lengths(n);
    std::vector<my_bool> nulls(n);
    for (unsigned int k = 0; k < n; ++k) {
      out[k] = MYSQL_BIND{};
      out[k].buffer_type = MYSQL_TYPE_STRING;
      out[k].buffer = buffers[k].data();
      out[k].buffer_length = buffers[k].size();
      out[k].length = &lengths[k];
      out[k].is_null = &nulls[k];
    }
    if (n && mysql_stmt_bind_result(st, out.data())) FailStmt(st);
    while (true) {
      const int rc = mysql_stmt_fetch(st);
      if (rc == MYSQL_NO_DATA) break;
      if (rc == 1) FailStmt(st);
      if (max_rows > 0 && static_cast<long>(result.rows.size()) >= max_rows) break;
      Row r;
      r.reserve(n);
      for (unsigned int k = 0; k < n; ++k) {
        if (nulls[k]) {
          r.push_back(Variant(kNull));
          continue;
        }
        if (lengths[k] > buffers[k].size()) {
          // Longer than the buffer: fetch this column again with room for all of it.
          std::string big(lengths[k], '\0');
          MYSQL_BIND b{};
          b.buffer_type = MYSQL_TYPE_STRING;
          b.buffer = big.data();
          b.buffer_length = big.size();
          unsigned long len = 0;
          b.length = &len;
          if (mysql_stmt_fetch_column(st, &b, k, 0) != 0) FailStmt(st);
          r.push_back(Convert(big.data(), len, result.columns[k].type));
        } else {
          r.push_back(Convert(buffers[k].data(), lengths[k], result.columns[k].type));
        }
      }
      result.rows.push_back(std::move(r));
    }
    mysql_stmt_free_result(st);
    return result;
  }

  MYSQL* db_ = nullptr;
  bool in_tx_ = false;
  long select_limit_ = 0;  // the session's sql_select_limit; 0 is the default (none)
  my_ulonglong last_insert_id_ = 0;
  std::unordered_map<std::string, Prepared> cache_;
  std::list<std::string> lru_;
};

}  // namespace

bool MariaDbAccepts(const ConnectionProperties& props) {
  // A provider that names MySQL, or a string for no other known store that mentions MySQL.
  const std::string provider = props.Get("Provider");
  if (text::FindNoCase(provider, "MySQL") != text::npos) return true;
  if (text::StartsWithNoCase(provider, "SQLite") ||
      text::StartsWithNoCase(provider, "Microsoft.Jet") ||
      text::StartsWithNoCase(provider, "SQLOLEDB")) {
    return false;
  }
  return text::FindNoCase(props.ToString(), "MySQL") != text::npos;
}

std::unique_ptr<Driver> MakeMariaDbDriver(const ConnectionProperties& props) {
  return std::make_unique<MariaDbDriver>(props);
}

}  // namespace gw::db
