#pragma once
// The cache of MPLS-L3VPN-STD-MIB (RFC 4382): the VRFs of this machine other than the default one, and their
// interfaces. It exists once, in the default context; MplsVpnSm keeps it.
//
// A VRF whose name is longer than MplsL3VpnName allows has no row, and neither have its interfaces.

#include <optional>

#include "ipsnmp/IpForwardMib.h"
#include "ipsnmp/IpVrfMib.h"
#include "kel/System.h"

namespace IpSnmp {

// The longest MplsL3VpnName, in bytes.
inline constexpr std::size_t longestVpnName = 31;

// The mplsL3VpnIfConfTable index.
class VpnIfKey {
  KEL_VALUE_TYPE("IpSnmp::VpnIfKey", VpnIfKey, ((Snmp::String, vrfName))((std::uint32_t, ifIndex)))
};

// One VRF: a row of mplsL3VpnVrfTable and of mplsL3VpnVrfPerfTable.
class VpnVrfEntry : public Kel::Notifier {
  KEL_TYPE_BEGIN("IpSnmp::VpnVrfEntry", VpnVrfEntry, Kel::Notifier)
 public:
  KEL_CONSTRUCTOR(VpnVrfEntry, ((Snmp::String, vrfName)))
  KEL_STORED(Kel::Seconds, creationTime, CreationTime, 0)  // framework clock
  KEL_STORED(Kel::Seconds, lastChanged, LastChanged, 0)
  KEL_STORED(std::uint32_t, interfaces, Interfaces, 0)
  KEL_STORED(std::uint32_t, activeInterfaces, ActiveInterfaces, 0)  // those with operStatusUp
  // The sums of the increases and of the decreases between two counts of the routes.
  KEL_STORED(std::uint64_t, routesAdded, RoutesAdded, 0)
  KEL_STORED(std::uint64_t, routesDeleted, RoutesDeleted, 0)
  KEL_REFERENCE(const VrfTableEntry, vrf, Vrf)
  KEL_REFERENCE(const IpForwardMib, forwardMib, ForwardMib)  // null: its routes are not counted
  KEL_TYPE_END_DECLARE

  // The routes as ipCidrRouteNumber has them; none if they are not counted.
  std::optional<std::uint32_t> routes() const {
    if (!forwardMib() || !forwardMib()->routeStatus()) return std::nullopt;
    return static_cast<std::uint32_t>(forwardMib()->numRoutes());
  }
};

// One interface of such a VRF.
class VpnIfEntry : public Kel::Notifier {
  KEL_TYPE_BEGIN("IpSnmp::VpnIfEntry", VpnIfEntry, Kel::Notifier)
 public:
  KEL_CONSTRUCTOR(VpnIfEntry, ((IpSnmp::VpnIfKey, index)))
  KEL_TYPE_END_DECLARE
};

class MplsVpnMib : public Kel::Entity {
  KEL_TYPE_BEGIN("IpSnmp::MplsVpnMib", MplsVpnMib, Kel::Entity)
 public:
  KEL_NAMED(MplsVpnMib, Kel::Entity)
  KEL_MEMBERS(Ordered, Snmp::String, VpnVrfEntry, vrfTable, VrfTable)
  KEL_MEMBERS(Ordered, VpnIfKey, VpnIfEntry, ifConfTable, IfConfTable)
  KEL_STORED(std::uint32_t, activeVrfs, ActiveVrfs, 0)  // those with an active interface
  KEL_TYPE_END_DECLARE
};

}  // namespace IpSnmp
