#pragma once
// What the tables of all VRFs have in common: their keys begin with the number of the VRF, so the entries of one VRF
// are one range.

#include <cstdint>
#include <span>
#include <string>

#include "quillo/Table.h"
#include "vantu/VrfId.h"

namespace Quillo {

// 3 bytes, big-endian.
inline constexpr std::size_t vrfKeyBytes = 3;

// Whether a publisher can have written it: known, and of 24 bits.
bool isStorable(const Vrf::VrfIdMap::VrfId& vrfId);
// What every key of the VRF begins with, and no other. Throws Kel::RangeException when the id is not storable.
std::string encodeVrf(const Vrf::VrfIdMap::VrfId& vrfId);
// Of a key of at least vrfKeyBytes.
Vrf::VrfIdMap::VrfId decodeVrf(Bytes key);

// The bytes as numbers.
std::span<const std::uint8_t> asNumbers(Bytes bytes);

}  // namespace Quillo
