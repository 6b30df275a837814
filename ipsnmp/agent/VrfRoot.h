#pragma once
// The owners of the state machines of the VRFs other than the default one. The cache handles refer to the children
// of the VRF's member of VrfMibsDir.

#include "ipsnmp/IpMib.h"
#include "ipsnmp/agent/ArpTableSm.h"
#include "ipsnmp/agent/PerVrfFecSm.h"
#include "vantu/VrfId.h"

namespace IpSnmp {

// One VRF, named for it. The state machines whose attribute has the type Kel::Entity are held here and not made here:
// they are given ready made. Deleting or destroying the root deletes the machines.
class VrfRoot : public Kel::Entity {
  KEL_TYPE_BEGIN("IpSnmp::VrfRoot", VrfRoot, Kel::Entity)
 public:
  KEL_NAMED(VrfRoot, Kel::Entity)
  KEL_STORED(Vrf::VrfIdMap::VrfId, vrfId, VrfId)
  KEL_REFERENCE(IpSnmp::IpMib, ipMib, IpMib)
  KEL_CHILD(IpSnmp::ArpTableSm, arpTableSm, ArpTableSm)
  KEL_REFERENCE(IpSnmp::IpForwardMib, ipForwardMib, IpForwardMib)
  KEL_REFERENCE(FibStatsSnmp::FibStatsMib, fibStatsMib, FibStatsMib)
  KEL_OWNED(Kel::Entity, fibStatsSm, FibStatsSm)
  KEL_OWNED(Kel::Entity, fib6StatsSm, Fib6StatsSm)
  KEL_CHILD(IpSnmp::IpRouteTableSm, ipRouteTableSm, IpRouteTableSm)
  KEL_CHILD(IpSnmp::PerVrfFecSm, perVrfFecSm, PerVrfFecSm)
  KEL_TYPE_END_DECLARE

  ~VrfRoot() override;
  void kelStop() override;

 private:
  void stop();
};

class VrfRootDir : public Kel::Entity {
  KEL_TYPE_BEGIN("IpSnmp::VrfRootDir", VrfRootDir, Kel::Entity)
 public:
  KEL_NAMED(VrfRootDir, Kel::Entity)
  KEL_MEMBERS(Hashed, Kel::Name, VrfRoot, vrfRoot, VrfRoot)
  KEL_TYPE_END_DECLARE

  ~VrfRootDir() override;
  void kelStop() override;
};

}  // namespace IpSnmp
