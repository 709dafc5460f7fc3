// Failures: how an error travels through the library. The numbers are in the layers'
// `failures.h` headers (platform/failures.h for the runtime's own).
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

#include "platform/failures.h"

namespace gw {

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
