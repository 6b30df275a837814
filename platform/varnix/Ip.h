#pragma once
// IPv4 records of interfaces, and the records of VRFs.
//
// An interface has one primary address and any number of secondary ones, as in Linux: the first address of a subnet
// is primary, and so on for each subnet; which of several stands in the single attribute is the publisher's choice,
// and readers treat all of them alike.

#include "kel/Attribute.h"
#include "kel/Entity.h"
#include "vantu/IntfId.h"
#include "vantu/Prefix.h"
#include "vantu/RouteDistinguisher.h"
#include "varnix/L3.h"
#include "varnix/VrfName.h"

namespace Ip {

// What is configured.
class IpIntfConfig : public Kel::Entity {
  KEL_TYPE_BEGIN("Ip::IpIntfConfig", IpIntfConfig, Kel::Entity)
 public:
  KEL_CONSTRUCTOR(IpIntfConfig, ((Vantu::IntfId, intfId)))
  KEL_STORED(Vantu::IpAddrWithMask, addrWithMask, AddrWithMask)                                   // 0.0.0.0: none
  KEL_VALUES(Ordered, Vantu::IpAddrWithMask, bool, secondaryAddrWithMask, SecondaryAddrWithMask)  // always true
  KEL_REFERENCE(const L3::Intf::Config, l3Config, L3Config)
  KEL_TYPE_END_DECLARE
};

class Config : public Kel::Entity {
  KEL_TYPE_BEGIN("Ip::Config", Config, Kel::Entity)
 public:
  KEL_NAMED(Config, Kel::Entity)
  KEL_MEMBERS(Hashed, Vantu::IntfId, IpIntfConfig, ipIntfConfig, IpIntfConfig)
  KEL_TYPE_END_DECLARE
};

// What is in force.
class IpIntfStatus : public Kel::Entity {
  KEL_TYPE_BEGIN("Ip::IpIntfStatus", IpIntfStatus, Kel::Entity)
 public:
  KEL_CONSTRUCTOR(IpIntfStatus, ((Vantu::IntfId, intfId)))
  KEL_STORED(Vantu::IpAddrWithMask, activeAddrWithMask, ActiveAddrWithMask)                       // 0.0.0.0: none
  KEL_VALUES(Ordered, Vantu::IpAddrWithMask, bool, secondaryAddrWithMask, SecondaryAddrWithMask)  // always true
  // An unnumbered interface: the interface whose address it borrows. Empty otherwise.
  KEL_STORED(Vantu::IntfId, unnumberedIntfId, UnnumberedIntfId)
  KEL_REFERENCE(const L3::Intf::Status, l3Status, L3Status)
  KEL_TYPE_END_DECLARE
};

class Status : public Kel::Entity {
  KEL_TYPE_BEGIN("Ip::Status", Status, Kel::Entity)
 public:
  KEL_NAMED(Status, Kel::Entity)
  KEL_MEMBERS(Hashed, Vantu::IntfId, IpIntfStatus, ipIntfStatus, IpIntfStatus)
  KEL_TYPE_END_DECLARE
};

// ---- VRFs ----

enum VrfState : int { vrfStateUnknown = 0, vrfStateActive = 1, vrfStateInactive = 2, vrfStateDeleting = 3 };
BOOST_DESCRIBE_ENUM(VrfState, vrfStateUnknown, vrfStateActive, vrfStateInactive, vrfStateDeleting)

class VrfConfig : public Kel::Entity {
  KEL_TYPE_BEGIN("Ip::VrfConfig", VrfConfig, Kel::Entity)
 public:
  KEL_CONSTRUCTOR(VrfConfig, ((L3::VrfName, vrfName)))
  KEL_STORED(Vantu::RouteDistinguisher, routeDistinguisher, RouteDistinguisher)
  KEL_TYPE_END_DECLARE
};

class AllVrfConfig : public Kel::Entity {
  KEL_TYPE_BEGIN("Ip::AllVrfConfig", AllVrfConfig, Kel::Entity)
 public:
  KEL_NAMED(AllVrfConfig, Kel::Entity)
  KEL_MEMBERS(Hashed, L3::VrfName, VrfConfig, vrfConfig, VrfConfig)
  KEL_TYPE_END_DECLARE
};

// The VRF as the whole switch sees it.
class VrfStatusGlobal : public Kel::Entity {
  KEL_TYPE_BEGIN("Ip::VrfStatusGlobal", VrfStatusGlobal, Kel::Entity)
 public:
  KEL_CONSTRUCTOR(VrfStatusGlobal, ((L3::VrfName, vrfName)))
  KEL_STORED(VrfState, state, State, vrfStateUnknown)
  KEL_TYPE_END_DECLARE
};

class AllVrfStatusGlobal : public Kel::Entity {
  KEL_TYPE_BEGIN("Ip::AllVrfStatusGlobal", AllVrfStatusGlobal, Kel::Entity)
 public:
  KEL_NAMED(AllVrfStatusGlobal, Kel::Entity)
  KEL_MEMBERS(Hashed, L3::VrfName, VrfStatusGlobal, vrf, Vrf)
  KEL_TYPE_END_DECLARE
};

// The VRF as this machine has it.
class VrfStatusLocal : public Kel::Entity {
  KEL_TYPE_BEGIN("Ip::VrfStatusLocal", VrfStatusLocal, Kel::Entity)
 public:
  KEL_CONSTRUCTOR(VrfStatusLocal, ((L3::VrfName, vrfName)))
  KEL_STORED(VrfState, state, State, vrfStateUnknown)
  // Whether the VRF is a network namespace (Vantu::nsNameOfVrf). A VRF device of the default namespace is none.
  KEL_STORED(bool, hasNamespace, HasNamespace, true)
  KEL_TYPE_END_DECLARE
};

class AllVrfStatusLocal : public Kel::Entity {
  KEL_TYPE_BEGIN("Ip::AllVrfStatusLocal", AllVrfStatusLocal, Kel::Entity)
 public:
  KEL_NAMED(AllVrfStatusLocal, Kel::Entity)
  KEL_MEMBERS(Hashed, L3::VrfName, VrfStatusLocal, vrf, Vrf)
  KEL_TYPE_END_DECLARE
};

}  // namespace Ip
