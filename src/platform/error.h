// Failures: how an error travels through the library.
//
// A failure is a number, a source and a description (plus an optional help file and context).
// Numbers are fixed per failure and callers test them, so they are never renumbered.
//
// Two ways to deliver a failure:
//  - `Error` is thrown and unwinds. A method's handler may add a call-stack line and rethrow it
//    with the number unchanged (see `AddCallStackLine` and `GW_REPORT_AS`).
//  - `Status` is a soft failure that does not unwind: the callee fills the caller's `Status`
//    (or keeps one that the caller reads right after the call). A missing field tag is one.
#pragma once

#include <cstdint>
#include <exception>
#include <string>
#include <string_view>
#include <vector>

namespace gw {

// Error numbers are 32-bit patterns. Many are written as HRESULT-like hexadecimal values
// (0x800403FC), so they are held unsigned; small runtime numbers (5, 9, 3265) fit as they are.
using ErrorNumber = std::uint32_t;

// Numbers of the runtime's own failures that callers test.
namespace errnum {
inline constexpr ErrorNumber kInvalidProcedureCall = 5;  // "Invalid procedure call or argument"
inline constexpr ErrorNumber kOverflow = 6;              // "Overflow"
inline constexpr ErrorNumber kSubscriptOutOfRange = 9;   // "Subscript out of range"
inline constexpr ErrorNumber kTypeMismatch = 13;         // "Type mismatch"
inline constexpr ErrorNumber kFileNotFound = 53;         // "File not found"
inline constexpr ErrorNumber kPermissionDenied = 70;     // "Permission denied"
inline constexpr ErrorNumber kPathNotFound = 76;         // "Path not found"
inline constexpr ErrorNumber kObjectNotSet =
    91;  // "Object variable or With block variable not set"
inline constexpr ErrorNumber kInvalidUseOfNull = 94;  // "Invalid use of Null"
inline constexpr ErrorNumber kDuplicateKey = 457;     // key already in a collection
inline constexpr ErrorNumber kItemNotFound = 3265;  // name or ordinal not in a collection (fields)
inline constexpr ErrorNumber kOperationNotAllowed = 3219;  // operation not allowed in this context
inline constexpr ErrorNumber kNoCurrentRecord = 3021;      // BOF or EOF is true
inline constexpr ErrorNumber kElementNotFound = 32811;     // keyed map: element not found
// Provider failures (the numbers an OLE DB provider reports).
inline constexpr ErrorNumber kProviderError = 0x80004005;     // unspecified provider failure
inline constexpr ErrorNumber kDataTruncated = 0x80040E57;     // value longer than its column
inline constexpr ErrorNumber kProviderNotFound = 0x800A0E7A;  // no driver for the provider
inline constexpr ErrorNumber kSyntaxError = 0x80040E14;       // statement refused by the store
}  // namespace errnum

class Error : public std::exception {
 public:
  Error(ErrorNumber number, std::string source, std::string description, std::string help_file = {},
        std::int32_t help_context = 0);

  ErrorNumber Number() const noexcept { return number_; }
  const std::string& Source() const noexcept { return source_; }
  const std::string& Description() const noexcept { return description_; }
  const std::string& HelpFile() const noexcept { return help_file_; }
  std::int32_t HelpContext() const noexcept { return help_context_; }
  // Lines added by the handlers the error passed through, innermost first.
  const std::vector<std::string>& CallStack() const noexcept { return call_stack_; }

  void SetSource(std::string source);
  void SetDescription(std::string description);
  // Adds a call-stack line; the number, source and description stay as they are.
  Error& AddCallStackLine(std::string line);

  // "0x800403FC" (upper-case hexadecimal, eight digits) or the decimal form for small numbers
  // such as 3265.
  std::string NumberText() const;
  // One line: number, source, description.
  const char* what() const noexcept override { return what_.c_str(); }

 private:
  void Rebuild();

  ErrorNumber number_;
  std::string source_;
  std::string description_;
  std::string help_file_;
  std::int32_t help_context_;
  std::vector<std::string> call_stack_;
  std::string what_;
};

// Formats an error number as the library shows it everywhere.
std::string FormatErrorNumber(ErrorNumber number);

// A soft failure: filled by a callee, read by the caller right after the call. Number 0 means
// no failure.
class Status {
 public:
  Status() = default;
  Status(ErrorNumber number, std::string source, std::string description,
         std::string help_file = {}, std::int32_t help_context = 0);
  static Status FromError(const Error& error);

  bool Ok() const noexcept { return number_ == 0; }
  explicit operator bool() const noexcept { return Ok(); }
  ErrorNumber Number() const noexcept { return number_; }
  const std::string& Source() const noexcept { return source_; }
  const std::string& Description() const noexcept { return description_; }
  const std::string& HelpFile() const noexcept { return help_file_; }
  std::int32_t HelpContext() const noexcept { return help_context_; }

  void Clear() { *this = Status(); }
  // Raises the failure as an `Error`; does nothing when `Ok()`.
  void ThrowIfFailed() const;
  Error ToError() const;

 private:
  ErrorNumber number_ = 0;
  std::string source_;
  std::string description_;
  std::string help_file_;
  std::int32_t help_context_ = 0;
};

// Runs `body`; an `Error` leaving it gets `log_name` as a call-stack line and is rethrown with its
// number intact. Any other exception becomes an `Error` (number 0x80004005, source `log_name`)
// first. This is the handler at the end of every reporting method, in one place.
template <typename Body>
decltype(auto) ReportAs(std::string_view log_name, Body&& body);

[[noreturn]] void RethrowWithCallStack(std::string_view log_name);

// Failure 91, "Object variable or With block variable not set": an object that a step needs is
// missing.
[[noreturn]] void ThrowObjectNotSet(std::string_view source);

template <typename Body>
decltype(auto) ReportAs(std::string_view log_name, Body&& body) {
  try {
    return body();
  } catch (...) {
    RethrowWithCallStack(log_name);
  }
}

}  // namespace gw
