#include "platform/db/connection.h"

#include <mutex>

#include "platform/db/recordset.h"
#include "platform/db/write_batch.h"
#include "platform/text.h"

namespace gw::db {

namespace {

struct Registration {
  std::string name;
  DriverAccepts accepts;
  DriverFactory factory;
};

std::vector<Registration>& Registry() {
  static std::vector<Registration> registry;
  return registry;
}

void RegisterBuiltins();

void EnsureBuiltins() {
  static std::once_flag once;
  std::call_once(once, RegisterBuiltins);
}

}  // namespace

bool Driver::ExecuteEach(std::string_view sql, std::span<const Variant> params,
                         const RowVisitor& each) {
  ResultSet result = Execute(sql, params);
  for (Row& row : result.rows) {
    if (!each(row)) break;
  }
  return result.has_columns;
}

std::string Driver::IdentifierProblem(IdentifierKind, std::string_view name) const {
  if (name.empty()) return "it is empty";
  if (!text::IsValidUtf8(name)) return "it is not valid UTF-8 text";
  if (text::HasControlCharacter(name)) return "it holds a control character";
  return {};
}

void RegisterDriver(std::string name, DriverAccepts accepts, DriverFactory factory) {
  Registry().push_back(Registration{std::move(name), std::move(accepts), std::move(factory)});
}

std::unique_ptr<Driver> OpenDriver(const ConnectionProperties& props) {
  EnsureBuiltins();
  const auto& reg = Registry();
  for (auto it = reg.rbegin(); it != reg.rend(); ++it) {
    if (!it->accepts(props)) continue;
    std::unique_ptr<Driver> driver = it->factory(props);
    write_batch_internal::CountOpen(props);
    return driver;
  }
  const std::string provider = props.Get("Provider");
  if (text::StartsWithNoCase(provider, "SQLOLEDB")) {
    throw Error(dberr::kProviderNotFound, "Connection.Open",
                "SQL Server (Provider=" + provider +
                    ") cannot be reached from this platform yet. Use a SQLite, MySQL/MariaDB, "
                    "Access or Excel target instead.");
  }
  throw Error(dberr::kProviderNotFound, "Connection.Open",
              "Provider cannot be found. It may not be properly installed. (Provider=" +
                  (provider.empty() ? std::string("MSDASQL.1") : provider) + ")");
}

std::string DriverNameFor(const ConnectionProperties& props) {
  EnsureBuiltins();
  const auto& reg = Registry();
  for (auto it = reg.rbegin(); it != reg.rend(); ++it) {
    if (it->accepts(props)) return it->name;
  }
  return {};
}

// Defined by the driver sources of this folder.
std::unique_ptr<Driver> MakeSqliteDriver(const ConnectionProperties& props);
bool SqliteAccepts(const ConnectionProperties& props);
std::unique_ptr<Driver> MakeMariaDbDriver(const ConnectionProperties& props);
bool MariaDbAccepts(const ConnectionProperties& props);
std::unique_ptr<Driver> MakeXlsxDriver(const ConnectionProperties& props);
bool XlsxAccepts(const ConnectionProperties& props);
bool JetAccessAccepts(const ConnectionProperties& props);

namespace {
void RegisterBuiltins() {
  auto& reg = Registry();
  // Asked last to first: a string for SQLite that happens to mention MySQL in a path stays SQLite.
  reg.insert(reg.begin(), {Registration{"MariaDB", MariaDbAccepts, MakeMariaDbDriver},
                           Registration{"Access", JetAccessAccepts, MakeSqliteDriver},
                           Registration{"Excel", XlsxAccepts, MakeXlsxDriver},
                           Registration{"SQLite", SqliteAccepts, MakeSqliteDriver}});
}
}  // namespace

template <typename Op>
decltype(auto) Connection::Recording(Op&& op) {
  errors_.clear();
  try {
    return op();
  } catch (const Error& e) {
    errors_.push_back(e.Description());
    throw;
  }
}

std::shared_ptr<Connection> Connection::Create() {
  return std::shared_ptr<Connection>(new Connection());
}

Connection::~Connection() = default;

void Connection::SetConnectionString(std::string_view cn_str) {
  if (IsOpen()) {
    throw Error(dberr::kObjectOpen, "Connection",
                "Operation is not allowed when the object is open.");
  }
  props_ = ConnectionProperties::Parse(cn_str);
}

std::string Connection::Provider() const {
  const auto p = props_.Find("Provider");
  return p ? *p : std::string("MSDASQL.1");
}

void Connection::SetProvider(std::string_view provider) { SetProperty("Provider", provider); }

void Connection::SetProperty(std::string_view name, std::string_view value) {
  if (IsOpen()) {
    throw Error(dberr::kObjectOpen, "Connection",
                "Operation is not allowed when the object is open.");
  }
  props_.Set(name, value);
}

void Connection::Open(std::string_view cn_str, std::string_view user, std::string_view password) {
  if (IsOpen()) {
    throw Error(dberr::kObjectOpen, "Connection.Open",
                "Operation is not allowed when the object is open.");
  }
  if (!cn_str.empty()) props_ = ConnectionProperties::Parse(cn_str);
  if (!user.empty()) props_.Set("User ID", user);
  if (!password.empty()) props_.Set("Password", password);
  Recording([&] { driver_ = OpenDriver(props_); });
}

void Connection::OpenPooled(std::string_view cn_str) {
  if (!WriteBatch::IsActive()) {
    Open(cn_str);
    return;
  }
  if (IsOpen()) {
    throw Error(dberr::kObjectOpen, "Connection.Open",
                "Operation is not allowed when the object is open.");
  }
  props_ = ConnectionProperties::Parse(cn_str);
  driver_ = write_batch_internal::TakeDriver(cn_str, props_);
  pooled_ = true;
}

void Connection::Close() {
  if (pooled_) {
    // The batch owns the physical connection and its transaction.
    driver_.reset();
    pooled_ = false;
    return;
  }
  if (driver_ && driver_->InTransaction()) {
    try {
      driver_->Rollback();
    } catch (const Error&) {
      // Closing must not fail because the store went away.
    }
  }
  driver_.reset();
}

Driver& Connection::GetDriver() {
  if (!driver_) {
    throw Error(dberr::kObjectClosed, "Connection",
                "Operation is not allowed when the object is closed.");
  }
  return *driver_;
}

std::string Connection::DefaultDatabase() {
  if (!driver_) return props_.Get("Initial Catalog");
  return driver_->DefaultDatabase();
}

std::shared_ptr<Recordset> Connection::Execute(std::string_view sql, long* records_affected) {
  return Execute(sql, {}, records_affected);
}

std::shared_ptr<Recordset> Connection::Execute(std::string_view sql,
                                               std::span<const Variant> params,
                                               long* records_affected) {
  ResultSet result = Recording([&] { return GetDriver().Execute(sql, params); });
  if (records_affected) *records_affected = static_cast<long>(result.rows_affected);
  if (!result.has_columns) return Recordset::Create();
  return Recordset::FromResult(std::move(result));
}

bool Connection::ExecuteEach(std::string_view sql, std::span<const Variant> params,
                             const Driver::RowVisitor& each) {
  return Recording([&] { return GetDriver().ExecuteEach(sql, params, each); });
}

long long Connection::ExecuteNonQuery(std::string_view sql, std::span<const Variant> params) {
  return Recording([&] { return GetDriver().Execute(sql, params).rows_affected; });
}

void Connection::ExecuteScript(std::string_view sql) {
  Recording([&] { GetDriver().ExecuteScript(sql); });
}

void Connection::BeginTrans() {
  Recording([&] { GetDriver().Begin(); });
}
void Connection::CommitTrans() {
  Recording([&] { GetDriver().Commit(); });
}
void Connection::RollbackTrans() {
  Recording([&] { GetDriver().Rollback(); });
}

}  // namespace gw::db
