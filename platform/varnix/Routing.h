#pragma once
// Routing configuration for each IP version and VRF: whether the VRF forwards, the defaults of packets, default
// routers, static routes and the kernel's table.

#include "kel/Entity.h"
#include "vantu/RouteTypes.h"
#include "varnix/Values.h"

namespace Routing {

// IPv4 routing of one VRF.
class Config : public Kel::Entity {
  KEL_TYPE_BEGIN("Routing::Config", Config, Kel::Entity)
 public:
  KEL_NAMED(Config, Kel::Entity)
  KEL_STORED(bool, routing, Routing, false)  // true: packets are forwarded between interfaces
  // Defaults of packets: the TTL (IPv4) and the hop limit (IPv6) of packets sent, where nothing else determines them,
  // and the seconds for which IPv4 fragments wait for the rest of their packet. 0: unknown. Those of IPv6 are here too,
  // since every VRF that is served has this record.
  KEL_STORED(std::uint32_t, defaultTtl, DefaultTtl, 0)
  KEL_STORED(std::uint32_t, defaultHopLimit, DefaultHopLimit, 0)
  KEL_STORED(std::uint32_t, reasmTimeout, ReasmTimeout, 0)
  // The gateways of the VRF's default routes, of both IP versions.
  KEL_VALUES(Ordered, DefaultRouterKey, DefaultRouterFacts, defaultRouter, DefaultRouter)
  KEL_VALUES(Ordered, StaticRouteKey, StaticRouteFacts, staticRoute, StaticRoute)
  KEL_TYPE_END_DECLARE
};

// The configurations of the VRFs other than the default one.
class VrfConfigDir : public Kel::Entity {
  KEL_TYPE_BEGIN("Routing::VrfConfigDir", VrfConfigDir, Kel::Entity)
 public:
  KEL_NAMED(VrfConfigDir, Kel::Entity)
  KEL_MEMBERS(Hashed, Kel::Name, Config, vrfConfig, VrfConfig)
  KEL_TYPE_END_DECLARE
};

// An entry of the IP version's directory, by the VRF's name. It exists while the VRF has routing tables.
class VrfInfo : public Kel::Entity {
  KEL_TYPE_BEGIN("Routing::VrfInfo", VrfInfo, Kel::Entity)
 public:
  KEL_NAMED(VrfInfo, Kel::Entity)
  // The kernel's routing table (254 is "main"); 0: unknown.
  KEL_STORED(std::uint32_t, kernelTable, KernelTable, 0)
  KEL_TYPE_END_DECLARE
};

namespace NexthopGroup {
// The encapsulation of packets by the next hops of a group.
enum NexthopGroupType : int {
  nexthopGroupUnknown = 0,
  nexthopGroupIpInIp = 1,
  nexthopGroupGre = 2,
  nexthopGroupMpls = 3,
  nexthopGroupMplsOverGre = 4,
  nexthopGroupIp = 5
};
}  // namespace NexthopGroup

}  // namespace Routing

namespace Routing6 {

// IPv6 routing of one VRF.
class Config : public Kel::Entity {
  KEL_TYPE_BEGIN("Routing6::Config", Config, Kel::Entity)
 public:
  KEL_NAMED(Config, Kel::Entity)
  KEL_STORED(bool, routing, Routing, false)
  KEL_VALUES(Ordered, StaticRouteKey, Routing::StaticRouteFacts, staticRoute, StaticRoute)
  KEL_TYPE_END_DECLARE
};

class VrfConfigDir : public Kel::Entity {
  KEL_TYPE_BEGIN("Routing6::VrfConfigDir", VrfConfigDir, Kel::Entity)
 public:
  KEL_NAMED(VrfConfigDir, Kel::Entity)
  KEL_MEMBERS(Hashed, Kel::Name, Config, vrfConfig, VrfConfig)
  KEL_TYPE_END_DECLARE
};

}  // namespace Routing6
