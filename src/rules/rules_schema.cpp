#include "rules/rules_schema.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <filesystem>
#include <set>

#include "platform/db/recordset.h"
#include "platform/error.h"
#include "platform/text.h"
#include "rules/embedded_scripts.h"

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

struct UpgradeStep {
  std::string name;
  std::string guard;
  bool run_if_rows = true;
  std::string body;
};

std::vector<UpgradeStep> ParseUpgradeSteps(std::string_view script) {
  constexpr std::string_view kStep = "-- step:";
  constexpr std::string_view kIfRows = "-- run-if-rows:";
  constexpr std::string_view kIfNoRows = "-- run-if-no-rows:";
  std::vector<UpgradeStep> steps;
  for (const std::string& raw : text::Split(script, "\n")) {
    const std::string_view line = text::TrimWhitespace(raw);
    if (line.substr(0, kStep.size()) == kStep) {
      steps.push_back(
          UpgradeStep{std::string(text::TrimWhitespace(line.substr(kStep.size()))), {}, true, {}});
    } else if (steps.empty()) {
      continue;
    } else if (line.substr(0, kIfRows.size()) == kIfRows) {
      steps.back().guard = std::string(text::TrimWhitespace(line.substr(kIfRows.size())));
      steps.back().run_if_rows = true;
    } else if (line.substr(0, kIfNoRows.size()) == kIfNoRows) {
      steps.back().guard = std::string(text::TrimWhitespace(line.substr(kIfNoRows.size())));
      steps.back().run_if_rows = false;
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
  ReportAs("RulesSchema.Load(cn)", [&] {
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
  ReportAs("RulesSchema.LoadBaseData(cn)", [&] {
    const std::string_view script = EmbeddedRulesScript(DialectOf(cn), "base_data");
    if (!script.empty()) RunScriptInTransaction(cn, script);
  });
}

std::vector<std::string> RulesSchema::Upgrade(db::Connection& cn) {
  return ReportAs("RulesSchema.Upgrade(cn)", [&] {
    std::vector<std::string> ran;
    for (const UpgradeStep& step :
         ParseUpgradeSteps(EmbeddedRulesScript(DialectOf(cn), "upgrade"))) {
      bool has_rows = false;
      if (!step.guard.empty()) {
        auto rs = cn.Execute(step.guard);
        has_rows = rs->IsOpen() && !rs->IsEOF();
      }
      if (has_rows != step.run_if_rows) continue;
      RunScriptInTransaction(cn, step.body);
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
  return ReportAs("RulesSchema.Ensure(cn)", [&] {
    if (Exists(cn) || EmbeddedRulesScript(DialectOf(cn), "schema").empty()) return false;
    const CreationLock lock(cn);
    if (Exists(cn)) return false;  // another process made it while this one waited
    Load(cn);
    LoadBaseData(cn);
    Upgrade(cn);
    return true;
  });
}

db::ConnectionPtr OpenRulesConnection(std::string_view cn_str) {
  static std::set<std::string> ensured;
  auto cn = db::Connection::Create();
  cn->Open(cn_str);
  const std::string key(cn_str);
  if (!ensured.count(key)) {
    RulesSchema::Ensure(*cn);
    ensured.insert(key);
  }
  return cn;
}

}  // namespace gw
