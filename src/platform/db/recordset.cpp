#include "platform/db/recordset.h"

#include <algorithm>

#include "platform/db/row_appender.h"
#include "platform/text.h"

namespace gw::db {

namespace {

[[noreturn]] void Fail(ErrorNumber n, const char* op, std::string text) {
  throw Error(n, std::string("Recordset.") + op, std::move(text));
}

std::string ClosedText() { return "Operation is not allowed when the object is closed."; }
std::string BadArgumentText() {
  return "Arguments are of the wrong type, are out of acceptable range, or are in conflict with "
         "one "
         "another.";
}
std::string NoCurrentText() {
  return "Either BOF or EOF is True, or the current record has been deleted. Requested operation "
         "requires a current record.";
}

// "*" and "%" match any run of characters, "_" and "?" one character; case is ignored.
bool LikeMatch(std::string_view s, std::string_view p) {
  std::size_t si = 0, pi = 0, star = std::string_view::npos, mark = 0;
  while (si < s.size()) {
    if (pi < p.size() &&
        (p[pi] == '_' || p[pi] == '?' || text::AsciiToLower(p[pi]) == text::AsciiToLower(s[si]))) {
      ++si, ++pi;
    } else if (pi < p.size() && (p[pi] == '*' || p[pi] == '%')) {
      star = pi++;
      mark = si;
    } else if (star != std::string_view::npos) {
      pi = star + 1;
      si = ++mark;
    } else {
      return false;
    }
  }
  while (pi < p.size() && (p[pi] == '*' || p[pi] == '%')) ++pi;
  return pi == p.size();
}

int CompareVariants(const Variant& a, const Variant& b) {
  if (a.IsNull() || b.IsNull() || a.IsEmpty() || b.IsEmpty()) {
    const bool an = a.IsNull() || a.IsEmpty();
    const bool bn = b.IsNull() || b.IsEmpty();
    return an == bn ? 0 : (an ? -1 : 1);
  }
  if (a.IsDate() || b.IsDate()) {
    try {
      const auto da = a.ToDate(), dbv = b.ToDate();
      return da < dbv ? -1 : (da == dbv ? 0 : 1);
    } catch (const Error&) {
    }
  }
  const bool an = a.IsNumeric() && !a.IsString();
  const bool bn = b.IsNumeric() && !b.IsString();
  if (an || bn) {
    double x, y;
    if (ParseNumber(a.ToText(), x) && ParseNumber(b.ToText(), y)) {
      return x < y ? -1 : (x == y ? 0 : 1);
    }
  }
  return text::CompareNoCase(a.ToText(), b.ToText());
}

}  // namespace

// ---- Field -------------------------------------------------------------------------------------

const std::string& Field::Name() const { return rs_->columns_[index_].name; }
DataType Field::Type() const { return rs_->columns_[index_].type; }
std::int32_t Field::DefinedSize() const { return rs_->columns_[index_].defined_size; }
const ColumnInfo& Field::Info() const { return rs_->columns_[index_]; }

const Variant& Field::Value() const {
  rs_->RequireCurrent("Fields");
  return rs_->CurrentValues()[index_];
}

void Field::SetValue(const Variant& value) {
  rs_->RequireCurrent("Fields");
  Variant converted = rs_->Coerce(index_, value);
  rs_->EditableValues()[index_] = std::move(converted);
}

const Variant& Field::OriginalValue() const {
  rs_->RequireCurrent("Fields");
  if (rs_->edit_mode_ == EditMode::Add) return rs_->add_buffer_.original[index_];
  return rs_->rows_[static_cast<std::size_t>(rs_->pos_)].original[index_];
}

long Field::ActualSize() const {
  const Variant& v = Value();
  if (v.IsNull() || v.IsEmpty()) return 0;
  if (IsTextType(Type())) return static_cast<long>(text::CountCodePoints(v.ToText()));
  if (Type() == DataType::Binary || Type() == DataType::VarBinary ||
      Type() == DataType::LongVarBinary) {
    return static_cast<long>(v.ToText().size());
  }
  return FixedSizeOf(Type());
}

// ---- Fields ------------------------------------------------------------------------------------

long Fields::IndexOf(std::string_view name) const {
  for (std::size_t k = 0; k < fields_.size(); ++k) {
    if (text::EqualsNoCase(rs_->columns_[k].name, name)) return static_cast<long>(k);
  }
  return -1;
}

Field* Fields::Find(std::string_view name) {
  const long k = IndexOf(name);
  return k < 0 ? nullptr : &fields_[static_cast<std::size_t>(k)];
}

Field& Fields::Item(long index) {
  if (index < 0 || index >= Count()) {
    throw Error(dberr::kItemNotFound, "ADODB.Fields",
                "Item cannot be found in the collection corresponding to the requested name or "
                "ordinal.");
  }
  return fields_[static_cast<std::size_t>(index)];
}

Field& Fields::Item(std::string_view name) {
  if (Field* f = Find(name)) return *f;
  throw Error(dberr::kItemNotFound, "ADODB.Fields",
              "Item cannot be found in the collection corresponding to the requested name or "
              "ordinal.");
}

// ---- Recordset: opening
// ---------------------------------------------------------------------------

std::shared_ptr<Recordset> Recordset::Create() {
  return std::shared_ptr<Recordset>(new Recordset());
}

std::shared_ptr<Recordset> Recordset::FromResult(ResultSet result) {
  auto rs = Create();
  rs->Load(std::move(result));
  rs->cursor_type_ = CursorType::Static;
  rs->lock_type_ = LockType::ReadOnly;
  return rs;
}

std::shared_ptr<Recordset> Recordset::FromAddedRow(std::string source,
                                                   std::vector<ColumnInfo> columns, Row values) {
  auto rs = Create();
  rs->source_ = std::move(source);
  rs->cursor_type_ = CursorType::Keyset;
  rs->lock_type_ = LockType::Optimistic;
  rs->cache_size_ = 2;
  rs->max_records_ = 2;
  rs->columns_ = std::move(columns);
  RowData row;
  row.original = values;
  row.values = std::move(values);
  row.bookmark = rs->next_bookmark_++;
  rs->rows_.push_back(std::move(row));
  rs->BuildFields();
  rs->open_ = true;
  rs->pos_ = 0;
  return rs;
}

Recordset::~Recordset() = default;

void Recordset::Load(ResultSet result) {
  columns_ = std::move(result.columns);
  rows_.clear();
  rows_.reserve(result.rows.size());
  for (auto& r : result.rows) {
    RowData row;
    row.original = r;
    row.values = std::move(r);
    row.bookmark = next_bookmark_++;
    rows_.push_back(std::move(row));
  }
  BuildFields();
  open_ = true;
  pos_ = 0;
  current_deleted_ = false;
  edit_mode_ = EditMode::None;
}

void Recordset::BuildFields() {
  fields_.fields_.clear();
  fields_.rs_ = this;
  for (std::size_t k = 0; k < columns_.size(); ++k) fields_.fields_.push_back(Field(this, k));
}

void Recordset::Open(std::string_view sql, const ConnectionPtr& connection, CursorType cursor,
                     LockType lock, std::span<const Variant> params) {
  if (open_) Fail(dberr::kObjectOpen, "Open", "Operation is not allowed when the object is open.");
  if (!connection || !connection->IsOpen()) Fail(dberr::kObjectClosed, "Open", ClosedText());
  ResultSet result = connection->GetDriver().Execute(sql, params, max_records_);
  if (!result.has_columns) {
    Fail(dberr::kObjectClosed, "Open",
         "The statement yields no rows: a recordset cannot be opened on it.");
  }
  source_ = std::string(sql);
  cursor_type_ = cursor;
  lock_type_ = lock;
  Load(std::move(result));
  // Only an updatable recordset keeps the connection it writes through.
  connection_ = lock == LockType::ReadOnly ? nullptr : connection;
}

void Recordset::OpenForAppending(std::string_view sql, const ConnectionPtr& connection,
                                 std::vector<ColumnInfo> columns, CursorType cursor,
                                 LockType lock) {
  if (open_) Fail(dberr::kObjectOpen, "Open", "Operation is not allowed when the object is open.");
  if (!connection || !connection->IsOpen()) Fail(dberr::kObjectClosed, "Open", ClosedText());
  ResultSet result;
  result.columns = std::move(columns);
  result.has_columns = true;
  source_ = std::string(sql);
  cursor_type_ = cursor;
  lock_type_ = lock;
  Load(std::move(result));
  connection_ = lock == LockType::ReadOnly ? nullptr : connection;
}

void Recordset::AppendField(std::string name, DataType type, std::int32_t defined_size,
                            bool nullable) {
  if (open_)
    Fail(dberr::kObjectOpen, "Fields.Append", "Operation is not allowed when the object is open.");
  ColumnInfo c;
  c.name = std::move(name);
  c.type = type;
  if (IsTextType(type)) {
    c.defined_size = defined_size > 0 ? defined_size : kUnboundedTextSize;
  } else {
    c.defined_size = defined_size > 0 ? defined_size : FixedSizeOf(type);
  }
  c.nullable = nullable;
  columns_.push_back(std::move(c));
}

void Recordset::OpenFabricated() {
  if (open_) Fail(dberr::kObjectOpen, "Open", "Operation is not allowed when the object is open.");
  fabricated_ = true;
  cursor_type_ = CursorType::Static;
  lock_type_ = LockType::BatchOptimistic;
  rows_.clear();
  BuildFields();
  open_ = true;
  pos_ = 0;
}

void Recordset::Close() {
  RequireOpen("Close");
  open_ = false;
  rows_.clear();
  columns_.clear();
  fields_.fields_.clear();
  connection_.reset();
  edit_mode_ = EditMode::None;
  pos_ = -1;
}

void Recordset::SetActiveConnection(ConnectionPtr connection) {
  connection_ = std::move(connection);
}

// ---- Recordset: reading
// --------------------------------------------------------------------------

void Recordset::RequireOpen(const char* op) const {
  if (!open_) Fail(dberr::kObjectClosed, op, ClosedText());
}

void Recordset::RequireCurrent(const char* op) const {
  RequireOpen(op);
  if (edit_mode_ == EditMode::Add) return;
  if (current_deleted_ || pos_ < 0 || pos_ >= static_cast<long>(rows_.size())) {
    Fail(dberr::kNoCurrentRecord, op, NoCurrentText());
  }
}

void Recordset::RequireUpdatable(const char* op) const {
  RequireOpen(op);
  if (lock_type_ == LockType::ReadOnly && !fabricated_) {
    Fail(dberr::kNotUpdatable, op,
         "Current Recordset does not support updating. This may be a limitation of the provider, "
         "or of the selected locktype.");
  }
}

Fields& Recordset::GetFields() {
  RequireOpen("Fields");
  return fields_;
}

const Row& Recordset::CurrentValues() const {
  if (edit_mode_ == EditMode::Add) return add_buffer_.values;
  return rows_[static_cast<std::size_t>(pos_)].values;
}

Row& Recordset::EditableValues() {
  if (edit_mode_ == EditMode::Add) return add_buffer_.values;
  RequireUpdatable("Fields");
  edit_mode_ = EditMode::InProgress;
  return rows_[static_cast<std::size_t>(pos_)].values;
}

bool Recordset::IsEOF() const {
  RequireOpen("EOF");
  if (edit_mode_ == EditMode::Add) return false;
  return rows_.empty() || pos_ >= static_cast<long>(rows_.size());
}

bool Recordset::IsBOF() const {
  RequireOpen("BOF");
  if (edit_mode_ == EditMode::Add) return false;
  return rows_.empty() || pos_ < 0;
}

long Recordset::RecordCount() const {
  RequireOpen("RecordCount");
  return static_cast<long>(rows_.size());
}

void Recordset::ImplicitUpdate() {
  if (edit_mode_ != EditMode::None) Update();
}

void Recordset::MoveFirst() {
  RequireOpen("MoveFirst");
  ImplicitUpdate();
  current_deleted_ = false;
  pos_ = 0;
}

void Recordset::MoveLast() {
  RequireOpen("MoveLast");
  ImplicitUpdate();
  current_deleted_ = false;
  pos_ = rows_.empty() ? 0 : static_cast<long>(rows_.size()) - 1;
}

void Recordset::MoveNext() {
  RequireOpen("MoveNext");
  ImplicitUpdate();
  if (current_deleted_) {
    current_deleted_ = false;  // the row after the deleted one is already under the cursor
    return;
  }
  if (IsEOF()) Fail(dberr::kNoCurrentRecord, "MoveNext", NoCurrentText());
  ++pos_;
}

void Recordset::MovePrevious() {
  RequireOpen("MovePrevious");
  ImplicitUpdate();
  current_deleted_ = false;
  if (IsBOF()) Fail(dberr::kNoCurrentRecord, "MovePrevious", NoCurrentText());
  --pos_;
}

void Recordset::Move(long n) {
  RequireOpen("Move");
  ImplicitUpdate();
  current_deleted_ = false;
  const long target = pos_ + n;
  if (target < -1 || target > static_cast<long>(rows_.size())) {
    Fail(dberr::kNoCurrentRecord, "Move", NoCurrentText());
  }
  pos_ = target;
}

long Recordset::AbsolutePosition() const {
  RequireOpen("AbsolutePosition");
  if (rows_.empty()) return -1;
  if (pos_ < 0) return -2;
  if (pos_ >= static_cast<long>(rows_.size())) return -3;
  return pos_ + 1;
}

void Recordset::SetAbsolutePosition(long position) {
  RequireOpen("AbsolutePosition");
  if (position < 1 || position > static_cast<long>(rows_.size())) {
    Fail(dberr::kBadArgument, "AbsolutePosition", BadArgumentText());
  }
  ImplicitUpdate();
  current_deleted_ = false;
  pos_ = position - 1;
}

Variant Recordset::Bookmark() const {
  RequireCurrent("Bookmark");
  if (edit_mode_ == EditMode::Add) Fail(dberr::kNoCurrentRecord, "Bookmark", NoCurrentText());
  return Variant(static_cast<long long>(rows_[static_cast<std::size_t>(pos_)].bookmark));
}

void Recordset::SetBookmark(const Variant& bookmark) {
  RequireOpen("Bookmark");
  const auto wanted = static_cast<std::uint64_t>(bookmark.ToLongLong());
  for (std::size_t k = 0; k < rows_.size(); ++k) {
    if (rows_[k].bookmark == wanted) {
      ImplicitUpdate();
      current_deleted_ = false;
      pos_ = static_cast<long>(k);
      return;
    }
  }
  Fail(dberr::kBadArgument, "Bookmark", BadArgumentText());
}

// ---- Recordset: editing
// ----------------------------------------------------------------------------

Variant Recordset::Coerce(std::size_t column, const Variant& value) const {
  return CoerceToColumn(columns_[column], value);
}

void Recordset::CheckWidths(const Row& values) const { CheckTextWidths(columns_, values); }

void Recordset::AddNew() {
  RequireUpdatable("AddNew");
  ImplicitUpdate();
  add_buffer_ = RowData{};
  add_buffer_.values.assign(columns_.size(), Variant(kNull));
  add_buffer_.original.assign(columns_.size(), Variant(kNull));
  edit_mode_ = EditMode::Add;
}

void Recordset::AddNew(std::span<const std::string> names, std::span<const Variant> values) {
  if (names.size() != values.size()) Fail(dberr::kBadArgument, "AddNew", BadArgumentText());
  AddNew();
  SetAndUpdate(names, values);
}

void Recordset::SetAndUpdate(std::span<const std::string> names, std::span<const Variant> values) {
  try {
    for (std::size_t k = 0; k < names.size(); ++k) fields_.Item(names[k]).SetValue(values[k]);
    Update();
  } catch (...) {
    CancelUpdate();
    throw;
  }
}

bool Recordset::WritesThrough() const {
  return connection_ && connection_->IsOpen() && lock_type_ != LockType::ReadOnly && !fabricated_;
}

std::string Recordset::BaseTable() const { return BaseTableOf(columns_); }

void Recordset::WriteInsert(RowData& row) {
  Driver& d = connection_->GetDriver();
  const std::string sql = InsertText(d, BaseTable(), columns_, row.values);
  std::vector<Variant> params;
  long auto_column = -1;
  for (std::size_t k = 0; k < columns_.size(); ++k) {
    const ColumnInfo& c = columns_[k];
    if (c.base_column.empty()) continue;
    if (c.auto_increment) auto_column = static_cast<long>(k);
    if (!row.values[k].IsNull()) params.push_back(row.values[k]);
  }
  d.Execute(sql, params);
  if (auto_column >= 0 && row.values[static_cast<std::size_t>(auto_column)].IsNull()) {
    row.values[static_cast<std::size_t>(auto_column)] = Variant(d.LastInsertId());
  }
}

namespace {
// WHERE clause that finds a row by its key columns, or by all its original values.
std::string RowLocator(Driver& d, const std::vector<ColumnInfo>& columns, const Row& original,
                       std::vector<Variant>& params) {
  bool has_key = false;
  for (const auto& c : columns) has_key = has_key || (c.key && !c.base_column.empty());
  std::string where;
  for (std::size_t k = 0; k < columns.size(); ++k) {
    const ColumnInfo& c = columns[k];
    if (c.base_column.empty() || (has_key && !c.key)) continue;
    if (c.type == DataType::Chapter) continue;
    if (!where.empty()) where += " AND ";
    if (original[k].IsNull()) {
      where += d.QuoteIdentifier(c.base_column) + " IS NULL";
    } else {
      where += d.QuoteIdentifier(c.base_column) + " = ?";
      params.push_back(original[k]);
    }
  }
  return where;
}
}  // namespace

void Recordset::WriteUpdate(RowData& row) {
  Driver& d = connection_->GetDriver();
  const std::string table = BaseTable();
  std::string sets;
  std::vector<Variant> params;
  for (std::size_t k = 0; k < columns_.size(); ++k) {
    const ColumnInfo& c = columns_[k];
    if (c.base_column.empty() || row.values[k] == row.original[k]) continue;
    if (!sets.empty()) sets += ", ";
    sets += d.QuoteIdentifier(c.base_column) + " = ?";
    params.push_back(row.values[k]);
  }
  if (sets.empty()) return;
  const std::string where = RowLocator(d, columns_, row.original, params);
  const std::string sql = "UPDATE " + d.QuoteIdentifier(table) + " SET " + sets +
                          (where.empty() ? "" : " WHERE " + where);
  if (d.Execute(sql, params).rows_affected < 1) {
    Fail(dberr::kRowNotLocated, "Update",
         "Row cannot be located for updating. Some values may have been changed since it was last "
         "read.");
  }
}

void Recordset::WriteDelete(const RowData& row) {
  Driver& d = connection_->GetDriver();
  const std::string table = BaseTable();
  std::vector<Variant> params;
  const std::string where = RowLocator(d, columns_, row.original, params);
  const std::string sql =
      "DELETE FROM " + d.QuoteIdentifier(table) + (where.empty() ? "" : " WHERE " + where);
  if (d.Execute(sql, params).rows_affected < 1) {
    Fail(dberr::kRowNotLocated, "Delete",
         "Row cannot be located for updating. Some values may have been changed since it was last "
         "read.");
  }
}

void Recordset::Update() {
  RequireOpen("Update");
  if (edit_mode_ == EditMode::None) return;
  if (edit_mode_ == EditMode::Add) {
    CheckWidths(add_buffer_.values);
    if (WritesThrough()) WriteInsert(add_buffer_);
    add_buffer_.original = add_buffer_.values;
    add_buffer_.bookmark = next_bookmark_++;
    rows_.push_back(std::move(add_buffer_));
    add_buffer_ = RowData{};
    pos_ = static_cast<long>(rows_.size()) - 1;
    current_deleted_ = false;
    edit_mode_ = EditMode::None;
    return;
  }
  RowData& row = rows_[static_cast<std::size_t>(pos_)];
  CheckWidths(row.values);
  if (WritesThrough()) WriteUpdate(row);
  row.original = row.values;
  edit_mode_ = EditMode::None;
}

void Recordset::Update(std::span<const std::string> names, std::span<const Variant> values) {
  if (names.size() != values.size()) Fail(dberr::kBadArgument, "Update", BadArgumentText());
  RequireCurrent("Update");
  SetAndUpdate(names, values);
}

void Recordset::CancelUpdate() {
  RequireOpen("CancelUpdate");
  if (edit_mode_ == EditMode::Add) {
    add_buffer_ = RowData{};
  } else if (edit_mode_ == EditMode::InProgress) {
    RowData& row = rows_[static_cast<std::size_t>(pos_)];
    row.values = row.original;
  }
  edit_mode_ = EditMode::None;
}

void Recordset::Delete() {
  RequireUpdatable("Delete");
  if (edit_mode_ == EditMode::Add) {
    CancelUpdate();
    return;
  }
  RequireCurrent("Delete");
  RowData& row = rows_[static_cast<std::size_t>(pos_)];
  if (WritesThrough()) WriteDelete(row);
  rows_.erase(rows_.begin() + pos_);
  edit_mode_ = EditMode::None;
  current_deleted_ = true;
}

// ---- Recordset: searching
// ---------------------------------------------------------------------------

bool Recordset::Matches(const RowData& row, std::string_view column, std::string_view op,
                        const Variant& value) const {
  const long k = fields_.IndexOf(column);
  const Variant& v = row.values[static_cast<std::size_t>(k)];
  if (text::EqualsNoCase(op, "LIKE")) return !v.IsNull() && LikeMatch(v.ToText(), value.ToText());
  const int c = CompareVariants(v, value);
  if (op == "=") return c == 0;
  if (op == "<>" || op == "!=") return c != 0;
  if (op == "<") return c < 0;
  if (op == ">") return c > 0;
  if (op == "<=") return c <= 0;
  if (op == ">=") return c >= 0;
  return false;
}

void Recordset::Find(std::string_view criteria, long skip, SearchDirection direction,
                     const Variant& start) {
  RequireOpen("Find");
  ImplicitUpdate();
  // column
  std::string_view s = text::TrimWhitespace(criteria);
  std::string column;
  std::size_t i = 0;
  if (!s.empty() && s[0] == '[') {
    const std::size_t close = s.find(']');
    if (close == std::string_view::npos)
      Fail(dberr::kBadArgument, "Find", "Bad criteria: " + std::string(criteria));
    column = std::string(s.substr(1, close - 1));
    i = close + 1;
  } else {
    while (i < s.size() && s[i] != ' ' && s[i] != '=' && s[i] != '<' && s[i] != '>' && s[i] != '!')
      ++i;
    column = std::string(s.substr(0, i));
  }
  while (i < s.size() && s[i] == ' ') ++i;
  // operator
  std::string op;
  if (text::StartsWithNoCase(s.substr(i), "LIKE")) {
    op = "LIKE";
    i += 4;
  } else {
    while (i < s.size() && (s[i] == '=' || s[i] == '<' || s[i] == '>' || s[i] == '!')) op += s[i++];
  }
  if (op.empty() || fields_.IndexOf(column) < 0) {
    Fail(dberr::kBadArgument, "Find", BadArgumentText() + " (" + std::string(criteria) + ")");
  }
  while (i < s.size() && s[i] == ' ') ++i;
  // value
  std::string_view rest = text::TrimWhitespace(s.substr(i));
  Variant value;
  if (rest.size() >= 2 && rest.front() == '\'' && rest.back() == '\'') {
    value = Variant(text::ReplaceAll(rest.substr(1, rest.size() - 2), "''", "'"));
  } else if (rest.size() >= 2 && rest.front() == '#' && rest.back() == '#') {
    const auto d = DateTime::Parse(rest.substr(1, rest.size() - 2));
    value = d ? Variant(*d) : Variant(std::string(rest));
  } else {
    double num;
    value = ParseNumber(rest, num) ? Variant(num) : Variant(std::string(rest));
  }

  long p = pos_;
  if (!start.IsEmpty() && !start.IsNull()) {
    SetBookmark(start);
    p = pos_;
  }
  current_deleted_ = false;
  const long step = direction == SearchDirection::Forward ? 1 : -1;
  p += skip * step;
  const long n = static_cast<long>(rows_.size());
  for (; p >= 0 && p < n; p += step) {
    if (Matches(rows_[static_cast<std::size_t>(p)], column, op, value)) {
      pos_ = p;
      return;
    }
  }
  pos_ = direction == SearchDirection::Forward ? n : -1;
}

std::shared_ptr<Recordset> Recordset::Clone() const {
  RequireOpen("Clone");
  auto rs = Create();
  rs->columns_ = columns_;
  rs->rows_ = rows_;
  rs->next_bookmark_ = next_bookmark_;
  rs->source_ = source_;
  rs->fabricated_ = true;
  rs->cursor_type_ = CursorType::Static;
  rs->lock_type_ = lock_type_;
  rs->BuildFields();
  rs->open_ = true;
  rs->pos_ = 0;
  return rs;
}

}  // namespace gw::db
