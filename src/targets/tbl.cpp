#include "targets/tbl.h"

#include <filesystem>

#include "platform/db/recordset.h"
#include "platform/db/sqlite_schema.h"
#include "platform/report_connection_string.h"
#include "platform/text.h"
#include "targets/database.h"
#include "targets/rules_link.h"

namespace gw {

namespace {

using db::QuoteSqliteName;

// SQL Server needs at least one column in CREATE TABLE: the table starts with this one, which lets
// one add-or-alter path serve a new and an existing table, and is dropped afterwards.
constexpr std::string_view kPlaceholderColumn = "xxx_temp_column_delete_later_xxx";

std::string TableFor(const TableDescription& ent, bool use_tmp_tbls,
                     std::string_view unique_tbl_prefix) {
  std::string t = std::string(unique_tbl_prefix) + ent.table_name;
  if (use_tmp_tbls) t = "##" + t;
  return t;
}

template <typename Body>
void Try(Body&& body) {
  try {
    body();
  } catch (const Error&) {
    // Meant to fail when the table or column is already as wanted.
  }
}

// Refuses, before anything is made, a table or column name that the store of `cn` cannot hold.
void RefuseUnusableNames(db::Connection& cn, const std::string& table,
                         const TableDescription& ent) {
  const db::Driver& driver = cn.GetDriver();
  const auto check = [&](db::IdentifierKind kind, const std::string& name, const char* what) {
    const std::string why = driver.IdentifierProblem(kind, name);
    if (!why.empty()) {
      throw Error(targeterr::kUnusableName, "Table.Create",
                  std::string("The ") + what + " name \"" + text::EscapeControlCharacters(name) +
                      "\" cannot be used in this store: " + why + ".");
    }
  };
  check(db::IdentifierKind::Table, table, "table");
  for (const auto& f : ent.fields) check(db::IdentifierKind::Column, f.name, "column");
  for (const auto& c : ent.custom_columns) check(db::IdentifierKind::Column, c.name, "column");
  if (!ent.pk_column.empty()) check(db::IdentifierKind::Column, ent.pk_column, "key column");
  if (ent.parent && !ent.parent->pk_column.empty()) {
    check(db::IdentifierKind::Column, ent.parent->pk_column, "parent key column");
  }
}

// ---- SQLite ------------------------------------------------------------------------------------

std::string NormalizedType(std::string_view type) {
  std::string out;
  for (const char c : type) {
    if (c != ' ') out += text::AsciiToUpper(c);
  }
  return out;
}

// The width a VARCHAR(n) type declares, or -1 for a text without limit.
long DeclaredWidth(std::string_view type) {
  const std::string t = NormalizedType(type);
  const std::size_t open = t.find('(');
  if (t.find("CHAR") == std::string::npos || open == std::string::npos) return -1;
  try {
    return std::stol(t.substr(open + 1));
  } catch (...) {
    return -1;
  }
}

// The page size a SQLite target file is made with. Every commit writes the pages it changed
// whole, and a document's commit changes the file's header page, each table's root and the last
// page of each table's rows besides the pages its rows fill: with larger pages the same rows take
// fewer of them (about 10 pages of 4 KB a document of the bookshop sample, 6 of 16 KB). SQLite
// reads any page size; a file that already holds something keeps its own.
constexpr int kNewTargetPageSize = 16384;

// Gives a SQLite file that holds nothing yet (just made) the target page size.
void SizePagesOfNewFile(db::Connection& cn) {
  auto pages = cn.Execute("PRAGMA page_count");
  if (pages->IsEOF() || pages->GetFields()[0L].Value().ToLong() != 0) return;
  cn.ExecuteScript("PRAGMA page_size = " + std::to_string(kNewTargetPageSize));
}

class SqliteTable {
 public:
  SqliteTable(db::Connection& cn, std::string table) : cn_(cn), table_(std::move(table)) {}

  void Create() {
    Try([&] {
      cn_.ExecuteScript("CREATE TABLE " + QuoteSqliteName(table_) + "(" +
                        QuoteSqliteName(kPlaceholderColumn) + " INT)");
    });
  }

  // Adds the column, or gives an existing one the wanted type. `constraints` follow the type.
  void AddOrAlter(const std::string& column, const std::string& type,
                  const std::string& constraints) {
    if (column.empty()) {
      throw Error(errnum::kSyntaxError, "SQLite",
                  "A column of the table " + table_ + " has no name.");
    }
    const std::string definition = QuoteSqliteName(column) + " " + type + " " + constraints;
    try {
      cn_.ExecuteScript(Alter() + "ADD " + definition);
      return;
    } catch (const Error&) {
      // Exists already, or carries what SQLite cannot add by ALTER TABLE.
    }
    const auto existing = db::FindSqliteColumn(cn_, table_, column);
    if (!existing) {
      db::SqliteAddColumn(cn_, table_, definition);
      return;
    }
    if (NormalizedType(existing->declared_type) == NormalizedType(type)) return;
    RefuseTruncation(column, DeclaredWidth(type));
    db::SqliteChangeColumnType(cn_, table_, existing->name, type);
  }

