#pragma once
// The cache of the VRF tables, which exists once for all VRFs, and the rows of its two tables.

#include "kel/Attribute.h"
#include "kel/Entity.h"
#include "snmp/String.h"
#include "varnix/Interface.h"
#include "varnix/Routing.h"
#include "varnix/Vrf.h"

namespace IpSnmp {

// Whether a VRF routes, by its routing configurations; either may be absent (null). Named by the VRF.
class VrfRoutingStatus : public Kel::Entity {
  KEL_TYPE_BEGIN("IpSnmp::VrfRoutingStatus", VrfRoutingStatus, Kel::Entity)
 public:
  KEL_NAMED_CONSTRUCTOR(VrfRoutingStatus, Kel::Entity,
                        ((Kel::Ptr<const Routing::Config>, vrfConfig))((Kel::Ptr<const Routing6::Config>,
                                                                        vrf6Config)))
  bool ipv4() const { return vrfConfig() && vrfConfig()->routing(); }
  bool ipv6() const { return vrf6Config() && vrf6Config()->routing(); }
  KEL_COMPUTED(ipv4)
  KEL_COMPUTED(ipv6)
  KEL_TYPE_END_DECLARE
};

// One VRF. The records are shared with the state database; any of them may be absent (null).
class VrfTableEntry : public Kel::Notifier {
  KEL_TYPE_BEGIN("IpSnmp::VrfTableEntry", VrfTableEntry, Kel::Notifier)
 public:
  KEL_CONSTRUCTOR(VrfTableEntry, ((Snmp::String, vrfName))((Kel::Ptr<const Ip::VrfConfig>, vrfConfig))(
                                     (Kel::Ptr<const Ip::VrfStatusGlobal>,
                                      vrfStatusGlobal))((Kel::Ptr<const Ip::VrfStatusLocal>, vrfStatusLocal)))

  KEL_CHILD(VrfRoutingStatus, vrfRoutingStatus, VrfRoutingStatus)
  // Unset when the VRF has no configuration record.
  Vantu::RouteDistinguisher routeDistinguisher() const;
  // The local state; if that is active, the global one. 0 without a record.
  Ip::VrfState vrfState() const;
  KEL_COMPUTED(routeDistinguisher)
  KEL_COMPUTED(vrfState)
  KEL_TYPE_END_DECLARE
};

// One interface of a VRF other than "default".
class VrfIfTableEntry : public Kel::Notifier {
  KEL_TYPE_BEGIN("IpSnmp::VrfIfTableEntry", VrfIfTableEntry, Kel::Notifier)
 public:
  KEL_CONSTRUCTOR(VrfIfTableEntry, ((std::uint32_t, ifIndex)))
  KEL_STORED(Kel::String, vrfName, VrfName)
  KEL_REFERENCE(const Interface::IntfStatus, intfStatus, IntfStatus)
  KEL_TYPE_END_DECLARE
};

// Served by the module VrfBase.
class IpVrfMib : public Kel::Entity {
  KEL_TYPE_BEGIN("IpSnmp::IpVrfMib", IpVrfMib, Kel::Entity)
 public:
  KEL_NAMED(IpVrfMib, Kel::Entity)
  KEL_MEMBERS(Ordered, Snmp::String, VrfTableEntry, vrfTable, VrfTable)
  KEL_MEMBERS(Ordered, std::uint32_t, VrfIfTableEntry, vrfIfTable, VrfIfTable)
  KEL_TYPE_END_DECLARE
};

}  // namespace IpSnmp
