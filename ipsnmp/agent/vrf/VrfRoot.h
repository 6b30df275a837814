#pragma once
// The owners of the state machines of all VRFs except the default one, and the shared tables that a VRF reads.

#include "fibstats/agent/FibStatsSm.h"
#include "ipsnmp/IpMib.h"
#include "ipsnmp/agent/neighbour/ArpTableSm.h"
#include "ipsnmp/agent/route/PerVrfFecSm.h"
#include "vantu/VrfId.h"
#include "varnix/QuilloMount.h"
#include "varnix/Values.h"

namespace IpSnmp {

// The machines of one VRF, under the VRF's name. Its cache handles refer to the VRF's member of VrfMibsDir.
// Lifetime: deleting or destroying the root deletes the machines.
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

// The shared tables of routes and FECs of one VRF.
struct VrfTables {
  // Null without such a table, or if it has another type.
  Kel::Ptr<const Quillo::Fib::RouteStatus> routeStatus;
  Kel::Ptr<const Quillo::Fib6::RouteStatus> route6Status;
  Kel::Ptr<const Quillo::Fib::ForwardingStatus> forwardingStatus;

  // Mounts the tables of the VRF's current id; without `withFecs`, no forwarding table.
  static VrfTables mounted(const KelQuillo::Mount& mount, const L3::VrfName& vrfName, bool withFecs);
};

// Makes the machines of `owner` (a Root or a VrfRoot) read `tables`, except that they keep a forwarding table that all
// VRFs share. No-op if `owner` has no route table machine.
template <class Owner>
void remountTables(Owner& owner, const VrfTables& tables) {
  const auto routeSm = owner.ipRouteTableSm();
  if (!routeSm) return;
  if (const auto sm = owner.fibStatsSm()) sm->routeStatusIs(tables.routeStatus);
  if (const auto sm = owner.fib6StatsSm()) sm->routeStatusIs(tables.route6Status);
  owner.perVrfFecSmDel();
  routeSm->routeStatusIs(tables.routeStatus);
  routeSm->route6StatusIs(tables.route6Status);
  const auto& shared = routeSm->unifiedForwardingStatus();
  if (!shared) routeSm->vrfForwardingStatusIs(tables.forwardingStatus);
  owner.perVrfFecSmIs(routeSm, tables.routeStatus, shared ? shared : tables.forwardingStatus);
}

}  // namespace IpSnmp
