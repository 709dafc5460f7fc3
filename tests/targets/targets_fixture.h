// Helpers of the target store's tests: table descriptions, and what a store holds, read through
// the database layer the same way for every store.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "platform/db/connection.h"
#include "platform/db/recordset.h"
#include "platform/error.h"
#include "support/test_support.h"
#include "targets/table_description.h"

namespace gw::targets_test {

using testing::CaughtError;
using testing::FailureNumber;

// (name, width) of every column of `table`, as a recordset on "SELECT * FROM" reports them.
inline std::vector<std::pair<std::string, long>> Columns(const std::string& cn_str,
                                                         const std::string& table) {
  auto cn = db::Connection::Create();
  cn->Open(cn_str);
  auto rs = cn->Execute("SELECT * FROM " + table);
  std::vector<std::pair<std::string, long>> out;
  for (const auto& c : rs->Columns()) out.emplace_back(c.name, c.defined_size);
  return out;
}

// Every row of `table`, each value as text ("" for a null), in the store's order.
inline std::vector<std::vector<std::string>> Rows(const std::string& cn_str,
                                                  const std::string& table) {
  auto cn = db::Connection::Create();
  cn->Open(cn_str);
  std::vector<std::vector<std::string>> rows;
  for (auto rs = cn->Execute("SELECT * FROM " + table); !rs->IsEOF(); rs->MoveNext()) {
    std::vector<std::string> row;
    for (auto& f : rs->GetFields()) row.push_back(f.Value().IsNull() ? "" : f.Value().ToText());
    rows.push_back(std::move(row));
  }
  return rows;
}

inline void Exec(const std::string& cn_str, const std::string& sql) {
  auto cn = db::Connection::Create();
  cn->Open(cn_str);
  cn->ExecuteScript(sql);
}

inline TableDescription Describe(std::string table, std::vector<TableColumn> fields,
                                 std::vector<TableColumn> custom = {}) {
  TableDescription d;
  d.table_name = std::move(table);
  d.fields = std::move(fields);
  d.custom_columns = std::move(custom);
  return d;
}

}  // namespace gw::targets_test
