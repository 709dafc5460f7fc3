// Failure numbers of the infrastructure layer (services, object XML) that callers and tests
// compare with.
#pragma once

#include "platform/failures.h"

namespace gw::infraerr {

// `CCrypto.DecryptText`: a text that is not a ciphertext of this program ("Bad Data.").
inline constexpr ErrorNumber kNotACiphertext = 0x80090005;
// `ObjectXmlReader`: a document it refuses; the description names the source and line.
inline constexpr ErrorNumber kBadDocument = 0x80044F01;
// The base the error report measures a number from ("vbObjectError"): not a failure of its own.
inline constexpr ErrorNumber kVbObjectError = 0x80040000;

}  // namespace gw::infraerr
