#pragma once
// The kinds of routes that the FIB statistics tell apart. The numbers are those of the MIB: up to 14 they follow
// IANAipRouteProtocol, from 200 on they are this system's own.

#include "kel/Value.h"

namespace FibStatsSnmp {

enum RouteType : int {
  routeTypeOther = 1,
  routeTypeConnected = 2,
  routeTypeStatic = 3,
  routeTypeRip = 8,
  routeTypeIsIs = 9,
  routeTypeOspf = 13,
  routeTypeBgp = 14,
  routeTypeOspfv3 = 200,
  routeTypeStaticNonPersistent = 201,
  routeTypeStaticNexthopGroup = 202,
  routeTypeAttached = 203,  // hosts that are neighbours
  routeTypeVcs = 204,
  routeTypeInternal = 205
};
BOOST_DESCRIBE_ENUM(RouteType, routeTypeOther, routeTypeConnected, routeTypeStatic, routeTypeRip, routeTypeIsIs,
                    routeTypeOspf, routeTypeBgp, routeTypeOspfv3, routeTypeStaticNonPersistent,
                    routeTypeStaticNexthopGroup, routeTypeAttached, routeTypeVcs, routeTypeInternal)

inline std::ostream& operator<<(std::ostream& out, RouteType type) {
  return out << Kel::enumName(type);
}

// Throw Kel::RangeException for a number or name that is no route type.
inline RouteType RouteTypeInstance(unsigned number) {
  return Kel::enumValue<RouteType>(Kel::Datum(static_cast<std::uint64_t>(number)));
}
inline RouteType RouteTypeInstance(const Kel::String& name) {
  return Kel::enumValue<RouteType>(Kel::Datum(name));
}

}  // namespace FibStatsSnmp
