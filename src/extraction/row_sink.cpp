#include "extraction/row_sink.h"

#include <limits>
#include <vector>

#include "extraction/failures.h"
#include "extraction/internal.h"
#include "platform/db/connection.h"
#include "platform/db/write_batch.h"
#include "platform/text.h"
#include "targets/temporary_tables.h"

namespace gw {

namespace {

// A table rows are appended to: its columns and INSERT texts, the store's connection, and the
// values of a row that ended, whose storage the next row takes.
struct AppendTarget {
  std::shared_ptr<const db::RowAppender> appender;
  // Inside a write batch, the batch's connection to the store (the batch owns it).
  std::weak_ptr<db::Driver> driver;
  db::Row spare;
};

class DatabaseSinkRow final : public SinkRow {
 public:
  // `own` is the row's own connection outside a write batch, null inside one.
  DatabaseSinkRow(std::shared_ptr<AppendTarget> target, std::shared_ptr<db::Driver> driver,
                  db::ConnectionPtr own)
      : target_(std::move(target)), driver_(std::move(driver)), own_(std::move(own)) {
    values_.swap(target_->spare);
    Appender().Start(values_);
  }
  ~DatabaseSinkRow() override { Close(); }

  std::int32_t DefinedSize(std::string_view column) override {
    return Columns()[static_cast<std::size_t>(Appender().Require(column))].defined_size;
  }
  void SetValue(std::string_view column, Variant value) override {
    Appender().Set(values_, Appender().Require(column), std::move(value));
  }
  long ColumnCount() override { return static_cast<long>(Columns().size()); }
  std::string_view ColumnName(long index) override {
    if (index < 0 || index >= ColumnCount()) {
      throw Error(db::dberr::kItemNotFound, "ADODB.Fields",
                  "Item cannot be found in the collection corresponding to the requested name or "
                  "ordinal.");
    }
    return Columns()[static_cast<std::size_t>(index)].name;
  }
  void Update() override {
    if (written_) return;  // as a recordset's Update with no row being added
    if (!driver_) {
      throw Error(db::dberr::kObjectClosed, "Recordset.Update",
                  "Operation is not allowed when the object is closed.");
    }
    Appender().Insert(*driver_, values_);
    written_ = true;
  }
  void TakeWritten(WrittenRow& into) override {
    into.table = target_->appender;
    into.values.swap(values_);
  }
  void Close() noexcept override {
    if (!driver_) return;
    driver_.reset();
    if (own_ && own_->IsOpen()) own_->Close();
    target_->spare.swap(values_);
  }

 private:
  const db::RowAppender& Appender() const { return *target_->appender; }
  const std::vector<db::ColumnInfo>& Columns() const { return Appender().Columns(); }

  std::shared_ptr<AppendTarget> target_;
  std::shared_ptr<db::Driver> driver_;
  db::ConnectionPtr own_;
  db::Row values_;
  bool written_ = false;
};

// The tables that rows were appended to in the current write batch, by connection string and
// table: within a document a table's columns are read once, not once per row.
class BatchTargets {
 public:
  std::shared_ptr<AppendTarget> Find(std::string_view cn_str, std::string_view table) {
    Renew();
    for (const Entry& e : entries_) {
      if (e.table == table && e.cn_str == cn_str) return e.target;
    }
    return nullptr;
  }
  void Remember(std::string_view cn_str, std::string_view table,
                std::shared_ptr<AppendTarget> target) {
    Renew();
    for (Entry& e : entries_) {
      if (e.table == table && e.cn_str == cn_str) {
        e.target = std::move(target);
        return;
      }
    }
    entries_.push_back(Entry{std::string(cn_str), std::string(table), std::move(target)});
  }

 private:
  struct Entry {
    std::string cn_str;
    std::string table;
    std::shared_ptr<AppendTarget> target;
  };
  void Renew() {
    if (serial_ == db::WriteBatch::Serial()) return;
    serial_ = db::WriteBatch::Serial();
    entries_.clear();
  }

  std::uint64_t serial_ = std::numeric_limits<std::uint64_t>::max();
  std::vector<Entry> entries_;
};

BatchTargets& Targets() {
  static BatchTargets targets;
  return targets;
}

// The columns of `table` as an updatable recordset on it reports them (two rows at most are read:
// the recordset exists to append).
std::shared_ptr<const db::RowAppender> ReadTable(const db::ConnectionPtr& cn,
                                                 std::string_view table) {
  auto rs = db::Recordset::Create();
  rs->SetCacheSize(2);
  rs->SetMaxRecords(2);
  rs->SetCursorLocation(db::CursorLocation::Client);
  std::string sql = "SELECT * ";
  sql += "FROM ";
  // The table is a name, never SQL: quoted for the store's dialect, whatever it holds.
  sql += cn->GetDriver().QuoteIdentifier(table);
  rs->Open(sql, cn, db::CursorType::Keyset, db::LockType::Optimistic);
  return std::make_shared<db::RowAppender>(rs->Source(), rs->Columns());
}

}  // namespace

std::unique_ptr<SinkRow> DatabaseRowSink::OpenRow(std::string_view cn_str, std::string_view table) {
  // A live "##" table is in the temporary store, whichever target the dataset names.
  const bool temporary = table.starts_with("##") && IsLiveTemporaryTable(table);
  if (temporary) cn_str = TemporaryStoreConnectionString();
  // Inside a document's write batch, rows share one physical connection and transaction per
  // store, and a table's columns and INSERT texts.
  const bool pooled = db::WriteBatch::IsActive();
  if (pooled) {
    if (auto target = Targets().Find(cn_str, table)) {
      if (auto driver = target->driver.lock()) {
        return std::make_unique<DatabaseSinkRow>(std::move(target), std::move(driver), nullptr);
      }
    }
  }
  // The program's own database is no target, also for a table made there by hand.
  if (!temporary && extraction_internal::AddressesRulesStore(cn_str)) {
    throw Error(exerr::kTargetIsRulesStore, "Entity.Extract",
                "The target of the table " + text::EscapeControlCharacters(table) +
                    " is the rules database itself; rows are not written there.");
  }
  auto cn = db::Connection::Create();
  if (pooled) {
    cn->OpenPooled(cn_str);
  } else {
    cn->Open(cn_str, "", "");
  }
  auto target = std::make_shared<AppendTarget>();
  target->appender = ReadTable(cn, table);
  std::shared_ptr<db::Driver> driver = cn->SharedDriver();
  if (!pooled) return std::make_unique<DatabaseSinkRow>(std::move(target), driver, std::move(cn));
  target->driver = driver;
  Targets().Remember(cn_str, table, target);
  cn->Close();  // hands the physical connection back to the batch
  return std::make_unique<DatabaseSinkRow>(std::move(target), std::move(driver), nullptr);
}

RowSink& DefaultRowSink() {
  static DatabaseRowSink sink;
  return sink;
}

}  // namespace gw
