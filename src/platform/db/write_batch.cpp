#include "platform/db/write_batch.h"

#include <filesystem>
#include <optional>
#include <unordered_map>
#include <utility>
#include <vector>

#include "platform/text.h"

namespace gw::db {

namespace {

struct BatchState {
  int depth = 0;
  std::uint64_t serial = 0;
  // By store key, in the order the stores were first written to.
  std::vector<std::pair<std::string, std::shared_ptr<Driver>>> stores;
  // Connection strings seen in this batch, and the store each reaches: a key costs a driver
  // lookup and a walk of the file system, a row costs neither.
  std::unordered_map<std::string, std::shared_ptr<Driver>> by_string;
};

BatchState& State() {
  static BatchState state;
  return state;
}

std::string AbsolutePath(const std::string& path) {
  std::error_code ec;
  const std::filesystem::path abs = std::filesystem::absolute(path, ec);
  if (ec) return path;
  return std::filesystem::weakly_canonical(abs, ec).string();
}

// Commits every store's transaction (rolling back one whose commit fails) and drops the batch's
// physical connections. Returns the first failure.
std::optional<Error> EndStores() {
  std::optional<Error> first;
  auto stores = std::move(State().stores);
  State().stores.clear();
  State().by_string.clear();
  for (auto& [key, driver] : stores) {
    if (!driver->InTransaction()) continue;
    try {
      driver->Commit();
    } catch (const Error& e) {
      if (!first) first = e;
      try {
        driver->Rollback();
      } catch (const Error&) {
        // The store is gone; so is the transaction.
      }
    }
  }
  return first;
}

}  // namespace

WriteBatch::WriteBatch() : outermost_(State().depth == 0) {
  if (outermost_) ++State().serial;
  ++State().depth;
}

WriteBatch::~WriteBatch() {
  if (!done_) {
    --State().depth;
    // Rows whose Update succeeded were written one by one before the failure that ends this
    // batch: they stay, as they would with a commit per row.
    if (outermost_) (void)EndStores();
  }
}

void WriteBatch::Commit() {
  if (done_) return;
  done_ = true;
  --State().depth;
  if (!outermost_) return;
  if (auto failure = EndStores()) throw *failure;
}

bool WriteBatch::IsActive() { return State().depth > 0; }

std::uint64_t WriteBatch::Serial() { return State().serial; }

std::size_t WriteBatch::OpenStoreCount() { return State().stores.size(); }

std::string StoreKey(const ConnectionProperties& props) {
  const std::string driver = DriverNameFor(props);
  if (driver == "SQLite" || driver == "Access") {
    std::string path = props.Get("Data Source");
    if (path.empty()) path = props.Get("Database");
    if (path == ":memory:" || text::StartsWithNoCase(path, "file:")) return "sqlite:" + path;
    return "sqlite:" + AbsolutePath(path);
  }
  if (driver == "Excel") return "workbook:" + AbsolutePath(props.Get("Data Source"));
  return driver + ":" + props.ToString();
}

std::string StoreKey(std::string_view cn_str) {
  return StoreKey(ConnectionProperties::Parse(cn_str));
}

namespace write_batch_internal {

std::shared_ptr<Driver> TakeDriver(std::string_view cn_str, const ConnectionProperties& props) {
  BatchState& state = State();
  std::string text(cn_str);
  if (auto it = state.by_string.find(text); it != state.by_string.end()) return it->second;
  const std::string key = StoreKey(props);
  std::shared_ptr<Driver> found;
  for (auto& [k, driver] : state.stores) {
    if (k == key) found = driver;
  }
  if (!found) {
    found = OpenDriver(props);
    found->Begin();
    state.stores.emplace_back(key, found);
  }
  state.by_string.emplace(std::move(text), found);
  return found;
}

}  // namespace write_batch_internal

}  // namespace gw::db
