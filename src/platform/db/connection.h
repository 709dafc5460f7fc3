// A connection-string-driven database connection (the counterpart of ADO's Connection).
#pragma once

#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/db/connection_string.h"
#include "platform/db/driver.h"
#include "platform/db/types.h"
#include "platform/variant.h"

namespace gw::db {

class Recordset;

class Connection : public Object {
 public:
  static std::shared_ptr<Connection> Create();
  ~Connection() override;
  std::string TypeName() const override { return "Connection"; }

  // The connection string as it stands: the parameters as set, in their order.
  std::string ConnectionString() const { return props_.ToString(); }
  // Fails with 3705 while open.
  void SetConnectionString(std::string_view cn_str);
  // The `Provider` parameter as written, or "MSDASQL.1" (the default provider) when absent.
  std::string Provider() const;
  void SetProvider(std::string_view provider);
  // A parameter of the connection string ("Data Source", "Initial Catalog"); "" when absent.
  std::string Property(std::string_view name) const { return props_.Get(name); }
  void SetProperty(std::string_view name, std::string_view value);
  const ConnectionProperties& Properties() const { return props_; }

  // Opens on `cn_str` (or the string already set). `user` and `password`, when given, become the
  // "User ID" and "Password" parameters.
  void Open(std::string_view cn_str = {}, std::string_view user = {},
            std::string_view password = {});
  // Opens on `cn_str` like `Open`, but while a `WriteBatch` is alive the physical connection is
  // the batch's one for that store, inside the batch's transaction (see write_batch.h); `Close`
  // then hands it back. Outside a batch this is `Open`. `BeginTrans` and its kin must not be used
  // on such a connection. Never use it on the rules database.
  void OpenPooled(std::string_view cn_str);
  // Closes the connection, rolling back a transaction begun on it; a pooled connection is handed
  // back to its batch instead, its transaction untouched.
  void Close();
  bool IsOpen() const { return driver_ != nullptr; }
  ObjectState State() const { return IsOpen() ? ObjectState::Open : ObjectState::Closed; }
  // A transaction begun with `BeginTrans` (or the write batch's, when pooled) is open.
  bool InTransaction() const { return driver_ != nullptr && driver_->InTransaction(); }
  // The connection is a write batch's (see `OpenPooled`).
  bool IsPooled() const noexcept { return pooled_; }
  // The driver's errors of the last operation that failed on this connection (ADO's `Errors`):
  // cleared when an operation begins, so empty after one that succeeded.
  const std::vector<std::string>& Errors() const noexcept { return errors_; }

  int CommandTimeout() const { return command_timeout_; }
  void SetCommandTimeout(int seconds) { command_timeout_ = seconds; }
  std::string DefaultDatabase();

  // Runs a statement. A statement that yields rows gives an open, read-only recordset of them;
  // any other gives a closed recordset. `records_affected` receives the changed row count.
  std::shared_ptr<Recordset> Execute(std::string_view sql, long* records_affected = nullptr);
  std::shared_ptr<Recordset> Execute(std::string_view sql, std::span<const Variant> params,
                                     long* records_affected = nullptr);
  // Runs a statement and hands its rows to `each` as the store reads them (`Driver::ExecuteEach`):
  // false when it yields no rows. A failure of `each` is recorded in `Errors` like the store's.
  bool ExecuteEach(std::string_view sql, std::span<const Variant> params,
                   const Driver::RowVisitor& each);
  // Runs a statement that yields no rows; returns the changed row count.
  long long ExecuteNonQuery(std::string_view sql, std::span<const Variant> params = {});
  // Runs a script of several statements.
  void ExecuteScript(std::string_view sql);

  void BeginTrans();
  void CommitTrans();
  void RollbackTrans();

  // The open driver; fails with 3704 when closed.
  Driver& GetDriver();
  // The open driver, shared (null when closed): for a caller that keeps writing through it after
  // this object is closed; a pooled connection's driver stays its batch's.
  const std::shared_ptr<Driver>& SharedDriver() const { return driver_; }

 private:
  Connection() = default;
  // Runs one operation, keeping the text of its failure in `errors_`.
  template <typename Op>
  decltype(auto) Recording(Op&& op);

  ConnectionProperties props_;
  // Shared with the write batch when pooled.
  std::shared_ptr<Driver> driver_;
  bool pooled_ = false;
  int command_timeout_ = 30;
  std::vector<std::string> errors_;
};

using ConnectionPtr = std::shared_ptr<Connection>;

}  // namespace gw::db
