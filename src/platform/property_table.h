// Property tables: what a class tells about its public properties, in the order of its
// interface, so that generic code (the XML serializer) can read and write them by name.
//
// A class offers its table by overriding `Object::GetPropertyTable()` and building the table once:
//
//   const PropertyTable* Cookie::GetPropertyTable() const {
//     static const PropertyTable table = PropertyTableBuilder<Cookie>("Cookie")
//         .Value("Name", &Cookie::Name, &Cookie::SetName)
//         .Value("Expires", &Cookie::Expires)            // read-only
//         .Child("Owner", &Cookie::Owner)                // an object property
//         .Build();
//     return &table;
//   }
//
// A collection lists its members with `.Members(...)` at the place the enumerator has in its
// interface, and says how a new member is made with `.AddMethod("Add", ...)`.
//
// What the builder checks, so that a table is hard to get wrong:
//  - at compile time: the class derives from `Object`; a `Value` getter gives a plain value (a
//    getter that gives an object belongs in `Child`); a `Child` getter gives a `std::shared_ptr`
//    to an `Object`; members are `std::shared_ptr`s to `Object`s; a setter takes one argument;
//  - when the table is built: names are not empty, no name is used twice (without regard to case),
//    at most one `Members` and one `AddMethod`; a mistake fails with 5 when the table is first
//    used, so any test that touches the class finds it;
//  - when a property is used: the object is of the table's class (13 otherwise), so a table that a
//    derived class inherits works and a table handed to the wrong object cannot do harm.
//
// Getters may be member functions or callables taking `const T&`; setters may be member functions
// or callables taking `T&` and the value; `Member` makes both from a data member. Getters return
// plain values (text, numbers, Booleans, enumerations, dates, `Variant`) or objects. Setters
// receive the value converted to their own parameter type with the runtime's rules (a number
// given to a text setter arrives as its text; a text that is not a number given to a number
// setter fails with 13). A setter taking `std::string_view` receives a view of a text that lives
// until it returns.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "platform/date_time.h"
#include "platform/error.h"
#include "platform/variant.h"

namespace gw {

enum class PropertyKind { Value, Object, Members };

struct PropertyInfo {
  std::string name;
  PropertyKind kind = PropertyKind::Value;
  // Value: the value; Object: a Variant holding the object (or Empty).
  std::function<Variant(const Object&)> get;
  // Values only; empty for a read-only property.
  std::function<void(Object&, const Variant&)> set;
  // Members: the collection's members in order.
  std::function<std::vector<ObjectPtr>(const Object&)> members;

  bool IsReadOnly() const { return kind != PropertyKind::Value || !set; }
};

struct PropertyTable {
  // The class the table was written for (used in messages; the type name written to XML is the
  // object's own `TypeName()`).
  std::string type_name;
  std::vector<PropertyInfo> properties;
  // For a collection: the name of the method that makes a new member, and the method.
  std::string add_method_name;
  std::function<ObjectPtr(Object&)> add_member;