  void DropPlaceholder() {
    Try([&] { cn_.ExecuteScript(Alter() + "DROP COLUMN " + QuoteSqliteName(kPlaceholderColumn)); });
  }

  // An identity column; nothing when the column exists.
  void AddSurrogateKey(const std::string& column) {
    Try([&] {
      if (db::FindSqliteColumn(cn_, table_, column)) return;
      db::SqliteAddColumn(cn_, table_,
                          QuoteSqliteName(column) + " INTEGER PRIMARY KEY AUTOINCREMENT");
    });
  }

  // A primary key on `column`; nothing when the table has one.
  void AddPrimaryKey(const std::string& column) {
    Try([&] {
      for (const auto& c : db::SqliteColumns(cn_, table_)) {
        if (c.in_primary_key) return;
      }
      db::SqliteAddTableConstraint(cn_, table_,
                                   "CONSTRAINT " + QuoteSqliteName("PK_" + table_) +
                                       " PRIMARY KEY (" + QuoteSqliteName(column) + ")");
    });
  }

 private:
  std::string Alter() const { return "ALTER TABLE " + QuoteSqliteName(table_) + " "; }

  // A narrower column must still hold every stored value, as a server refuses to cut them.
  void RefuseTruncation(const std::string& column, long width) {
    if (width < 0) return;
    const std::vector<Variant> params{Variant(static_cast<long long>(width))};
    auto rs = cn_.Execute("SELECT 1 FROM " + QuoteSqliteName(table_) + " WHERE length(" +
                              QuoteSqliteName(column) + ") > ? LIMIT 1",
                          params);
    if (!rs->IsEOF()) {
      throw Error(db::dberr::kDataTruncated, "SQLite",
                  "String or binary data would be truncated: column " + column + " of " + table_ +
                      " holds values longer than " + std::to_string(width) + " characters.");
    }
  }

