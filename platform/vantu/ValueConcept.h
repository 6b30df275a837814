#pragma once
// The concept of the network value types, which provides `operator<<`, `std::hash` and `hash_value` (for Boost's
// containers).
//
// A value type is default constructible (the zero, unset or empty value), copied by value, totally ordered, and has
//   Kel::String stringValue() const;            the text form
//   static T fromString(std::string_view);      its inverse; throws Kel::RangeException that names the text, the
//                                               fault and the expected form
//   std::size_t hash() const;

#include <compare>
#include <concepts>
#include <cstddef>
#include <functional>
#include <ostream>
#include <string_view>

#include "kel/Name.h"

namespace Vantu {

template <class T>
concept ValueType = T::isVantuValue && requires(const T& value, std::string_view text) {
  { value.stringValue() } -> std::same_as<Kel::String>;
  { T::fromString(text) } -> std::same_as<T>;
  { value.hash() } -> std::same_as<std::size_t>;
};

template <ValueType T>
std::ostream& operator<<(std::ostream& out, const T& value) {
  return out << value.stringValue();
}

template <ValueType T>
std::size_t hash_value(const T& value) {
  return value.hash();
}

}  // namespace Vantu

template <Vantu::ValueType T>
struct std::hash<T> {
  std::size_t operator()(const T& value) const { return value.hash(); }
};
