// The stored procedures of the rules database ("usp_..."), as SQL of each store's dialect.
//
// A procedure is one statement whose arguments are numbered parameters (?1, ?2, ...), read from
// the dialect's embedded "procedures" script. `BindProcedureCall` turns an "Exec" call into that
// statement and its parameters, so every argument reaches the store as a bound value.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/variant.h"
#include "rules/sql_dialect.h"

namespace gw {

struct StoredProcedure {
  std::string name;
  std::vector<std::string> arguments;  // in call order
  std::string body;                    // one statement using ?1 .. ?n
};

// The procedure of that name (names ignore case) for a dialect, or nullptr. The catalogue of a
// dialect is read once and lives for the process.
const StoredProcedure* FindStoredProcedure(std::string_view dialect, std::string_view name);
// Every procedure of a dialect, in the order of its script.
const std::vector<StoredProcedure>& StoredProcedures(std::string_view dialect);

struct BoundStatement {
  std::string sql;
  std::vector<Variant> params;
};

// The statement that runs `call` on a store of `dialect`. Placeholder arguments take `params` in
// order. Failures: an unknown procedure 0x80040E14 ("Could not find stored procedure 'x'."); too
// few arguments 0x80040E10; too many 0x80040E14; placeholders and parameters that do not pair up
// 3001.
BoundStatement BindProcedureCall(std::string_view dialect, const ExecCall& call,
                                 std::span<const Variant> params);

}  // namespace gw
