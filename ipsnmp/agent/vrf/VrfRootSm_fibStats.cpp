// The part of the VRF root state machine that has the routes of each VRF counted.

#include "ipsnmp/agent/vrf/VrfRootSm.h"

namespace IpSnmp {

void VrfRootSm::makeFibStatsSms(VrfRoot& root, const VrfTables& tables) {
  if (!routeTablesEnabled()) return;
  const L3::VrfName vrfName(root.name());
  const auto mib = root.fibStatsMib();
  const auto sm = root.fibStatsSmIs(tables.routeStatus, arpQuillo(), arpQuilloVrfIdOf(vrfName),
                                    routingVrfConfigDir()->vrfConfig(root.name()), mib);
  sm->taskSchedulerIs(scheduler());
  if (root.fibStatsSm() != sm) return;  // a reactor unmade the VRF
  root.fib6StatsSmIs(tables.route6Status, arpQuillo(), arpQuilloVrfIdOf(vrfName),
                     routing6VrfConfigDir()->vrfConfig(root.name()), mib)
      ->taskSchedulerIs(scheduler());
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
