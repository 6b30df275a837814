#pragma once
// For tests: the entities that the modules serve, for the default context and the VRF "red".

#include "agentstate/AgentMib.h"
#include "ipsnmp/IfTables.h"
#include "ipsnmp/IpMib.h"
#include "ipsnmp/MplsVpnMib.h"
#include "ipsnmp/testing/TestRoutes.h"
#include "kel/Dir.h"
#include "snmp/SnmpUtil.h"

namespace Modules {

struct TestIpTree {
  TestIpTree() {
    const auto routing = root->dirIs("Varnix")->dirIs("routing");
    routing->entityIs(config);
    routing->dirIs("vrf")->entityIs(vrfConfigs);
    root->dirIs("Varnix")->dirIs("routing6")->entityIs(config6);
    const auto ip = root->dirIs("snmp")->dirIs("ip");
    root->dirIs("snmp")->entityIs(agentMib);
    ip->entityIs(ipMib);
    ip->entityIs(ipForwardMib);
    ip->entityIs(ipVrfMib);
    ip->entityIs(mplsVpnMib);
    ip->entityIs(fibStatsMib);
    ip->entityIs(vrfMibs);
    ip->entityIs(ifTables);
    SnmpUtil::rootIs(root);
  }
  ~TestIpTree() { SnmpUtil::rootIs(nullptr); }
  TestIpTree(const TestIpTree&) = delete;
  TestIpTree& operator=(const TestIpTree&) = delete;

