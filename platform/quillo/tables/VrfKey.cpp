#include "quillo/tables/VrfKey.h"

#include <fmt/format.h>

#include "kel/Errors.h"

namespace Quillo {

using Vrf::VrfIdMap::VrfId;

bool isStorable(const VrfId& vrfId) {
  return vrfId.value() < VrfId::unknownValue;
}

std::string encodeVrf(const VrfId& vrfId) {
  if (!isStorable(vrfId)) {
    throw Kel::RangeException(fmt::format("VRF id {} not allowed in a key of the store; 0 to {} are", vrfId.value(),
                                          VrfId::unknownValue - 1));
  }
  const auto byte = [&](unsigned shift) { return static_cast<char>(vrfId.value() >> shift & 0xff); };
  return {byte(16), byte(8), byte(0)};
}

VrfId decodeVrf(Bytes key) {
  const auto vrf = asNumbers(key.substr(0, vrfKeyBytes));
  return VrfId(std::uint32_t{vrf[0]} << 16 | std::uint32_t{vrf[1]} << 8 | vrf[2]);
}

std::span<const std::uint8_t> asNumbers(Bytes bytes) {
  return {reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()};
}

}  // namespace Quillo
