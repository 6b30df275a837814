#pragma once
// The cache of MPLS-L3VPN-STD-MIB (RFC 4382): the VRFs of this machine other than the default one, and their
// interfaces. There is one cache, which the default context serves. MplsVpnSm keeps it current.
//
// A VRF whose name is longer than MplsL3VpnName allows has no row, and its interfaces have none.

#include <optional>

#include "ipsnmp/IpForwardMib.h"
#include "ipsnmp/IpVrfMib.h"
#include "kel/System.h"

namespace IpSnmp {

// The longest MplsL3VpnName (RFC 4382), in bytes.
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
  // Times in seconds of the framework's clock (Kel::System). The second is when the row, the VRF's route
  // distinguisher or the set of its interfaces last changed.
  KEL_STORED(Kel::Seconds, creationTime, CreationTime, 0)
  KEL_STORED(Kel::Seconds, lastChanged, LastChanged, 0)
  KEL_STORED(std::uint32_t, interfaces, Interfaces, 0)
  KEL_STORED(std::uint32_t, activeInterfaces, ActiveInterfaces, 0)  // those whose ifOperStatus is up
  // The sums of all increases, and of all decreases, of routes() from one count to the next. A route that is added and
  // deleted between two counts is in neither.
  KEL_STORED(std::uint64_t, routesAdded, RoutesAdded, 0)
  KEL_STORED(std::uint64_t, routesDeleted, RoutesDeleted, 0)
  KEL_REFERENCE(const VrfTableEntry, vrf, Vrf)
  KEL_REFERENCE(const IpForwardMib, forwardMib, ForwardMib)  // null: its routes are not counted
  KEL_TYPE_END_DECLARE

  // The value of inetCidrRouteNumber in the VRF's context: the routes of both IP versions at the last count. None if the
  // routes are not counted.
  std::optional<std::uint32_t> routes() const {
    if (!forwardMib() || !forwardMib()->routeStatus()) return std::nullopt;
    return forwardMib()->inetNumRoutes();
  }
};

// One interface of such a VRF: a row of mplsL3VpnIfConfTable.
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
  KEL_STORED(std::uint32_t, activeVrfs, ActiveVrfs, 0)  // rows of vrfTable with an active interface
  KEL_TYPE_END_DECLARE
};

}  // namespace IpSnmp