  Kel::Ptr<Kel::Dir> root = Kel::makePtr<Kel::Dir>("");
  Kel::Ptr<Routing::Config> config = Kel::makePtr<Routing::Config>("config");
  Kel::Ptr<Routing6::Config> config6 = Kel::makePtr<Routing6::Config>("config");
  Kel::Ptr<Routing::VrfConfigDir> vrfConfigs = Kel::makePtr<Routing::VrfConfigDir>("config");
  Kel::Ptr<AgentSnmp::AgentMib> agentMib = Kel::makePtr<AgentSnmp::AgentMib>("agentmib");
  Kel::Ptr<IpSnmp::IpMib> ipMib = Kel::makePtr<IpSnmp::IpMib>("ipmib");
  Kel::Ptr<IpSnmp::IpForwardMib> ipForwardMib = Kel::makePtr<IpSnmp::IpForwardMib>("ipforwardmib");
  Kel::Ptr<FibStatsSnmp::FibStatsMib> fibStatsMib = Kel::makePtr<FibStatsSnmp::FibStatsMib>("fibstatsmib");
  Kel::Ptr<IpSnmp::IpVrfMib> ipVrfMib = Kel::makePtr<IpSnmp::IpVrfMib>("ipvrfmib");
  Kel::Ptr<IpSnmp::IfTables> ifTables = Kel::makePtr<IpSnmp::IfTables>("iftables");
  Kel::Ptr<IpSnmp::MplsVpnMib> mplsVpnMib = Kel::makePtr<IpSnmp::MplsVpnMib>("mplsvpnmib");
  Kel::Ptr<IpSnmp::VrfMibsDir> vrfMibs = Kel::makePtr<IpSnmp::VrfMibsDir>("vrf");
  Kel::Ptr<Routing::Config> redConfig = vrfConfigs->vrfConfigIs("red");
  Kel::Ptr<IpSnmp::IpMib> redIpMib = vrfMibs->mibsIs("red")->ipmib();
};

inline IpSnmp::InetAddress inetAddress(const std::string& text) {
  return IpSnmp::InetAddress::fromIpGenAddr(Vantu::IpGenAddr::fromString(text));
}

// Adds an address with its rows in all address tables.
inline void addressIs(IpSnmp::IpMib& mib, const std::string& text, unsigned prefixLength, std::uint32_t ifIndex,
                      IpSnmp::AddressSource source = IpSnmp::addressSourceStatus) {
  const auto addr = Vantu::IpGenAddr::fromString(text);
  const bool isV4 = addr.af() == Vantu::ipv4_;
  const auto network = isV4 ? IpSnmp::InetAddress::fromIpAddr(addr.v4().mask(prefixLength))
                            : IpSnmp::InetAddress::fromIp6Addr(addr.v6().mask(prefixLength));
  const auto entry = mib.ipAddressTableIs(inetAddress(text));
  const IpSnmp::IpAddressPrefixKey prefix(ifIndex, network.version(), network.bytes(), prefixLength);
  entry->intfIs({IpSnmp::IntfDataKey(source, Vantu::IntfId("eth0")), mib.ipAddressPrefixTableIs(prefix)});
  if (isV4) mib.ipAddrTableIs(entry);
}

// Adds the row of a neighbour on the interface "eth<ifIndex>", in the VRF with this id.
inline const Vrf::VrfIdMap::VrfId neighbourVrfId(7);
inline auto neighbourIs(IpSnmp::IpMib& mib, std::uint32_t ifIndex, const std::string& text,
                        const Kel::Ptr<const Arp::Table::Status>& table) {
  return mib.ipNetToPhysicalTableIs(IpSnmp::IpNetToPhysicalTableIndex(ifIndex, inetAddress(text)),
                                    Vantu::IntfId("eth" + std::to_string(ifIndex)),
                                    Vantu::IpGenAddr::fromString(text), table, neighbourVrfId);
}

// The same, and adds the neighbour to the table (Arp::Table::TestStatus).
template <class Table>
auto knownNeighbourIs(IpSnmp::IpMib& mib, std::uint32_t ifIndex, const std::string& text,
                      const Kel::Ptr<Table>& table) {
  const auto row = neighbourIs(mib, ifIndex, text, table);
  table->entryIs({{neighbourVrfId, row->ipGenAddr(), row->intfId()}, {}, {}});
  return row;
}

// An Ethernet interface with its rows in the interface tables, below the interface `upper` unless that is 0.
inline void ifTableIs(IpSnmp::IfTables& tables, std::uint32_t ifIndex, std::uint32_t upper) {
  const Vantu::IntfId id("eth" + std::to_string(ifIndex));
  const auto status = Kel::makePtr<Interface::IntfStatus>(id);
  status->ifTypeIs(6);
  status->mtuIs(1500);
  status->adminStatusIs(Interface::adminStatusUp);
  status->upperIfIndexIs(upper);
  const auto row = Kel::makePtr<IpSnmp::IfEntry>(ifIndex, status);
  row->countersIs(Kel::makePtr<Interface::IntfCounters>(id));
  tables.enter(row, 0);
}

// Adds an interface with all records of a publisher. Their numbers count up from `first`.
inline void interfaceIs(IpSnmp::IpMib& mib, Ip::IpVersion version, std::uint32_t ifIndex, std::uint32_t first = 1) {
  const IpSnmp::IpVersionIfIndex key(version, ifIndex);
  const Vantu::IntfId id("eth" + std::to_string(ifIndex));
  const auto protocol = Kel::makePtr<Ip::IntfProtocol>(id);
  protocol->parametersIs(Ip::IntfParameters(first % 2 == 0, first % 2 != 0, first, first + 1, first + 2));
  const auto addresses = Kel::makePtr<Ip6::IntfConfig>(id);
  for (const char* text : {"2001:db8::1/64", "fe80::102:3ff:fe04:506/64"}) {
    if (first % 3 != 0) addresses->addrIs(Vantu::Ip6AddrWithMask::fromString(text), Ip6::AddressInfo());
  }
  const auto row = mib.ipInterfaceTableIs(key);
  row->protocolIs(protocol);
  row->addressesIs(addresses);
  const auto stats = Kel::makePtr<Ip::IntfStats>(id);
  std::uint64_t next = std::uint64_t{first} << 31;
  stats->countersIs(Ip::IntfCounters::kelFromFields([&](auto&&...) { return next++; }));
  if (first % 2 != 0) {
    stats->datagramsIs(Ip::IntfDatagrams::kelFromFields(
        [&](const char* field, auto) { return field == std::string("inDiscards") ? ~std::uint64_t{0} : next++; }));
  }
  mib.ipIfTrafficTableIs(key)->statsIs(stats);
}

using IpSnmpTest::TraceLines;

// The lines without their pointers, which begin with "0x" after a blank.
inline std::vector<std::string> withoutPointers(std::vector<std::string> lines) {
  for (auto& line : lines) {
    for (auto at = line.find(" 0x"); at != std::string::npos; at = line.find(" 0x", at + 1)) {
      line.erase(at + 1, line.find_first_not_of("0123456789abcdefx", at + 1) - at - 1);
    }
  }
  return lines;
}

}  // namespace Modules
