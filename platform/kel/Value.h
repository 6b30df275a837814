#pragma once
// Operations on values of any attribute type: printing, conversion to a `Datum` and back, and type-erased values for
// the generic attribute interface.
//
// Attribute types are: bool, integers, double, String; enumerations described with BOOST_DESCRIBE_ENUM; value types
// declared with KEL_VALUE_TYPE; types with `stringValue()` and a static `fromString(std::string_view)` that throws
// RangeException (addresses, names); and handles (`Ptr`).
//
// Printed forms: numbers plain, texts in single quotes, enumerations by name,
// "Value('IpSnmp::InetAddress', ** {'version': ipVersion4, 'bytes': 0x0a000001})" for value types, and
// "Entity('snmp/ip/ipmib')", "Object(<type>)" or "None" for handles.

#include <fmt/format.h>

#include <any>
#include <boost/core/type_name.hpp>
#include <boost/describe.hpp>
#include <boost/mp11.hpp>
#include <concepts>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>

#include "kel/Datum.h"
#include "kel/Errors.h"
#include "kel/Name.h"
#include "kel/Ptr.h"

namespace Kel {

template <class T>
concept DescribedEnum = std::is_enum_v<T> && boost::describe::has_describe_enumerators<T>::value;
template <class T>
concept FieldValue = requires {
  T::kelTypeName;
};
template <class T>
concept TextValue = !FieldValue<T> && !std::same_as<T, String> && requires(const T& value, std::string_view text) {
  { value.stringValue() } -> std::convertible_to<String>;
  { T::fromString(text) } -> std::same_as<T>;
};

String printHandle(const PtrInterface* object);
String handlePath(const PtrInterface* object);
[[noreturn]] void wrongKind(const Datum& datum, const char* expected);
[[noreturn]] void noSuchEnumerator(const Datum& datum, const String& enumName, const String& known);

// The name of an enumeration's value, or its number when it has no name.
template <DescribedEnum E>
String enumName(E value) {
  String name;
  boost::mp11::mp_for_each<boost::describe::describe_enumerators<E>>([&](auto d) {
    if (name.empty() && d.value == value) name = d.name;
  });
  return name.empty() ? std::to_string(static_cast<std::underlying_type_t<E>>(value)) : name;
}

// The value with this name or number. Throws RangeException that lists the known names.
template <DescribedEnum E>
E enumValue(const Datum& datum) {
  String known;
  E found{};
  bool isFound = false;
  boost::mp11::mp_for_each<boost::describe::describe_enumerators<E>>([&](auto d) {
    const auto* text = datum.getIf<String>();
    const auto* number = datum.getIf<std::int64_t>();
    const auto* positive = datum.getIf<std::uint64_t>();
    const auto numeric = static_cast<std::int64_t>(d.value);
    if ((text && *text == d.name) || (number && *number == numeric) ||
        (positive && numeric >= 0 && *positive == static_cast<std::uint64_t>(numeric))) {
      found = d.value;
      isFound = true;
    }
    known += (known.empty() ? "" : ", ") + String(d.name);
  });
  if (!isFound) noSuchEnumerator(datum, boost::core::type_name<E>(), known);
  return found;
}

// ---- printing ----

template <class T>
String print(const T& value) {
  if constexpr (std::same_as<T, bool>) {
    return value ? "true" : "false";
  } else if constexpr (std::is_arithmetic_v<T>) {
    return fmt::format("{}", value);
  } else if constexpr (std::same_as<T, String>) {
    return fmt::format("'{}'", value);
  } else if constexpr (IsPtr<T>::value) {
    return printHandle(value.get());
  } else if constexpr (DescribedEnum<T>) {
    return enumName(value);
  } else if constexpr (FieldValue<T>) {
    String fields;
    value.kelForEachField([&](const char* name, const auto& field) {
      fields += fmt::format("{}'{}': {}", fields.empty() ? "" : ", ", name, print(field));
    });
    return fmt::format("Value('{}', ** {{{}}})", T::kelTypeName, fields);
  } else if constexpr (requires { value.stringValue(); }) {
    return fmt::format("'{}'", String(value.stringValue()));
  } else {
    return fmt::format("<{}>", boost::core::type_name<T>());
  }
}

// ---- to and from data ----

template <class T>
Datum toDatum(const T& value) {
  if constexpr (std::same_as<T, bool>) {
    return Datum(value);
  } else if constexpr (std::floating_point<T>) {
    return Datum(static_cast<double>(value));
  } else if constexpr (std::signed_integral<T>) {
    return Datum(static_cast<std::int64_t>(value));
  } else if constexpr (std::unsigned_integral<T>) {
    return Datum(static_cast<std::uint64_t>(value));
  } else if constexpr (std::same_as<T, String>) {
    return Datum(value);
  } else if constexpr (DescribedEnum<T>) {
    return Datum(enumName(value));
  } else if constexpr (FieldValue<T>) {
    Datum::Object fields;
    value.kelForEachField([&](const char* name, const auto& field) { fields.emplace_back(name, toDatum(field)); });
    return Datum(std::move(fields));
  } else if constexpr (TextValue<T>) {
    return Datum(String(value.stringValue()));
  } else if constexpr (IsPtr<T>::value) {
    return Datum(handlePath(value.get()));
  } else {
    return Datum();
  }
}

template <std::integral T>
T integerFromDatum(const Datum& datum) {
  bool fits = false;
  T result{};
  const auto take = [&](auto number) {
    fits = std::in_range<T>(number);
    result = static_cast<T>(number);
  };
  if (const auto* number = datum.getIf<std::int64_t>()) {
    take(*number);
  } else if (const auto* positive = datum.getIf<std::uint64_t>()) {
    take(*positive);
  } else {
    wrongKind(datum, "an integer");
  }
  if (!fits) {
    throw RangeException(fmt::format("integer out of range {} to {}", +std::numeric_limits<T>::min(),
                                     +std::numeric_limits<T>::max()));
  }
  return result;
}

// Throws RangeException when the datum is of the wrong kind or out of range, and for handles, which data cannot
// express.
template <class T>
T fromDatum(const Datum& datum) {
  if constexpr (std::same_as<T, bool>) {
    const auto* value = datum.getIf<bool>();
    if (!value) wrongKind(datum, "a boolean");
    return *value;
  } else if constexpr (DescribedEnum<T>) {
    return enumValue<T>(datum);
  } else if constexpr (std::integral<T>) {
    return integerFromDatum<T>(datum);
  } else if constexpr (std::floating_point<T>) {
    if (const auto* value = datum.getIf<double>()) return static_cast<T>(*value);
    return static_cast<T>(integerFromDatum<std::int64_t>(datum));
  } else if constexpr (std::same_as<T, String>) {
    const auto* value = datum.getIf<String>();
    if (!value) wrongKind(datum, "a text");
    return *value;
  } else if constexpr (FieldValue<T>) {
    return T::kelFromFields([&]<class Field>(const char* name, std::type_identity<Field>) -> Field {
      const Datum* field = datum.member(name);
      if (!field) throw RangeException(fmt::format("field '{}' is missing", name));
      return fromDatum<Field>(*field);
    });
  } else if constexpr (TextValue<T>) {
    const auto* value = datum.getIf<String>();
    if (!value) wrongKind(datum, "a text");
    return T::fromString(*value);
  } else {
    throw RangeException("a value of type " + boost::core::type_name<T>() + " cannot be made from data");
  }
}

// ---- type-erased values ----

// An argument or result of the generic attribute interface: a handle, writable or read-only, or any other value.
class Value {
 public:
  Value() = default;
  template <class T>
  requires(!std::same_as<std::remove_cvref_t<T>, Value>) Value(T value) {
    if constexpr (IsPtr<T>::value) {
      using Object = typename T::element_type;
      isHandle_ = true;
      isReadOnly_ = std::is_const_v<Object>;
      handle_ = Ptr<PtrInterface>(const_cast<std::remove_const_t<Object>*>(value.get()));
      typeName_ = boost::core::type_name<Object>();
    } else {
      typeName_ = boost::core::type_name<T>();
      text_ = Kel::print(value);
      value_ = std::move(value);
    }
  }

