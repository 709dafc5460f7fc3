#include "rules/rules_transaction.h"

#include "platform/error.h"
#include "rules/connection_string.h"
#include "rules/rules_schema.h"

namespace gw {

namespace {
RulesTransaction* g_active = nullptr;
}  // namespace

RulesTransaction::RulesTransaction(std::string rules_db_conn_str)
    : cn_str_(rules_db_conn_str.empty() ? modConnectionString::GetCnStr()
                                        : std::move(rules_db_conn_str)) {
  ReportAs("RulesTransaction.Begin", [&] {
    if (g_active) {
      throw Error(errnum::kOperationNotAllowed, "RulesTransaction",
                  "A transaction on the rules store is already under way.");
    }
    cn_ = OpenRulesConnection(cn_str_);
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
  if (cn_ && cn_->IsOpen()) cn_->Close();
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
  if (commit) {
    cn_->CommitTrans();
  } else {
    cn_->RollbackTrans();
  }
  cn_->Close();
}

db::ConnectionPtr RulesTransaction::ActiveConnection(std::string_view cn_str) {
  if (g_active && g_active->open_ && g_active->cn_str_ == cn_str) return g_active->cn_;
  return nullptr;
}

}  // namespace gw
