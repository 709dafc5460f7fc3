// Argument values for error reports: how a reporting method hands its arguments to its handler.
//
// A method names its arguments in its log name ("Attrib.Extract(SrcHTML)") and passes their
// values with `Args`:
//
//   return ReportAs("Attrib.Extract(SrcHTML)", Args(SrcHTML), [&] { ... });
//
// `Args` keeps references only; nothing is copied or formatted unless an error unwinds through
// the handler, and then each value is written as the report shows it (`ToReportValue`). The
// references must stay valid for the call, which they do for a method's own parameters and
// members. A value that changed before the failure is reported as it stands at the failure.
//
// A database object that the failure concerns goes with them (`Args(...).Db(cn)`): the report
// then describes it, and an open transaction on it is rolled back as the error passes.
#pragma once

#include <concepts>
#include <cstdint>
#include <memory>
#include <optional>
#include <ranges>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "platform/variant.h"

namespace gw {

namespace db {
class Connection;
class Recordset;
}  // namespace db

// One argument value as a report shows it.
struct ReportValue {
  // "'abc'", "12", "True", "{Empty}", "{Null}", "{Array}", "{Recordset}", "{?}"; "{Text}" for
  // markup.
  std::string text;
  // Markup only: the value itself, which the report lays out below the value's line.
  std::string markup;
  bool is_markup = false;
};

// Longer texts are cut to this many characters in a report, which then says how long they were.
inline constexpr std::size_t kMaxReportValueChars = 2000;

namespace report_value {
ReportValue Text(std::string_view text);
// Written as markup whatever it begins with.
ReportValue Markup(std::string_view text);
ReportValue Integer(long long n);
ReportValue Unsigned(unsigned long long n);
ReportValue Number(double d);
ReportValue Boolean(bool b);
ReportValue Date(const DateTime& d);
ReportValue OfVariant(const Variant& v);
// "{TypeName}".
ReportValue ObjectOf(std::string_view type_name);
ReportValue Nothing();                             // a null object reference
ReportValue Placeholder(std::string_view braced);  // "{Array}", "{?}"
}  // namespace report_value

// Marks a text value as markup, so the report lays it out as such even when it does not begin
// with "<".
template <typename T>
struct XmlArg {
  const T& value;
};
template <typename T>
XmlArg<T> AsXml(const T& value) {
  return XmlArg<T>{value};
}

namespace report_value_detail {
template <typename T>
struct IsXmlArg : std::false_type {};
template <typename T>
struct IsXmlArg<XmlArg<T>> : std::true_type {};
template <typename T>
struct IsOptional : std::false_type {};
template <typename T>
struct IsOptional<std::optional<T>> : std::true_type {};
template <typename T>
concept PointerLike = (std::is_pointer_v<T> && std::is_object_v<std::remove_pointer_t<T>>) ||
                      requires(const T& p) {
  typename T::element_type;
  {p.get()};
  {static_cast<bool>(p)};
};
}  // namespace report_value_detail

// The value as a report shows it, by its type: texts in single quotes (markup laid out), numbers
// and dates as text, Booleans as True/False, Empty and Null in braces, an object by its type
// name in braces ("{Nothing}" for none), a list as "{Array}", anything else "{?}". A type can
// choose its own form with a function `ReportValue ReportValueOf(const T&)` found beside it.
template <typename T>
ReportValue ToReportValue(const T& v) {
  using U = std::remove_cvref_t<T>;
  namespace rv = report_value;
  namespace d = report_value_detail;
  if constexpr (requires {
                  { ReportValueOf(v) } -> std::same_as<ReportValue>;
                }) {
    return ReportValueOf(v);
  } else if constexpr (std::is_same_v<U, bool>) {
    return rv::Boolean(v);
  } else if constexpr (std::is_same_v<U, char>) {
    return rv::Text(std::string_view(&v, 1));
  } else if constexpr (std::is_enum_v<U>) {
    return rv::Integer(static_cast<long long>(static_cast<std::underlying_type_t<U>>(v)));
  } else if constexpr (std::is_integral_v<U> && std::is_signed_v<U>) {
    return rv::Integer(static_cast<long long>(v));
  } else if constexpr (std::is_integral_v<U>) {
    return rv::Unsigned(static_cast<unsigned long long>(v));
  } else if constexpr (std::is_floating_point_v<U>) {
    return rv::Number(static_cast<double>(v));
  } else if constexpr (std::is_convertible_v<const U&, std::string_view>) {
    if constexpr (std::is_pointer_v<U>) {
      if (v == nullptr) return rv::Nothing();
    }
    return rv::Text(std::string_view(v));
  } else if constexpr (std::is_same_v<U, Variant>) {
    return rv::OfVariant(v);
  } else if constexpr (std::is_same_v<U, DateTime>) {
    return rv::Date(v);
  } else if constexpr (d::IsXmlArg<U>::value) {
    if constexpr (std::is_convertible_v<const decltype(v.value)&, std::string_view>) {
      return rv::Markup(std::string_view(v.value));
    } else if constexpr (std::is_same_v<std::remove_cvref_t<decltype(v.value)>, Variant>) {
      if (!v.value.IsString()) return rv::OfVariant(v.value);
      return rv::Markup(v.value.ToText());
    } else {
      return ToReportValue(v.value);
    }
  } else if constexpr (d::IsOptional<U>::value) {
    if (!v) return rv::Placeholder("{Empty}");
    return ToReportValue(*v);
  } else if constexpr (d::PointerLike<U>) {
    if (!v) return rv::Nothing();
    return ToReportValue(*v);
  } else if constexpr (requires {
                         { v.TypeName() } -> std::convertible_to<std::string_view>;
                       }) {
    return rv::ObjectOf(v.TypeName());
  } else if constexpr (std::ranges::range<U>) {
    return rv::Placeholder("{Array}");
  } else {
    return rv::Placeholder("{?}");
  }
}

// A database object that a failure concerns: the report describes it, and as the error passes an
// open transaction on its connection is rolled back (and, with `close`, the connection closed).
struct DbObjectRef {
  db::Connection* connection = nullptr;
  db::Recordset* recordset = nullptr;
  bool close = false;
  bool Empty() const noexcept { return connection == nullptr && recordset == nullptr; }
};

// The values a handler was given, formatted only when asked. Made by `Args`.
class ArgValues {
 public:
  // Appends one value per argument, in order.
  virtual void Format(std::vector<ReportValue>& out) const = 0;
  const DbObjectRef& DbObject() const noexcept { return db_; }

