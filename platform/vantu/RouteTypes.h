#pragma once
// The plain values of routes. Route types are numbers of the routing platform; those that this system gives a
// meaning to are named where that meaning is (protocol map, statistics). How the Linux mirror chooses them is in
// docs/mirror.md.

#include "kel/ValueType.h"

namespace Routing {

class RouteMetric {
  KEL_VALUE_TYPE("Routing::RouteMetric", RouteMetric, ((std::uint32_t, value)))
};

// The administrative distance: of several routes to one prefix, the lowest wins.
class RoutePreference {
  KEL_VALUE_TYPE("Routing::RoutePreference", RoutePreference, ((std::uint8_t, value)))
};

namespace Fib {

// Where a route comes from.
class RouteType {
  KEL_VALUE_TYPE("Routing::Fib::RouteType", RouteType, ((std::uint8_t, value)))
};

}  // namespace Fib
}  // namespace Routing
