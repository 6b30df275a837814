#pragma once
// Records of routes: a table for IPv4 and one for IPv6, which differ only in the length of the address.
//
//   key   := VRF id:3 (big-endian)  address:4 or 16 (network order)  length:1
//   value := route type:1  preference:1  metric:4  FEC id:8  flags:1          little-endian
//
// Flags: bit 0 not persistent, bit 1 next-hop group; the others are 0.
// Keys are in the order of VRF, then prefix. The FEC belongs to the VRF (FecRecord.h), or in unified mode to the
// default VRF; 0 means none.
//
// A publisher writes routes in batches, each with everything that must take effect together. Batches of some ten
// thousand routes limit its memory and cost little more than a single batch:
//
//   auto batch = publisher.begin();
//   Quillo::fecIs(batch, vrfId, fec);
//   Quillo::routeIs(batch, vrfId, route);
//   Quillo::routeDel(batch, vrfId, otherPrefix);
//   batch.commit();

#include <string>

#include "quillo/Publisher.h"
#include "quillo/tables/FibTables.h"
#include "vantu/VrfId.h"

namespace Quillo {

// `PrefixType` is Vantu::Prefix or Vantu::Ip6Prefix.
template <class PrefixType>
inline constexpr TableId routeTable = TableId::route;
template <>
inline constexpr TableId routeTable<Vantu::Ip6Prefix> = TableId::route6;

// routeIs adds or replaces a route; routeDel deletes it, if it exists.
// Throw Kel::RangeException, and leave the batch unchanged, when the VRF id is unknown or above 24 bits. routeIs also
// throws for route type 0, which means no route.
template <class PrefixType>
void routeIs(Batch& batch, const Vrf::VrfIdMap::VrfId& vrfId, const BasicRoute<PrefixType>& route);
template <class PrefixType>
void routeDel(Batch& batch, const Vrf::VrfIdMap::VrfId& vrfId, const PrefixType& prefix);

// Throw as the operations above.
template <class PrefixType>
std::string encodeRouteKey(const Vrf::VrfIdMap::VrfId& vrfId, const PrefixType& prefix);
template <class PrefixType>
std::string encodeRoute(const BasicRoute<PrefixType>& route);

// Return null, or what is wrong with the bytes; the other arguments are then unchanged. decodeRoute does not change
// route.prefix.
template <class PrefixType>
const char* decodeRouteKey(Bytes bytes, Vrf::VrfIdMap::VrfId& vrfId, PrefixType& prefix);
template <class PrefixType>
const char* decodeRoute(Bytes bytes, BasicRoute<PrefixType>& route);

}  // namespace Quillo