 protected:
  ArgValues() = default;
  ArgValues(const ArgValues&) = default;
  ArgValues& operator=(const ArgValues&) = default;
  ~ArgValues() = default;
  DbObjectRef db_;
};

template <typename... T>
class ArgList final : public ArgValues {
 public:
  explicit ArgList(const T&... values) : refs_(values...) {}

  void Format(std::vector<ReportValue>& out) const override {
    std::apply([&out](const auto&... v) { (out.push_back(ToReportValue(v)), ...); }, refs_);
  }

  // The database object that the failure concerns (see `DbObjectRef`).
  ArgList&& Db(db::Connection* cn, bool close = false) && {
    db_ = DbObjectRef{cn, nullptr, close};
    return std::move(*this);
  }
  ArgList&& Db(const std::shared_ptr<db::Connection>& cn, bool close = false) && {
    return std::move(*this).Db(cn.get(), close);
  }
  ArgList&& Db(db::Recordset* rs, bool close = false) && {
    db_ = DbObjectRef{nullptr, rs, close};
    return std::move(*this);
  }
  ArgList&& Db(const std::shared_ptr<db::Recordset>& rs, bool close = false) && {
    return std::move(*this).Db(rs.get(), close);
  }

 private:
  std::tuple<const T&...> refs_;
};

// The argument values of a reporting method, by reference, in the order of the names in its
// log name.
template <typename... T>
ArgList<T...> Args(const T&... values) {
  return ArgList<T...>(values...);
}

}  // namespace gw