  // The property of that name, compared without regard to case; nullptr if none.
  const PropertyInfo* Find(std::string_view name) const;
  // The enumerator of a collection; nullptr for a class that is none.
  const PropertyInfo* FindMembers() const;
};

namespace detail {

template <typename T>
struct IsSharedPtr : std::false_type {};
template <typename T>
struct IsSharedPtr<std::shared_ptr<T>> : std::true_type {};

template <typename V>
Variant ToVariant(V&& v) {
  using T = std::decay_t<V>;
  if constexpr (std::is_same_v<T, Variant>) {
    return std::forward<V>(v);
  } else if constexpr (std::is_same_v<T, bool>) {
    return Variant(v);
  } else if constexpr (std::is_same_v<T, std::int16_t>) {
    return Variant(v);
  } else if constexpr (std::is_integral_v<T> && sizeof(T) <= 4) {
    return Variant(static_cast<int>(v));
  } else if constexpr (std::is_integral_v<T>) {
    return Variant(static_cast<long long>(v));
  } else if constexpr (std::is_same_v<T, float>) {
    return Variant(v);
  } else if constexpr (std::is_floating_point_v<T>) {
    return Variant(static_cast<double>(v));
  } else if constexpr (std::is_enum_v<T>) {
    return Variant(static_cast<int>(v));
  } else if constexpr (std::is_same_v<T, std::string_view> || std::is_same_v<T, const char*> ||
                       std::is_same_v<T, char*>) {
    return Variant(std::string(v));
  } else {
    static_assert(std::is_same_v<T, std::string> || std::is_same_v<T, DateTime>,
                  "a Value getter gives text, a number, a Boolean, an enumeration, a date or a "
                  "Variant; a getter that gives an object belongs in Child");
    return Variant(std::forward<V>(v));
  }
}

// What a setter whose parameter is `A` is handed: a view parameter gets an owning text, which
// lives until the setter returns.
template <typename A>
using SetterValue =
    std::conditional_t<std::is_same_v<A, std::string_view> || std::is_same_v<A, const char*>,
                       std::string, A>;

template <typename T>
T FromVariant(const Variant& v) {
  using U = std::decay_t<T>;
  if constexpr (std::is_same_v<U, Variant>) {
    return v;
  } else if constexpr (std::is_same_v<U, bool>) {
    return v.ToBool();
  } else if constexpr (std::is_same_v<U, std::int16_t>) {
    return v.ToInteger();
  } else if constexpr (std::is_integral_v<U> && sizeof(U) <= 4) {
    return static_cast<U>(v.ToLong());
  } else if constexpr (std::is_integral_v<U>) {
    return static_cast<U>(v.ToLongLong());
  } else if constexpr (std::is_same_v<U, float>) {
    return v.ToSingle();
  } else if constexpr (std::is_floating_point_v<U>) {
    return static_cast<U>(v.ToDouble());
  } else if constexpr (std::is_enum_v<U>) {
    return static_cast<U>(v.ToLong());
  } else if constexpr (std::is_same_v<U, DateTime>) {
    return v.ToDate();
  } else {
    static_assert(std::is_same_v<U, std::string>,
                  "a setter takes text, a number, a Boolean, an enumeration, a date or a Variant");
    return v.ToString();
  }
}

// The parameter type of a one-argument setter: a member function, or a callable (T&, A).
template <typename S, typename T, typename = void>
struct SetterArg;
template <typename C, typename R, typename A, typename T>
struct SetterArg<R (C::*)(A), T> {
  using type = std::decay_t<A>;
};
template <typename C, typename R, typename A, typename T>
struct SetterArg<R (C::*)(A) noexcept, T> {
  using type = std::decay_t<A>;
};
template <typename F, typename T, typename = void>
struct CallOperatorArg;
template <typename F, typename T>
struct CallOperatorArg<F, T, std::void_t<decltype(&F::operator())>>
    : CallOperatorArg<decltype(&F::operator()), T> {};
template <typename L, typename R, typename A, typename T>
struct CallOperatorArg<R (L::*)(T&, A) const, T> {
  using type = std::decay_t<A>;
};
template <typename L, typename R, typename A, typename T>
struct CallOperatorArg<R (L::*)(T&, A) const noexcept, T> {
  using type = std::decay_t<A>;
};
template <typename R, typename A, typename T>
struct CallOperatorArg<R (*)(T&, A), T> {
  using type = std::decay_t<A>;
};
template <typename S, typename T>
struct SetterArg<S, T, std::enable_if_t<!std::is_member_function_pointer_v<S>>>
    : CallOperatorArg<S, T> {};

// Checks a built table; fails with 5 naming the first mistake.
void CheckTable(const PropertyTable& table);

}  // namespace detail

template <typename T>
class PropertyTableBuilder {
  static_assert(std::is_base_of_v<Object, T>, "a property table describes an Object");

 public:
  explicit PropertyTableBuilder(std::string type_name) { table_.type_name = std::move(type_name); }

