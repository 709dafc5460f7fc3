// Failure numbers of the run metadata that callers and tests compare with.
#pragma once

#include "platform/failures.h"

namespace gw::metaerr {

// `MetaField.Load` of a custom column that is not in the rules store, or is there twice.
inline constexpr ErrorNumber kNoSuchCustomColumn = 0xBC83FFCA;
inline constexpr ErrorNumber kDuplicateCustomColumn = 0xBC83FFCB;

}  // namespace gw::metaerr
