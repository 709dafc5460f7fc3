// The library writes its statements in SQL Server's dialect ("[name]" identifiers, "SELECT TOP n",
// dates as 'mm-dd-yyyy hh:mm:ss', "SET DATEFORMAT mdy") and calls its procedures as
// "Exec usp_Name 'a', 5". This is the one place where such text is made to run on another store.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/variant.h"

namespace gw {

// `sql` rewritten for a driver's dialect ("sqlite", "mysql", "postgresql"); unchanged for
// "mssql". The rewriting is textual and knows only what the library's statements use:
//  - "[name]" becomes the dialect's quoted identifier;
//  - "SELECT [DISTINCT] TOP n ..." at the start becomes "SELECT [DISTINCT] ... LIMIT n";
//  - a string literal holding a US date ('01-31-2026 14:05:00', '1/31/2026') becomes
//    'yyyy-mm-dd hh:mm:ss', the form dates are stored in;
//  - "SET DATEFORMAT ..." becomes the empty statement (dates are never read month first here).
// String literals, quoted identifiers and comments are otherwise copied as they are.
std::string TranslateSql(std::string_view sql, std::string_view dialect);

// One argument of an "Exec": a literal value, or a "?" placeholder that takes the next bound
// parameter.
struct ExecArgument {
  bool placeholder = false;
  Variant value;
};

// A parsed "Exec usp_Name arg, arg".
struct ExecCall {
  std::string procedure;
  std::vector<ExecArgument> arguments;
};

// Reads an "Exec"/"Execute" statement (the name may be written "dbo.usp_Name" or "[usp_Name]";
// arguments are "?", 'text', N'text', numbers or NULL, separated by commas). nullopt when the
// statement is not a procedure call; a call with a malformed argument fails with 0x80040E14.
std::optional<ExecCall> ParseExecStatement(std::string_view sql);

// True when the statement yields rows (SELECT, WITH, VALUES, a PRAGMA that reads), so that a
// recordset can be opened on it; other statements are executed and give a closed recordset.
bool IsRowStatement(std::string_view sql);

// The 'mm-dd-yyyy hh:mm:ss' (or 'm/d/yyyy') text of a US date as "yyyy-mm-dd hh:mm:ss";
// nullopt when `literal` is not exactly such a date.
std::optional<std::string> UsDateLiteralToIso(std::string_view literal);

}  // namespace gw
