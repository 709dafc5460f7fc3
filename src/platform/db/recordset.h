// A client-side recordset (the counterpart of ADO's Recordset with a client cursor).
//
// All rows that a statement yields are read into memory when it opens, so a recordset can be cut
// from its connection (`SetActiveConnection(nullptr)`) and still be read, counted and navigated.
// While it is connected and opened with a lock other than read-only, `Update` and `Delete` write
// through to the row's base table: `AddNew` + `Update` inserts, a changed row is updated by its
// key columns (or, without a key, by its original values), `Delete` deletes at once.
//
// A recordset can also be built in memory (`AppendField`, then `OpenFabricated`) and edited
// without any store: static columns, custom-column lists and shaped results are made this way.
// A column of type `DataType::Chapter` holds a child recordset as its value.
//
// Values are checked when they are set and when a row is written: a value that cannot be
// converted to its column's type fails with 0x80040E21 when it is set; a text longer than its
// column's declared width fails with 0x80040E57 at `Update`.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/db/connection.h"
#include "platform/db/types.h"
#include "platform/variant.h"

namespace gw::db {

class Recordset;

class Field {
 public:
  const std::string& Name() const;
  DataType Type() const;
  std::int32_t DefinedSize() const;
  const ColumnInfo& Info() const;
  // The value in the current row (or in the row being added). Fails with 3021 without one.
  const Variant& Value() const;
  // Sets the value in the current row (starting an edit) after converting it to the column's
  // type. Fails with 3021 without a current row and 0x80040E21 when the value does not convert.
  void SetValue(const Variant& value);
  Field& operator=(const Variant& value) {
    SetValue(value);
    return *this;
  }
  // The value as it was read from the store.
  const Variant& OriginalValue() const;
  // Characters of a text value, bytes otherwise.
  long ActualSize() const;

 private:
  friend class Recordset;
  friend class Fields;
  Field(Recordset* rs, std::size_t index) : rs_(rs), index_(index) {}
  Recordset* rs_;
  std::size_t index_;
};

class Fields {
 public:
  long Count() const { return static_cast<long>(fields_.size()); }
  // By 0-based ordinal, or by name (names compare without regard to case). An unknown name or
  // ordinal fails with 3265.
  Field& Item(long index);
  Field& Item(std::string_view name);
  Field& operator[](long index) { return Item(index); }
  Field& operator[](std::string_view name) { return Item(name); }
  Field& operator[](const char* name) { return Item(std::string_view(name)); }
  Field* Find(std::string_view name);
  // The 0-based ordinal of a name, or -1.
  long IndexOf(std::string_view name) const;

  auto begin() { return fields_.begin(); }
  auto end() { return fields_.end(); }

 private:
  friend class Recordset;
  std::vector<Field> fields_;
  const Recordset* rs_ = nullptr;
};

class Recordset : public Object {
 public:
  static std::shared_ptr<Recordset> Create();
  // A read-only, disconnected recordset over rows already read.
  static std::shared_ptr<Recordset> FromResult(ResultSet result);
  // An updatable recordset of one row, `values`, positioned on it and disconnected: what a
  // recordset opened on `source` for appending holds once that row was added and its connection
  // closed (a cache size and row limit of 2, as appending sets them).
  static std::shared_ptr<Recordset> FromAddedRow(std::string source,
                                                 std::vector<ColumnInfo> columns, Row values);
  ~Recordset() override;
  std::string TypeName() const override { return "Recordset"; }

  Recordset(const Recordset&) = delete;
  Recordset& operator=(const Recordset&) = delete;

  // ---- options (before Open) ----
  void SetCursorLocation(CursorLocation) {}  // always on the client
  CursorLocation GetCursorLocation() const { return CursorLocation::Client; }
  void SetCacheSize(long n) { cache_size_ = n; }
  long CacheSize() const { return cache_size_; }
  // At most this many rows are read; 0 reads all.
  void SetMaxRecords(long n) { max_records_ = n; }
  long MaxRecords() const { return max_records_; }
  CursorType GetCursorType() const { return cursor_type_; }
  LockType GetLockType() const { return lock_type_; }

