// The "**NoAction**" sentinel of the `Save` family of the data-access classes.
//
// Each optional argument of a `Save` starts at its sentinel, which means "leave this column
// alone": on an insert the column becomes null, on an update it keeps the row's value. A text
// argument is at its sentinel when it is Empty or the text "**NoAction**"; a number also when it
// is at or below `kNoActionNumber`; a date also when it is the empty date. Null is a value: it
// writes null.
#pragma once

#include <string_view>

#include "platform/variant.h"

namespace gw {

inline constexpr std::string_view kNoAction = "**NoAction**";
inline constexpr long kNoActionNumber = -32768;

inline Variant NoAction() { return Variant(kNoAction); }

bool IsNoAction(const Variant& v);
bool IsNoActionNumber(const Variant& v);
bool IsNoActionDate(const Variant& v);

}  // namespace gw
