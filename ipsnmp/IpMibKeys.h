#pragma once
// The keys of the IP-MIB cache, and the interface index that most of them contain.
//
// Guarantees: keys sort like the table indexes of RFC 4293: numbers by value, octet strings by length, then by bytes.

#include "kel/ValueType.h"
#include "snmp/String.h"
#include "vantu/IntfId.h"
#include "vantu/IpAddr.h"
#include "varnix/Interface.h"
#include "varnix/Values.h"

namespace IpSnmp {

inline constexpr std::uint32_t noIfIndex = 0xFFFFFFFF;

// Returns the ifIndex from the details provider of the record's kind (Interface::IntfDetailsProvider): 0 while the
// provider does not know it, noIfIndex without a provider or a record. All caches get their ifIndexes here.
std::uint32_t ifIndex(const Kel::Ptr<const Interface::IntfStatus>& status);

// InetAddressType with InetAddress (RFC 4001). `bytes` is the address in network byte order, 4 or 16 bytes.
class InetAddress {
  KEL_VALUE_TYPE("IpSnmp::InetAddress", InetAddress, ((Ip::IpVersion, version))((Snmp::String, bytes)))

  static InetAddress fromIpAddr(const Vantu::IpAddr& addr);
  static InetAddress fromIp6Addr(const Vantu::Ip6Addr& addr);
  // Requires (aborts): an address with a family.
  static InetAddress fromIpGenAddr(const Vantu::IpGenAddr& addr);
};

// The ipAddressPrefixTable index. `bytes` is the prefix address, `length` its length in bits.
class IpAddressPrefixKey {
  KEL_VALUE_TYPE("IpSnmp::IpAddressPrefixKey", IpAddressPrefixKey,
                 ((std::uint32_t, ifIndex))((Ip::IpVersion, version))((Snmp::String, bytes))((std::uint32_t,
                                                                                              length)))
};

// The ipNetToMediaTable index.
class ArpTableIndex {
  KEL_VALUE_TYPE("IpSnmp::ArpTableIndex", ArpTableIndex, ((std::uint32_t, ifIndex))((Vantu::IpAddr, ipAddr)))
};

// The ipNetToPhysicalTable index.
class IpNetToPhysicalTableIndex {
  KEL_VALUE_TYPE("IpSnmp::IpNetToPhysicalTableIndex", IpNetToPhysicalTableIndex,
                 ((std::uint32_t, ifIndex))((IpSnmp::InetAddress, addr)))

  IpNetToPhysicalTableIndex(std::uint32_t interface, Ip::IpVersion addrType, Snmp::String address)
      : IpNetToPhysicalTableIndex(interface, InetAddress(addrType, std::move(address))) {}
};

// An IP version and an ifIndex: the index of ipIfStatsTable and quorinIpIfStatsTable, and the key of the rows of
// ipv4InterfaceTable and ipv6InterfaceTable.
class IpVersionIfIndex {
  KEL_VALUE_TYPE("IpSnmp::IpVersionIfIndex", IpVersionIfIndex,
                 ((Ip::IpVersion, ipVersion))((std::uint32_t, ifIndex)))

  std::size_t hash() const { return hash_value(*this); }
};

// The ipDefaultRouterTable index.
class DefaultRouterIndex {
  KEL_VALUE_TYPE("IpSnmp::DefaultRouterIndex", DefaultRouterIndex,
                 ((IpSnmp::InetAddress, addr))((std::uint32_t, ifIndex)))
};

}  // namespace IpSnmp
