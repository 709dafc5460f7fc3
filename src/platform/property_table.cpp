#include "platform/property_table.h"

#include "platform/text.h"

namespace gw {

const PropertyInfo* PropertyTable::Find(std::string_view name) const {
  for (const auto& p : properties) {
    if (p.kind != PropertyKind::Members && text::EqualsNoCase(p.name, name)) return &p;
  }
  return nullptr;
}

const PropertyInfo* PropertyTable::FindMembers() const {
  for (const auto& p : properties) {
    if (p.kind == PropertyKind::Members) return &p;
  }
  return nullptr;
}

namespace detail {

void CheckTable(const PropertyTable& table) {
  const auto fail = [&](const std::string& what) {
    throw Error(errnum::kInvalidProcedureCall, "PropertyTableBuilder",
                "The property table of " + table.type_name + " " + what);
  };
  int enumerators = 0;
  for (std::size_t k = 0; k < table.properties.size(); ++k) {
    const PropertyInfo& p = table.properties[k];
    if (p.kind == PropertyKind::Members) {
      if (++enumerators > 1) fail("has two enumerators.");
      continue;
    }
    if (p.name.empty()) fail("has a property without a name.");
    for (std::size_t j = 0; j < k; ++j) {
      const PropertyInfo& q = table.properties[j];
      if (q.kind != PropertyKind::Members && text::EqualsNoCase(p.name, q.name)) {
        fail("names the property " + p.name + " twice.");
      }
    }
  }
  if (table.add_member && table.add_method_name.empty()) fail("has an add method without a name.");
}

}  // namespace detail

}  // namespace gw
