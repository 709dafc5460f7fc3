#include "rules/rules_transaction.h"

#include "platform/error.h"
#include "rules/connection_string.h"
#include "rules/rules_schema.h"

namespace gw {

namespace {
RulesTransaction* g_active = nullptr;
RulesSession* g_session = nullptr;
}  // namespace

RulesSession::RulesSession(std::string rules_db_conn_str)
    : cn_str_(rules_db_conn_str.empty() ? modConnectionString::GetCnStr()
                                        : std::move(rules_db_conn_str)) {
  ReportAs("RulesSession.Begin", [&] {
    if (g_session) {
      // An inner session on the outer one's store takes its connection; another store is
      // reached call by call, as without a session.
      if (g_session->cn_str_ == cn_str_) cn_ = g_session->cn_;
      return;
    }
    cn_ = OpenRulesConnection(cn_str_);
    // The run's commits are not synced one by one; the session's end syncs them.
    cn_->GetDriver().EnterSession();
    outermost_ = true;
    g_session = this;
  });
}

RulesSession::~RulesSession() {
  if (!outermost_) return;
  g_session = nullptr;
  try {
    if (cn_->IsOpen()) {
      cn_->GetDriver().LeaveSession();
      cn_->Close();
    }
  } catch (...) {
    // Closing discards what is left; nothing is pending between transactions.
  }
}

db::ConnectionPtr RulesSession::ActiveConnection(std::string_view cn_str) {
  if (g_session && g_session->cn_str_ == cn_str && g_session->cn_->IsOpen()) {
    return g_session->cn_;
  }
  return nullptr;
}

RulesTransaction::RulesTransaction(std::string rules_db_conn_str)
    : cn_str_(rules_db_conn_str.empty() ? modConnectionString::GetCnStr()
                                        : std::move(rules_db_conn_str)) {
  ReportAs("RulesTransaction.Begin", [&] {
    if (g_active) {
      throw Error(errnum::kOperationNotAllowed, "RulesTransaction",
                  "A transaction on the rules store is already under way.");
    }
    cn_ = RulesSession::ActiveConnection(cn_str_);
    session_connection_ = cn_ != nullptr;
    if (!session_connection_) cn_ = OpenRulesConnection(cn_str_);
    cn_->BeginTrans();
    open_ = true;
    g_active = this;
  });
}

RulesTransaction::~RulesTransaction() {
  try {
    if (open_) End(false);
  } catch (...) {
    // A failed rollback leaves nothing to do: closing the connection discards the transaction.
  }
  if (g_active == this) g_active = nullptr;
  if (cn_ && cn_->IsOpen() && !session_connection_) cn_->Close();
}

void RulesTransaction::Commit() {
  ReportAs("RulesTransaction.Commit", [&] { End(true); });
}

void RulesTransaction::Rollback() {
  ReportAs("RulesTransaction.Rollback", [&] { End(false); });
}

void RulesTransaction::End(bool commit) {
  if (!open_) {
    throw Error(errnum::kOperationNotAllowed, "RulesTransaction",
                "The transaction on the rules store has ended.");
  }
  open_ = false;
  g_active = nullptr;
  // The session's connection stays open, also when the commit fails: it is rolled back then.
  struct CloseOwn {
    RulesTransaction& t;
    ~CloseOwn() {
      if (t.session_connection_) {
        if (t.cn_->GetDriver().InTransaction()) {
          try {
            t.cn_->RollbackTrans();
          } catch (...) {
            // The store went away; the session's next statement says so.
          }
        }
      } else {
        t.cn_->Close();
      }
    }
  } close{*this};
  if (commit) {
    cn_->CommitTrans();
  } else {
    cn_->RollbackTrans();
  }
}

db::ConnectionPtr RulesTransaction::ActiveConnection(std::string_view cn_str) {
  if (g_active && g_active->open_ && g_active->cn_str_ == cn_str) return g_active->cn_;
  return nullptr;
}

}  // namespace gw
