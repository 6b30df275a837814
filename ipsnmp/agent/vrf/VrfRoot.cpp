#include "ipsnmp/agent/vrf/VrfRoot.h"

#include <fmt/format.h>

KEL_TYPE_DEFINE(IpSnmp::VrfRoot)
KEL_TYPE_DEFINE(IpSnmp::VrfRootDir)

namespace IpSnmp {

VrfRoot::~VrfRoot() {
  VrfRoot::kelStop();
}

// Each machine before those that it uses.
void VrfRoot::kelStop() {
  perVrfFecSmDel();
  ipRouteTableSmDel();
  fib6StatsSmDel();
  fibStatsSmDel();
  arpTableSmDel();
}

VrfRootDir::~VrfRootDir() {
  vrfRootDelAll();
}

void VrfRootDir::kelStop() {
  vrfRootDelAll();
}

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

}  // namespace IpSnmp
