// The VRF root state machine: mounts a VRF's tables of routes and FECs, and creates the machines that read them.

#include "ipsnmp/agent/vrf/VrfRootSm.h"

namespace IpSnmp {

VrfTables VrfRootSm::mountTables(const L3::VrfName& vrfName) const {
  const auto mount = entityManager() ? entityManager()->quilloMount() : nullptr;
  if (!mount || !routeTablesEnabled()) return {};
  return VrfTables::mounted(*mount, vrfName, fecMode() != Quillo::Fib::fecModeUnified);
}

void VrfRootSm::makeRouteSms(VrfRoot& root, const VrfTables& tables) {
  if (!routeTablesEnabled()) return;
  const bool isUnified = fecMode() == Quillo::Fib::fecModeUnified && unifiedForwardingStatus();
  const auto unified = isUnified ? unifiedForwardingStatus() : nullptr;
  const auto routeSm =
      root.ipRouteTableSmIs(scheduler(), root.name(), root.ipForwardMib(), tables.routeStatus,
                            tables.forwardingStatus, unified, isUnified ? allForwardingFecs() : nullptr, ifMib());
  routeSm->route6StatusIs(tables.route6Status);
  root.perVrfFecSmIs(routeSm, tables.routeStatus, isUnified ? unified : tables.forwardingStatus);
}

void VrfRootSm::makeFibStatsSms(VrfRoot& root, const VrfTables& tables) {
  if (!routeTablesEnabled()) return;
  const auto mib = root.fibStatsMib();
  const auto id = arpQuilloVrfIdOf(L3::VrfName(root.name()));
  const auto routing = routingVrfConfigDir()->vrfConfig(root.name());
  const auto routing6 = routing6VrfConfigDir()->vrfConfig(root.name());
  root.fibStatsSmIs(tables.routeStatus, arpQuillo(), id, routing, mib)->taskSchedulerIs(scheduler());
  root.fib6StatsSmIs(tables.route6Status, arpQuillo(), id, routing6, mib)->taskSchedulerIs(scheduler());
}

void VrfRootSm::refreshFibStats(const Kel::Name& vrfName) {
  const auto root = vrfRoot(vrfName);
  if (!root) return;
  const auto id = arpQuilloVrfIdOf(L3::VrfName(vrfName));
  if (const auto sm = root->fibStatsSm()) {
    sm->routingConfigIs(routingVrfConfigDir()->vrfConfig(vrfName));
    sm->vrfIdIs(id);
  }
  if (const auto sm = root->fib6StatsSm()) {
    sm->routingConfigIs(routing6VrfConfigDir()->vrfConfig(vrfName));
    sm->vrfIdIs(id);
  }
}

}  // namespace IpSnmp
