// RulesTransaction: one transaction on the rules store around a series of data-access calls.
//
// The data-access classes open a connection for every call, so each of their statements is a
// transaction of its own. While a `RulesTransaction` is active, every `CDisconnRS` whose
// `RulesDBConnStr` is the transaction's connection string runs its statements on the
// transaction's one connection instead: reads see what the transaction wrote, read-only
// recordsets still come back cut from the connection, updatable ones write through it, and
// nothing closes it. `Commit` makes the writes durable; leaving the scope without `Commit` (an
// error unwinding, say) rolls every one of them back.
//
// Inside a `RulesSession` on the same connection string, the transaction runs on the session's
// connection.
//
// Scope and limits:
//  - one per process at a time (the library has one thread); making a second while one is active
//    fails with 3219;
//  - a data-access object made with another connection string, and `Settings` (which keeps a
//    connection of its own), work outside the transaction; on a SQLite store their writes wait
//    for it to end (up to the 30 s busy timeout), so do not mix them in;
//  - on SQLite the transaction takes the write lock when it begins ("BEGIN IMMEDIATE"): other
//    processes keep reading, and their writers wait.
#pragma once

#include <string>
#include <string_view>

#include "platform/db/connection.h"

namespace gw {

// One connection to the rules store kept for a run (or any long series of calls). While a
// `RulesSession` is active, every `CDisconnRS` and `Settings` on its connection string runs on its
// one connection instead of opening (and, on SQLite, checkpointing and closing) the store for
// each call, and a `RulesTransaction` on that string begins and ends on it; the statements the
// run repeats (a document's row, a dataset's results, a success code) are prepared once. The
// connection is in autocommit between transactions, so it holds no lock. Sessions do not nest:
// an inner one on the same string uses the outer one's connection.
class RulesSession {
 public:
  // Opens the rules store named by `rules_db_conn_str` (empty: `modConnectionString::GetCnStr`),
  // creating its tables when it has none.
  explicit RulesSession(std::string rules_db_conn_str = {});
  ~RulesSession();
  RulesSession(const RulesSession&) = delete;
  RulesSession& operator=(const RulesSession&) = delete;

  // The connection of the active session when it is on `cn_str`; otherwise null.
  static db::ConnectionPtr ActiveConnection(std::string_view cn_str);

 private:
  std::string cn_str_;
  db::ConnectionPtr cn_;
  bool outermost_ = false;
};

class RulesTransaction {
 public:
  // Opens the rules store named by `rules_db_conn_str` (empty: `modConnectionString::GetCnStr`),
  // creating its tables when it has none, and begins.
  explicit RulesTransaction(std::string rules_db_conn_str = {});
  // Rolls back unless `Commit` was called.
  ~RulesTransaction();
  RulesTransaction(const RulesTransaction&) = delete;
  RulesTransaction& operator=(const RulesTransaction&) = delete;

  void Commit();
  void Rollback();
  const std::string& ConnectionString() const { return cn_str_; }

  // The connection of the active transaction when it is on `cn_str`; otherwise null.
  static db::ConnectionPtr ActiveConnection(std::string_view cn_str);

 private:
  void End(bool commit);

  std::string cn_str_;
  db::ConnectionPtr cn_;
  // The connection is the session's: it stays open when the transaction ends.
  bool session_connection_ = false;
  bool open_ = false;
};

}  // namespace gw
