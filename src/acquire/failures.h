// Failure numbers of the acquisition layer that callers and tests compare with.
#pragma once

#include "platform/failures.h"

namespace gw::acquireerr {

// `UriRule.Validate()`: a rule whose part or operator is none of the known values.
inline constexpr ErrorNumber kInvalidUriPart = 0x84ED63EF;
inline constexpr ErrorNumber kInvalidUriOperator = 0x84ED63F5;

// `AdvancedDownloadMgr`: "Waited <n> seconds for an agent to become available, but timed out."
inline constexpr ErrorNumber kNoAgentAvailable = 0x850660C1;

// `Crawler.ParseHtml`: "Timeout occurred trying to open the document <path>."
inline constexpr ErrorNumber kParseHtmlTimeout = 0x2ACC729F;

}  // namespace gw::acquireerr
