// Helpers for keyed maps (`gw::Dictionary`): copying and combining with cloning, and the trace
// file.
#pragma once

#include <memory>
#include <string_view>
#include <type_traits>

#include "platform/collection.h"
#include "platform/variant.h"
#include "web/cloneable.h"

namespace gw::web::DictionaryUtils {

// A value that implements `ICloneable` is cloned; anything else is copied (an object that cannot
// be cloned is shared).
inline Variant CloneValue(const Variant& value) {
  if (value.IsObject()) {
    const ObjectPtr object = value.ToObject();
    if (const auto* cloneable = dynamic_cast<const ICloneable*>(object.get())) {
      return Variant(cloneable->CloneObject());
    }
  }
  return value;
}
template <typename T>
std::shared_ptr<T> CloneValue(const std::shared_ptr<T>& value) {
  if (const auto* cloneable = dynamic_cast<const ICloneable*>(value.get())) {
    if (auto copy = std::dynamic_pointer_cast<T>(cloneable->CloneObject())) return copy;
  }
  return value;
}
template <typename V>
V CloneValue(const V& value) {
  return value;
}

// A new map with the same keys in the same order, the same key comparison, and cloned values.
template <typename V>
Dictionary<V> CopyDictionary(const Dictionary<V>& d) {
  Dictionary<V> copy(d.GetCompareMode());
  for (const auto& [key, value] : d) copy.Add(key, CloneValue(value));
  return copy;
}

// A new map: a copy of `dict1`, then each entry of `dict2` whose key it does not hold yet, values
// cloned. `dict1` wins on a clash, and its key comparison is the result's.
template <typename V>
Dictionary<V> CombineDictionaries(const Dictionary<V>& dict1, const Dictionary<V>& dict2) {
  Dictionary<V> result = CopyDictionary(dict1);
  for (const auto& [key, value] : dict2) {
    if (!result.Exists(key)) result.Add(key, CloneValue(value));
  }
  return result;
}

// Appends `message` as a line to "TraceFile.txt" in the product's home folder (`gw::HomeDir()`),
// opening and closing the file for the line; the message "Default" writes nothing. A file that
// cannot be written is ignored: tracing never fails the caller.
void Trace(std::string_view message);

}  // namespace gw::web::DictionaryUtils
