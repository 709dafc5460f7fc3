// Datasets and fields for the tests that build templates to store, load, exchange or run.
#pragma once

#include <cstdint>
#include <string>

#include "extraction/attrib.h"
#include "extraction/entity.h"

namespace gw::testing {

// A dataset `name` on `table`, opened by `init`, writing through `cn_str`, added under its id to
// `owner` (a datapage's root datasets or a dataset's children on the page).
inline EntityPtr Dataset(Entities& owner, const std::string& name, const std::string& table,
                         const std::string& init, const std::string& cn_str = {}) {
  auto e = Entity::Create();
  owner.Add(e, e->Id());
  e->SetEntityName(name);
  e->SetTableName(table);
  e->SetInitString(init);
  e->SetDBConnStr(cn_str);
  return e;
}

// A field of `entity` on `column` with its step and tags, added under its id.
inline AttribPtr Field(const EntityPtr& entity, const std::string& column, std::int16_t step,
                       const std::string& start, const std::string& end) {
  auto a = Attrib::Create();
  a->SetColumnName(column);
  a->SetStep(step);
  a->SetStartTag(start);
  a->SetEndTag(end);
  entity->GetAttributes().Add(a, a->Id());
  return a;
}

}  // namespace gw::testing
