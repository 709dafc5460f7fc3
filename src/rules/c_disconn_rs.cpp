#include "rules/c_disconn_rs.h"

#include <exception>
#include <optional>

#include "platform/db/report_capture.h"
#include "platform/text.h"
#include "rules/procedures.h"
#include "rules/rules_schema.h"
#include "rules/rules_transaction.h"
#include "rules/sql_dialect.h"

namespace gw {

namespace {

constexpr int kCommandTimeoutSeconds = 300;

// A statement made ready on its connection: the store's own text and parameters.
struct ReadyStatement {
  std::string sql;
  std::vector<Variant> params;
};

ReadyStatement Ready(db::Connection& cn, std::string_view SQLStatement,
                     const std::vector<Variant>& params) {
  cn.SetCommandTimeout(kCommandTimeoutSeconds);
  const std::string dialect(cn.GetDriver().Dialect());
  // SQL Server reads the library's date texts month first only when told so.
  if (text::FindNoCase(cn.Provider(), "SQLOLEDB") != text::npos) {
    const std::string set_format = TranslateSql("SET DATEFORMAT mdy", dialect);
    if (!set_format.empty()) cn.ExecuteNonQuery(set_format);
  }
  ReadyStatement ready;
  const auto exec = ParseExecStatement(SQLStatement);
  if (exec && !text::EqualsNoCase(dialect, "mssql")) {
    BoundStatement b = BindProcedureCall(dialect, *exec, params);
    ready.sql = std::move(b.sql);
    ready.params = std::move(b.params);
  } else {
    ready.sql = TranslateSql(SQLStatement, dialect);
    ready.params = params;
  }
  return ready;
}

// Runs `body(connection, own_connection, close)` on the rules transaction's or session's
// connection for `cn_str`, or on one of its own; a failure gets the frame `log_name` with `args`.
template <typename ArgsT, typename Body>
decltype(auto) OnConnection(const std::string& cn_str, std::string_view log_name, const ArgsT& args,
                            Body&& body) {
  // Inside a rules transaction or session the statement runs on its connection, which stays
  // open; a failure's report describes that connection and leaves its transaction to its owner.
  // A connection of its own is closed as the failure passes.
  db::ConnectionPtr cn;
  bool own_connection = false;
  try {
    cn = RulesTransaction::ActiveConnection(cn_str);
    if (!cn) cn = RulesSession::ActiveConnection(cn_str);
    own_connection = cn == nullptr;
    if (own_connection) cn = OpenRulesConnection(cn_str);
    const auto close = [&] {
      if (own_connection) cn->Close();
    };
    return body(cn, own_connection, close);
  } catch (...) {
    if (own_connection) RethrowWithCallStack(log_name, ArgsT(args).Db(cn, true));
    std::optional<Error> e = CurrentError(log_name);
    e->AddFrame(db::BorrowedConnectionFrame(log_name, args, e->Number(), cn.get()));
    throw *e;
  }
}

}  // namespace

db::RecordsetPtr CDisconnRS::RunQuery(std::string_view SQLStatement, bool ReadOnly,
                                      const std::vector<Variant>& params) const {
  return OnConnection(
      rules_db_conn_str_, "CDisconnRS.RunQuery(SQLStatement,ReadOnly)",
      Args(SQLStatement, ReadOnly), [&](const db::ConnectionPtr& cn, bool, const auto& close) {
        const ReadyStatement ready = Ready(*cn, SQLStatement, params);
        auto rs = db::Recordset::Create();
        if (ready.sql.empty() || !IsRowStatement(ready.sql)) {
          if (!ready.sql.empty()) cn->ExecuteNonQuery(ready.sql, ready.params);
          close();
          return rs;
        }
        if (ReadOnly) {
          rs->Open(ready.sql, cn, db::CursorType::Static, db::LockType::ReadOnly, ready.params);
          rs->SetActiveConnection(nullptr);
          close();
        } else {
          rs->Open(ready.sql, cn, db::CursorType::Keyset, db::LockType::Optimistic, ready.params);
        }
        return rs;
      });
}

bool CDisconnRS::ForEachRow(std::string_view SQLStatement,
                            const std::function<void(const db::Row&)>& each,
                            const std::vector<Variant>& params) const {
  // A failure of `each` is not the statement's: it stops the reading and passes on as it stands.
  std::exception_ptr visitor_failure;
  const bool yields_rows =
      OnConnection(rules_db_conn_str_, "CDisconnRS.ForEachRow(SQLStatement)", Args(SQLStatement),
                   [&](const db::ConnectionPtr& cn, bool own_connection, const auto& close) {
                     const ReadyStatement ready = Ready(*cn, SQLStatement, params);
                     if (ready.sql.empty() || !IsRowStatement(ready.sql)) {
                       if (!ready.sql.empty()) cn->ExecuteNonQuery(ready.sql, ready.params);
                       close();
                       return false;
                     }
                     const auto visit = [&](db::Row& row) {
                       try {
                         each(row);
                         return true;
                       } catch (...) {
                         visitor_failure = std::current_exception();
                         return false;
                       }
                     };
                     bool has_rows;
                     if (own_connection) {
                       has_rows = cn->ExecuteEach(ready.sql, ready.params, visit);
                     } else {
                       // The caller may write to the rules store while it is handed the rows: they
                       // are all read first, so the reading never sees the writing.
                       db::ResultSet all = cn->GetDriver().Execute(ready.sql, ready.params);
                       has_rows = all.has_columns;
                       for (db::Row& row : all.rows) {
                         if (!visit(row)) break;
                       }
                     }
                     close();
                     return has_rows;
                   });
  if (visitor_failure) std::rethrow_exception(visitor_failure);
  return yields_rows;
}

}  // namespace gw
