#pragma once
// The origins of routes: their numbers in the store, which differ between the IP versions, and the administrative
// distance that routers commonly give to each.

#include <array>
#include <cstdint>
#include <string_view>

namespace Quillo {

struct RouteOrigin {
  std::string_view name;
  std::uint8_t type;        // Routing::Fib::RouteType of an IPv4 route
  std::uint8_t type6;       // of an IPv6 route
  std::uint8_t preference;  // Routing::RoutePreference
};

inline constexpr RouteOrigin connectedRoute{"connected", 11, 7, 0};
inline constexpr RouteOrigin staticRoute{"static", 7, 4, 1};
inline constexpr RouteOrigin ripRoute{"rip", 10, 6, 120};
inline constexpr RouteOrigin ospfRoute{"ospf", 15, 10, 110};
inline constexpr RouteOrigin isisRoute{"isis", 24, 13, 115};
inline constexpr RouteOrigin bgpRoute{"bgp", 22, 9, 20};
inline constexpr RouteOrigin otherRoute{"other", 33, 17, 250};

inline constexpr std::array<RouteOrigin, 7> routeOrigins{
    {connectedRoute, staticRoute, ripRoute, ospfRoute, isisRoute, bgpRoute, otherRoute}};

}  // namespace Quillo