  // A value property with a getter and, optionally, a setter.
  template <typename G, typename S = std::nullptr_t>
  PropertyTableBuilder& Value(std::string name, G getter, S setter = nullptr) {
    using Result = std::decay_t<std::invoke_result_t<G, const T&>>;
    static_assert(!detail::IsSharedPtr<Result>::value,
                  "this getter gives an object: declare the property with Child");
    PropertyInfo p;
    p.name = std::move(name);
    p.kind = PropertyKind::Value;
    p.get = [getter](const Object& o) { return detail::ToVariant(std::invoke(getter, Self(o))); };
    if constexpr (!std::is_same_v<S, std::nullptr_t>) {
      using Arg = typename detail::SetterArg<S, T>::type;
      p.set = [setter](Object& o, const Variant& v) {
        std::invoke(setter, Self(o), detail::FromVariant<detail::SetterValue<Arg>>(v));
      };
    }
    table_.properties.push_back(std::move(p));
    return *this;
  }

  // A value property read and written straight through a data member (for plain record classes):
  // `.Member("Name", &Record::name)`.
  template <typename M>
  PropertyTableBuilder& Member(std::string name, M T::*member) {
    static_assert(!std::is_member_function_pointer_v<M T::*>, "Member takes a data member");
    static_assert(!detail::IsSharedPtr<M>::value, "an object member belongs in Child");
    PropertyInfo p;
    p.name = std::move(name);
    p.kind = PropertyKind::Value;
    p.get = [member](const Object& o) { return detail::ToVariant(Self(o).*member); };
    p.set = [member](Object& o, const Variant& v) { Self(o).*member = detail::FromVariant<M>(v); };
    table_.properties.push_back(std::move(p));
    return *this;
  }

  // An object property; the getter gives a std::shared_ptr to an Object-derived class (null when
  // there is no object). Readers fill the object it gives in place.
  template <typename G>
  PropertyTableBuilder& Child(std::string name, G getter) {
    using Result = std::decay_t<std::invoke_result_t<G, const T&>>;
    static_assert(detail::IsSharedPtr<Result>::value &&
                      std::is_base_of_v<Object, typename Result::element_type>,
                  "a Child getter gives a std::shared_ptr to an Object");
    PropertyInfo p;
    p.name = std::move(name);
    p.kind = PropertyKind::Object;
    p.get = [getter](const Object& o) {
      ObjectPtr child = std::invoke(getter, Self(o));
      return child ? Variant(std::move(child)) : Variant();
    };
    table_.properties.push_back(std::move(p));
    return *this;
  }

  // The collection's members, at the enumerator's place; `members` gives something iterable of
  // std::shared_ptr to Object-derived members.
  template <typename F>
  PropertyTableBuilder& Members(F members) {
    PropertyInfo p;
    p.name = "_NewEnum";
    p.kind = PropertyKind::Members;
    p.members = [members](const Object& o) {
      std::vector<ObjectPtr> out;
      for (const auto& m : std::invoke(members, Self(o))) {
        static_assert(std::is_base_of_v<Object, typename std::decay_t<decltype(m)>::element_type>,
                      "members are std::shared_ptr to Objects");
        out.push_back(m);
      }
      return out;
    };
    table_.properties.push_back(std::move(p));
    return *this;
  }

  // The method that makes, adds and gives a new member, called with no arguments.
  template <typename F>
  PropertyTableBuilder& AddMethod(std::string name, F add) {
    if (table_.add_member) duplicate_add_method_ = true;
    table_.add_method_name = std::move(name);
    table_.add_member = [add](Object& o) -> ObjectPtr { return std::invoke(add, Self(o)); };
    return *this;
  }

  // The table; fails with 5 when it is not well made (see the file comment).
  PropertyTable Build() {
    if (duplicate_add_method_) {
      throw Error(errnum::kInvalidProcedureCall, "PropertyTableBuilder",
                  "The property table of " + table_.type_name + " has two add methods.");
    }
    detail::CheckTable(table_);
    return std::move(table_);
  }

 private:
  static const T& Self(const Object& o) {
    if (auto* self = dynamic_cast<const T*>(&o)) return *self;
    ThrowWrongClass(o);
  }
  static T& Self(Object& o) {
    if (auto* self = dynamic_cast<T*>(&o)) return *self;
    ThrowWrongClass(o);
  }
  [[noreturn]] static void ThrowWrongClass(const Object& o) {
    throw Error(errnum::kTypeMismatch, "PropertyTable",
                "A property of " + o.TypeName() + " was read through another class's table.");
  }

  PropertyTable table_;
  bool duplicate_add_method_ = false;
};

}  // namespace gw
