#include "extraction/row_sink.h"

#include <limits>
#include <unordered_map>
#include <vector>

#include "extraction/failures.h"
#include "extraction/internal.h"
#include "platform/db/connection.h"
#include "platform/db/write_batch.h"
#include "platform/text.h"
#include "targets/temporary_tables.h"

namespace gw {

namespace {

class DatabaseSinkRow final : public SinkRow {
 public:
  DatabaseSinkRow(db::ConnectionPtr cn, db::RecordsetPtr rs)
      : cn_(std::move(cn)), rs_(std::move(rs)) {}
  ~DatabaseSinkRow() override { Close(); }

  std::int32_t DefinedSize(std::string_view column) override {
    return rs_->GetFields().Item(column).DefinedSize();
  }
  void SetValue(std::string_view column, const Variant& value) override {
    rs_->GetFields().Item(column).SetValue(value);
  }
  long ColumnCount() override { return rs_->GetFields().Count(); }
  std::string ColumnName(long index) override { return rs_->GetFields().Item(index).Name(); }
  void Update() override { rs_->Update(); }
  std::shared_ptr<db::Recordset> Recordset() override { return rs_; }
  void Close() noexcept override {
    if (cn_ && cn_->IsOpen()) cn_->Close();
  }

 private:
  db::ConnectionPtr cn_;
  db::RecordsetPtr rs_;
};

// The columns of the tables that rows were appended to in the current write batch, by
// connection string and table: within a document the table is read once, not once per row.
class BatchTableColumns {
 public:
  const std::vector<db::ColumnInfo>* Find(std::string_view cn_str, std::string_view table) {
    Renew();
    const auto it = columns_.find(Key(cn_str, table));
    return it == columns_.end() ? nullptr : &it->second;
  }
  void Remember(std::string_view cn_str, std::string_view table,
                std::vector<db::ColumnInfo> columns) {
    Renew();
    columns_.insert_or_assign(Key(cn_str, table), std::move(columns));
  }

 private:
  static std::string Key(std::string_view cn_str, std::string_view table) {
    std::string key(cn_str);
    key += '\0';
    key += table;
    return key;
  }
  void Renew() {
    if (serial_ == db::WriteBatch::Serial()) return;
    serial_ = db::WriteBatch::Serial();
    columns_.clear();
  }

  std::uint64_t serial_ = std::numeric_limits<std::uint64_t>::max();
  std::unordered_map<std::string, std::vector<db::ColumnInfo>> columns_;
};

BatchTableColumns& TableColumns() {
  static BatchTableColumns columns;
  return columns;
}

}  // namespace

std::unique_ptr<SinkRow> DatabaseRowSink::OpenRow(std::string_view cn_str, std::string_view table) {
  // A live "##" table is in the temporary store, whichever target the dataset names.
  const bool temporary = table.starts_with("##") && IsLiveTemporaryTable(table);
  if (temporary) cn_str = TemporaryStoreConnectionString();
  // The program's own database is no target, also for a table made there by hand.
  if (!temporary && extraction_internal::AddressesRulesStore(cn_str)) {
    throw Error(exerr::kTargetIsRulesStore, "Entity.Extract",
                "The target of the table " + text::EscapeControlCharacters(table) +
                    " is the rules database itself; rows are not written there.");
  }
  auto cn = db::Connection::Create();
  // Inside a document's write batch, rows share one physical connection and transaction per
  // store.
  const bool pooled = db::WriteBatch::IsActive();
  if (pooled) {
    cn->OpenPooled(cn_str);
  } else {
    cn->Open(cn_str, "", "");
  }
  auto rs = db::Recordset::Create();
  // The recordset exists to append: two rows at most come back from the table.
  rs->SetCacheSize(2);
  rs->SetMaxRecords(2);
  rs->SetCursorLocation(db::CursorLocation::Client);
  std::string sql = "SELECT * ";
  sql += "FROM ";
  // The table is a name, never SQL: quoted for the store's dialect, whatever it holds.
  sql += cn->GetDriver().QuoteIdentifier(table);
  const std::vector<db::ColumnInfo>* known = pooled ? TableColumns().Find(cn_str, table) : nullptr;
  if (known) {
    rs->OpenForAppending(sql, cn, *known, db::CursorType::Keyset, db::LockType::Optimistic);
  } else {
    rs->Open(sql, cn, db::CursorType::Keyset, db::LockType::Optimistic);
    if (pooled) TableColumns().Remember(cn_str, table, rs->Columns());
  }
  rs->AddNew();
  return std::make_unique<DatabaseSinkRow>(std::move(cn), std::move(rs));
}

RowSink& DefaultRowSink() {
  static DatabaseRowSink sink;
  return sink;
}

}  // namespace gw
