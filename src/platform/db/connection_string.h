// The "Key=Value;Key=Value" form of a connection string, as the data layer reads it.
//
// Keys ignore case and keep their first spelling; values may be quoted with " or ' (a doubled
// quote inside stands for one) so that they can hold ";". `Extended Properties="Excel 8.0;HDR=Yes"`
// is one value. This is the data layer's own parser: the editing functions that the product
// offers users on connection strings live with the rules store and keep their own rules.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace gw::db {

class ConnectionProperties {
 public:
  ConnectionProperties() = default;
  static ConnectionProperties Parse(std::string_view connection_string);

  // The value, or "" when absent.
  std::string Get(std::string_view key) const;
  std::optional<std::string> Find(std::string_view key) const;
  bool Has(std::string_view key) const { return Find(key).has_value(); }
  // Replaces the value in place, or appends the key.
  void Set(std::string_view key, std::string_view value);
  void Remove(std::string_view key);

  const std::vector<std::pair<std::string, std::string>>& Items() const { return items_; }
  // Renders the properties in their order; values with ";", quotes or edge spaces are quoted.
  std::string ToString() const;

 private:
  std::vector<std::pair<std::string, std::string>> items_;
};

// The connection string with the value of every password parameter ("Password", "PWD", also
// inside `Extended Properties`) replaced by "*****", for messages, logs and reports. Other
// parameters keep their values; the text is rendered again by `ConnectionProperties::ToString`.
std::string MaskPasswords(std::string_view connection_string);

}  // namespace gw::db
