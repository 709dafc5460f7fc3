// Failure numbers of the acquisition layer that callers and tests compare with.
#pragma once

#include "platform/failures.h"

namespace gw::acquireerr {

// `UriRule.Validate()`: a rule whose part or operator is none of the known values.
inline constexpr ErrorNumber kInvalidUriPart = 0x84ED63EF;
inline constexpr ErrorNumber kInvalidUriOperator = 0x84ED63F5;

// `WebPage.LoadFromUrl`: a web address while pages are read from files only ("Object doesn't
// support this property or method").
inline constexpr ErrorNumber kWebAddressUnavailable = errnum::kNotSupported;

// `AdvancedDownloadMgr`: "Waited <n> seconds for an agent to become available, but timed out."
inline constexpr ErrorNumber kNoAgentAvailable = 0x850660C1;

}  // namespace gw::acquireerr
