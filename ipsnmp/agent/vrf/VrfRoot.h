#pragma once
// The owners of the state machines of the VRFs other than the default one. The cache handles refer to the children
// of the VRF's member of VrfMibsDir.

#include "fibstats/agent/FibStatsSm.h"
#include "ipsnmp/IpMib.h"
#include "ipsnmp/agent/neighbour/ArpTableSm.h"
#include "ipsnmp/agent/route/PerVrfFecSm.h"
#include "vantu/VrfId.h"

namespace IpSnmp {

// One VRF, named for it. Deleting or destroying the root deletes the machines.
class VrfRoot : public Kel::Entity {
  KEL_TYPE_BEGIN("IpSnmp::VrfRoot", VrfRoot, Kel::Entity)
 public:
  KEL_NAMED(VrfRoot, Kel::Entity)
  KEL_STORED(Vrf::VrfIdMap::VrfId, vrfId, VrfId)
  KEL_REFERENCE(IpSnmp::IpMib, ipMib, IpMib)
  KEL_CHILD(IpSnmp::ArpTableSm, arpTableSm, ArpTableSm)
  KEL_REFERENCE(IpSnmp::IpForwardMib, ipForwardMib, IpForwardMib)
  KEL_REFERENCE(FibStatsSnmp::FibStatsMib, fibStatsMib, FibStatsMib)
  KEL_CHILD(FibStatsSnmp::FibStatsSm, fibStatsSm, FibStatsSm)
  KEL_CHILD(FibStatsSnmp::Fib6StatsSm, fib6StatsSm, Fib6StatsSm)
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
