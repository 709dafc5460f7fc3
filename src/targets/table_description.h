// What the target store needs to know to build a dataset's table.
//
// The dataset (`Entity`) builds this description; the target store never sees the dataset itself,
// because it sits in a lower layer.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace gw {

struct TableColumn {
  std::string name;
  // Characters. For a field a negative size means a text without a width limit.
  std::int32_t size = 0;
};

// The key of a dataset's parent, which a child table carries as a column.
struct ParentKey {
  std::string table_name;
  std::string pk_column;  // may be empty: the parent has no key
  bool is_pk_surrogate = false;
  // The width of the parent's key field (used when the key is not a surrogate).
  std::int32_t pk_size = 0;
};

struct TableDescription {
  std::string table_name;
  std::vector<TableColumn> fields;          // one column per field, in step order
  std::vector<TableColumn> custom_columns;  // the selected metadata columns
  std::string pk_column;
  bool is_pk_surrogate = false;
  // Set when the dataset has a parent whose key the table must carry.
  std::optional<ParentKey> parent;
};

}  // namespace gw
