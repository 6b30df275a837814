#pragma once
// Value types of routes: metric, preference and type. The numbers of route types are defined by the publisher
// (docs/mirror.md lists the mirror's); the protocol map and the statistics name those that they interpret.

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

}  // namespace Fib
}  // namespace Routing
