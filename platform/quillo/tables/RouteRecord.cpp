#include "quillo/tables/RouteRecord.h"

#include <cstring>

#include "quillo/tables/VrfKey.h"

namespace Quillo {
namespace {

using Vrf::VrfIdMap::VrfId;

// Offsets of the value's fields.
constexpr std::size_t typeAt = 0;
constexpr std::size_t preferenceAt = 1;
constexpr std::size_t metricAt = 2;
constexpr std::size_t fecAt = 6;
constexpr std::size_t flagsAt = 14;
constexpr std::size_t routeBytes = 15;

constexpr std::uint8_t notPersistentFlag = 1;
constexpr std::uint8_t nexthopGroupFlag = 2;

template <class PrefixType>
using AddressOf = std::remove_cvref_t<decltype(std::declval<PrefixType>().address())>;

}  // namespace

template <class PrefixType>
std::string encodeRouteKey(const VrfId& vrfId, const PrefixType& prefix) {
  auto key = encodeVrf(vrfId);
  appendBytes(key, prefix.address());
  key.push_back(static_cast<char>(prefix.length()));
  return key;
}

template <class PrefixType>
std::string encodeRoute(const BasicRoute<PrefixType>& route) {
  if (route.routeType.value() == 0)
    throw Kel::RangeException("a route of type 0 stands for no route and has no place in the store");
  std::string value(routeBytes, '\0');
  const std::uint32_t metric = route.metric.value();
  const std::uint64_t fec = route.fecId.value();
  value[typeAt] = static_cast<char>(route.routeType.value());
  value[preferenceAt] = static_cast<char>(route.routePreference.value());
  std::memcpy(&value[metricAt], &metric, sizeof metric);
  std::memcpy(&value[fecAt], &fec, sizeof fec);
  value[flagsAt] = static_cast<char>((route.isPersistent ? 0 : notPersistentFlag) |
                                     (route.isNexthopGroup ? nexthopGroupFlag : 0));
  return value;
}

template <class PrefixType>
const char* decodeRouteKey(Bytes bytes, VrfId& vrfId, PrefixType& prefix) {
  using Address = AddressOf<PrefixType>;
  constexpr std::size_t addressBytes = Address::bits / 8;
  if (bytes.size() != vrfKeyBytes + addressBytes + 1) return "key of a wrong length";
  const auto vrf = decodeVrf(bytes);
  if (!vrf.isKnown()) return "key of an unknown VRF";
  const auto address = Address::fromBytes(asNumbers(bytes.substr(vrfKeyBytes, addressBytes)));
  const unsigned length = static_cast<std::uint8_t>(bytes.back());
  if (length > Address::bits) return "prefix too long";
  const PrefixType found(address, length);
  if (found.address() != address) return "host bits in the prefix";
  vrfId = vrf;
  prefix = found;
  return nullptr;
}

template <class PrefixType>
const char* decodeRoute(Bytes bytes, BasicRoute<PrefixType>& route) {
  if (bytes.size() != routeBytes) return "value of a wrong length";
  const auto type = static_cast<std::uint8_t>(bytes[typeAt]);
  if (type == 0) return "route without a type";
  const auto flags = static_cast<std::uint8_t>(bytes[flagsAt]);
  if ((flags & ~(notPersistentFlag | nexthopGroupFlag)) != 0) return "unknown flags in the value";
  std::uint32_t metric = 0;
  std::uint64_t fec = 0;
  std::memcpy(&metric, &bytes[metricAt], sizeof metric);
  std::memcpy(&fec, &bytes[fecAt], sizeof fec);
  route.routeType = Routing::Fib::RouteType(type);
  route.routePreference = Routing::RoutePreference(static_cast<std::uint8_t>(bytes[preferenceAt]));
  route.metric = Routing::RouteMetric(metric);
  route.fecId = Fib::FecId(fec);
  route.isPersistent = (flags & notPersistentFlag) == 0;
  route.isNexthopGroup = (flags & nexthopGroupFlag) != 0;
  return nullptr;
}

template <class PrefixType>
void routeIs(Batch& batch, const VrfId& vrfId, const BasicRoute<PrefixType>& route) {
  batch.put(routeTable<PrefixType>, encodeRouteKey(vrfId, route.prefix), encodeRoute(route));
}

template <class PrefixType>
void routeDel(Batch& batch, const VrfId& vrfId, const PrefixType& prefix) {
  batch.del(routeTable<PrefixType>, encodeRouteKey(vrfId, prefix));
}

#define QUILLO_ROUTE_RECORDS(P)                                      \
  template void routeIs(Batch&, const VrfId&, const BasicRoute<P>&); \
  template void routeDel(Batch&, const VrfId&, const P&);            \
  template std::string encodeRouteKey(const VrfId&, const P&);       \
  template std::string encodeRoute(const BasicRoute<P>&);            \
  template const char* decodeRouteKey(Bytes, VrfId&, P&);            \
  template const char* decodeRoute(Bytes, BasicRoute<P>&);
QUILLO_ROUTE_RECORDS(Vantu::Prefix)
QUILLO_ROUTE_RECORDS(Vantu::Ip6Prefix)
#undef QUILLO_ROUTE_RECORDS

}  // namespace Quillo
