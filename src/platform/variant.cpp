#include "platform/variant.h"

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>

#include "platform/error.h"
#include "platform/text.h"

namespace gw {

namespace {

[[noreturn]] void ThrowNull() {
  throw Error(errnum::kInvalidUseOfNull, "Variant", "Invalid use of Null");
}
[[noreturn]] void ThrowMismatch() {
  throw Error(errnum::kTypeMismatch, "Variant", "Type mismatch");
}
[[noreturn]] void ThrowOverflow() { throw Error(errnum::kOverflow, "Variant", "Overflow"); }

template <class... Ts>
struct Overloaded : Ts... {
  using Ts::operator()...;
};
template <class... Ts>
Overloaded(Ts...) -> Overloaded<Ts...>;

// Round half to even, as the runtime's integer conversions do.
double BankersRound(double d) { return std::nearbyint(d); }

template <typename Int>
Int ToIntegral(const Variant& v) {
  const double d = BankersRound(v.ToDouble());
  if (!(d >= static_cast<double>(std::numeric_limits<Int>::min()) &&
        d <= static_cast<double>(std::numeric_limits<Int>::max()))) {
    ThrowOverflow();
  }
  return static_cast<Int>(d);
}

}  // namespace

std::string FormatNumber(double d) {
  if (std::isnan(d)) return "NaN";
  if (std::isinf(d)) return d > 0 ? "Infinity" : "-Infinity";
  if (d == 0) return "0";
  char buf[64];
  std::snprintf(buf, sizeof buf, "%.15G", d);
  std::string s = buf;
  const std::size_t e = s.find('E');
  std::string mantissa = e == std::string::npos ? s : s.substr(0, e);
  std::string exponent = e == std::string::npos ? "" : s.substr(e);
  if (mantissa.find('.') != std::string::npos) {
    while (!mantissa.empty() && mantissa.back() == '0') mantissa.pop_back();
    if (!mantissa.empty() && mantissa.back() == '.') mantissa.pop_back();
  }
  if (!exponent.empty()) {
    // "E+020" -> "E+20"
    std::string digits = exponent.substr(2);
    while (digits.size() > 1 && digits[0] == '0') digits.erase(0, 1);
    exponent = exponent.substr(0, 2) + digits;
  }
  return mantissa + exponent;
}

bool ParseNumber(std::string_view text, double& out) noexcept {
  const std::string_view t = text::TrimWhitespace(text);
  if (t.empty()) return false;
  // Hexadecimal and octal forms of the runtime ("&H1F", "&O17").
  if (t.size() > 2 && t[0] == '&' && (t[1] == 'H' || t[1] == 'h' || t[1] == 'O' || t[1] == 'o')) {
    const int base = (t[1] == 'H' || t[1] == 'h') ? 16 : 8;
    std::string digits(t.substr(2));
    char* end = nullptr;
    errno = 0;
    const unsigned long long v = std::strtoull(digits.c_str(), &end, base);
    if (errno != 0 || end == digits.c_str() || *end != '\0') return false;
    out = static_cast<double>(v);
    return true;
  }
  for (char c : t) {
    if (!((c >= '0' && c <= '9') || c == '.' || c == '-' || c == '+' || c == 'e' || c == 'E')) {
      return false;
    }
  }
  std::string copy(t);
  char* end = nullptr;
  errno = 0;
  const double v = std::strtod(copy.c_str(), &end);
  if (end == copy.c_str() || *end != '\0' || errno == ERANGE) return false;
  out = v;
  return true;
}

VarType Variant::Type() const noexcept {
  switch (v_.index()) {
    case 0:
      return VarType::Empty;
    case 1:
      return VarType::Null;
    case 2:
      return VarType::Boolean;
    case 3:
      return VarType::Integer;
    case 4:
      return VarType::Long;
    case 5:
      return VarType::LongLong;
    case 6:
      return VarType::Single;
    case 7:
      return VarType::Double;
    case 8:
      return VarType::String;
    case 9:
      return VarType::Date;
    default:
      return VarType::Object;
  }
}

bool Variant::IsNumeric() const noexcept {
  switch (Type()) {
    case VarType::Boolean:
    case VarType::Integer:
    case VarType::Long:
    case VarType::LongLong:
    case VarType::Single:
    case VarType::Double:
    case VarType::Empty:
      return true;
    case VarType::String: {
      double d;
      return ParseNumber(std::get<std::string>(v_), d);
    }
    default:
      return false;
  }
}

bool Variant::IsEmptyOrNull() const noexcept {
  return IsEmpty() || IsNull() || (IsString() && std::get<std::string>(v_).empty());
}

std::string Variant::ToString() const {
  return std::visit(Overloaded{
                        [](std::monostate) -> std::string { return {}; },
                        [](NullValue) -> std::string { ThrowNull(); },
                        [](bool b) -> std::string { return b ? "True" : "False"; },
                        [](std::int16_t i) -> std::string { return std::to_string(i); },
                        [](std::int32_t i) -> std::string { return std::to_string(i); },
                        [](std::int64_t i) -> std::string { return std::to_string(i); },
                        [](float f) -> std::string {
                          char buf[32];
                          std::snprintf(buf, sizeof buf, "%.7G", static_cast<double>(f));
                          double d = std::strtod(buf, nullptr);
                          return FormatNumber(d);
                        },
                        [](double d) -> std::string { return FormatNumber(d); },
                        [](const std::string& s) -> std::string { return s; },
                        [](const DateTime& d) -> std::string { return d.ToUsText(); },
                        [](const ObjectPtr&) -> std::string { ThrowMismatch(); },
                    },
                    v_);
}

std::string Variant::ToText() const {
  if (IsNull()) return {};
  return ToString();
}

bool Variant::ToBool() const {
  return std::visit(Overloaded{
                        [](std::monostate) { return false; },
                        [](NullValue) -> bool { ThrowNull(); },
                        [](bool b) { return b; },
                        [](std::int16_t i) { return i != 0; },
                        [](std::int32_t i) { return i != 0; },
                        [](std::int64_t i) { return i != 0; },
                        [](float f) { return f != 0; },
                        [](double d) { return d != 0; },
                        [](const std::string& s) -> bool {
                          const auto t = text::TrimWhitespace(s);
                          if (text::EqualsNoCase(t, "True")) return true;
                          if (text::EqualsNoCase(t, "False")) return false;
                          double d;
                          if (ParseNumber(t, d)) return d != 0;
                          ThrowMismatch();
                        },
                        [](const DateTime& d) { return d.ToOADate() != 0; },
                        [](const ObjectPtr&) -> bool { ThrowMismatch(); },
                    },
                    v_);
}

double Variant::ToDouble() const {
  return std::visit(Overloaded{
                        [](std::monostate) { return 0.0; },
                        [](NullValue) -> double { ThrowNull(); },
                        [](bool b) { return b ? -1.0 : 0.0; },
                        [](std::int16_t i) { return static_cast<double>(i); },
                        [](std::int32_t i) { return static_cast<double>(i); },
                        [](std::int64_t i) { return static_cast<double>(i); },
                        [](float f) { return static_cast<double>(f); },
                        [](double d) { return d; },
                        [](const std::string& s) -> double {
                          double d;
                          if (ParseNumber(s, d)) return d;
                          const auto t = text::TrimWhitespace(s);
                          if (text::EqualsNoCase(t, "True")) return -1.0;
                          if (text::EqualsNoCase(t, "False")) return 0.0;
                          ThrowMismatch();
                        },
                        [](const DateTime& d) { return d.ToOADate(); },
                        [](const ObjectPtr&) -> double { ThrowMismatch(); },
                    },
                    v_);
}

std::int16_t Variant::ToInteger() const { return ToIntegral<std::int16_t>(*this); }

std::int32_t Variant::ToLong() const { return ToIntegral<std::int32_t>(*this); }

std::int64_t Variant::ToLongLong() const {
  if (const auto* i = std::get_if<std::int64_t>(&v_)) return *i;
  return ToIntegral<std::int64_t>(*this);
}

float Variant::ToSingle() const {
  const double d = ToDouble();
  if (std::isfinite(d) && std::fabs(d) > std::numeric_limits<float>::max()) ThrowOverflow();
  return static_cast<float>(d);
}

DateTime Variant::ToDate() const {
  return std::visit(Overloaded{
                        [](std::monostate) { return DateTime::FromOADate(0); },
                        [](NullValue) -> DateTime { ThrowNull(); },
                        [](const std::string& s) -> DateTime {
                          if (auto d = DateTime::Parse(s)) return *d;
                          ThrowMismatch();
                        },
                        [](const DateTime& d) { return d; },
                        [](const ObjectPtr&) -> DateTime { ThrowMismatch(); },
                        [this](const auto&) { return DateTime::FromOADate(ToDouble()); },
                    },
                    v_);
}

ObjectPtr Variant::ToObject() const {
  if (IsEmpty() || IsNull()) return nullptr;
  if (const auto* o = std::get_if<ObjectPtr>(&v_)) return *o;
  ThrowMismatch();
}

bool operator==(const Variant& a, const Variant& b) {
  const VarType ta = a.Type();
  const VarType tb = b.Type();
  auto numeric = [](VarType t) {
    return t == VarType::Integer || t == VarType::Long || t == VarType::LongLong ||
           t == VarType::Single || t == VarType::Double || t == VarType::Boolean;
  };
  if (numeric(ta) && numeric(tb)) return a.ToDouble() == b.ToDouble();
  if (ta != tb) return false;
  return a.v_ == b.v_;
}

}  // namespace gw
