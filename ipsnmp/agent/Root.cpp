#include "ipsnmp/agent/Root.h"

KEL_TYPE_DEFINE(IpSnmp::Root)

namespace IpSnmp {

Root::~Root() {
  stop();
}

void Root::kelStop() {
  stop();
}

// Users before what they use: the VRFs' machines stand on the default VRF's.
void Root::stop() {
  vrfRootSmDel();
  vrfRootDirDel();
  vrfIfTableSmDel();
  perVrfFecSmDel();
  ipRouteTableSmDel();
  fib6StatsSmDel();
  fibStatsSmDel();
  arpTableSmDel();
  ipAddressTableSmDel();
  fecModeRestartSmDel();
  fecModeSmDel();
}

}  // namespace IpSnmp
