#include "platform/error.h"

#include <cstdio>
#include <new>
#include <utility>

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
  call_stack_.push_back(std::move(line));
  return *this;
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

void RethrowWithCallStack(std::string_view log_name) {
  try {
    throw;
  } catch (Error& e) {
    e.AddCallStackLine(std::string(log_name));
    throw;
  } catch (const std::bad_alloc&) {
    Error e(errnum::kOutOfMemory, std::string(log_name), "Out of memory");
    e.AddCallStackLine(std::string(log_name));
    throw e;
  } catch (const std::exception& ex) {
    Error e(errnum::kProviderError, std::string(log_name), ex.what());
    e.AddCallStackLine(std::string(log_name));
    throw e;
  }
}

void ThrowObjectNotSet(std::string_view source) {
  throw Error(errnum::kObjectNotSet, std::string(source),
              "Object variable or With block variable not set");
}

}  // namespace gw
