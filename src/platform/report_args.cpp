#include "platform/report_args.h"

#include <string>
#include <variant>

#include "platform/db/connection_string.h"
#include "platform/report_connection_string.h"
#include "platform/text.h"

namespace gw::report_value {

namespace {

// The first `kMaxReportValueChars` characters, and how long the whole was when it was cut.
std::string Capped(std::string_view text, bool& cut, std::size_t& total) {
  const std::string_view head = text::TruncateCodePoints(text, kMaxReportValueChars);
  cut = head.size() < text.size();
  total = text.size();
  return std::string(head);
}

}  // namespace

ReportValue Text(std::string_view text) {
  if (!text.empty() && text.front() == '<') return Markup(text);
  bool cut = false;
  std::size_t total = 0;
  ReportValue v;
  v.text = "'" + Capped(text, cut, total) + "'";
  if (cut) v.text += "... (" + std::to_string(total) + " bytes in all)";
  return v;
}

ReportValue Markup(std::string_view text) {
  bool cut = false;
  std::size_t total = 0;
  ReportValue v;
  v.text = "{Text}";
  v.is_markup = true;
  v.markup = Capped(text, cut, total);
  if (cut) v.markup += "\n... (" + std::to_string(total) + " bytes in all)";
  return v;
}

ReportValue Integer(long long n) { return ReportValue{std::to_string(n), {}, false}; }

ReportValue Unsigned(unsigned long long n) { return ReportValue{std::to_string(n), {}, false}; }

ReportValue Number(double d) { return ReportValue{FormatNumber(d), {}, false}; }

ReportValue Boolean(bool b) { return ReportValue{b ? "True" : "False", {}, false}; }

ReportValue Date(const DateTime& d) {
  return ReportValue{d.IsEmpty() ? std::string("{Empty}") : d.ToUsText(), {}, false};
}

ReportValue OfVariant(const Variant& v) {
  return std::visit(
      [](const auto& x) -> ReportValue {
        using X = std::decay_t<decltype(x)>;
        if constexpr (std::is_same_v<X, std::monostate>) {
          return Placeholder("{Empty}");
        } else if constexpr (std::is_same_v<X, NullValue>) {
          return Placeholder("{Null}");
        } else if constexpr (std::is_same_v<X, bool>) {
          return Boolean(x);
        } else if constexpr (std::is_same_v<X, float> || std::is_same_v<X, double>) {
          return Number(x);
        } else if constexpr (std::is_integral_v<X>) {
          return Integer(x);
        } else if constexpr (std::is_same_v<X, std::string>) {
          return Text(x);
        } else if constexpr (std::is_same_v<X, DateTime>) {
          return Date(x);
        } else if constexpr (std::is_same_v<X, ObjectPtr>) {
          return x ? ObjectOf(x->TypeName()) : Nothing();
        } else {
          return Placeholder("{?}");
        }
      },
      v.Raw());
}

ReportValue ObjectOf(std::string_view type_name) {
  return ReportValue{"{" + std::string(type_name) + "}", {}, false};
}

ReportValue ConnectionString(std::string_view text) {
  std::string masked;
  try {
    masked = db::MaskPasswords(text);
  } catch (...) {
    // A text that cannot be read as a connection string is not shown: it may hold a secret.
    return Placeholder("{?}");
  }
  ReportValue v = Text(masked);
  // Never laid out as markup, whatever it begins with.
  if (v.is_markup) v = ReportValue{"'" + v.markup + "'", {}, false};
  return v;
}

ReportValue Nothing() { return Placeholder("{Nothing}"); }

ReportValue Placeholder(std::string_view braced) {
  return ReportValue{std::string(braced), {}, false};
}

}  // namespace gw::report_value
