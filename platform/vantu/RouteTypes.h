#pragma once
// Value types of routes: metric, preference and type. The numbers of route types are defined by the publisher
// (docs/mirror.md lists the mirror's); the protocol map and the statistics name those that they interpret.

#include <array>
#include <cstdint>
#include <string_view>

#include "kel/ValueType.h"

namespace Routing {

class RouteMetric {
  KEL_VALUE_TYPE("Routing::RouteMetric", RouteMetric, ((std::uint32_t, value)))
};

// The administrative distance: the lowest of several routes to one prefix wins.
class RoutePreference {
  KEL_VALUE_TYPE("Routing::RoutePreference", RoutePreference, ((std::uint8_t, value)))
};

namespace Fib {

// The origin of a route.
class RouteType {
  KEL_VALUE_TYPE("Routing::Fib::RouteType", RouteType, ((std::uint8_t, value)))
};

// What a route does with packets to its prefix: a blackhole drops them without a message, the last two drop them and
// answer with an ICMP error. The numbers are those of the store.
enum class RouteAction : std::uint8_t { forward = 0, blackhole = 1, unreachable = 2, prohibit = 3 };
inline constexpr std::array<std::string_view, 4> routeActionNames{"forward", "blackhole", "unreachable",
                                                                  "prohibit"};
// The name of an action. Requires: one of the four above.
inline constexpr std::string_view routeActionName(RouteAction action) {
  return routeActionNames[static_cast<std::size_t>(action)];
}

}  // namespace Fib
}  // namespace Routing
