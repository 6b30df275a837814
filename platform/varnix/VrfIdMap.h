#pragma once
// Under which number the shared tables know a VRF.

#include "kel/Attribute.h"
#include "kel/Entity.h"
#include "vantu/VrfId.h"
#include "varnix/VrfName.h"

namespace Vrf::VrfIdMap {

// Every id that was ever given away while the store lives, by id: a VRF that comes back gets the number it had, so
// its interfaces keep their ifIndex. 0 is "default".
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

// The ids of the VRFs that exist now, "default" among them, as the publisher names them.
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
