#pragma once
// The first part of the keys of tables that hold all VRFs: the VRF's id, so the entries of a VRF are one range.

#include <fmt/format.h>

#include <cstdint>
#include <span>
#include <string>

#include "kel/Errors.h"
#include "quillo/Table.h"
#include "vantu/VrfId.h"

namespace Quillo {

// Big-endian.
inline constexpr std::size_t vrfKeyBytes = 3;

// Whether a key can hold the id: it is known and has at most 24 bits.
inline bool isStorable(const Vrf::VrfIdMap::VrfId& vrfId) {
  return vrfId.value() < Vrf::VrfIdMap::VrfId::unknownValue;
}

// The common prefix of exactly the VRF's keys. Throws Kel::RangeException when the id is not storable.
inline std::string encodeVrf(const Vrf::VrfIdMap::VrfId& vrfId) {
  if (!isStorable(vrfId)) {
    throw Kel::RangeException(fmt::format("VRF id {} not allowed in a key of the store; 0 to {} are", vrfId.value(),
                                          Vrf::VrfIdMap::VrfId::unknownValue - 1));
  }
  const auto byte = [&](unsigned shift) { return static_cast<char>(vrfId.value() >> shift & 0xff); };
  return {byte(16), byte(8), byte(0)};
}

inline std::span<const std::uint8_t> asNumbers(Bytes bytes) {
  return {reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()};
}

// Requires: the key has at least vrfKeyBytes.
inline Vrf::VrfIdMap::VrfId decodeVrf(Bytes key) {
  const auto vrf = asNumbers(key.substr(0, vrfKeyBytes));
  return Vrf::VrfIdMap::VrfId(std::uint32_t{vrf[0]} << 16 | std::uint32_t{vrf[1]} << 8 | vrf[2]);
}

inline void appendBytes(std::string& out, const auto& address) {
  const auto bytes = address.bytes();
  out.append(bytes.begin(), bytes.end());
}

}  // namespace Quillo
