#pragma once
// The owner of the default VRF's state machines, and of the other VRFs' roots.
//
// The hosting process creates the root, sets its handles, and calls its create-or-get operations, directly or by name
// (Kel::callOperation). The library itself never calls them.
// Lifetime: destroying the root deletes the machines.

#include "ipsnmp/agent/address/IpAddressTableSm.h"
#include "ipsnmp/agent/route/FecModeSm.h"
#include "ipsnmp/agent/vrf/VrfIfTableSm.h"
#include "ipsnmp/agent/vrf/VrfRootSm.h"

namespace IpSnmp {

class Root : public Kel::Entity {
  KEL_TYPE_BEGIN("IpSnmp::Root", Root, Kel::Entity)
 public:
  KEL_NAMED(Root, Kel::Entity)
  KEL_REFERENCE(const Ip::Config, ipConfig, IpConfig)
  KEL_REFERENCE(const Ip::Status, ipStatus, IpStatus)
  KEL_REFERENCE(const Ip6::Config, ip6Config, Ip6Config)
  KEL_REFERENCE(const Ip6::Status, ip6Status, Ip6Status)
  KEL_REFERENCE(const Interface::AllIntfStatusDir, intfStatusDir, IntfStatusDir)
  KEL_REFERENCE(IpSnmp::IpMib, ipMib, IpMib)
  KEL_CHILD(IpSnmp::FecModeSm, fecModeSm, FecModeSm)
  KEL_CHILD(IpSnmp::FecModeRestartSm, fecModeRestartSm, FecModeRestartSm)
  KEL_CHILD(IpSnmp::IpAddressTableSm, ipAddressTableSm, IpAddressTableSm)
  KEL_CHILD(IpSnmp::ArpTableSm, arpTableSm, ArpTableSm)
  KEL_REFERENCE(IpSnmp::IpForwardMib, ipForwardMib, IpForwardMib)
  KEL_REFERENCE(FibStatsSnmp::FibStatsMib, fibStatsMib, FibStatsMib)
  KEL_CHILD(FibStatsSnmp::FibStatsSm, fibStatsSm, FibStatsSm)
  KEL_CHILD(FibStatsSnmp::Fib6StatsSm, fib6StatsSm, Fib6StatsSm)
  KEL_CHILD(IpSnmp::IpRouteTableSm, ipRouteTableSm, IpRouteTableSm)
  KEL_CHILD(IpSnmp::PerVrfFecSm, perVrfFecSm, PerVrfFecSm)
  KEL_CHILD(IpSnmp::VrfIfTableSm, vrfIfTableSm, VrfIfTableSm)
  KEL_CHILD(IpSnmp::VrfRootSm, vrfRootSm, VrfRootSm)
  KEL_CHILD(IpSnmp::VrfRootDir, vrfRootDir, VrfRootDir)
  KEL_TYPE_END_DECLARE

  ~Root() override;
  void kelStop() override;
};

}  // namespace IpSnmp
