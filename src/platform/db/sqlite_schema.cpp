#include "platform/db/sqlite_schema.h"

#include <array>
#include <functional>

#include "platform/db/recordset.h"
#include "platform/text.h"

namespace gw::db {

namespace {

[[noreturn]] void ThrowUnreadable(std::string_view what) {
  throw Error(errnum::kSyntaxError, "SQLite",
              "The table's CREATE statement cannot be read: " + std::string(what));
}

bool IsSpace(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\f'; }

// Skips blanks and comments from `i`.
std::size_t SkipBlanks(std::string_view s, std::size_t i) {
  while (i < s.size()) {
    if (IsSpace(s[i])) {
      ++i;
    } else if (s.substr(i, 2) == "--") {
      const std::size_t end = s.find('\n', i);
      i = end == std::string_view::npos ? s.size() : end + 1;
    } else if (s.substr(i, 2) == "/*") {
      const std::size_t end = s.find("*/", i + 2);
      i = end == std::string_view::npos ? s.size() : end + 2;
    } else {
      break;
    }
  }
  return i;
}

// The end of the token that starts at `i` (a quoted name or text, a parenthesised group, one
// punctuation character or a bare word).
std::size_t TokenEnd(std::string_view s, std::size_t i) {
  const char c = s[i];
  if (c == '"' || c == '\'' || c == '`' || c == '[') {
    const char close = c == '[' ? ']' : c;
    std::size_t k = i + 1;
    while (k < s.size()) {
      if (s[k] == close) {
        if (close != ']' && k + 1 < s.size() && s[k + 1] == close) {
          k += 2;
          continue;
        }
        return k + 1;
      }
      ++k;
    }
    ThrowUnreadable("an unterminated quote");
  }
  if (c == '(') {
    int depth = 0;
    std::size_t k = i;
    while (k < s.size()) {
      const char d = s[k];
      if (d == '"' || d == '\'' || d == '`' || d == '[') {
        k = TokenEnd(s, k);
        continue;
      }
      if (d == '(') ++depth;
      if (d == ')' && --depth == 0) return k + 1;
      ++k;
    }
    ThrowUnreadable("unbalanced parentheses");
  }
  if (c == ')' || c == ',') return i + 1;
  std::size_t k = i;
  while (k < s.size() && !IsSpace(s[k]) && std::string_view("(),\"'`[").find(s[k]) == s.npos &&
         s.substr(k, 2) != "--" && s.substr(k, 2) != "/*") {
    ++k;
  }
  return k;
}

std::string Unquote(std::string_view token) {
  if (token.size() >= 2) {
    const char c = token.front();
    if (c == '[' && token.back() == ']') return std::string(token.substr(1, token.size() - 2));
    if ((c == '"' || c == '`' || c == '\'') && token.back() == c) {
      return text::ReplaceAll(token.substr(1, token.size() - 2), std::string(2, c),
                              std::string(1, c));
    }
  }
  return std::string(token);
}

bool IsConstraintKeyword(std::string_view word) {
  static constexpr std::array<std::string_view, 11> kWords = {
      "CONSTRAINT", "PRIMARY",    "NOT",       "NULL", "UNIQUE", "CHECK",
      "DEFAULT",    "REFERENCES", "GENERATED", "AS",   "COLLATE"};
  for (const auto w : kWords) {
    if (text::EqualsNoCase(word, w)) return true;
  }
  return false;
}

struct TableSql {
  std::string name;  // as stored
  std::string sql;
};

std::optional<TableSql> ReadTableSql(db::Connection& cn, std::string_view table) {
  const std::vector<Variant> params{Variant(table)};
  auto rs = cn.Execute(
      "SELECT name, sql FROM sqlite_master WHERE type = 'table' AND name = ? COLLATE NOCASE",
      params);
  if (rs->IsEOF()) return std::nullopt;
  return TableSql{rs->GetFields().Item(0L).Value().ToText(),
                  rs->GetFields().Item(1L).Value().ToText()};
}

// Rebuilds `table` with the definitions that `edit` makes of the old ones.
void Rebuild(db::Connection& cn, std::string_view table,
             const std::function<void(std::vector<std::string>&)>& edit) {
  const auto old = ReadTableSql(cn, table);
  if (!old) {
    throw Error(dberr::kNoSuchTable, "SQLite", "no such table: " + std::string(table));
  }
  CreateTableParts parts = SplitCreateTable(old->sql);
  edit(parts.definitions);

  const bool foreign_keys =
      cn.Execute("PRAGMA foreign_keys")->GetFields().Item(0L).Value().ToLong();
  if (foreign_keys) cn.ExecuteScript("PRAGMA foreign_keys = OFF");
  cn.BeginTrans();
  try {
    // What belongs to the table and goes with it when it is dropped.
    const std::vector<Variant> params{Variant(old->name)};
    auto others = cn.Execute(
        "SELECT sql FROM sqlite_master WHERE tbl_name = ? AND type IN ('index', 'trigger') AND "
        "sql IS NOT NULL",
        params);
    std::vector<std::string> recreate;
    for (; !others->IsEOF(); others->MoveNext()) {
      recreate.push_back(others->GetFields().Item(0L).Value().ToText());
    }
    // Ordinary columns only: generated ones are computed again.
    std::string columns;
    auto info = cn.Execute("SELECT name FROM pragma_table_xinfo(?) WHERE hidden = 0", params);
    for (; !info->IsEOF(); info->MoveNext()) {
      if (!columns.empty()) columns += ", ";
      columns += QuoteSqliteName(info->GetFields().Item(0L).Value().ToText());
    }

    const std::string scratch = old->name + "_gw_rebuild";
    cn.ExecuteScript("CREATE TABLE " + QuoteSqliteName(scratch) + "(" +
                     text::Join(parts.definitions, ", ") + ")" + parts.tail);
    cn.ExecuteScript("INSERT INTO " + QuoteSqliteName(scratch) + " (" + columns + ") SELECT " +
                     columns + " FROM " + QuoteSqliteName(old->name));
    cn.ExecuteScript("DROP TABLE " + QuoteSqliteName(old->name));
    // Views that name the table must not stop the rename while the table is away.
    cn.ExecuteScript("PRAGMA legacy_alter_table = ON");
    cn.ExecuteScript("ALTER TABLE " + QuoteSqliteName(scratch) + " RENAME TO " +
                     QuoteSqliteName(old->name));
    cn.ExecuteScript("PRAGMA legacy_alter_table = OFF");
    for (const auto& sql : recreate) cn.ExecuteScript(sql);
    if (foreign_keys) {
      auto broken = cn.Execute("SELECT 1 FROM pragma_foreign_key_check(?)", params);
      if (!broken->IsEOF()) {
        throw Error(dberr::kIntegrity, "SQLite",
                    "FOREIGN KEY constraint failed while rebuilding " + old->name);
      }
    }
    cn.CommitTrans();
  } catch (...) {
    try {
      cn.ExecuteScript("PRAGMA legacy_alter_table = OFF");
      cn.RollbackTrans();
      if (foreign_keys) cn.ExecuteScript("PRAGMA foreign_keys = ON");
    } catch (const Error&) {
      // The first failure is the one to report.
    }
    throw;
  }
  if (foreign_keys) cn.ExecuteScript("PRAGMA foreign_keys = ON");
}

}  // namespace

std::string QuoteSqliteName(std::string_view name) {
  return "\"" + text::ReplaceAll(name, "\"", "\"\"") + "\"";
}

CreateTableParts SplitCreateTable(std::string_view sql) {
  std::size_t i = SkipBlanks(sql, 0);
  // Up to the column list: CREATE [TEMP] TABLE [IF NOT EXISTS] name
  while (i < sql.size() && sql[i] != '(') {
    i = SkipBlanks(sql, TokenEnd(sql, i));
  }
  if (i >= sql.size()) ThrowUnreadable("no column list");
  const std::size_t close = TokenEnd(sql, i);
  CreateTableParts parts;
  parts.tail = std::string(sql.substr(close));
  const std::string_view inside = sql.substr(i + 1, close - i - 2);
  std::size_t start = 0;
  std::size_t k = SkipBlanks(inside, 0);
  while (k < inside.size()) {
    if (inside[k] == ',') {
      parts.definitions.emplace_back(text::TrimWhitespace(inside.substr(start, k - start)));
      start = k + 1;
      k = SkipBlanks(inside, k + 1);
      continue;
    }
    k = SkipBlanks(inside, TokenEnd(inside, k));
  }
  const std::string_view last = text::TrimWhitespace(inside.substr(start));
  if (!last.empty()) parts.definitions.emplace_back(last);
  return parts;
}

bool IsTableConstraint(std::string_view definition) {
  const std::size_t i = SkipBlanks(definition, 0);
  if (i >= definition.size()) return false;
  const std::string_view word = definition.substr(i, TokenEnd(definition, i) - i);
  for (const char* w : {"CONSTRAINT", "PRIMARY", "UNIQUE", "CHECK", "FOREIGN"}) {
    if (text::EqualsNoCase(word, w)) return true;
  }
  return false;
}

std::string DefinitionColumnName(std::string_view definition) {
  const std::size_t i = SkipBlanks(definition, 0);
  if (i >= definition.size()) return {};
  return Unquote(definition.substr(i, TokenEnd(definition, i) - i));
}

std::string ReplaceDeclaredType(std::string_view definition, std::string_view type) {
  std::size_t i = SkipBlanks(definition, 0);
  const std::size_t name_end = TokenEnd(definition, i);
  // The type runs from the name to the first constraint keyword (or the end).
  std::size_t type_end = name_end;
  i = SkipBlanks(definition, name_end);
  while (i < definition.size()) {
    const std::size_t end = TokenEnd(definition, i);
    if (IsConstraintKeyword(definition.substr(i, end - i))) break;
    type_end = end;
    i = SkipBlanks(definition, end);
  }
  return std::string(definition.substr(0, name_end)) + " " + std::string(type) +
         std::string(definition.substr(type_end));
}

std::vector<SqliteColumn> SqliteColumns(db::Connection& cn, std::string_view table) {
  std::vector<SqliteColumn> columns;
  const std::vector<Variant> params{Variant(table)};
  auto rs = cn.Execute("SELECT name, type, \"notnull\", pk FROM pragma_table_info(?)", params);
  for (; !rs->IsEOF(); rs->MoveNext()) {
    auto& f = rs->GetFields();
    columns.push_back(SqliteColumn{f.Item(0L).Value().ToText(), f.Item(1L).Value().ToText(),
                                   f.Item(2L).Value().ToLong() != 0,
                                   f.Item(3L).Value().ToLong() != 0});
  }
  return columns;
}

std::optional<SqliteColumn> FindSqliteColumn(db::Connection& cn, std::string_view table,
                                             std::string_view column) {
  for (auto& c : SqliteColumns(cn, table)) {
    if (text::EqualsNoCase(c.name, column)) return c;
  }
  return std::nullopt;
}

void SqliteChangeColumnType(db::Connection& cn, std::string_view table, std::string_view column,
                            std::string_view type) {
  Rebuild(cn, table, [&](std::vector<std::string>& definitions) {
    for (auto& d : definitions) {
      if (!IsTableConstraint(d) && text::EqualsNoCase(DefinitionColumnName(d), column)) {
        d = ReplaceDeclaredType(d, type);
        return;
      }
    }
    ThrowUnreadable("no column " + std::string(column));
  });
}

void SqliteAddColumn(db::Connection& cn, std::string_view table, std::string_view column_def) {
  Rebuild(cn, table, [&](std::vector<std::string>& definitions) {
    // Column definitions come before table constraints.
    auto it = definitions.begin();
    while (it != definitions.end() && !IsTableConstraint(*it)) ++it;
    definitions.insert(it, std::string(column_def));
  });
}

void SqliteAddTableConstraint(db::Connection& cn, std::string_view table,
                              std::string_view constraint) {
  Rebuild(cn, table,
          [&](std::vector<std::string>& definitions) { definitions.emplace_back(constraint); });
}

}  // namespace gw::db
