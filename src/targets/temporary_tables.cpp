#include "targets/temporary_tables.h"

#include <map>

#include "platform/text.h"

namespace gw {

namespace {

// Live tables by their folded name.
std::map<std::string, std::weak_ptr<TemporaryTable>>& Registry() {
  static std::map<std::string, std::weak_ptr<TemporaryTable>> registry;
  return registry;
}

}  // namespace

const std::string& TemporaryStoreConnectionString() {
  // SQLite's in-memory file system: every connection of the process to this name shares one
  // database, which lasts while one of them is open.
  static const std::string cn_str =
      "Provider=SQLite;Data Source=file:/gleanwright-temporary-tables?vfs=memdb";
  return cn_str;
}

std::shared_ptr<TemporaryTable> TemporaryTable::Acquire(std::string_view name) {
  auto& registry = Registry();
  const std::string key = text::FoldCaseKey(name);
  if (auto it = registry.find(key); it != registry.end()) {
    if (auto live = it->second.lock()) return live;
  }
  auto cn = db::Connection::Create();
  cn->Open(TemporaryStoreConnectionString());
  std::shared_ptr<TemporaryTable> table(new TemporaryTable(std::string(name), std::move(cn)));
  registry[key] = table;
  return table;
}

TemporaryTable::~TemporaryTable() {
  Registry().erase(text::FoldCaseKey(name_));
  try {
    connection_->Execute("DROP TABLE IF EXISTS " + connection_->GetDriver().QuoteIdentifier(name_));
  } catch (const Error&) {
    // The store goes with its last connection anyway.
  }
}

bool IsLiveTemporaryTable(std::string_view table) {
  const auto& registry = Registry();
  const auto it = registry.find(text::FoldCaseKey(table));
  return it != registry.end() && !it->second.expired();
}

}  // namespace gw
