#include "platform/db/row_appender.h"

#include "platform/db/recordset.h"
#include "platform/text.h"

namespace gw::db {

Variant CoerceToColumn(const ColumnInfo& c, Variant value) {
  if (value.IsNull() || value.IsEmpty()) return Variant(kNull);
  if (c.type == DataType::Chapter || c.type == DataType::Variant) return value;
  // A text for a text column stays as it is.
  if (value.IsString() && (IsTextType(c.type) || c.type == DataType::Guid)) return value;
  try {
    if (IsTextType(c.type) || c.type == DataType::Guid) return Variant(value.ToString());
    switch (c.type) {
      case DataType::SmallInt:
        return Variant(value.ToInteger());
      case DataType::Integer:
        return Variant(value.ToLong());
      case DataType::BigInt:
        return Variant(static_cast<long long>(value.ToLongLong()));
      case DataType::Single:
        return Variant(value.ToSingle());
      case DataType::Double:
      case DataType::Currency:
      case DataType::Decimal:
      case DataType::Numeric:
        return Variant(value.ToDouble());
      case DataType::Boolean:
        return Variant(value.ToBool());
      case DataType::Date:
      case DataType::DBTimeStamp:
        return Variant(value.ToDate());
      default:
        return Variant(value.ToText());
    }
  } catch (const Error&) {
    throw Error(dberr::kMultipleStep, "Recordset.Fields",
                "Multiple-step operation generated errors. Check each status value. (The value "
                "does not fit the column " +
                    c.name + ".)");
  }
}

void CheckTextWidths(const std::vector<ColumnInfo>& columns, const Row& values) {
  for (std::size_t k = 0; k < columns.size(); ++k) {
    const ColumnInfo& c = columns[k];
    if (!IsTextType(c.type) || c.defined_size <= 0 || c.defined_size >= kUnboundedTextSize)
      continue;
    const Variant& v = values[k];
    if (!v.IsString()) continue;
    const auto& s = std::get<std::string>(v.Raw());
    const auto width = static_cast<std::size_t>(c.defined_size);
    // No more bytes than the width is no more characters either.
    if (s.size() <= width || text::CountCodePoints(s) <= width) continue;
    throw Error(dberr::kDataTruncated, "Recordset.Update",
                "String or binary data would be truncated. (Column " + c.name + " holds " +
                    std::to_string(c.defined_size) + " characters.)");
  }
}

std::string BaseTableOf(const std::vector<ColumnInfo>& columns) {
  std::string table;
  for (const auto& c : columns) {
    if (c.base_table.empty()) continue;
    if (table.empty()) {
      table = c.base_table;
    } else if (!text::EqualsNoCase(table, c.base_table)) {
      throw Error(dberr::kNotUpdatable, "Recordset.Update",
                  "Insufficient base table information for updating or refreshing: the rows come "
                  "from more than one table.");
    }
  }
  if (table.empty()) {
    throw Error(dberr::kNotUpdatable, "Recordset.Update",
                "Insufficient base table information for updating or refreshing.");
  }
  return table;
}

std::string InsertText(const Driver& d, std::string_view table,
                       const std::vector<ColumnInfo>& columns, const Row& values) {
  std::string cols, marks;
  for (std::size_t k = 0; k < columns.size(); ++k) {
    const ColumnInfo& c = columns[k];
    if (c.base_column.empty() || values[k].IsNull()) continue;  // unset: the store's default
    if (!cols.empty()) {
      cols += ", ";
      marks += ", ";
    }
    cols += d.QuoteIdentifier(c.base_column);
    marks += '?';
  }
  std::string sql = "INSERT INTO " + d.QuoteIdentifier(table);
  sql += cols.empty() ? std::string(" DEFAULT VALUES") : " (" + cols + ") VALUES (" + marks + ")";
  return sql;
}

RowAppender::RowAppender(std::string source, std::vector<ColumnInfo> columns)
    : source_(std::move(source)), columns_(std::move(columns)) {
  for (std::size_t k = 0; k < columns_.size(); ++k) {
    if (!columns_[k].base_column.empty() && columns_[k].auto_increment) {
      auto_column_ = static_cast<long>(k);
    }
  }
}

long RowAppender::IndexOf(std::string_view name) const {
  for (const auto& [asked, index] : asked_) {
    if (asked == name) return index;
  }
  long found = -1;
  for (std::size_t k = 0; k < columns_.size(); ++k) {
    if (text::EqualsNoCase(columns_[k].name, name)) {
      found = static_cast<long>(k);
      break;
    }
  }
  asked_.emplace_back(std::string(name), found);
  return found;
}

long RowAppender::Require(std::string_view name) const {
  const long k = IndexOf(name);
  if (k < 0) {
    throw Error(dberr::kItemNotFound, "ADODB.Fields",
                "Item cannot be found in the collection corresponding to the requested name or "
                "ordinal.");
  }
  return k;
}

void RowAppender::Start(Row& values) const { values.assign(columns_.size(), Variant(kNull)); }

void RowAppender::Set(Row& values, long column, Variant value) const {
  const auto k = static_cast<std::size_t>(column);
  values[k] = CoerceToColumn(columns_[k], std::move(value));
}

const std::string& RowAppender::TextFor(const Driver& d, const Row& values) const {
  for (const Statement& s : statements_) {
    bool same = true;
    for (std::size_t k = 0; k < columns_.size() && same; ++k) {
      same = s.set[k] == !values[k].IsNull();
    }
    if (same) return s.sql;
  }
  Statement s;
  s.sql = InsertText(d, BaseTableOf(columns_), columns_, values);
  s.set.resize(columns_.size());
  for (std::size_t k = 0; k < columns_.size(); ++k) s.set[k] = !values[k].IsNull();
  statements_.push_back(std::move(s));
  return statements_.back().sql;
}

void RowAppender::Insert(Driver& d, Row& values) const {
  CheckTextWidths(columns_, values);
  const std::string& sql = TextFor(d, values);
  // The values go into the statement and come back, whatever the store says.
  params_.clear();
  for (std::size_t k = 0; k < columns_.size(); ++k) {
    if (!columns_[k].base_column.empty() && !values[k].IsNull()) {
      params_.push_back(std::move(values[k]));
    }
  }
  const auto give_back = [&] {
    std::size_t p = 0;
    for (std::size_t k = 0; k < columns_.size(); ++k) {
      if (!columns_[k].base_column.empty() && !values[k].IsNull()) {
        values[k] = std::move(params_[p++]);
      }
    }
  };
  try {
    d.Execute(sql, params_);
  } catch (...) {
    give_back();
    throw;
  }
  give_back();
  if (auto_column_ >= 0 && values[static_cast<std::size_t>(auto_column_)].IsNull()) {
    values[static_cast<std::size_t>(auto_column_)] = Variant(d.LastInsertId());
  }
}

std::shared_ptr<Recordset> RowAppender::ToRecordset(const Row& values) const {
  return Recordset::FromAddedRow(source_, columns_, values);
}

}  // namespace gw::db
