#include "ipsnmp/IpAddressEntry.h"

KEL_TYPE_DEFINE(IpSnmp::IpAddressPrefixEntry)
KEL_TYPE_DEFINE(IpSnmp::IpAddressEntry)
KEL_TYPE_DEFINE(IpSnmp::IpAddrEntry)

namespace IpSnmp {

Kel::Ptr<IpAddressPrefixEntry> IpAddressEntry::prefixEntry() const {
  return intf().empty() ? nullptr : intf().begin()->second.prefixEntry();
}

std::uint32_t IpAddressEntry::ifIndex() const {
  return intf().empty() ? 0 : intf().begin()->second.ifIndex();
}

AddressStatus IpAddressEntry::addressStatus() const {
  KEL_ASSERT(!intf().empty());
  switch (intf().begin()->first.source()) {
    case addressSourceConfig:
      return addressStatusInaccessible;
    case addressSourceStatus:
    case addressSourceBorrowed:
      return addressStatusPreferred;
  }
  KEL_UNREACHABLE();
}

Vantu::IpAddr IpAddressEntry::ipAdEntAddr() const {
  KEL_ASSERT_TEXT(addrVersion() == Ip::ipVersion4, "addrVersion() == Ip::ipVersion4()");
  KEL_ASSERT(addrBytes().bytes() == 4);
  return Vantu::IpAddr::fromBytes(addrBytes().octets());
}

Vantu::IpAddr IpAddrEntry::ipAdEntNetMask() const {
  const auto prefix = masterEntry()->prefixEntry();
  return Vantu::IpAddr::netmask(prefix ? prefix->index().length() : 0);
}

}  // namespace IpSnmp
