// Failure numbers of the field filters that callers and tests compare with.
#pragma once

#include "platform/failures.h"

namespace gw::filters::errnum {

// The start and end tag failures of `GetStringBetweenTagsAndTruncate`: the numbers of a field
// whose tags are missing.
inline constexpr ErrorNumber kStartTagNotFound = 0x800403FC;
inline constexpr ErrorNumber kEndTagNotFound = 0x80040406;

}  // namespace gw::filters::errnum
