#include "platform/db/write_batch.h"

#include <filesystem>
#include <optional>
#include <unordered_map>
#include <utility>
#include <vector>

#include "platform/text.h"

namespace gw::db {

namespace {

// A physical connection the batch or the session holds.
struct Store {
  std::string key;
  std::shared_ptr<Driver> driver;
  // In the current batch: a transaction was begun on it for the batch.
  bool in_batch = false;
  // Opened while a session was active: it leaves the session before it is closed.
  bool in_session = false;
};

struct BatchState {
  int depth = 0;
  int session_depth = 0;
  std::uint64_t serial = 0;
  std::uint64_t session_serial = 0;
  // In the order the stores were first written to.
  std::vector<Store> stores;
  // Connection strings seen, and the store each reaches (an index into `stores`): a key costs a
  // driver lookup and a walk of the file system, a row costs neither.
  std::unordered_map<std::string, std::size_t> by_string;
  // Physical connections opened, by store key.
  std::unordered_map<std::string, std::size_t> opens;
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

// Lets the session's stores go: each leaves the session (a SQLite file is synced and put back in
// its journal mode) and is closed. Stores still in a batch stay until the batch ends.
void ReleaseStores() {
  BatchState& state = State();
  std::vector<Store> kept;
  for (Store& store : state.stores) {
    if (store.in_batch) {
      kept.push_back(std::move(store));
    } else if (store.in_session) {
      store.driver->LeaveSession();
    }
  }
  state.stores = std::move(kept);
  state.by_string.clear();
}

// Commits every store's transaction (rolling back one whose commit fails) and, outside a
// session, drops the physical connections; a session keeps the ones that committed. Returns the
// first failure.
std::optional<Error> EndStores() {
  BatchState& state = State();
  std::optional<Error> first;
  bool dropped = false;
  for (Store& store : state.stores) {
    if (!store.in_batch) continue;
    store.in_batch = false;
    if (!store.driver->InTransaction()) continue;
    try {
      store.driver->Commit();
    } catch (const Error& e) {
      if (!first) first = e;
      try {
        store.driver->Rollback();
      } catch (const Error&) {
        // The store is gone; so is the transaction.
      }
      // A connection whose commit failed is not trusted with the next batch.
      if (store.in_session) store.driver->LeaveSession();
      store.driver.reset();
      dropped = true;
    }
  }
  if (state.session_depth == 0) {
    for (Store& store : state.stores) {
      if (store.driver && store.in_session) store.driver->LeaveSession();
    }
    state.stores.clear();
    state.by_string.clear();
  } else if (dropped) {
    std::erase_if(state.stores, [](const Store& s) { return s.driver == nullptr; });
    state.by_string.clear();
  }
  return first;
}

}  // namespace

WriteBatch::WriteBatch() : outermost_(State().depth == 0) {
  if (outermost_) ++State().serial;
  if (outermost_ && State().session_depth == 0) ++State().session_serial;
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

std::size_t WriteBatch::OpenStoreCount() {
  std::size_t n = 0;
  for (const Store& store : State().stores) n += store.in_batch ? 1 : 0;
  return n;
}

StoreSession::StoreSession() {
  if (State().session_depth++ == 0) ++State().session_serial;
}

StoreSession::~StoreSession() {
  if (--State().session_depth == 0) {
    ++State().session_serial;
    ReleaseStores();
  }
}

bool StoreSession::IsActive() { return State().session_depth > 0; }

std::uint64_t StoreSession::Serial() { return State().session_serial; }

std::size_t StoreSession::KeptStoreCount() { return IsActive() ? State().stores.size() : 0; }

std::size_t PhysicalOpenCount(std::string_view cn_str) {
  const auto& opens = State().opens;
  const auto it = opens.find(StoreKey(cn_str));
  return it == opens.end() ? 0 : it->second;
}

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
  std::size_t index = state.stores.size();
  if (auto it = state.by_string.find(text); it != state.by_string.end()) {
    index = it->second;
  } else {
    const std::string key = StoreKey(props);
    for (std::size_t k = 0; k < state.stores.size(); ++k) {
      if (state.stores[k].key == key) index = k;
    }
    if (index == state.stores.size()) {
      std::shared_ptr<Driver> driver = OpenDriver(props);
      const bool in_session = state.session_depth > 0;
      if (in_session) driver->EnterSession();
      state.stores.push_back(Store{key, std::move(driver), false, in_session});
    }
    state.by_string.emplace(std::move(text), index);
  }
  Store& store = state.stores[index];
  if (!store.in_batch) {
    store.driver->Begin();
    store.in_batch = true;
  }
  return store.driver;
}

void CountOpen(const ConnectionProperties& props) { ++State().opens[StoreKey(props)]; }

}  // namespace write_batch_internal

}  // namespace gw::db
