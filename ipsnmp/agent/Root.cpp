#include "ipsnmp/agent/Root.h"

KEL_TYPE_DEFINE(IpSnmp::Root)

namespace IpSnmp {

Root::~Root() {
  Root::kelStop();
}

// Users before what they use: the VRFs' machines stand on the default VRF's.
void Root::kelStop() {
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
