#include "ipsnmp/IpMib.h"

KEL_TYPE_DEFINE(IpSnmp::IpIfStatsEntry)
KEL_TYPE_DEFINE(IpSnmp::IpInterfaceEntry)
KEL_TYPE_DEFINE(IpSnmp::IpIfTrafficEntry)
KEL_TYPE_DEFINE(IpSnmp::IpDefaultRouterEntry)
KEL_TYPE_DEFINE(IpSnmp::IpMib)
KEL_TYPE_DEFINE(IpSnmp::VrfMibs)
KEL_TYPE_DEFINE(IpSnmp::VrfMibsDir)

namespace IpSnmp {

Kel::String IpInterfaceEntry::identifier() const {
  constexpr std::size_t half = 8;  // of an IPv6 address
  if (!addresses()) return {};
  for (const auto& [addr, info] : addresses()->addr()) {
    if (!Vantu::IpGenAddr(addr.address()).isLinkLocal()) continue;
    const auto bytes = addr.address().bytes();
    return Kel::String(bytes.begin() + half, bytes.end());
  }
  return {};
}

}  // namespace IpSnmp
