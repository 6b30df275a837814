#include "ipsnmp/IpVrfMib.h"

KEL_TYPE_DEFINE(IpSnmp::VrfRoutingStatus)
KEL_TYPE_DEFINE(IpSnmp::VrfTableEntry)
KEL_TYPE_DEFINE(IpSnmp::VrfIfTableEntry)
KEL_TYPE_DEFINE(IpSnmp::IpVrfMib)

namespace IpSnmp {

Vantu::RouteDistinguisher VrfTableEntry::routeDistinguisher() const {
  return vrfConfig() ? vrfConfig()->routeDistinguisher() : Vantu::RouteDistinguisher();
}

Ip::VrfState VrfTableEntry::vrfState() const {
  if (!vrfStatusLocal()) return Ip::vrfStateUnknown;
  if (vrfStatusLocal()->state() != Ip::vrfStateActive) return vrfStatusLocal()->state();
  return vrfStatusGlobal() ? vrfStatusGlobal()->state() : Ip::vrfStateUnknown;
}

}  // namespace IpSnmp
