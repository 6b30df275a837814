#pragma once
// The text form of collection keys: what a member is called in paths and documents.

#include <charconv>
#include <concepts>
#include <optional>
#include <string_view>

#include "kel/Value.h"

namespace Kel {

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

// Empty when the text is no key of this type, and always for keys of several fields, which are not read from text.
template <class Key>
std::optional<Key> keyFromText(std::string_view text) {
  try {
    if constexpr (std::same_as<Key, String>) {
      return String(text);
    } else if constexpr (TextValue<Key> || DescribedEnum<Key>) {
      return fromDatum<Key>(Datum(text));
    } else if constexpr (std::integral<Key>) {
      Key key{};
      const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), key);
      if (error == std::errc{} && end == text.data() + text.size()) return key;
    }
  } catch (const RangeException&) {
    return std::nullopt;
  }
  return std::nullopt;
}

}  // namespace Kel
