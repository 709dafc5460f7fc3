// Failure numbers of the web client that callers and tests compare with.
//
// The network failures are those of the HTTP transport (platform/http_transport.h); they are
// named here as well so that a caller of the web client needs only this header.
#pragma once

#include "platform/error.h"
#include "platform/http_transport.h"

namespace gw::web::errnum {

// Addresses (`Uri.Parse`).
inline constexpr ErrorNumber kNoScheme = 0xAA84279C;          // no scheme and no base
inline constexpr ErrorNumber kCannotResolve = 0xAA8427B7;     // relative text, opaque base
inline constexpr ErrorNumber kNoClosingBracket = 0xAA842821;  // "[" without "]"
// Header values (`HttpUtility.ParseHttpHeader`): an element that has no name ("=x", "a;;=b").
inline constexpr ErrorNumber kBadHeaderFormat = 0x849B9052;

// The HTTP exchange.
inline constexpr ErrorNumber kServerNeedsCredentials = 0xAB96CF67;  // 401, no user or password
inline constexpr ErrorNumber kProxyNeedsCredentials = 0xAB96CF66;   // 407, no user or password
inline constexpr ErrorNumber kNoResponse = 700;  // an asynchronous send that ended with nothing
// Network failures, raised by a synchronous send and reported by an asynchronous one.
inline constexpr ErrorNumber kTimeout = httperr::kTimeout;
inline constexpr ErrorNumber kTransportFailure = httperr::kInternal;
inline constexpr ErrorNumber kInvalidUrl = httperr::kInvalidUrl;
inline constexpr ErrorNumber kUnrecognizedScheme = httperr::kUnrecognizedScheme;
inline constexpr ErrorNumber kNameNotResolved = httperr::kNameNotResolved;
inline constexpr ErrorNumber kCancelled = httperr::kCancelled;
inline constexpr ErrorNumber kCannotConnect = httperr::kCannotConnect;
inline constexpr ErrorNumber kConnectionError = httperr::kConnectionError;
inline constexpr ErrorNumber kInvalidServerResponse = httperr::kInvalidServerResponse;
inline constexpr ErrorNumber kSecureChannelError = httperr::kSecureChannelError;
inline constexpr ErrorNumber kCertificateError = httperr::kCertificateError;
inline constexpr ErrorNumber kResponseNotReady = httperr::kResponseNotReady;

// Form submission: a Form Submit Statement whose block is not well-formed XML.
inline constexpr ErrorNumber kBadFormSubmitStatement = 0x81D0EA31;
// Settings of the web client that cannot be read as what they stand for.
inline constexpr ErrorNumber kBadSetting = 13;

}  // namespace gw::web::errnum
