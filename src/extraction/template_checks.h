// What makes a template lose data without failing: checked when a template file is imported and
// when a datapage is validated before a run, so that neither stores nor runs such a template.
//
//  - a name (datapage, dataset, field, table, key column, package, task) with a control character
//    in it: a line break in a name forges lines in what the program prints;
//  - two fields of one dataset that write the same column (names compare without letter case), or
//    a field that writes a column the dataset's custom columns fill (DOC_ID...): the later value
//    overwrites the earlier one;
//  - a dataset that is its own parent, or one of a loop of parents: no root leads to it, so it is
//    never extracted;
//  - an empty initialization string: it occurs everywhere, and every character opens a row;
//  - a filter name (`ColumnType`) that is not a filter: the value would be taken raw.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace gw::template_checks {

// "it holds a control character", or "" when the name is fine.
std::string NameProblem(std::string_view name);

// The positions (earlier, later) of the first name that repeats an earlier one, letter case
// ignored; none when every name is different.
std::optional<std::pair<std::size_t, std::size_t>> FindRepeatedName(
    const std::vector<std::string>& names);

// True when following `parent_of` from the dataset `id` comes back to a dataset already passed
// (`id` itself included): the dataset is its own parent or hangs below a loop of parents.
// `parent_of` gives a dataset's parent id, "" for none.
bool InParentLoop(const std::string& id,
                  const std::function<std::string(const std::string&)>& parent_of);

// True when the filter part of a stored `ColumnType` ("URL , http://base") names a filter; an
// empty name is "RAW".
bool IsKnownFilter(std::string_view stored_column_type);

}  // namespace gw::template_checks
