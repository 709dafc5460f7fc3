#include "rules/sql_dialect.h"

#include <cctype>

#include "platform/date_time.h"
#include "platform/db/types.h"
#include "platform/error.h"
#include "platform/text.h"

namespace gw {

namespace {

bool IsDigit(char c) { return c >= '0' && c <= '9'; }
bool IsSpace(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }
bool IsWordChar(char c) {
  return std::isalnum(static_cast<unsigned char>(c)) || c == '_' ||
         static_cast<unsigned char>(c) >= 0x80;
}

[[noreturn]] void FailSyntax(std::string text) {
  throw Error(db::dberr::kSyntax, "Rules store", std::move(text));
}

// Reads a '...' literal starting at s[i] == '\''; returns its content, `i` past the closing quote.
std::optional<std::string> ReadStringLiteral(std::string_view s, std::size_t& i) {
  std::string value;
  if (!text::ReadQuoted(s, i, '\'', value)) return std::nullopt;  // unterminated
  return value;
}

std::string QuoteLiteral(std::string_view value) {
  return "'" + text::ReplaceAll(value, "'", "''") + "'";
}

std::string QuoteIdentifier(std::string_view name, char quote) {
  std::string out(1, quote);
  for (char c : name) {
    if (c == quote) out += quote;
    out += c;
  }
  out += quote;
  return out;
}

std::size_t SkipSpaces(std::string_view s, std::size_t i) {
  while (i < s.size() && IsSpace(s[i])) ++i;
  return i;
}

// The keyword at `i` (letters only), compared without case; returns the position after it, or
// npos when the text at `i` is not that word.
std::size_t MatchWord(std::string_view s, std::size_t i, std::string_view word) {
  if (s.size() - i < word.size() || !text::EqualsNoCase(s.substr(i, word.size()), word)) {
    return std::string_view::npos;
  }
  const std::size_t end = i + word.size();
  if (end < s.size() && IsWordChar(s[end])) return std::string_view::npos;
  return end;
}

// Finds "SELECT [DISTINCT|ALL] TOP n" / "TOP (n)" at the start of `s`; returns the text without the
// TOP clause and the row limit.
std::optional<std::pair<std::string, std::string>> SplitTop(std::string_view s) {
  std::size_t i = SkipSpaces(s, 0);
  std::size_t p = MatchWord(s, i, "SELECT");
  if (p == std::string_view::npos) return std::nullopt;
  std::size_t q = SkipSpaces(s, p);
  for (std::string_view quantifier : {"DISTINCT", "ALL"}) {
    const std::size_t after = MatchWord(s, q, quantifier);
    if (after != std::string_view::npos) {
      q = SkipSpaces(s, after);
      break;
    }
  }
  const std::size_t top_start = q;
  std::size_t r = MatchWord(s, q, "TOP");
  if (r == std::string_view::npos) return std::nullopt;
  r = SkipSpaces(s, r);
  bool paren = false;
  if (r < s.size() && s[r] == '(') {
    paren = true;
    r = SkipSpaces(s, r + 1);
  }
  const std::size_t digits = r;
  while (r < s.size() && IsDigit(s[r])) ++r;
  if (r == digits) return std::nullopt;
  std::string limit(s.substr(digits, r - digits));
  if (paren) {
    r = SkipSpaces(s, r);
    if (r >= s.size() || s[r] != ')') return std::nullopt;
    ++r;
  }
  std::string rest = std::string(s.substr(0, top_start)) + std::string(s.substr(SkipSpaces(s, r)));
  return std::make_pair(std::move(rest), std::move(limit));
}

// Out of line: GCC 12 reports a false "maybe uninitialized" when the Variant is built in place.
[[gnu::noinline]] void AddArgument(ExecCall& call, bool placeholder, Variant value) {
  call.arguments.emplace_back();
  call.arguments.back().placeholder = placeholder;
  call.arguments.back().value = std::move(value);
}

}  // namespace

std::optional<std::string> UsDateLiteralToIso(std::string_view t) {
  // m[m]-d[d]-yyyy or with "/", then optionally " h[h]:mm[:ss]".
  std::size_t i = 0;
  auto number = [&](std::size_t min_digits, std::size_t max_digits) {
    const std::size_t start = i;
    while (i < t.size() && IsDigit(t[i]) && i - start < max_digits) ++i;
    return i - start >= min_digits;
  };
  if (!number(1, 2) || i >= t.size() || (t[i] != '-' && t[i] != '/')) return std::nullopt;
  const char sep = t[i++];
  if (!number(1, 2) || i >= t.size() || t[i] != sep) return std::nullopt;
  ++i;
  if (!number(4, 4)) return std::nullopt;
  if (i < t.size()) {
    if (t[i] != ' ') return std::nullopt;
    ++i;
    if (!number(1, 2) || i >= t.size() || t[i] != ':') return std::nullopt;
    ++i;
    if (!number(2, 2)) return std::nullopt;
    if (i < t.size()) {
      if (t[i] != ':') return std::nullopt;
      ++i;
      if (!number(2, 2)) return std::nullopt;
    }
    if (i != t.size()) return std::nullopt;
  }
  const auto d = DateTime::ParseUs(t);
  if (!d) return std::nullopt;
  return d->ToIsoText();
}

std::string TranslateSql(std::string_view sql, std::string_view dialect) {
  if (text::EqualsNoCase(dialect, "mssql")) return std::string(sql);
  const char quote = text::EqualsNoCase(dialect, "mysql") ? '`' : '"';

  std::string_view trimmed = text::TrimWhitespace(sql);
  if (MatchWord(trimmed, 0, "SET") != std::string_view::npos) {
    const std::size_t p = SkipSpaces(trimmed, 3);
    if (MatchWord(trimmed, p, "DATEFORMAT") != std::string_view::npos) return {};
  }

  std::string out;
  out.reserve(sql.size() + 16);
  std::size_t i = 0;
  while (i < sql.size()) {
    const char c = sql[i];
    if (c == '\'') {
      const std::size_t start = i;
      const auto value = ReadStringLiteral(sql, i);
      if (!value) {  // unterminated: leave it for the store to refuse
        out.append(sql.substr(start));
        break;
      }
      if (auto iso = UsDateLiteralToIso(*value)) {
        out += QuoteLiteral(*iso);
      } else {
        out.append(sql.substr(start, i - start));
      }
    } else if (c == '"' || c == '`') {
      const std::size_t close = sql.find(c, i + 1);
      const std::size_t end = close == std::string_view::npos ? sql.size() : close + 1;
      out.append(sql.substr(i, end - i));
      i = end;
    } else if (c == '[') {
      std::size_t k = i;
      std::string name;
      if (!text::ReadQuoted(sql, k, ']', name)) {
        out.append(sql.substr(i));
        break;
      }
      out += QuoteIdentifier(name, quote);
      i = k;
    } else if (c == '-' && i + 1 < sql.size() && sql[i + 1] == '-') {
      const std::size_t eol = sql.find('\n', i);
      const std::size_t end = eol == std::string_view::npos ? sql.size() : eol;
      out.append(sql.substr(i, end - i));
      i = end;
    } else if (c == '/' && i + 1 < sql.size() && sql[i + 1] == '*') {
      const std::size_t close = sql.find("*/", i + 2);
      const std::size_t end = close == std::string_view::npos ? sql.size() : close + 2;
      out.append(sql.substr(i, end - i));
      i = end;
    } else {
      out += c;
      ++i;
    }
  }

  if (auto top = SplitTop(out)) {
    std::string body = std::move(top->first);
    std::size_t end = body.size();
    while (end > 0 && (IsSpace(body[end - 1]) || body[end - 1] == ';')) --end;
    body.resize(end);
    out = body + " LIMIT " + top->second;
  }
  return out;
}

std::optional<ExecCall> ParseExecStatement(std::string_view sql) {
  std::size_t i = SkipSpaces(sql, 0);
  std::size_t p = MatchWord(sql, i, "EXECUTE");
  if (p == std::string_view::npos) p = MatchWord(sql, i, "EXEC");
  if (p == std::string_view::npos) return std::nullopt;
  i = SkipSpaces(sql, p);

  ExecCall call;
  // The name: parts separated by ".", each bare or in brackets; the last part counts.
  while (true) {
    std::string part;
    if (i < sql.size() && sql[i] == '[') {
      const std::size_t close = sql.find(']', i + 1);
      if (close == std::string_view::npos) FailSyntax("Unclosed bracket in: " + std::string(sql));
      part = std::string(sql.substr(i + 1, close - i - 1));
      i = close + 1;
    } else {
      const std::size_t start = i;
      while (i < sql.size() && IsWordChar(sql[i])) ++i;
      part = std::string(sql.substr(start, i - start));
    }
    if (part.empty()) FailSyntax("A procedure name is missing in: " + std::string(sql));
    call.procedure = std::move(part);
    if (i < sql.size() && sql[i] == '.') {
      ++i;
      continue;
    }
    break;
  }
  if (i < sql.size() && !IsSpace(sql[i]) && sql[i] != ';') {
    FailSyntax("Incorrect syntax near '" + std::string(sql.substr(i, 1)) +
               "': " + std::string(sql));
  }

  i = SkipSpaces(sql, i);
  bool expect_argument = false;
  while (i < sql.size() && sql[i] != ';') {
    if (sql[i] == '?') {
      AddArgument(call, true, Variant());
      ++i;
    } else if (sql[i] == '\'' ||
               ((sql[i] == 'N' || sql[i] == 'n') && i + 1 < sql.size() && sql[i + 1] == '\'')) {
      if (sql[i] != '\'') ++i;
      auto value = ReadStringLiteral(sql, i);
      if (!value) FailSyntax("Unclosed quotation mark in: " + std::string(sql));
      if (auto iso = UsDateLiteralToIso(*value)) value = *iso;
      AddArgument(call, false, Variant(std::move(*value)));
    } else if (MatchWord(sql, i, "NULL") != std::string_view::npos) {
      AddArgument(call, false, Variant(kNull));
      i += 4;
    } else {
      const std::size_t start = i;
      while (i < sql.size() && sql[i] != ',' && sql[i] != ';' && !IsSpace(sql[i])) ++i;
      const std::string_view token = sql.substr(start, i - start);
      double number = 0;
      if (token.empty() || !ParseNumber(token, number)) {
        FailSyntax("Incorrect syntax near '" + std::string(token) + "': " + std::string(sql));
      }
      if (number == static_cast<double>(static_cast<long long>(number)) &&
          token.find_first_of(".eE") == std::string_view::npos) {
        AddArgument(call, false, Variant(static_cast<long long>(number)));
      } else {
        AddArgument(call, false, Variant(number));
      }
    }
    expect_argument = false;
    i = SkipSpaces(sql, i);
    if (i < sql.size() && sql[i] == ',') {
      expect_argument = true;
      i = SkipSpaces(sql, i + 1);
    } else if (i < sql.size() && sql[i] != ';') {
      FailSyntax("Incorrect syntax near '" + std::string(sql.substr(i, 1)) +
                 "': " + std::string(sql));
    }
  }
  if (expect_argument) FailSyntax("An argument is missing after ',' in: " + std::string(sql));
  if (i < sql.size() && !text::TrimWhitespace(sql.substr(i + 1)).empty()) {
    FailSyntax("Only one statement can follow Exec: " + std::string(sql));
  }
  return call;
}

bool IsRowStatement(std::string_view sql) {
  std::size_t i = 0;
  while (true) {
    i = SkipSpaces(sql, i);
    if (i < sql.size() && sql[i] == '(') {
      ++i;
    } else if (sql.substr(i, 2) == "--") {
      const std::size_t eol = sql.find('\n', i);
      if (eol == std::string_view::npos) return false;
      i = eol + 1;
    } else if (sql.substr(i, 2) == "/*") {
      const std::size_t close = sql.find("*/", i + 2);
      if (close == std::string_view::npos) return false;
      i = close + 2;
    } else {
      break;
    }
  }
  for (std::string_view word : {"SELECT", "WITH", "VALUES", "EXPLAIN"}) {
    if (MatchWord(sql, i, word) != std::string_view::npos) return true;
  }
  if (MatchWord(sql, i, "PRAGMA") != std::string_view::npos) {
    return sql.find('=', i) == std::string_view::npos;
  }
  return false;
}

}  // namespace gw
