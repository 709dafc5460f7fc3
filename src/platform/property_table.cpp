#include "platform/property_table.h"

#include "platform/text.h"

namespace gw {

const PropertyInfo* PropertyTable::Find(std::string_view name) const {
  for (const auto& p : properties) {
    if (text::EqualsNoCase(p.name, name)) return &p;
  }
  return nullptr;
}

}  // namespace gw
