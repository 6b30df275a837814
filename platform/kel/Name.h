#pragma once
// The framework's strings, and numbers in them. A `Name` names an entity and may hold any bytes.

#include <charconv>
#include <concepts>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>

namespace Kel {

using String = std::string;
using Name = std::string;

// Reads the whole of `text` as a decimal number; nullopt when it is none, or out of the range of `T`.
template <std::integral T>
std::optional<T> numberFromText(std::string_view text) {
  T number{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

}  // namespace Kel
