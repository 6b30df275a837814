#include "fibstats/agent/CountedFamily.h"

#include <array>

namespace FibStatsSnmp {
namespace {

constexpr unsigned static4 = 7, static6 = 4;

// By the platform's route type number; numbers without an entry are routeTypeOther.
constexpr auto types4 = [] {
  std::array<RouteType, 39> types{};
  types.fill(routeTypeOther);
  for (const unsigned t : {1U, 2U, 3U, 4U, 9U}) types[t] = routeTypeInternal;
  types[5] = routeTypeAttached;
  types[static4] = routeTypeStatic;
  types[8] = routeTypeVcs;
  types[10] = routeTypeRip;
  types[11] = routeTypeConnected;
  for (const unsigned t : {13U, 21U, 22U, 23U}) types[t] = routeTypeBgp;
  for (unsigned t = 14; t <= 20; ++t) types[t] = routeTypeOspf;
  for (const unsigned t : {24U, 25U}) types[t] = routeTypeIsIs;
  types[26] = routeTypeStaticNexthopGroup;
  types[27] = routeTypeStatic;
  for (unsigned t = 28; t <= 32; ++t) types[t] = routeTypeOspfv3;
  return types;
}();

constexpr auto types6 = [] {
  std::array<RouteType, 23> types{};
  types.fill(routeTypeOther);
  for (const unsigned t : {1U, 2U, 5U}) types[t] = routeTypeInternal;
  types[3] = routeTypeAttached;
  types[static6] = routeTypeStatic;
  types[6] = routeTypeRip;
  types[7] = routeTypeConnected;
  for (const unsigned t : {9U, 12U}) types[t] = routeTypeBgp;
  for (const unsigned t : {10U, 11U}) types[t] = routeTypeOspf;  // OSPFv3 routes too
  for (const unsigned t : {13U, 14U}) types[t] = routeTypeIsIs;
  types[15] = routeTypeStaticNexthopGroup;
  types[16] = routeTypeStatic;
  return types;
}();

constexpr bool isOneOf(unsigned mask, unsigned routeType) {
  return routeType < 32 && ((mask >> routeType) & 1U) != 0;
}

template <class Types>
std::optional<RouteType> lookUp(const Types& types, unsigned staticType, unsigned routeType) {
  if (routeType == staticType) return std::nullopt;
  return routeType < types.size() ? types[routeType] : routeTypeOther;
}

}  // namespace

bool Ip4Routes::isSkipped(unsigned routeType) {
  return isOneOf(0x1021, routeType);  // 0, 5, 12
}

bool Ip6Routes::isSkipped(unsigned routeType) {
  return isOneOf(0x109, routeType);  // 0, 3, 8
}

std::optional<RouteType> Ip4Routes::typeOf(unsigned routeType) {
  return lookUp(types4, static4, routeType);
}

std::optional<RouteType> Ip6Routes::typeOf(unsigned routeType) {
  return lookUp(types6, static6, routeType);
}

}  // namespace FibStatsSnmp
