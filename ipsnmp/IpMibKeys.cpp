#include "ipsnmp/IpMibKeys.h"

namespace IpSnmp {

std::uint32_t ifIndex(const Kel::Ptr<const Interface::IntfStatus>& status) {
  const auto* provider = status ? Interface::IntfDetailsProvider::find(*status) : nullptr;
  return provider ? provider->ifIndex(*status) : noIfIndex;
}

InetAddress InetAddress::fromIpAddr(const Vantu::IpAddr& addr) {
  return InetAddress(Ip::ipVersion4, Snmp::String(addr.bytes()));
}

InetAddress InetAddress::fromIp6Addr(const Vantu::Ip6Addr& addr) {
  return InetAddress(Ip::ipVersion6, Snmp::String(addr.bytes()));
}

InetAddress InetAddress::fromIpGenAddr(const Vantu::IpGenAddr& addr) {
  switch (addr.af()) {
    case Vantu::ipv4_:
      return fromIpAddr(addr.v4());
    case Vantu::ipv6_:
      return fromIp6Addr(addr.v6());
    default:
      KEL_UNREACHABLE();
  }
}

}  // namespace IpSnmp
