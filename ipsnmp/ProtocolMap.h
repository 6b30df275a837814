#pragma once
// The routing protocol of each route type, as ipCidrRouteProto (RFC 2096) names it.

#include <boost/describe.hpp>

#include "kel/Collection.h"
#include "vantu/RouteTypes.h"

namespace IpSnmp {

// The values are those on the wire.
enum IpRouteProtocol : int {
  ipRouteProtocolOther = 1,
  ipRouteProtocolLocal = 2,
  ipRouteProtocolNetmgmt = 3,
  ipRouteProtocolIcmp = 4,
  ipRouteProtocolEgp = 5,
  ipRouteProtocolGgp = 6,
  ipRouteProtocolHello = 7,
  ipRouteProtocolRip = 8,
  ipRouteProtocolIsIs = 9,
  ipRouteProtocolEsIs = 10,
  ipRouteProtocolCiscoIgrp = 11,
  ipRouteProtocolBbnSpfIgp = 12,
  ipRouteProtocolOspf = 13,
  ipRouteProtocolBgp = 14,
  ipRouteProtocolIdpr = 15,
  ipRouteProtocolCiscoEigrp = 16,
  ipRouteProtocolDvmrp = 17,
};
BOOST_DESCRIBE_ENUM(IpRouteProtocol, ipRouteProtocolOther, ipRouteProtocolLocal, ipRouteProtocolNetmgmt,
                    ipRouteProtocolIcmp, ipRouteProtocolEgp, ipRouteProtocolGgp, ipRouteProtocolHello,
                    ipRouteProtocolRip, ipRouteProtocolIsIs, ipRouteProtocolEsIs, ipRouteProtocolCiscoIgrp,
                    ipRouteProtocolBbnSpfIgp, ipRouteProtocolOspf, ipRouteProtocolBgp, ipRouteProtocolIdpr,
                    ipRouteProtocolCiscoEigrp, ipRouteProtocolDvmrp)

class ProtocolMap {
 public:
  using KelProtocol = Kel::HashedMap<Routing::Fib::RouteType, IpRouteProtocol>;

  const KelProtocol& protocol() const { return protocol_; }
  // Returns ipRouteProtocolOther for an unknown route type.
  IpRouteProtocol protocol(const Routing::Fib::RouteType& routeType) const;

  void protocolIs(const Routing::Fib::RouteType& routeType, IpRouteProtocol protocol);
  bool protocolDel(const Routing::Fib::RouteType& routeType) { return protocol_.erase(routeType) > 0; }
  void protocolDelAll() { protocol_.clear(); }

  friend bool operator==(const ProtocolMap&, const ProtocolMap&) = default;

 private:
  KelProtocol protocol_;
};

// The map of the process, initially empty. The state machines of the route tables fill it.
ProtocolMap& protocolMap();
// Adds the protocols of this system's route types. Idempotent.
void fillProtocolMap(ProtocolMap& map);

}  // namespace IpSnmp
