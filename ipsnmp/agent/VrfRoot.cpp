#include "ipsnmp/agent/VrfRoot.h"

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
