// Failure numbers of the package engine that callers and tests compare with.
#pragma once

#include "platform/failures.h"

namespace gw::engineerr {

// `Job`.
inline constexpr ErrorNumber kNoSuchJob = 0xAAA25B3B;            // Load: no row
inline constexpr ErrorNumber kDuplicateJob = 0xAAA25B3C;         // Load: several rows
inline constexpr ErrorNumber kJobSaveWhileRunning = 0x86125335;  // a run is under way
inline constexpr ErrorNumber kJobSaveAllWhileRunning = 0x86125339;
inline constexpr ErrorNumber kJobDeleteWhileRunning = 0x861253A3;
inline constexpr ErrorNumber kPackageWithoutTasks = 0x8552A95B;  // Validate

// `Task`.
inline constexpr ErrorNumber kNoSuchTask = 0x8004041F;     // Load: no row
inline constexpr ErrorNumber kDuplicateTask = 0x80040420;  // Load: several rows
inline constexpr ErrorNumber kTaskSaveWhileRunning = 0x86125343;
inline constexpr ErrorNumber kTaskDeleteWhileRunning = 0x86125399;
inline constexpr ErrorNumber kUriAndSourceText = 0xAA931984;  // Execute: both given
inline constexpr ErrorNumber kClearRootFolderFailed = 0x801380E9;
inline constexpr ErrorNumber kNoDocSources = 0x8552A940;          // Validate
inline constexpr ErrorNumber kSqlSourceUnreachable = 0x81E33591;  // Validate: an sql source

// `FileSaver`.
// "Could not create folder '<path>'.  Ensure that ..."; source "FileSaver.EnsureFileExists".
inline constexpr ErrorNumber kCannotCreateFolder = 0x8082B915;
// A file was saved under a shortened path.
inline constexpr ErrorNumber kPathTruncated = 0x81DDD045;

// `DocSource`.
inline constexpr ErrorNumber kNoSuchDocSource = 0xAAB19D7B;     // Load: no row
inline constexpr ErrorNumber kDuplicateDocSource = 0xAAB19D7C;  // Load: several rows
inline constexpr ErrorNumber kNoConnectionString = 0xA5915D8F;  // an sql source without one
inline constexpr ErrorNumber kNoStatement = 0xA5915D98;         // an sql source without one

// Template and package files (`exchange::`). A file that is not well-formed or is not such an
// export fails with `infraerr::kBadDocument`.
inline constexpr ErrorNumber kExchangeNotFound =
    0x80044F02;  // no datapage or package of that id/name
inline constexpr ErrorNumber kExchangeAmbiguous = 0x80044F03;  // a name that several objects share
inline constexpr ErrorNumber kExchangeRefused = 0x80044F04;    // a file the store cannot take
inline constexpr ErrorNumber kExchangePackageRunning = 0x80044F05;  // import over a running package

}  // namespace gw::engineerr
