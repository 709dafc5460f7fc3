// Where a dataset's rows go.
//
// `Entity.Extract` writes each row through a `RowSink`: it opens a row on the dataset's target
// table (`OpenRow`), asks for column widths and sets columns (`SinkRow`), commits (`Update`), and
// closes the row. Those are the only operations extraction needs of a target.
//
// `DatabaseRowSink`, the default, writes with the database layer as an updatable recordset on
// "SELECT * FROM " + the table quoted for the store's dialect would (`db::RowAppender`): the
// table's columns are read through such a recordset, values are converted and checked by them,
// columns left unset take the store's default. Inside a document's write batch the table's
// columns, its INSERT texts and the store's connection serve every row of the table in that
// batch; outside one, every row opens and closes a connection of its own. Other sinks (a counting
// sink for benchmarks) need only keep the failure numbers below.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "platform/db/recordset.h"
#include "platform/db/row_appender.h"
#include "platform/variant.h"

namespace gw {

// A row as it was written, kept by its dataset for `Entity.Extraction`, which makes it a
// recordset only when asked.
struct WrittenRow {
  // The table's columns and how a recordset on them is made; null when nothing is kept.
  std::shared_ptr<const db::RowAppender> table;
  db::Row values;

  void Clear() {
    table.reset();
    values.clear();
  }
};

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
  virtual void SetValue(std::string_view column, Variant value) = 0;
  // The table's columns, by 0-based index, as the target names them.
  virtual long ColumnCount() = 0;
  virtual std::string_view ColumnName(long index) = 0;
  // Commits the row. A text longer than its column fails with 0x80040E57; other refusals fail
  // with the target's number.
  virtual void Update() = 0;
  // After `Update`: hands the row as written to `into` (what `Entity.Extraction` hands out), taking
  // the values `into` held in exchange so their storage serves a later row; a sink that keeps
  // nothing clears `into`.
  virtual void TakeWritten(WrittenRow& into) = 0;
  // Closes the row's connection. Never fails.
  virtual void Close() noexcept = 0;
};

class RowSink {
 public:
  virtual ~RowSink() = default;
  // Opens `table` for appending through `cn_str` and starts a new row. Fails with the target's
  // failure when the connection or the table cannot be opened.
  virtual std::unique_ptr<SinkRow> OpenRow(std::string_view cn_str, std::string_view table) = 0;
};

// Rows written through the database layer (see the top of this file).
class DatabaseRowSink : public RowSink {
 public:
  std::unique_ptr<SinkRow> OpenRow(std::string_view cn_str, std::string_view table) override;
};

// The sink of datasets and datapages that were given none: a `DatabaseRowSink`.
RowSink& DefaultRowSink();

}  // namespace gw
