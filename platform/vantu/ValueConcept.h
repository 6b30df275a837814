#pragma once
// The concept of the network value types, which provides `operator<<`, `std::hash` and `hash_value` (for Boost's
// containers).
//
// A value type is default constructible (the zero, unset or empty value), copied by value, totally ordered, and has
//   Kel::String stringValue() const;            the text form
//   static T fromString(std::string_view);      its inverse; throws Kel::RangeException that names the text, the
//                                               fault and the expected form
//   std::size_t hash() const;

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <compare>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <ostream>
#include <span>
#include <string_view>

#include "kel/Errors.h"
#include "kel/Name.h"

namespace Vantu {

template <class T>
concept ValueType = T::isVantuValue && requires(const T& value, std::string_view text) {
  { value.stringValue() } -> std::same_as<Kel::String>;
  { T::fromString(text) } -> std::same_as<T>;
  { value.hash() } -> std::same_as<std::size_t>;
};

// Copies exactly `size` bytes. Throws Kel::RangeException for any other number; the text names the type and `what`.
template <std::size_t size>
std::array<std::uint8_t, size> exactBytes(std::span<const std::uint8_t> bytes, const char* type, const char* what) {
  if (bytes.size() != size) {
    throw Kel::RangeException(fmt::format("{}: {} bytes are not {}; expected {}", type, bytes.size(), what, size));
  }
  std::array<std::uint8_t, size> copied;
  std::copy(bytes.begin(), bytes.end(), copied.begin());
  return copied;
}

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
