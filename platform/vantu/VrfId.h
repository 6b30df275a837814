#pragma once
// The id of a VRF in the keys of the shared tables. It stays the same as long as the store exists; 0 is the default
// VRF.

#include <compare>
#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>

#include "kel/Errors.h"
#include "kel/Name.h"

namespace Vrf::VrfIdMap {

class VrfId {
 public:
  static constexpr std::uint32_t unknownValue = 0xffffff;

  constexpr VrfId() = default;
  constexpr explicit VrfId(std::uint32_t value) : value_(value) {}
  constexpr std::uint32_t value() const { return value_; }
  constexpr bool isKnown() const { return value_ != unknownValue; }

  // Decimal. Throws Kel::RangeException unless the text is a number of at most 24 bits.
  std::string stringValue() const { return std::to_string(value_); }
  static VrfId fromString(std::string_view text) {
    const auto value = Kel::numberFromText<std::uint32_t>(text);
    if (!value || *value > unknownValue) {
      throw Kel::RangeException("'" + std::string(text) + "' is no VRF id: a number from 0 to 16777215 is");
    }
    return VrfId(*value);
  }

  friend constexpr auto operator<=>(const VrfId&, const VrfId&) = default;
  friend std::size_t hash_value(const VrfId& id) { return id.value_; }
  friend std::ostream& operator<<(std::ostream& out, const VrfId& id) { return out << id.value_; }

 private:
  std::uint32_t value_ = unknownValue;
};

}  // namespace Vrf::VrfIdMap
