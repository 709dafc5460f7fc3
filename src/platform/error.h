// Failures: how an error travels through the library. The numbers are in the layers'
// `failures.h` headers (platform/failures.h for the runtime's own).
//
// A failure is a number, a source and a description (plus an optional help file and context).
// Numbers are fixed per failure and callers test them, so they are never renumbered.
//
// Two ways to deliver a failure:
//  - `Error` is thrown and unwinds. A method's handler (`ReportAs`) adds a frame (its log name and
//    its argument values) and rethrows it with the number unchanged, so the error reaches the
//    host with the whole story of where it passed. The report text is made from those frames by
//    the error reporting of src/infra (`ErrorIn`, `ReportError`).
//  - `Status` is a soft failure that does not unwind: the callee fills the caller's `Status`
//    (or keeps one that the caller reads right after the call). A missing field tag is one.
#pragma once

#include <cstdint>
#include <exception>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/date_time.h"
#include "platform/failures.h"
#include "platform/report_args.h"

namespace gw {

// What a report says of a database object that a failure concerns, taken as the error passed
// the handler that named it (the object may be gone by the time the report is written).
struct DbFacts {
  std::string object_type;          // "Connection", "Recordset"
  bool connection_taken = false;    // the connection was taken from a recordset
  std::string connection_string;    // passwords masked
  std::string state;                // "adStateOpen", "adStateClosed"
  std::vector<std::string> errors;  // the driver's errors of the failed operation
  std::string driver;               // the driver that serves it, with its version
};

// One handler that an error passed, innermost first.
struct ErrorFrame {
  // The log name: "Class.Method(ArgName,ArgName)".
  std::string method;
  // The argument values in the order of the names (none for a failure of the application
  // range, which builds no report).
  std::vector<ReportValue> values;
  // A value could not be written: why (the report says so in place of the values).
  std::string values_failure;
  // Further text of the frame (the position and other information a host gives).
  std::string env;
  // The database object the handler named, if any, and what was done to release it.
  std::optional<DbFacts> db;
  std::vector<std::string> released;
};

class Error : public std::exception {
 public:
  Error(ErrorNumber number, std::string source, std::string description, std::string help_file = {},
        std::int32_t help_context = 0);

  ErrorNumber Number() const noexcept { return number_; }
  const std::string& Source() const noexcept { return source_; }
  const std::string& Description() const noexcept { return description_; }
  const std::string& HelpFile() const noexcept { return help_file_; }
  std::int32_t HelpContext() const noexcept { return help_context_; }
  // Lines added by the handlers the error passed through, innermost first: the log names of
  // its frames.
  const std::vector<std::string>& CallStack() const noexcept { return call_stack_; }
  // The handlers the error passed through, with their argument values, innermost first.
  const std::vector<ErrorFrame>& Frames() const noexcept { return frames_; }
  // When the first handler saw the error (the time its report gives); empty before.
  const DateTime& FirstSeen() const noexcept { return first_seen_; }
  // The system's error code (`errno`) when a system call failed, else 0.
  int SystemError() const noexcept { return system_error_; }
  Error& SetSystemError(int code) noexcept {
    system_error_ = code;
    return *this;
  }
  // The report built for this error so far (infra/error_report.h); empty until one was built,
  // and always for a failure of the application range.
  const std::string& Report() const noexcept { return report_; }
  void SetReport(std::string report) { report_ = std::move(report); }

  void SetSource(std::string source);
  void SetDescription(std::string description);
  // Adds a call-stack line (a frame without values); the number, source and description stay
  // as they are.
  Error& AddCallStackLine(std::string line);
  // Adds a frame; the first one also sets `FirstSeen`.
  Error& AddFrame(ErrorFrame frame);
  // Adds the frame of the handler `log_name` with the values of `args` (when given; not for a
  // failure of the application range) and `env`, and releases the database object they name
  // (closing its connection too with `close_db`).
  Error& AddFrame(std::string_view log_name, const ArgValues* args, std::string env = {},
                  bool close_db = false);

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
  std::vector<ErrorFrame> frames_;
  DateTime first_seen_;
  int system_error_ = 0;
  std::string report_;
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

// Runs `body`; an `Error` leaving it gets a frame named `log_name` and is rethrown with its
// number intact. Any other exception becomes an `Error` (number 0x80004005, source `log_name`;
// 7 for memory) first. This is the handler at the end of every reporting method, in one place.
// With `args` (see `Args`), the frame also holds the argument values, formatted only when an
// error passes.
template <typename Body>
decltype(auto) ReportAs(std::string_view log_name, Body&& body);
template <typename Body>
decltype(auto) ReportAs(std::string_view log_name, const ArgValues& args, Body&& body);

// The handler's work, for code that catches by itself: to be called inside a `catch` block.
[[noreturn]] void RethrowWithCallStack(std::string_view log_name);
[[noreturn]] void RethrowWithCallStack(std::string_view log_name, const ArgValues& args);

// The exception being handled as an `Error` (converted as `ReportAs` does, with `source` as its
// source); nullopt outside a `catch` block.
std::optional<Error> CurrentError(std::string_view source);

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

template <typename Body>
decltype(auto) ReportAs(std::string_view log_name, const ArgValues& args, Body&& body) {
  try {
    return body();
  } catch (...) {
    RethrowWithCallStack(log_name, args);
  }
}

}  // namespace gw
