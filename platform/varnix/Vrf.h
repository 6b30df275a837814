#pragma once
// VRFs: their configuration, their state, and their ids in the keys of the shared tables.

#include "kel/Entity.h"
#include "vantu/RouteDistinguisher.h"
#include "vantu/VrfId.h"
#include "varnix/Values.h"

namespace Ip {

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

// The state of the VRF on the whole switch.
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

// The state of the VRF on this machine.
class VrfStatusLocal : public Kel::Entity {
  KEL_TYPE_BEGIN("Ip::VrfStatusLocal", VrfStatusLocal, Kel::Entity)
 public:
  KEL_CONSTRUCTOR(VrfStatusLocal, ((L3::VrfName, vrfName)))
  KEL_STORED(VrfState, state, State, vrfStateUnknown)
  // Whether the VRF is a network namespace (Vantu::nsNameOfVrf) rather than a VRF device of the default namespace.
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

namespace Vrf::VrfIdMap {

// Every id that was assigned since the store was created, by id. A VRF that is created again gets its former id, so its
// interfaces keep their ifIndex. 0 is "default".
class Status : public Kel::Entity {
  KEL_TYPE_BEGIN("Vrf::VrfIdMap::Status", Status, Kel::Entity)
 public:
  KEL_NAMED(Status, Kel::Entity)
  KEL_VALUES(Ordered, VrfId, L3::VrfName, vrfName, VrfName)
  KEL_TYPE_END_DECLARE
};

// The ids of VRFs by name.
class NameToIdMap : public Kel::Entity {
  KEL_TYPE_BEGIN("Vrf::VrfIdMap::NameToIdMap", NameToIdMap, Kel::Entity)
 public:
  KEL_NAMED(NameToIdMap, Kel::Entity)
  KEL_VALUES(Ordered, L3::VrfName, VrfId, vrfId, VrfId)
  KEL_TYPE_END_DECLARE
};

// The published ids of the existing VRFs, including "default".
class NameToIdMapWrapper : public Kel::Entity {
  KEL_TYPE_BEGIN("Vrf::VrfIdMap::NameToIdMapWrapper", NameToIdMapWrapper, Kel::Entity)
 public:
  KEL_NAMED(NameToIdMapWrapper, Kel::Entity)
  KEL_VALUES(Ordered, L3::VrfName, VrfId, vrfId, VrfId)
  KEL_TYPE_END_DECLARE

  bool vrfIdExists(const L3::VrfName& vrfName) const { return vrfIdHas(vrfName); }
  // Unknown when there is no such VRF.
  VrfId vrfIdOf(const L3::VrfName& vrfName) const {
    const auto* id = vrfId(vrfName);
    return id != nullptr ? *id : VrfId();
  }
};

}  // namespace Vrf::VrfIdMap
