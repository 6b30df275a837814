// The part of the VRF root state machine that mounts a VRF's tables of routes and FECs, and makes the machines that
// read them.

#include <fmt/format.h>

#include "ipsnmp/agent/vrf/VrfRootSm.h"

namespace IpSnmp {

VrfTables VrfTables::mounted(const KelQuillo::Mount& mount, const L3::VrfName& vrfName, bool withFecs) {
  const auto path = [&](const char* pattern) { return fmt::format(fmt::runtime(pattern), vrfName.stringValue()); };
  VrfTables tables;
  tables.routeStatus = mount.mounted<Quillo::Fib::RouteStatus>(path(KelQuillo::routeStatusPath));
  tables.route6Status = mount.mounted<Quillo::Fib6::RouteStatus>(path(KelQuillo::route6StatusPath));
  if (withFecs) {
    tables.forwardingStatus = mount.mounted<Quillo::Fib::ForwardingStatus>(path(KelQuillo::forwardingStatusPath));
  }
  return tables;
}

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
  if (!root.ipRouteTableSm()) return;  // a reactor unmade the VRF
  root.perVrfFecSmIs(routeSm, tables.routeStatus, isUnified ? unified : tables.forwardingStatus);
}

}  // namespace IpSnmp
