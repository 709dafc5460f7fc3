// A connection string as an argument value of an error report: `AsConnectionString(CnStr)` in a
// handler's `Args(...)` shows it with its passwords masked, as every connection string is shown
// in messages and logs, so that a report that goes to a log file or an error log server carries
// no password. A value that may hold one (a registry value: the rules connection string is one)
// goes the same way: a text that names no password is shown as it is.
#pragma once

#include <string_view>
#include <type_traits>

#include "platform/report_args.h"
#include "platform/variant.h"

namespace gw {

template <typename T>
struct ConnectionStringArg {
  const T& value;
};

template <typename T>
ConnectionStringArg<T> AsConnectionString(const T& value) {
  return ConnectionStringArg<T>{value};
}

namespace report_value {
// The text with its passwords masked, as a report shows a text (never laid out as markup).
ReportValue ConnectionString(std::string_view text);
// Passed in place of a value that may be a secret.
inline constexpr std::string_view kNotShown = "(not shown)";
}  // namespace report_value

template <typename T>
ReportValue ReportValueOf(const ConnectionStringArg<T>& arg) {
  if constexpr (std::is_convertible_v<const T&, std::string_view>) {
    return report_value::ConnectionString(std::string_view(arg.value));
  } else if constexpr (std::is_same_v<std::remove_cvref_t<T>, Variant>) {
    if (!arg.value.IsString()) return report_value::OfVariant(arg.value);
    return report_value::ConnectionString(arg.value.ToText());
  } else {
    return ToReportValue(arg.value);
  }
}

}  // namespace gw
