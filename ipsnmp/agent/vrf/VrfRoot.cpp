#include "ipsnmp/agent/vrf/VrfRoot.h"

KEL_TYPE_DEFINE(IpSnmp::VrfRoot)
KEL_TYPE_DEFINE(IpSnmp::VrfRootDir)

namespace IpSnmp {

VrfRoot::~VrfRoot() {
  stop();
}

void VrfRoot::kelStop() {
  stop();
}

// The other way round than they depend on each other.
void VrfRoot::stop() {
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

}  // namespace IpSnmp
