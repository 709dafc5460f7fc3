// HTTP header values as objects: a header (`HttpHeader`) and the elements its value splits into
// (`HttpHeaderElement`).
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/collection.h"
#include "platform/variant.h"
#include "web/http_utility.h"

namespace gw::web {

class HttpHeaderElement : public Object {
 public:
  std::string TypeName() const override { return "HttpHeaderElement"; }

  const std::string& Name() const noexcept { return name_; }
  void SetName(std::string name) { name_ = std::move(name); }
  const std::string& Value() const noexcept { return value_; }
  void SetValue(std::string value) { value_ = std::move(value); }

  // Parameters ignore case in their names; a later `AddParameter` of a name replaces its value.
  // The header parser never fills them (parameters come out as elements of their own).
  void AddParameter(std::string_view name, std::string value);
  // The value, or the empty string for an unknown name.
  std::string GetParameter(std::string_view name) const;

 private:
  std::string name_;
  std::string value_;
  Dictionary<std::string> parameters_{CompareMode::Text};
};

class HttpHeader : public Object {
 public:
  HttpHeader() = default;
  HttpHeader(std::string name, std::string value)
      : name_(std::move(name)), value_(std::move(value)) {}
  std::string TypeName() const override { return "HttpHeader"; }

  const std::string& Name() const noexcept { return name_; }
  void SetName(std::string name) { name_ = std::move(name); }
  const std::string& Value() const noexcept { return value_; }
  // Does not touch `Elements` once they were read: they keep describing the old value.
  void SetValue(std::string value) { value_ = std::move(value); }

  // The elements of `Value`, parsed on first read (and failing as `ParseHttpHeader` fails) and
  // then kept.
  const HttpHeaderElements& Elements() const;
  // The first element whose name equals `name` once both are trimmed of spaces and upper-cased;
  // null when there is none (the empty variant of the interface).
  std::shared_ptr<HttpHeaderElement> GetElementByName(std::string_view name) const;

 private:
  std::string name_;
  std::string value_;
  mutable std::optional<HttpHeaderElements> elements_;
};

// The headers of a request or response by name. Names ignore case.
using HttpHeaders = Dictionary<std::shared_ptr<HttpHeader>>;
inline HttpHeaders MakeHttpHeaders() { return HttpHeaders(CompareMode::Text); }

}  // namespace gw::web
