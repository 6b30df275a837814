// The part of the VRF root state machine that mounts a VRF's tables of routes and FECs, and makes the machines that
// read them.

#include <fmt/format.h>

#include "ipsnmp/agent/VrfRootSm.h"

namespace IpSnmp {

VrfRootSm::Tables VrfRootSm::mountTables(const L3::VrfName& vrfName) const {
  Tables tables;
  const auto mount = entityManager() ? entityManager()->quilloMount() : nullptr;
  if (!mount || !routeTablesEnabled()) return tables;
  const auto path = [&](const char* pattern) { return fmt::format(fmt::runtime(pattern), vrfName.stringValue()); };
  tables.routeStatus = mount->mounted<Quillo::Fib::RouteStatus>(path(KelQuillo::routeStatusPath));
  tables.route6Status = mount->mounted<Quillo::Fib6::RouteStatus>(path(KelQuillo::route6StatusPath));
  if (fecMode() != Quillo::Fib::fecModeUnified) {
    tables.forwardingStatus = mount->mounted<Quillo::Fib::ForwardingStatus>(path(KelQuillo::forwardingStatusPath));
  }
  return tables;
}

void VrfRootSm::makeRouteSms(VrfRoot& root, const Tables& tables) {
  if (!routeTablesEnabled()) return;
  const bool isUnified = fecMode() == Quillo::Fib::fecModeUnified && unifiedForwardingStatus();
  const auto unified = isUnified ? unifiedForwardingStatus() : nullptr;
  const auto routeSm =
      root.ipRouteTableSmIs(scheduler(), root.name(), root.ipForwardMib(), tables.routeStatus,
                            tables.forwardingStatus, unified, isUnified ? allForwardingFecs() : nullptr, ifMib());
  if (!root.ipRouteTableSm()) return;  // a reactor unmade the VRF
  root.perVrfFecSmIs(routeSm, tables.routeStatus, isUnified ? unified : tables.forwardingStatus);
}

void VrfRootSm::remountTables(VrfRoot& root) {
  const Kel::Ptr<VrfRoot> held(&root);
  const auto routeSm = root.ipRouteTableSm();
  if (!routeSm) return;
  const auto tables = mountTables(L3::VrfName(root.name()));
  if (const auto sm = root.fibStatsSm()) sm->routeStatusIs(tables.routeStatus);
  if (const auto sm = root.fib6StatsSm()) sm->routeStatusIs(tables.route6Status);
  root.perVrfFecSmDel();
  routeSm->routeStatusIs(tables.routeStatus);
  const bool isUnified = routeSm->unifiedForwardingStatus() != nullptr;
  if (!isUnified) routeSm->vrfForwardingStatusIs(tables.forwardingStatus);
  if (root.ipRouteTableSm() != routeSm) return;
  root.perVrfFecSmIs(routeSm, tables.routeStatus,
                     isUnified ? routeSm->unifiedForwardingStatus() : tables.forwardingStatus);
}

}  // namespace IpSnmp
