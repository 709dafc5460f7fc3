// The library's clone interface: an object that can hand out an independent copy of itself.
// Keyed-map helpers (`DictionaryUtils`) clone the values that implement it and copy the others.
#pragma once

#include <memory>

#include "platform/variant.h"

namespace gw::web {

class ICloneable {
 public:
  virtual ~ICloneable() = default;
  // A new object of the same class with the state that the class's `Clone` copies.
  virtual ObjectPtr CloneObject() const = 0;
};

}  // namespace gw::web
