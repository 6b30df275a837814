#pragma once
// The number under which the shared tables know a VRF. Stable while the store lives; 0 is the default VRF.

#include <compare>
#include <cstdint>
#include <ostream>

namespace Vrf::VrfIdMap {

class VrfId {
 public:
  static constexpr std::uint32_t unknownValue = 0xffffff;  // the id is not known yet

  constexpr VrfId() = default;
  constexpr explicit VrfId(std::uint32_t value) : value_(value) {}
  constexpr std::uint32_t value() const { return value_; }
  constexpr bool isKnown() const { return value_ != unknownValue; }

  friend constexpr auto operator<=>(const VrfId&, const VrfId&) = default;
  friend std::size_t hash_value(const VrfId& id) { return id.value_; }
  friend std::ostream& operator<<(std::ostream& out, const VrfId& id) { return out << id.value_; }

 private:
  std::uint32_t value_ = unknownValue;
};

}  // namespace Vrf::VrfIdMap
