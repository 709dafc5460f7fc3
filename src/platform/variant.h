// A value of any of the library's types, or an object reference.
//
// Objects of the library are shared and reference counted: every class whose instances a Variant
// may hold derives from `Object` and lives in a std::shared_ptr. A child's reference back to its
// owner is a std::weak_ptr, so that it never keeps the owner alive.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>

#include "platform/date_time.h"

namespace gw {

struct PropertyTable;

class Object : public std::enable_shared_from_this<Object> {
 public:
  virtual ~Object() = default;
  // The class name as a host would see it ("Recordset", "Entity").
  virtual std::string TypeName() const { return "Object"; }
  // The class's public properties in the order of its interface (see property_table.h), or
  // nullptr for a class that offers none.
  virtual const PropertyTable* GetPropertyTable() const { return nullptr; }

 protected:
  // A property write of a class that tracks changes: the new value, and the class's `IsDirty`.
  template <typename T, typename V>
  static void SetProperty(T& member, V&& value, bool& is_dirty) {
    member = std::forward<V>(value);
    is_dirty = true;
  }
};

using ObjectPtr = std::shared_ptr<Object>;

struct NullValue {
  friend bool operator==(NullValue, NullValue) { return true; }
};
inline constexpr NullValue kNull{};

// The type codes of a Variant (the numbers that VarType reports).
enum class VarType : int {
  Empty = 0,
  Null = 1,
  Integer = 2,  // 16-bit
  Long = 3,     // 32-bit
  Single = 4,
  Double = 5,
  Date = 7,
  String = 8,
  Object = 9,
  Boolean = 11,
  LongLong = 20,  // 64-bit (database columns)
};

class Variant {
 public:
  Variant() = default;  // Empty
  Variant(NullValue) : v_(NullValue{}) {}
  Variant(bool b) : v_(b) {}
  Variant(std::int16_t i) : v_(i) {}
  Variant(int i) : v_(static_cast<std::int32_t>(i)) {}
  Variant(long i) : v_(static_cast<std::int64_t>(i)) {}
  Variant(long long i) : v_(static_cast<std::int64_t>(i)) {}
  Variant(float f) : v_(f) {}
  Variant(double d) : v_(d) {}
  Variant(const char* s) : v_(std::string(s)) {}
  Variant(std::string s) : v_(std::move(s)) {}
  Variant(std::string_view s) : v_(std::string(s)) {}
  Variant(DateTime d) : v_(d) {}
  Variant(ObjectPtr o) : v_(std::move(o)) {}
  template <typename T, typename = std::enable_if_t<std::is_base_of_v<Object, T>>>
  Variant(std::shared_ptr<T> o) : v_(ObjectPtr(std::move(o))) {}

  VarType Type() const noexcept;
  bool IsEmpty() const noexcept { return v_.index() == 0; }
  bool IsNull() const noexcept { return std::holds_alternative<NullValue>(v_); }
  bool IsObject() const noexcept { return std::holds_alternative<ObjectPtr>(v_); }
  bool IsString() const noexcept { return std::holds_alternative<std::string>(v_); }
  bool IsDate() const noexcept { return std::holds_alternative<DateTime>(v_); }
  bool IsBoolean() const noexcept { return std::holds_alternative<bool>(v_); }
  // A number, or a text that reads as one.
  bool IsNumeric() const noexcept;
  // Empty, Null or an empty text.
  bool IsEmptyOrNull() const noexcept;

  // Conversions with the runtime's rules. Null fails with 94 ("Invalid use of Null"), a text that
  // is not a number with 13 ("Type mismatch"), a number out of range with 6 ("Overflow").
  // Empty converts to "" / 0 / false / the empty date.
  std::string ToString() const;
  // Like ToString, but Null gives "" (text concatenation).
  std::string ToText() const;
  bool ToBool() const;
  std::int16_t ToInteger() const;
  std::int32_t ToLong() const;
  std::int64_t ToLongLong() const;
  float ToSingle() const;
  double ToDouble() const;
  DateTime ToDate() const;
  // The object, or nullptr for Empty and Null; 13 for other values.
  ObjectPtr ToObject() const;
  template <typename T>
  std::shared_ptr<T> As() const {
    return std::dynamic_pointer_cast<T>(ToObject());
  }

  // Access to the stored alternative, for code that switches on the type.
  const auto& Raw() const noexcept { return v_; }

  // Equal types and values; numbers compare by value across types; texts compare exactly.
  friend bool operator==(const Variant& a, const Variant& b);

 private:
  std::variant<std::monostate, NullValue, bool, std::int16_t, std::int32_t, std::int64_t, float,
               double, std::string, DateTime, ObjectPtr>
      v_;
};

// Formats a double as the runtime prints it: up to 15 significant digits, no trailing zeros.
std::string FormatNumber(double d);
// Reads a whole text as a number (leading and trailing spaces allowed); false if it is not one.
bool ParseNumber(std::string_view text, double& out) noexcept;

}  // namespace gw
