#include "ipsnmp/agent/Root.h"

KEL_TYPE_DEFINE(IpSnmp::Root)

namespace IpSnmp {

Root::~Root() {
  Root::kelStop();
}

// Each machine before those that it uses; the VRFs' machines use the default VRF's.
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