  bool isHandle() const { return isHandle_; }
  const Ptr<PtrInterface>& handle() const { return handle_; }
  const String& typeName() const { return typeName_; }
  String print() const { return isHandle_ ? printHandle(handle_.get()) : text_; }

  // The value as a `T`. Throws AttributeException when it is of another type, or `T` is a writable handle and the
  // value a read-only one. A null handle converts to any handle type.
  template <class T>
  T as() const {
    if constexpr (IsPtr<T>::value) {
      using Object = typename T::element_type;
      if (!isHandle_) refuse(boost::core::type_name<T>());
      if (!handle_) return nullptr;
      if (isReadOnly_ && !std::is_const_v<Object>) {
        throw AttributeException("a read-only handle was given where a writable " +
                                 boost::core::type_name<Object>() + " is needed");
      }
      auto result = dynamicPtr<Object>(handle_);
      if (!result) refuse(boost::core::type_name<Object>());
      return result;
    } else {
      if (const T* value = std::any_cast<T>(&value_)) return *value;
      refuse(boost::core::type_name<T>());
    }
  }

 private:
  [[noreturn]] void refuse(const String& expected) const;

  bool isHandle_ = false;
  bool isReadOnly_ = false;
  Ptr<PtrInterface> handle_;
  std::any value_;
  String text_;
  String typeName_;
};

// ---- keys ----
//
// The text form of a key names the member in paths and documents.

template <class Key>
String keyText(const Key& key) {
  if constexpr (std::same_as<Key, String>) {
    return key;
  } else if constexpr (TextValue<Key>) {
    return key.stringValue();
  } else {
    return print(key);
  }
}

// nullopt when the text is no key of this type. Keys of several fields cannot be read from text.
template <class Key>
std::optional<Key> keyFromText(std::string_view text) {
  try {
    if constexpr (std::same_as<Key, String>) {
      return String(text);
    } else if constexpr (TextValue<Key> || DescribedEnum<Key>) {
      return fromDatum<Key>(Datum(text));
    } else if constexpr (std::integral<Key>) {
      return numberFromText<Key>(text);
    }
  } catch (const RangeException&) {
    return std::nullopt;
  }
  return std::nullopt;
}

}  // namespace Kel
