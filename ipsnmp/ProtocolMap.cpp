#include "ipsnmp/ProtocolMap.h"

namespace IpSnmp {

IpRouteProtocol ProtocolMap::protocol(const Routing::Fib::RouteType& routeType) const {
  const auto at = protocol_.find(routeType);
  // 0 is not a value of the enumeration, and must not be served.
  return at == protocol_.end() || at->second == IpRouteProtocol{} ? ipRouteProtocolOther : at->second;
}

void ProtocolMap::protocolIs(const Routing::Fib::RouteType& routeType, IpRouteProtocol protocol) {
  protocol_.insert_or_assign(routeType, protocol);
}

ProtocolMap& protocolMap() {
  static ProtocolMap map;
  return map;
}

void fillProtocolMap(ProtocolMap& map) {
  struct Row {
    std::uint8_t first, last;  // route types
    IpRouteProtocol protocol;
  };
  constexpr Row rows[] = {{11, 11, ipRouteProtocolLocal},
                          {7, 7, ipRouteProtocolNetmgmt},
                          {10, 10, ipRouteProtocolRip},
                          {15, 20, ipRouteProtocolOspf},
                          {21, 23, ipRouteProtocolBgp}};
  for (const auto& row : rows) {
    for (std::uint8_t type = row.first; type <= row.last; ++type) {
      map.protocolIs(Routing::Fib::RouteType(type), row.protocol);
    }
  }
}

}  // namespace IpSnmp
