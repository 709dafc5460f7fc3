#include "rules/c_disconn_rs.h"

#include "platform/db/report_capture.h"
#include "platform/text.h"
#include "rules/procedures.h"
#include "rules/rules_schema.h"
#include "rules/rules_transaction.h"
#include "rules/sql_dialect.h"

namespace gw {

namespace {
constexpr int kCommandTimeoutSeconds = 300;
}  // namespace

db::RecordsetPtr CDisconnRS::RunQuery(std::string_view SQLStatement, bool ReadOnly,
                                      const std::vector<Variant>& params) const {
  // Inside a rules transaction or session the statement runs on its connection, which stays
  // open; a failure's report describes that connection and leaves its transaction to its owner.
  // A connection of its own is closed as the failure passes.
  db::ConnectionPtr cn;
  bool own_connection = false;
  try {
    cn = RulesTransaction::ActiveConnection(rules_db_conn_str_);
    if (!cn) cn = RulesSession::ActiveConnection(rules_db_conn_str_);
    own_connection = cn == nullptr;
    if (own_connection) cn = OpenRulesConnection(rules_db_conn_str_);
    const auto close = [&] {
      if (own_connection) cn->Close();
    };
    cn->SetCommandTimeout(kCommandTimeoutSeconds);
    const std::string dialect(cn->GetDriver().Dialect());

    // SQL Server reads the library's date texts month first only when told so.
    if (text::FindNoCase(cn->Provider(), "SQLOLEDB") != text::npos) {
      const std::string set_format = TranslateSql("SET DATEFORMAT mdy", dialect);
      if (!set_format.empty()) cn->ExecuteNonQuery(set_format);
    }

    std::string sql;
    std::vector<Variant> bound;
    const auto exec = ParseExecStatement(SQLStatement);
    if (exec && !text::EqualsNoCase(dialect, "mssql")) {
      BoundStatement b = BindProcedureCall(dialect, *exec, params);
      sql = std::move(b.sql);
      bound = std::move(b.params);
    } else {
      sql = TranslateSql(SQLStatement, dialect);
      bound = params;
    }

    auto rs = db::Recordset::Create();
    if (sql.empty() || !IsRowStatement(sql)) {
      if (!sql.empty()) cn->ExecuteNonQuery(sql, bound);
      close();
      return rs;
    }
    if (ReadOnly) {
      rs->Open(sql, cn, db::CursorType::Static, db::LockType::ReadOnly, bound);
      rs->SetActiveConnection(nullptr);
      close();
    } else {
      rs->Open(sql, cn, db::CursorType::Keyset, db::LockType::Optimistic, bound);
    }
    return rs;
  } catch (...) {
    constexpr std::string_view kLogName = "CDisconnRS.RunQuery(SQLStatement,ReadOnly)";
    if (own_connection) {
      RethrowWithCallStack(kLogName, Args(SQLStatement, ReadOnly).Db(cn, true));
    }
    std::optional<Error> e = CurrentError(kLogName);
    e->AddFrame(
        db::BorrowedConnectionFrame(kLogName, Args(SQLStatement, ReadOnly), e->Number(), cn.get()));
    throw *e;
  }
}

}  // namespace gw