  // ---- opening ----
  void Open(std::string_view sql, const ConnectionPtr& connection,
            CursorType cursor = CursorType::ForwardOnly, LockType lock = LockType::ReadOnly,
            std::span<const Variant> params = {});
  // Opens an updatable recordset with `columns` and no rows, without running `sql` (kept as the
  // source): for appending to a table whose columns the caller has already read through `Open`
  // on the same statement and store. Rows added are written through `connection` as by `Open`.
  void OpenForAppending(std::string_view sql, const ConnectionPtr& connection,
                        std::vector<ColumnInfo> columns, CursorType cursor = CursorType::Keyset,
                        LockType lock = LockType::Optimistic);
  // Columns of a recordset built in memory; then `OpenFabricated`.
  void AppendField(std::string name, DataType type, std::int32_t defined_size = 0,
                   bool nullable = true);
  void OpenFabricated();
  void Close();
  bool IsOpen() const { return open_; }
  ObjectState State() const { return open_ ? ObjectState::Open : ObjectState::Closed; }
  const std::string& Source() const { return source_; }

  // The connection rows are written through; nullptr when disconnected.
  const ConnectionPtr& ActiveConnection() const { return connection_; }
  // nullptr cuts the recordset from its connection; the rows stay.
  void SetActiveConnection(ConnectionPtr connection);

  // ---- reading ----
  Fields& GetFields();
  Field& operator[](std::string_view name) { return GetFields().Item(name); }
  Field& operator[](const char* name) { return GetFields().Item(std::string_view(name)); }
  Field& operator[](long index) { return GetFields().Item(index); }
  const std::vector<ColumnInfo>& Columns() const { return columns_; }

  bool IsEOF() const;
  bool IsBOF() const;
  long RecordCount() const;
  void MoveFirst();
  void MoveLast();
  void MoveNext();
  void MovePrevious();
  void Move(long n);
  // 1-based position of the current row; -2 at BOF, -3 at EOF, -1 when unknown (empty).
  long AbsolutePosition() const;
  void SetAbsolutePosition(long position);
  // An opaque value that identifies the current row for as long as the recordset lives.
  Variant Bookmark() const;
  void SetBookmark(const Variant& bookmark);

  // ---- editing ----
  EditMode GetEditMode() const { return edit_mode_; }
  void AddNew();
  void AddNew(std::span<const std::string> names, std::span<const Variant> values);
  void Update();
  void Update(std::span<const std::string> names, std::span<const Variant> values);
  void CancelUpdate();
  // Deletes the current row (written through at once when connected).
  void Delete();

  // ---- searching ----
  // Moves to the next row that meets `criteria` ("Col = 'x'", "Col >= 5", "Col LIKE 'ab*'"),
  // skipping `skip` rows first, from the current row or from `start` (a bookmark). Leaves the
  // recordset at EOF (forward) or BOF (backward) when there is none.
  void Find(std::string_view criteria, long skip = 0,
            SearchDirection direction = SearchDirection::Forward, const Variant& start = {});

  // A copy of the rows and columns, disconnected, positioned on the first row.
  std::shared_ptr<Recordset> Clone() const;

 private:
  friend class Field;
  friend class Fields;
  struct RowData {
    Row values;
    Row original;
    std::uint64_t bookmark = 0;
  };

  Recordset() = default;
  void RequireOpen(const char* op) const;
  void RequireCurrent(const char* op) const;
  void RequireUpdatable(const char* op) const;
  void BuildFields();
  void Load(ResultSet result);
  // The row that Fields read: the edit buffer while adding, else the current row.
  const Row& CurrentValues() const;
  Row& EditableValues();
  Variant Coerce(std::size_t column, const Variant& value) const;
  void CheckWidths(const Row& values) const;
  // Gives the named fields of the edit buffer their values and updates; cancels the edit when
  // that fails.
  void SetAndUpdate(std::span<const std::string> names, std::span<const Variant> values);
  void WriteInsert(RowData& row);
  void WriteUpdate(RowData& row);
  void WriteDelete(const RowData& row);
  bool WritesThrough() const;
  std::string BaseTable() const;
  void ImplicitUpdate();
  bool Matches(const RowData& row, std::string_view column, std::string_view op,
               const Variant& value) const;

  bool open_ = false;
  bool fabricated_ = false;
  std::string source_;
  ConnectionPtr connection_;
  CursorType cursor_type_ = CursorType::ForwardOnly;
  LockType lock_type_ = LockType::ReadOnly;
  long cache_size_ = 1;
  long max_records_ = 0;

  std::vector<ColumnInfo> columns_;
  Fields fields_;
  std::vector<RowData> rows_;
  // Current row: -1 is BOF, rows_.size() is EOF.
  long pos_ = -1;
  bool current_deleted_ = false;
  EditMode edit_mode_ = EditMode::None;
  RowData add_buffer_;
  std::uint64_t next_bookmark_ = 1;
};

using RecordsetPtr = std::shared_ptr<Recordset>;

}  // namespace gw::db
