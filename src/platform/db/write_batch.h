// Write batches: one physical connection and one transaction per store while rows are written.
//
// Extraction opens a connection for every row it writes and closes it after. While a
// `WriteBatch` is alive, a connection opened with `Connection::OpenPooled` takes the batch's
// physical connection to the same store (`StoreKey`): the first such open connects and begins a
// transaction, later ones reuse both, and `Close` hands the physical connection back. When the
// batch ends it commits every transaction and closes the physical connections, so each row is
// durable at the latest then. Outside a batch `OpenPooled` is `Open`: one physical connection per
// row, each row committed on its own.
//
// Batches nest: an inner batch joins the enclosing one, and only the outermost commits.
//
// Only connections that ask for pooling join a batch. The rules database must never be opened
// pooled: a batch would then hold its write lock until the batch ends.
//
// A `StoreSession` (a package run, an `extract` invocation) keeps the physical connections of its
// batches open between them: a batch's end commits, the next batch on the same store begins a new
// transaction on the same connection, and its prepared statements are reused. The session closes
// them when it ends. While it keeps a SQLite file, the file is in write-ahead-log mode with
// "synchronous = NORMAL": a batch's commit is atomic and survives the program's crash at once,
// but is made durable against a power loss by the next checkpoint, at the latest when the session
// ends (it checkpoints, syncs, and puts the file back in the journal mode it found).
//
// One thread: the batch is process-wide state, like the host's message loop.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "platform/db/connection_string.h"
#include "platform/db/driver.h"

namespace gw::db {

class WriteBatch {
 public:
  WriteBatch();
  // Unless `Commit` ran: commits what it can, rolls back a transaction whose commit fails, and
  // closes the physical connections. Never throws (it runs while a failure unwinds).
  ~WriteBatch();
  WriteBatch(const WriteBatch&) = delete;
  WriteBatch& operator=(const WriteBatch&) = delete;

  // The outermost batch commits every store's transaction and closes the physical connections;
  // an inner batch does nothing. When a commit fails, that store's transaction is rolled back,
  // the other stores are still committed, and the first failure is thrown.
  void Commit();

  static bool IsActive();
  // A number that changes with every outermost batch: what a caller works out once per batch
  // (which store is which) can be kept under it.
  static std::uint64_t Serial();
  // The number of stores with a physical connection in the current batch.
  static std::size_t OpenStoreCount();

 private:
  bool outermost_ = false;
  bool done_ = false;
};

// The identity of the store that a connection string reaches. Two strings with the same key reach
// the same store and share one physical connection in a batch: a SQLite file (also as an Access
// target) is keyed by its absolute path, a workbook by its path, other stores by the whole
// connection string.
std::string StoreKey(const ConnectionProperties& props);
std::string StoreKey(std::string_view cn_str);

// Keeps the physical connections of write batches open from one batch to the next, until the
// outermost session ends. Sessions nest like batches. Never throws when it ends.
class StoreSession {
 public:
  StoreSession();
  ~StoreSession();
  StoreSession(const StoreSession&) = delete;
  StoreSession& operator=(const StoreSession&) = delete;

  static bool IsActive();
  // A number that changes when the outermost session begins and ends, and outside a session with
  // every outermost batch (`WriteBatch::Serial`): the session keeps its stores by their keys, so
  // which store a connection string reaches may be worked out once under it.
  static std::uint64_t Serial();
  // The number of physical connections the session keeps (in a batch or between batches).
  static std::size_t KeptStoreCount();
};

// How many physical connections this process has opened to the store of `cn_str` (any driver,
// pooled or not): what tests compare to see that rows do not each open their store.
std::size_t PhysicalOpenCount(std::string_view cn_str);

namespace write_batch_internal {
// The batch's physical connection to the store of `cn_str` (parsed as `props`), connected and in
// a transaction. REQUIRES: a batch is active.
std::shared_ptr<Driver> TakeDriver(std::string_view cn_str, const ConnectionProperties& props);
// Counts a physical connection opened for `props` (called by `OpenDriver`).
void CountOpen(const ConnectionProperties& props);
}  // namespace write_batch_internal

}  // namespace gw::db
