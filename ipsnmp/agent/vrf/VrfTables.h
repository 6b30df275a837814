#pragma once
// The shared tables of routes and FECs of one VRF, and how the VRF's state machines change over to those of another id.
// It is the same for the default VRF, whose machines Root owns, and for the others, whose machines VrfRoot owns.

#include "varnix/QuilloMount.h"
#include "varnix/Values.h"

namespace IpSnmp {

struct VrfTables {
  // Null: there is no such table, or it is of another type.
  Kel::Ptr<const Quillo::Fib::RouteStatus> routeStatus;
  Kel::Ptr<const Quillo::Fib6::RouteStatus> route6Status;
  Kel::Ptr<const Quillo::Fib::ForwardingStatus> forwardingStatus;

  // Those of the id under which the VRF is published at this moment; without `withFecs` no forwarding table is mounted.
  static VrfTables mounted(const KelQuillo::Mount& mount, const L3::VrfName& vrfName, bool withFecs);
};

// Has the machines of `owner`, a Root or a VrfRoot, read `tables` instead of their present tables. No-op while the owner
// has no route table machine. A forwarding table that all VRFs share stays.
template <class Owner>
void remountTables(Owner& owner, const VrfTables& tables) {
  const Kel::Ptr<Owner> held(&owner);
  const auto routeSm = owner.ipRouteTableSm();
  if (!routeSm) return;
  if (const auto sm = owner.fibStatsSm()) sm->routeStatusIs(tables.routeStatus);
  if (const auto sm = owner.fib6StatsSm()) sm->routeStatusIs(tables.route6Status);
  owner.perVrfFecSmDel();
  routeSm->routeStatusIs(tables.routeStatus);
  const auto& shared = routeSm->unifiedForwardingStatus();
  if (!shared) routeSm->vrfForwardingStatusIs(tables.forwardingStatus);
  if (owner.ipRouteTableSm() != routeSm) return;  // a reactor removed it
  owner.perVrfFecSmIs(routeSm, tables.routeStatus, shared ? shared : tables.forwardingStatus);
}

}  // namespace IpSnmp
