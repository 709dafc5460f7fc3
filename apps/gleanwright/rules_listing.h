// Shared by the commands that show the rules store: where it is, and category trees as text.
#pragma once

#include <ostream>
#include <string>

#include "platform/db/recordset.h"

namespace gw::app {

// "/path/ZentrovoDB.sqlite" for a SQLite store; otherwise the provider and data source of the
// connection string (never its password).
std::string DescribeRulesStore(const std::string& cn_str);

// Writes a category tree (rows with "category" and a chapter "Chapter1" of rows with `id_column`,
// "Name" and "Description") as an indented listing; `empty_text` when it has no rows.
void PrintCategoryTree(std::ostream& out, db::Recordset& tree, const std::string& id_column,
                       const std::string& empty_text);

}  // namespace gw::app
