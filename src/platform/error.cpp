#include "platform/error.h"

#include <cstdio>
#include <new>
#include <utility>

#include "platform/db/report_capture.h"

namespace gw {

std::string FormatErrorNumber(ErrorNumber number) {
  char buf[16];
  if (number < 0x10000) {
    std::snprintf(buf, sizeof buf, "%u", static_cast<unsigned>(number));
  } else {
    std::snprintf(buf, sizeof buf, "0x%08X", static_cast<unsigned>(number));
  }
  return buf;
}

Error::Error(ErrorNumber number, std::string source, std::string description, std::string help_file,
             std::int32_t help_context)
    : number_(number),
      source_(std::move(source)),
      description_(std::move(description)),
      help_file_(std::move(help_file)),
      help_context_(help_context) {
  Rebuild();
}

void Error::SetSource(std::string source) {
  source_ = std::move(source);
  Rebuild();
}

void Error::SetDescription(std::string description) {
  description_ = std::move(description);
  Rebuild();
}

Error& Error::AddCallStackLine(std::string line) {
  ErrorFrame frame;
  frame.method = std::move(line);
  return AddFrame(std::move(frame));
}

Error& Error::AddFrame(ErrorFrame frame) {
  if (frames_.empty()) first_seen_ = DateTime::Now();
  call_stack_.push_back(frame.method);
  frames_.push_back(std::move(frame));
  return *this;
}

Error& Error::AddFrame(std::string_view log_name, const ArgValues* args, std::string env,
                       bool close_db) {
  ErrorFrame frame;
  frame.method = std::string(log_name);
  frame.env = std::move(env);
  if (args) {
    // A planned failure of the application builds no report, so its values are not written.
    // Writing a value must never replace the failure being reported.
    if (!IsApplicationError(number_)) {
      try {
        args->Format(frame.values);
      } catch (const std::exception& e) {
        frame.values.clear();
        frame.values_failure = e.what();
      } catch (...) {
        frame.values.clear();
        frame.values_failure = "unknown failure";
      }
    }
    if (!args->DbObject().Empty()) {
      DbObjectRef ref = args->DbObject();
      ref.close = ref.close || close_db;
      db::CaptureForReport(ref, !IsApplicationError(number_), frame);
    }
  }
  return AddFrame(std::move(frame));
}

std::string Error::NumberText() const { return FormatErrorNumber(number_); }

void Error::Rebuild() {
  what_ = NumberText();
  what_ += ' ';
  what_ += source_;
  what_ += ": ";
  what_ += description_;
}

Status::Status(ErrorNumber number, std::string source, std::string description,
               std::string help_file, std::int32_t help_context)
    : number_(number),
      source_(std::move(source)),
      description_(std::move(description)),
      help_file_(std::move(help_file)),
      help_context_(help_context) {}

Status Status::FromError(const Error& error) {
  return Status(error.Number(), error.Source(), error.Description(), error.HelpFile(),
                error.HelpContext());
}

void Status::ThrowIfFailed() const {
  if (!Ok()) throw ToError();
}

Error Status::ToError() const {
  return Error(number_, source_, description_, help_file_, help_context_);
}

namespace {

[[noreturn]] void Rethrow(std::string_view log_name, const ArgValues* args) {
  try {
    throw;
  } catch (Error& e) {
    e.AddFrame(log_name, args);
    throw;
  } catch (const std::bad_alloc&) {
    Error e(errnum::kOutOfMemory, std::string(log_name), "Out of memory");
    e.AddFrame(log_name, args);
    throw e;
  } catch (const std::exception& ex) {
    Error e(errnum::kProviderError, std::string(log_name), ex.what());
    e.AddFrame(log_name, args);
    throw e;
  }
}

}  // namespace

void RethrowWithCallStack(std::string_view log_name) { Rethrow(log_name, nullptr); }

void RethrowWithCallStack(std::string_view log_name, const ArgValues& args) {
  Rethrow(log_name, &args);
}

std::optional<Error> CurrentError(std::string_view source) {
  if (!std::current_exception()) return std::nullopt;
  try {
    throw;
  } catch (const Error& e) {
    return e;
  } catch (const std::bad_alloc&) {
    return Error(7, std::string(source), "Out of memory");
  } catch (const std::exception& ex) {
    return Error(errnum::kProviderError, std::string(source), ex.what());
  } catch (...) {
    return Error(errnum::kProviderError, std::string(source), "Unknown failure");
  }
}

void ThrowObjectNotSet(std::string_view source) {
  throw Error(errnum::kObjectNotSet, std::string(source),
              "Object variable or With block variable not set");
}

}  // namespace gw
