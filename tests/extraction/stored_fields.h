// Fields for the tests that build templates to store, load or exchange.
#pragma once

#include <cstdint>
#include <string>

#include "extraction/attrib.h"
#include "extraction/entity.h"

namespace gw::testing {

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
