// Hierarchical recordsets: what the data shaping provider's "SHAPE {parent} APPEND ({child}
// RELATE a TO b) AS name" made, built here by running the two statements and joining them.
#pragma once

#include <string>
#include <string_view>

#include "platform/db/recordset.h"
#include "platform/variant.h"

namespace gw {

// A copy of `parent` (disconnected, in memory) with one more column, `chapter_name`, of type
// Chapter: for each parent row a recordset of the `child` rows whose `child_column` equals the
// row's `parent_column` (texts compare without case; a null matches nothing), in the child's
// order. The chapter column is named "Chapter1" when the statement gives no name.
db::RecordsetPtr ShapeAppend(db::Recordset& parent, db::Recordset& child,
                             std::string_view parent_column, std::string_view child_column,
                             std::string chapter_name = "Chapter1");

// An empty in-memory recordset with the columns of `like` (texts without a width limit), open
// and ready for `AddNew`.
db::RecordsetPtr EmptyRecordsetLike(const db::Recordset& like);

// The category of a display name, as the hierarchy statements compute it in SQL Server:
// CASE WHEN RTRIM(LTRIM(REPLACE(LEFT(x, CHARINDEX('\', x)), '\', ''))) = '' THEN '(Default)'
// ELSE that END. So the text before the first backslash, trimmed of spaces, or "(Default)" when
// there is none; Null for a Null name.
Variant CategoryOfName(const Variant& name);
// The name within the category: RTRIM(LTRIM(REPLACE(RIGHT(x, LEN(x) - CHARINDEX('\', x)), '\',
// ''))). Every further backslash is removed. LEN does not count trailing spaces while RIGHT takes
// them, so a name ending in n spaces loses n characters after its backslash (or at its start):
// that is what the statement gives, and it is kept. Null for a Null name.
Variant ShortNameOf(const Variant& name);

enum class CategoryOrder { ByShortName, ByFullName };

// The child level of a category tree: for each row of `items` (which has the columns `id_column`,
// `name_column`, "description", "date_created", "date_modified"), a row of `id_column`,
// "category" (`CategoryOfName`), "Name" (`ShortNameOf`), "Description", "Create Date" and
// `modified_label`, ordered by the name within the category or by the full name. Texts compare
// without case; nulls sort first.
db::RecordsetPtr CategoryChildRecordset(db::Recordset& items, std::string_view id_column,
                                        std::string_view name_column,
                                        std::string_view modified_label, CategoryOrder order);
// The parent level: the distinct categories of a child level (column "category"), in order.
db::RecordsetPtr CategoryParentRecordset(db::Recordset& child);
// The whole tree: the parent level of `child`, each category with its rows of `child` as the
// chapter "category".
db::RecordsetPtr CategoryTree(db::Recordset& child);

// The connection string the hierarchies run on: the setting "ShapeCnStr" of the rules store,
// with a "Provider=MSDataShape" string turned into its "Data Provider"; the rules connection
// string when the setting is empty.
std::string ShapeConnectionString();

}  // namespace gw
