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
// Getters return plain values (text, numbers, Booleans, dates, `Variant`) or objects; setters
// take the value converted to their own parameter type with the runtime's rules (a number given
// to a text setter arrives as its text).
#pragma once

#include <functional>
#include <memory>
#include <string>
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
};

struct PropertyTable {
  std::string type_name;
  std::vector<PropertyInfo> properties;
  // For a collection: the name of the method that makes a new member, and the method.
  std::string add_method_name;
  std::function<ObjectPtr(Object&)> add_member;

  // The property of that name, compared without regard to case; nullptr if none.
  const PropertyInfo* Find(std::string_view name) const;
};

namespace detail {

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
  } else if constexpr (std::is_floating_point_v<T>) {
    return Variant(static_cast<double>(v));
  } else if constexpr (std::is_enum_v<T>) {
    return Variant(static_cast<int>(v));
  } else {
    return Variant(std::forward<V>(v));  // text, dates, objects
  }
}

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
  } else if constexpr (std::is_floating_point_v<U>) {
    return static_cast<U>(v.ToDouble());
  } else if constexpr (std::is_enum_v<U>) {
    return static_cast<U>(v.ToLong());
  } else if constexpr (std::is_same_v<U, DateTime>) {
    return v.ToDate();
  } else {
    return v.ToString();  // text
  }
}

}  // namespace detail

template <typename T>
class PropertyTableBuilder {
 public:
  explicit PropertyTableBuilder(std::string type_name) { table_.type_name = std::move(type_name); }

  // A value property with a getter and, optionally, a setter (member functions of T).
  template <typename G, typename S = std::nullptr_t>
  PropertyTableBuilder& Value(std::string name, G getter, S setter = nullptr) {
    PropertyInfo p;
    p.name = std::move(name);
    p.kind = PropertyKind::Value;
    p.get = [getter](const Object& o) { return detail::ToVariant(std::invoke(getter, Self(o))); };
    if constexpr (!std::is_same_v<S, std::nullptr_t>) {
      p.set = [setter](Object& o, const Variant& v) {
        using Arg = typename SetterArg<S>::type;
        std::invoke(setter, Self(o), detail::FromVariant<Arg>(v));
      };
    }
    table_.properties.push_back(std::move(p));
    return *this;
  }

  // An object property; the getter returns a std::shared_ptr to an Object-derived class.
  template <typename G>
  PropertyTableBuilder& Child(std::string name, G getter) {
    PropertyInfo p;
    p.name = std::move(name);
    p.kind = PropertyKind::Object;
    p.get = [getter](const Object& o) {
      ObjectPtr child = std::invoke(getter, Self(o));
      return child ? Variant(child) : Variant();
    };
    table_.properties.push_back(std::move(p));
    return *this;
  }

  // The collection's members, at the enumerator's place; `members` returns something iterable of
  // std::shared_ptr to Object-derived members.
  template <typename F>
  PropertyTableBuilder& Members(F members) {
    PropertyInfo p;
    p.name = "_NewEnum";
    p.kind = PropertyKind::Members;
    p.members = [members](const Object& o) {
      std::vector<ObjectPtr> out;
      for (const auto& m : std::invoke(members, Self(o))) out.push_back(m);
      return out;
    };
    table_.properties.push_back(std::move(p));
    return *this;
  }

  // The method that makes and adds a new member with no arguments.
  template <typename F>
  PropertyTableBuilder& AddMethod(std::string name, F add) {
    table_.add_method_name = std::move(name);
    table_.add_member = [add](Object& o) -> ObjectPtr { return std::invoke(add, Self(o)); };
    return *this;
  }

  PropertyTable Build() { return std::move(table_); }

 private:
  template <typename S>
  struct SetterArg;
  template <typename C, typename R, typename A>
  struct SetterArg<R (C::*)(A)> {
    using type = std::decay_t<A>;
  };
  template <typename C, typename R, typename A>
  struct SetterArg<R (C::*)(A) noexcept> {
    using type = std::decay_t<A>;
  };

  static const T& Self(const Object& o) { return static_cast<const T&>(o); }
  static T& Self(Object& o) { return static_cast<T&>(o); }

  PropertyTable table_;
};

}  // namespace gw
