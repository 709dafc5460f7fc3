// Failure numbers of the platform layer that callers and tests compare with. Every layer has one
// such header (`<layer>/failures.h`); a layer that raises only the numbers below has none.
//
// `errnum` holds the runtime's own numbers and those an OLE DB provider reports; `db::dberr`
// the database layer's, `regerr` the registry store's, `httperr` the HTTP transport's.
#pragma once

#include <cstdint>

namespace gw {

// Error numbers are 32-bit patterns. Many are written as HRESULT-like hexadecimal values
// (0x800403FC), so they are held unsigned; small runtime numbers (5, 9, 3265) fit as they are.
using ErrorNumber = std::uint32_t;

namespace errnum {
inline constexpr ErrorNumber kInvalidProcedureCall = 5;  // "Invalid procedure call or argument"
inline constexpr ErrorNumber kOverflow = 6;              // "Overflow"
inline constexpr ErrorNumber kOutOfMemory = 7;           // "Out of memory"
inline constexpr ErrorNumber kSubscriptOutOfRange = 9;   // "Subscript out of range"
inline constexpr ErrorNumber kDivisionByZero = 11;       // "Division by zero"
inline constexpr ErrorNumber kTypeMismatch = 13;         // "Type mismatch"
inline constexpr ErrorNumber kOutOfStackSpace = 28;      // "Out of stack space"
inline constexpr ErrorNumber kFileNotFound = 53;         // "File not found"
inline constexpr ErrorNumber kDeviceIOError = 57;        // "Device I/O error"
inline constexpr ErrorNumber kInputPastEndOfFile = 62;   // "Input past end of file"
inline constexpr ErrorNumber kPermissionDenied = 70;     // "Permission denied"
inline constexpr ErrorNumber kPathFileAccessError = 75;  // "Path/File access error"
inline constexpr ErrorNumber kPathNotFound = 76;         // "Path not found"
// "Object variable or With block variable not set"
inline constexpr ErrorNumber kObjectNotSet = 91;
inline constexpr ErrorNumber kInvalidUseOfNull = 94;     // "Invalid use of Null"
inline constexpr ErrorNumber kCannotCreateObject = 429;  // "ActiveX component can't create object"
// "Object doesn't support this property or method"
inline constexpr ErrorNumber kNotSupported = 438;
inline constexpr ErrorNumber kDuplicateKey = 457;  // key already in a collection
inline constexpr ErrorNumber kRegexSyntax = 5017;  // a regular expression that does not compile
inline constexpr ErrorNumber kElementNotFound = 32811;  // keyed map: element not found
// ADO's own numbers.
inline constexpr ErrorNumber kBadArgument = 3001;  // arguments of the wrong type or out of range
inline constexpr ErrorNumber kWriteToFileFailed = 3004;    // "Write to file failed."
inline constexpr ErrorNumber kNoCurrentRecord = 3021;      // BOF or EOF is true
inline constexpr ErrorNumber kOperationNotAllowed = 3219;  // operation not allowed in this context
inline constexpr ErrorNumber kNotUpdatable = 3251;         // recordset does not support updating
inline constexpr ErrorNumber kItemNotFound = 3265;  // name or ordinal not in a collection (fields)
inline constexpr ErrorNumber kObjectClosed = 3704;  // operation not allowed when closed
inline constexpr ErrorNumber kObjectOpen = 3705;    // operation not allowed when open
// Provider failures (the numbers an OLE DB provider reports).
inline constexpr ErrorNumber kProviderError = 0x80004005;     // unspecified provider failure
inline constexpr ErrorNumber kDataTruncated = 0x80040E57;     // value longer than its column
inline constexpr ErrorNumber kProviderNotFound = 0x800A0E7A;  // no driver for the provider
inline constexpr ErrorNumber kSyntaxError = 0x80040E14;       // statement refused by the store
// The stream's names for ADO's numbers.
inline constexpr ErrorNumber kStreamClosed = kObjectClosed;
// The number of a failure whose own number was lost; also the first of the application's own
// numbers ("ERR_GENERAL", "ERRMAP_APP_FIRST").
inline constexpr ErrorNumber kErrGeneral = 0x8004144E;
// Planned failures of the application (a refusal a user is meant to read as it stands) lie in
// this range: they travel without a report.
inline constexpr ErrorNumber kAppRangeFirst = 0x80041065;
inline constexpr ErrorNumber kAppRangeLast = 0x8004144D;
}  // namespace errnum

inline constexpr bool IsApplicationError(ErrorNumber number) noexcept {
  return number >= errnum::kAppRangeFirst && number <= errnum::kAppRangeLast;
}

namespace db::dberr {
inline constexpr ErrorNumber kObjectClosed = errnum::kObjectClosed;
inline constexpr ErrorNumber kObjectOpen = errnum::kObjectOpen;
inline constexpr ErrorNumber kNotUpdatable = errnum::kNotUpdatable;
inline constexpr ErrorNumber kNoCurrentRecord = errnum::kNoCurrentRecord;
inline constexpr ErrorNumber kItemNotFound = errnum::kItemNotFound;
inline constexpr ErrorNumber kMultipleStep = 0x80040E21;  // a value the column refuses
inline constexpr ErrorNumber kDataTruncated = errnum::kDataTruncated;
inline constexpr ErrorNumber kSyntax = errnum::kSyntaxError;
inline constexpr ErrorNumber kMissingParameter = 0x80040E10;  // a parameter without a value
inline constexpr ErrorNumber kNoSuchTable = 0x80040E37;
inline constexpr ErrorNumber kRowNotLocated = 0x80040E38;  // the row to change is gone
inline constexpr ErrorNumber kIntegrity = 0x80040E2F;
inline constexpr ErrorNumber kProvider = errnum::kProviderError;
inline constexpr ErrorNumber kProviderNotFound = errnum::kProviderNotFound;
inline constexpr ErrorNumber kBadArgument = errnum::kBadArgument;
// The store itself failed, not a statement: it cannot be opened or written (read-only, no
// permission, disk full, I/O error, not a database). The text names the store's file.
inline constexpr ErrorNumber kStoreFault = 0x80040E09;
}  // namespace db::dberr

namespace regerr {
inline constexpr ErrorNumber kCantRead = 0x800703F4;
inline constexpr ErrorNumber kCantWrite = 0x800703F5;
inline constexpr ErrorNumber kDamaged = 0x800703F9;
inline constexpr ErrorNumber kInvalidName = 0x80070057;
}  // namespace regerr

namespace httperr {
inline constexpr ErrorNumber kTimeout = 0x80072EE2;                // no progress within a limit
inline constexpr ErrorNumber kInternal = 0x80072EE4;               // any other transport failure
inline constexpr ErrorNumber kInvalidUrl = 0x80072EE5;             // an address curl cannot read
inline constexpr ErrorNumber kUnrecognizedScheme = 0x80072EE6;     // not http or https
inline constexpr ErrorNumber kNameNotResolved = 0x80072EE7;        // unknown host or proxy
inline constexpr ErrorNumber kCancelled = 0x80072EF1;              // aborted
inline constexpr ErrorNumber kCannotConnect = 0x80072EFD;          // refused, unreachable
inline constexpr ErrorNumber kConnectionError = 0x80072EFE;        // reset, closed early
inline constexpr ErrorNumber kInvalidServerResponse = 0x80072F78;  // not HTTP, bad encoding
inline constexpr ErrorNumber kSecureChannelError = 0x80072F7D;     // TLS handshake failed
inline constexpr ErrorNumber kCertificateError = 0x80072F8F;       // certificate not trusted
inline constexpr ErrorNumber kResponseNotReady = 0x8000000A;       // read before the response
inline constexpr ErrorNumber kOutOfMemory = errnum::kOutOfMemory;
}  // namespace httperr

}  // namespace gw
