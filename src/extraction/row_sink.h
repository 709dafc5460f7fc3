// Where a dataset's rows go.
//
// `Entity.Extract` writes each row through a `RowSink`: it opens a row on the dataset's target
// table (`OpenRow`), asks for column widths and sets columns (`SinkRow`), commits (`Update`), and
// closes the row's connection. Those are the only operations extraction needs of a target.
//
// `DatabaseRowSink`, the default, does it with the database layer exactly as a target expects: a
// connection opened on the dataset's connection string for every row, a recordset opened for
// appending on "SELECT * FROM " + the table quoted for the store's dialect (cache size and row
// limit of 2, so the table's rows are not read), `AddNew`, the values, `Update`, and the connection
// closed again. Other sinks (a counting sink for benchmarks) need only keep the failure numbers
// below.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "platform/db/recordset.h"
#include "platform/variant.h"

namespace gw {

// One new row of a target table. Made by `RowSink::OpenRow`; destroying it closes whatever the
// sink opened for it.
class SinkRow {
 public:
  virtual ~SinkRow() = default;

  // The width of a column (characters for text). Fails with 3265 when the table has no column of
  // that name (names compare without regard to case).
  virtual std::int32_t DefinedSize(std::string_view column) = 0;
  // Sets a column of the new row. Fails with 3265 for an unknown column and with 0x80040E21 for
  // a value the column refuses.
  virtual void SetValue(std::string_view column, const Variant& value) = 0;
  // The table's columns, by 0-based index, as the target names them.
  virtual long ColumnCount() = 0;
  virtual std::string ColumnName(long index) = 0;
  // Commits the row. A text longer than its column fails with 0x80040E57; other refusals fail
  // with the target's number.
  virtual void Update() = 0;
  // The row as a recordset (what `Entity.Extraction` hands out), or null for a sink that keeps
  // none.
  virtual std::shared_ptr<db::Recordset> Recordset() = 0;
  // Closes the row's connection; the recordset stays readable. Never fails.
  virtual void Close() noexcept = 0;
};

class RowSink {
 public:
  virtual ~RowSink() = default;
  // Opens `table` for appending through `cn_str` and starts a new row. Fails with the target's
  // failure when the connection or the table cannot be opened.
  virtual std::unique_ptr<SinkRow> OpenRow(std::string_view cn_str, std::string_view table) = 0;
};

// Rows written through `db::Connection` and `db::Recordset`, one connection per row.
class DatabaseRowSink : public RowSink {
 public:
  std::unique_ptr<SinkRow> OpenRow(std::string_view cn_str, std::string_view table) override;
};

// The sink of datasets and datapages that were given none: a `DatabaseRowSink`.
RowSink& DefaultRowSink();

}  // namespace gw
