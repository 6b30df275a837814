#include "kel/Datum.h"

#include <array>

namespace Kel {

const Datum* Datum::member(std::string_view name) const {
  const auto* object = getIf<Object>();
  if (!object) return nullptr;
  for (const auto& [memberName, datum] : *object) {
    if (memberName == name) return &datum;
  }
  return nullptr;
}

const char* Datum::kindName() const {
  static constexpr std::array<const char*, std::variant_size_v<Storage>> names{
      "null", "a boolean", "an integer", "an integer", "a number", "a text", "a list", "an object"};
  return names[value_.index()];
}

}  // namespace Kel
