#include "rules/rules_schema.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <filesystem>
#include <set>

#include "platform/db/recordset.h"
#include "platform/db/sqlite_schema.h"
#include "platform/error.h"
#include "platform/text.h"
#include "rules/embedded_scripts.h"
#include "rules/failures.h"

namespace gw {

namespace {

std::string DialectOf(db::Connection& cn) { return std::string(cn.GetDriver().Dialect()); }

void RunScriptInTransaction(db::Connection& cn, std::string_view script) {
  cn.BeginTrans();
  try {
    cn.ExecuteScript(script);
    cn.CommitTrans();
  } catch (...) {
    try {
      cn.RollbackTrans();
    } catch (const Error&) {
      // The store refused the rollback too; the first failure is the one to report.
    }
    throw;
  }
}

struct ColumnTypeChange {
  std::string table;
  std::string column;
  std::string type;
};

struct UpgradeStep {
  std::string name;
  std::string guard;
  bool run_if_rows = true;
  std::string body;
  std::vector<ColumnTypeChange> type_changes;
};

std::vector<UpgradeStep> ParseUpgradeSteps(std::string_view script) {
  constexpr std::string_view kStep = "-- step:";
  constexpr std::string_view kIfRows = "-- run-if-rows:";
  constexpr std::string_view kIfNoRows = "-- run-if-no-rows:";
  constexpr std::string_view kChangeType = "-- change-column-type:";
  std::vector<UpgradeStep> steps;
  for (const std::string& raw : text::Split(script, "\n")) {
    const std::string_view line = text::TrimWhitespace(raw);
    if (line.substr(0, kStep.size()) == kStep) {
      steps.emplace_back();
      steps.back().name = std::string(text::TrimWhitespace(line.substr(kStep.size())));
    } else if (steps.empty()) {
      continue;
    } else if (line.substr(0, kIfRows.size()) == kIfRows) {
      steps.back().guard = std::string(text::TrimWhitespace(line.substr(kIfRows.size())));
      steps.back().run_if_rows = true;
    } else if (line.substr(0, kIfNoRows.size()) == kIfNoRows) {
      steps.back().guard = std::string(text::TrimWhitespace(line.substr(kIfNoRows.size())));
      steps.back().run_if_rows = false;
    } else if (line.substr(0, kChangeType.size()) == kChangeType) {
      // "<table> <column> <type>": the type is the rest of the line.
      const std::string_view rest = text::TrimWhitespace(line.substr(kChangeType.size()));
      const std::size_t a = rest.find(' ');
      const std::size_t b = a == std::string_view::npos ? a : rest.find(' ', a + 1);
      if (b == std::string_view::npos) {
        throw Error(errnum::kSyntaxError, "RulesSchema.Upgrade",
                    "The upgrade step " + steps.back().name +
                        " has an incomplete change-column-type line.");
      }
      steps.back().type_changes.push_back({std::string(rest.substr(0, a)),
                                           std::string(rest.substr(a + 1, b - a - 1)),
                                           std::string(text::TrimWhitespace(rest.substr(b + 1)))});
    } else {
      steps.back().body += raw;
      steps.back().body += '\n';
    }
  }
  return steps;
}

// Holds an exclusive lock on "<store file>.init-lock" while a process checks for and creates the
// schema of a SQLite store, so that two processes starting at once do not both switch the file to
// write-ahead logging and load the scripts (SQLite may refuse one of them at once, without
// waiting, to avoid a deadlock). Nothing is locked for a store that is not a plain file.
class CreationLock {
 public:
  explicit CreationLock(const db::Connection& cn) {
    if (!text::StartsWithNoCase(cn.Property("Provider"), "SQLite")) return;
    std::string file = cn.Property("Data Source");
    if (file.empty()) file = cn.Property("Database");
    if (file.empty() || file == ":memory:" || text::StartsWithNoCase(file, "file:")) return;
    fd_ = ::open((file + ".init-lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (fd_ >= 0 && ::flock(fd_, LOCK_EX) != 0) {
      ::close(fd_);
      fd_ = -1;
    }
  }
  ~CreationLock() {
    if (fd_ >= 0) {
      ::flock(fd_, LOCK_UN);
      ::close(fd_);
    }
  }
  CreationLock(const CreationLock&) = delete;
  CreationLock& operator=(const CreationLock&) = delete;

 private:
  int fd_ = -1;
};

}  // namespace

void RulesSchema::Load(db::Connection& cn) {
  ReportAs("RulesSchema.Load(cn)", Args(cn), [&] {
    const std::string dialect = DialectOf(cn);
    const std::string_view script = EmbeddedRulesScript(dialect, "schema");
    if (script.empty()) {
      throw Error(errnum::kProviderError, "RulesSchema.Load",
                  "There is no rules database schema for the " + dialect + " dialect.");
    }
    if (dialect == "sqlite") cn.ExecuteScript("PRAGMA journal_mode = WAL");
    RunScriptInTransaction(cn, script);
  });
}

void RulesSchema::LoadBaseData(db::Connection& cn) {
  ReportAs("RulesSchema.LoadBaseData(cn)", Args(cn), [&] {
    const std::string_view script = EmbeddedRulesScript(DialectOf(cn), "base_data");
    if (!script.empty()) RunScriptInTransaction(cn, script);
  });
}

std::vector<std::string> RulesSchema::Upgrade(db::Connection& cn) {
  return ReportAs("RulesSchema.Upgrade(cn)", Args(cn), [&] {
    std::vector<std::string> ran;
    for (const UpgradeStep& step :
         ParseUpgradeSteps(EmbeddedRulesScript(DialectOf(cn), "upgrade"))) {
      bool has_rows = false;
      if (!step.guard.empty()) {
        auto rs = cn.Execute(step.guard);
        has_rows = rs->IsOpen() && !rs->IsEOF();
      }
      if (has_rows != step.run_if_rows) continue;
      // Each change rebuilds its table in a transaction of its own.
      for (const ColumnTypeChange& change : step.type_changes) {
        db::SqliteChangeColumnType(cn, change.table, change.column, change.type);
      }
      if (!text::TrimWhitespace(step.body).empty()) RunScriptInTransaction(cn, step.body);
      ran.push_back(step.name);
    }
    return ran;
  });
}

bool RulesSchema::Exists(db::Connection& cn) {
  auto& driver = cn.GetDriver();
  return driver.TableExists("datapages") && driver.TableExists("settings");
}

bool RulesSchema::Ensure(db::Connection& cn) {
  return ReportAs("RulesSchema.Ensure(cn)", Args(cn), [&] {
    if (Exists(cn) || EmbeddedRulesScript(DialectOf(cn), "schema").empty()) return false;
    const CreationLock lock(cn);
    if (Exists(cn)) return false;  // another process made it while this one waited
    Load(cn);
    LoadBaseData(cn);
    Upgrade(cn);
    RecordVersion(cn);
    return true;
  });
}

int RulesSchema::StoredVersion(db::Connection& cn) {
  if (DialectOf(cn) != "sqlite") return 0;
  auto rs = cn.Execute("PRAGMA user_version");
  return rs->IsEOF() ? 0 : static_cast<int>(rs->GetFields().Item(0L).Value().ToLong());
}

void RulesSchema::RecordVersion(db::Connection& cn) {
  if (DialectOf(cn) != "sqlite") return;
  cn.ExecuteScript("PRAGMA user_version = " + std::to_string(kVersion));
}

void RulesSchema::RefuseNewer(db::Connection& cn) {
  const int stored = StoredVersion(cn);
  if (stored <= kVersion) return;
  std::string store = cn.Property("Data Source");
  if (store.empty()) store = cn.Property("Database");
  throw Error(ruleserr::kNewerSchema, "RulesSchema",
              "The rules database " + store + " has schema version " + std::to_string(stored) +
                  ", newer than version " + std::to_string(kVersion) +
                  " that this program knows; it was left as it is. Use the newer program with "
                  "it.");
}

std::vector<std::string> RulesSchema::BringUpToDate(db::Connection& cn, bool& created) {
  return ReportAs("RulesSchema.BringUpToDate(cn)", Args(cn), [&] {
    created = false;
    std::vector<std::string> steps;
    RefuseNewer(cn);
    if (Exists(cn) && StoredVersion(cn) == kVersion) return steps;
    if (EmbeddedRulesScript(DialectOf(cn), "schema").empty()) return steps;
    const CreationLock lock(cn);
    // Another process may have done it while this one waited.
    RefuseNewer(cn);
    if (!Exists(cn)) {
      Load(cn);
      LoadBaseData(cn);
      steps = Upgrade(cn);
      created = true;
    } else if (StoredVersion(cn) < kVersion) {
      // Whatever a store made by an earlier version lacks: tables, reference rows, upgrade steps.
      Load(cn);
      LoadBaseData(cn);
      steps = Upgrade(cn);
    }
    RecordVersion(cn);
    return steps;
  });
}

db::ConnectionPtr OpenRulesConnection(std::string_view cn_str) {
  static std::set<std::string> ensured;
  auto cn = db::Connection::Create();
  cn->Open(cn_str);
  const std::string key(cn_str);
  if (!ensured.count(key)) {
    bool created = false;
    RulesSchema::BringUpToDate(*cn, created);
    ensured.insert(key);
  }
  return cn;
}

}  // namespace gw