  db::Connection& cn_;
  std::string table_;
};

// A negative size (and the size of a text without declared width) is a text without limit.
std::string SqliteTextType(std::int32_t size) {
  if (size < 0 || size >= db::kUnboundedTextSize) return "TEXT";
  return "VARCHAR(" + std::to_string(size) + ")";
}

// ---- the Jet statement -------------------------------------------------------------------------

std::string JetCreateStatement(const db::Driver& d, const TableDescription& ent) {
  std::string sql = "CREATE TABLE " + d.QuoteIdentifier(ent.table_name) + " (";
  for (const auto& f : ent.fields) sql += d.QuoteIdentifier(f.name) + " TEXT, ";
  for (const auto& c : ent.custom_columns) sql += d.QuoteIdentifier(c.name) + " TEXT, ";
  sql.resize(sql.size() >= 2 ? sql.size() - 2 : 0);
  return sql + ")";
}

bool RunJetCreate(std::string_view CnStr, const TableDescription& ent) {
  auto cn = db::Connection::Create();
  cn->Open(CnStr);
  RefuseUnusableNames(*cn, ent.table_name, ent);
  Try([&] { cn->Execute(JetCreateStatement(cn->GetDriver(), ent)); });
  return true;
}

// A name in SQL Server's brackets, a "]" doubled.
std::string Bracketed(std::string_view name) {
  return "[" + text::ReplaceAll(name, "]", "]]") + "]";
}

}  // namespace

bool Tbl::Create(std::string_view CnStr, const TableDescription& ent, bool UseTmpTbls,
                 std::string_view UniqueTblPrefix) {
  return ReportAs(
      "Tbl.Create(CnStr,ent,UseTmpTbls,UniqueTblPrefix)",
      Args(AsConnectionString(CnStr), ent, UseTmpTbls, UniqueTblPrefix), [&] {
        if (UseTmpTbls) {
          // Temporary tables live in the process's temporary store, whatever the target.
          CreateSQLite(CnStr, ent, true, UniqueTblPrefix);
          return true;
        }
        auto cn = db::Connection::Create();
        cn->SetConnectionString(CnStr);
        const std::string provider = cn->Provider();
        if (text::FindNoCase(provider, "MICROSOFT.JET.OLEDB") != text::npos) {
          CreateExcel(CnStr, ent);
        } else if (text::FindNoCase(provider, "SQLOLEDB") != text::npos) {
          CreateSQL(CnStr, ent, false, UniqueTblPrefix);
        } else if (text::StartsWithNoCase(provider, "SQLite")) {
          CreateSQLite(CnStr, ent, false, UniqueTblPrefix);
        } else if (text::FindNoCase(provider, "MySql") != text::npos ||
                   text::FindNoCase(CnStr, "MySql") != text::npos) {
          CreateMySQL(CnStr, ent);
        } else {
          throw Error(
              targeterr::kTableNotSupported, "Table.Create",
              "The Database provider " + provider +
                  " not supported for automatic creation.  You may still be able to extract "
                  "to it, but you must create it yourself.");
        }
        return true;
      });
}

void Tbl::CreateSQL(std::string_view CnStr, const TableDescription& Ent, bool UseTmpTbls,
                    std::string_view UniqueTblPrefix) {
  ReportAs(
      "Tbl.CreateSQL(CnStr,Ent,UseTmpTbls,UniqueTblPrefix)",
      Args(AsConnectionString(CnStr), Ent, UseTmpTbls, UniqueTblPrefix), [&] {
        const std::string t = TableFor(Ent, UseTmpTbls, UniqueTblPrefix);
        const std::string c(kPlaceholderColumn);
        auto cn = db::Connection::Create();
        cn->Open(CnStr);
        RefuseUnusableNames(*cn, t, Ent);
        Try([&] { cn->Execute("CREATE TABLE " + Bracketed(t) + "(" + Bracketed(c) + " [int])"); });
        const std::string a = "ALTER TABLE " + Bracketed(t) + " ";
        const auto add_or_alter = [&](const std::string& s) {
          try {
            cn->Execute(a + "ADD " + s);
          } catch (const Error&) {
            cn->Execute(a + "ALTER COLUMN " + s);
          }
        };
        std::string s;
        for (const auto& f : Ent.fields) {
          s = f.size < 0 ? Bracketed(f.name) + " VARCHAR(Max) NULL"
                         : Bracketed(f.name) + " VARCHAR(" + std::to_string(f.size) + ") NULL";
          add_or_alter(s);
        }
        Try([&] { cn->Execute(a + "DROP COLUMN " + Bracketed(c)); });
        for (const auto& col : Ent.custom_columns) {
          s = Bracketed(col.name) + " VARCHAR(" + std::to_string(col.size) + ") NULL";
          add_or_alter(s);
        }
        if (Ent.is_pk_surrogate && !Ent.pk_column.empty()) {
          Try([&] { cn->Execute(a + "ADD " + Bracketed(Ent.pk_column) + " INT IDENTITY"); });
        }
        if (!Ent.pk_column.empty()) {
          Try([&] {
            cn->Execute(a + "ADD CONSTRAINT " + Bracketed("PK_" + t) + " PRIMARY KEY (" +
                        Bracketed(Ent.pk_column) + ")");
          });
        }
        if (Ent.parent) {
          const ParentKey& p = *Ent.parent;
          // Without a key on the parent the last column definition is applied again, to no effect.
          if (p.is_pk_surrogate) {
            s = Bracketed(p.pk_column) + " INT NOT NULL";
          } else if (!p.pk_column.empty()) {
            s = Bracketed(p.pk_column) + " VARCHAR(" + std::to_string(p.pk_size) + ") NOT NULL";
          }
          if (!s.empty()) add_or_alter(s);
          const std::string fk = Bracketed("FK_" + p.table_name + "_" + t);
          Try([&] { cn->Execute(a + "DROP CONSTRAINT " + fk); });
          // Built as it always was: no blank before FOREIGN and the table itself after REFERENCES,
          // so it fails and the key column above is what a child table gets.
          Try([&] {
            cn->Execute(a + "ADD CONSTRAINT " + fk + "FOREIGN KEY (" + Bracketed(p.pk_column) +
                        ") REFERENCES " + Bracketed(t) + "(" + Bracketed(p.pk_column) + ")");
          });
        }
        // A global temporary table lasts as long as the connection that made it.
        if (UseTmpTbls) connection_ = cn;
      });
}

void Tbl::CreateSQLite(std::string_view CnStr, const TableDescription& Ent, bool UseTmpTbls,
                       std::string_view UniqueTblPrefix) {
  ReportAs("Tbl.CreateSQLite(CnStr,Ent,UseTmpTbls,UniqueTblPrefix)",
           Args(AsConnectionString(CnStr), Ent, UseTmpTbls, UniqueTblPrefix), [&] {
             const std::string t = TableFor(Ent, UseTmpTbls, UniqueTblPrefix);
             db::ConnectionPtr cn;
             if (UseTmpTbls) {
               auto temporary = TemporaryTable::Acquire(t);
               cn = temporary->Connection();
               temporary_.push_back(std::move(temporary));
             } else {
               cn = db::Connection::Create();
               cn->Open(CnStr);
               SizePagesOfNewFile(*cn);
             }
             RefuseUnusableNames(*cn, t, Ent);
             SqliteTable table(*cn, t);
             table.Create();
             for (const auto& f : Ent.fields)
               table.AddOrAlter(f.name, SqliteTextType(f.size), "NULL");
             table.DropPlaceholder();
             for (const auto& col : Ent.custom_columns) {
               table.AddOrAlter(col.name, SqliteTextType(std::max(col.size, std::int32_t{0})),
                                "NULL");
             }
             if (Ent.is_pk_surrogate && !Ent.pk_column.empty())
               table.AddSurrogateKey(Ent.pk_column);
             if (!Ent.pk_column.empty()) table.AddPrimaryKey(Ent.pk_column);
             if (Ent.parent) {
               const ParentKey& p = *Ent.parent;
               if (p.is_pk_surrogate) {
                 table.AddOrAlter(p.pk_column, "INT", "NOT NULL");
               } else if (!p.pk_column.empty()) {
                 table.AddOrAlter(p.pk_column, SqliteTextType(p.pk_size), "NOT NULL");
               }
               // SQLite cannot add a foreign-key constraint to a table; the key column is what a
               // child table gets, as it is on a server.
             }
           });
}

void Tbl::CreateMySQL(std::string_view CnStr, const TableDescription& Ent) {
  ReportAs("Tbl.CreateMySQL(CnStr,Ent)", Args(AsConnectionString(CnStr), Ent), [&] {
    auto cn = db::Connection::Create();
    cn->Open(CnStr);
    RefuseUnusableNames(*cn, Ent.table_name, Ent);
    const db::Driver& d = cn->GetDriver();
    const std::string t = d.QuoteIdentifier(Ent.table_name);
    const std::string c = d.QuoteIdentifier(kPlaceholderColumn);
    // A table this call makes and cannot finish is dropped again: no half-made table stays.
    const bool existed = cn->GetDriver().TableExists(Ent.table_name);
    try {
      cn->Execute("CREATE TABLE IF NOT EXISTS " + t + " ( " + c + " INT)");
      const std::string a = "ALTER TABLE " + t + " ";
      const auto add_or_change = [&](const std::string& name, std::int32_t size) {
        const std::string s =
            d.QuoteIdentifier(name) + " VARCHAR(" + std::to_string(size) + ") NULL";
        try {
          cn->Execute(a + "ADD " + s);
        } catch (const Error&) {
          cn->Execute(a + " CHANGE " + d.QuoteIdentifier(name) + " " + s);
        }
      };
      for (const auto& f : Ent.fields) add_or_change(f.name, f.size);
      Try([&] { cn->Execute(a + " DROP COLUMN " + c); });
      for (const auto& col : Ent.custom_columns) add_or_change(col.name, col.size);
    } catch (const Error&) {
      if (!existed) Try([&] { cn->Execute("DROP TABLE IF EXISTS " + t); });
      throw;
    }
    cn->Close();
  });
}

bool Tbl::CreateExcel(std::string_view CnStr, const TableDescription& Ent) {
  return ReportAs("Tbl.CreateExcel(CnStr,Ent)", Args(AsConnectionString(CnStr), Ent),
                  [&] { return RunJetCreate(CnStr, Ent); });
}

void Tbl::DeleteAllRows(std::string_view CnStr, const TableDescription& Ent) {
  ReportAs("Tbl.DeleteAllRows(CnStr,Ent)", Args(AsConnectionString(CnStr), Ent), [&] {
    if (CnStr.find("Excel") != std::string_view::npos) {
      // A sheet's rows cannot be deleted by statement.
      DeleteExcelFile(CnStr);
      CreateExcel(CnStr, Ent);
      return;
    }
    auto cn = db::Connection::Create();
    cn->Open(CnStr);
    const std::string table = cn->GetDriver().QuoteIdentifier(Ent.table_name);
    try {
      cn->Execute("DELETE " + table);
    } catch (const Error&) {
      cn->Execute("DELETE FROM " + table);
    }
    cn->Close();
  });
}

void Tbl::DeleteExcelFile(std::string_view CnStr) {
  ReportAs("Tbl.DeleteExcelFile(CnStr)", Args(AsConnectionString(CnStr)), [&] {
    const std::string file = targets_internal::GetParameter("Data Source", CnStr, ";");
    std::error_code ec;
    if (!std::filesystem::remove(file, ec)) {
      if (ec) throw Error(errnum::kPermissionDenied, "Tbl.DeleteExcelFile", "Permission denied");
      throw Error(errnum::kFileNotFound, "Tbl.DeleteExcelFile", "File not found");
    }
  });
}

}  // namespace gw
