// What a run keeps open from its first document to its last.
#pragma once

#include "platform/db/write_batch.h"
#include "rules/rules_transaction.h"

namespace gw {

// One physical connection per target store, kept between the documents' write batches (each
// document is still one transaction per store), and one connection to the rules store for the
// run's history. `Job.Execute` holds one for the package run; `gleanwright extract` holds one for
// all its files. See write_batch.h and rules_transaction.h for what each keeps and how commits
// are made durable.
class RunSession {
 public:
  RunSession() = default;
  RunSession(const RunSession&) = delete;
  RunSession& operator=(const RunSession&) = delete;

 private:
  db::StoreSession stores_;
  RulesSession rules_;
};

}  // namespace gw
