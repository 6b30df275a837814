#include "ipsnmp/IpMib.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ipsnmp/IpForwardMib.h"
#include "ipsnmp/ProtocolMap.h"
#include "kel/Dir.h"
#include "quillo/testing/TestArpTable.h"

namespace IpSnmp {
namespace {

using Kel::makePtr;
using Kel::Ptr;

InetAddress v4(const char* text) {
  return InetAddress::fromIpAddr(Vantu::IpAddr::fromString(text));
}

Ptr<IpAddressPrefixEntry> prefix(std::uint32_t ifIndex, unsigned length) {
  return makePtr<IpAddressPrefixEntry>(
      IpAddressPrefixKey(ifIndex, Ip::ipVersion4, Snmp::String(Kel::String("\x0a\0\0\0", 4)), length));
}

IntfData held(AddressSource source, const char* intf, std::uint32_t ifIndex, unsigned length = 24) {
  return IntfData(IntfDataKey(source, Vantu::IntfId(intf)), prefix(ifIndex, length));
}

TEST(IpAddressEntry, firstSourceSpeaksForTheAddress) {
  auto entry = makePtr<IpAddressEntry>(v4("10.0.0.1"));
  EXPECT_EQ(entry->ifIndex(), 0u);
  entry->intfIs(held(addressSourceConfig, "A", 7));
  entry->intfIs(held(addressSourceBorrowed, "B", 8));
  EXPECT_EQ(entry->addressStatus(), 4);  // inaccessible, as it goes on the wire
  EXPECT_EQ(entry->ifIndex(), 7u);
  entry->intfIs(held(addressSourceStatus, "A", 9));
  EXPECT_EQ(entry->addressStatus(), 1);  // preferred
  EXPECT_EQ(entry->ifIndex(), 9u);
  // The key alone tells pairs apart: the pair stays as it is.
  const auto again = held(addressSourceStatus, "A", 10);
  EXPECT_EQ(again == *entry->intf(again.key()), again <=> *entry->intf(again.key()) == 0);
  entry->intfIs(again);
  EXPECT_EQ(entry->ifIndex(), 9u);
  entry->intfDelAll();
  entry->intfIs(held(addressSourceBorrowed, "B", 8));
  EXPECT_EQ(entry->addressStatus(), addressStatusPreferred);
  EXPECT_EQ(
      Kel::print(*entry->intf(IntfDataKey(addressSourceBorrowed, Vantu::IntfId("B")))),
      "Value('IpSnmp::IntfData', ** {'key': Value('IpSnmp::IntfDataKey', ** {'source': addressSourceBorrowed, "
      "'intfId': 'B'}), 'prefixEntry': Object(IpSnmp::IpAddressPrefixEntry)})");
}

TEST(IpForwardMib, aRowPrintsItsIndexAndItsFacts) {
  const IpCidrRouteTableIndex index(Vantu::IpAddr::fromString("10.0.0.0"),
                                    Vantu::IpAddr::fromString("255.255.255.0"), 0,
                                    Vantu::IpAddr::fromString("10.1.1.1"));
  EXPECT_EQ(Kel::print(IpCidrRouteTableEntry(index, 3, Routing::RouteMetric(10), Routing::RoutePreference(1),
                                             Routing::Fib::RouteType(7), 4)),
            "Value('IpSnmp::IpCidrRouteTableEntry', ** {'index': " + Kel::print(index) +
                ", 'ifIndex': 3, 'metric': Value('Routing::RouteMetric', ** {'value': 10}), 'preference': "
                "Value('Routing::RoutePreference', ** {'value': 1}), 'protocol': "
                "Value('Routing::Fib::RouteType', ** {'value': 7}), 'type': 4})");
}

TEST(IpMib, anotherMasterForARowIsRefused) {
  const auto mib = makePtr<IpMib>("ipmib");
  mib->ipAddrTableIs(mib->ipAddressTableIs(v4("10.0.0.1")));
  try {
    mib->ipAddrTableIs(makePtr<IpAddressEntry>(v4("10.0.0.1")));
    FAIL() << "a second master entry was accepted";
  } catch (const Kel::ReinstantiationException& error) {
    EXPECT_STREQ(error.what(),
                 "Reinstantiating the pointer interface where constructor parameter attribute _masterEntry has a "
                 "different value of Object(IpSnmp::IpAddressEntry)");
  }
}

TEST(IpAddressEntry, v4AccessToOtherVersionsAborts) {
  auto v6 = makePtr<IpAddressEntry>(InetAddress::fromIp6Addr(Vantu::Ip6Addr::fromString("fe80::1")));
  EXPECT_DEATH(v6->ipAdEntAddr(), "assertion failed: addrVersion\\(\\) == Ip::ipVersion4\\(\\)");
  auto broken = makePtr<IpAddressEntry>(InetAddress(Ip::ipVersion4, Snmp::String("abc")));
  EXPECT_DEATH(broken->ipAdEntAddr(), "assertion failed: addrBytes\\(\\)\\.bytes\\(\\) == 4");
  EXPECT_DEATH(InetAddress::fromIpGenAddr(Vantu::IpGenAddr()), "assertion failed: false");
}

TEST(IpMib, arpTableIsListedAndOffersNoKeyedLookup) {
  auto mib = makePtr<IpMib>("ipmib");
  Kel::String tables;
  for (const auto& attribute : mib->kelTypeInfo().attributes()) {
    if (attribute.kind == Kel::AttributeKind::members) tables += attribute.name + " ";
  }
  EXPECT_EQ(tables,
            "ipAddressTable ipAddressPrefixTable ipAddrTable arpTable ipNetToPhysicalTable ipIfStatsTable "
            "ipSwFwdStats ");
  auto root = makePtr<Kel::Dir>("");
  root->entityIs(mib);
  EXPECT_FALSE(Kel::resolve(root, "ipmib.arpTable/x"));
  EXPECT_THAT([&] { mib->arpTable(ArpTableIndex(1, Vantu::IpAddr(1))); },
              testing::ThrowsMessage<Kel::NoImplementationException>("IpMib::arpTable"));
}

TEST(IpMib, prefixRowsPassByIdentity) {
  auto mib = makePtr<IpMib>("ipmib");
  auto first = prefix(1, 24);
  auto twin = prefix(1, 24);
  mib->ipAddressPrefixTableInsert(first);
  const auto version = mib->ipAddressPrefixTable().version();
  mib->ipAddressPrefixTableInsert(first);
  EXPECT_EQ(mib->ipAddressPrefixTable().version(), version);
  mib->ipAddressPrefixTableInsert(twin);
  EXPECT_EQ(mib->ipAddressPrefixTable(first->index()), twin);
  EXPECT_EQ(mib->ipAddressPrefixTable().size(), 1u);
}

TEST(VrfMibs, cachesComeAndGoWithTheirVrf) {
  auto root = makePtr<Kel::Dir>("");
  auto dir = makePtr<VrfMibsDir>("vrf");
  root->dirIs("snmp")->dirIs("ip")->entityIs(dir);
  dir->mibsIs("a/b.c");
  auto ipmib = Kel::resolve(root, "snmp/ip/vrf.mibs/a/b.c.ipmib");
  ASSERT_TRUE(Kel::dynamicPtr<IpMib>(ipmib));
  EXPECT_EQ(ipmib->name(), "a/b.c");
  EXPECT_TRUE(Kel::dynamicPtr<IpForwardMib>(Kel::resolve(root, "snmp/ip/vrf.mibs/a/b.c.ipforwardmib")));
  auto fib = Kel::dynamicPtr<FibStatsSnmp::FibStatsMib>(Kel::resolve(root, "snmp/ip/vrf.mibs/a/b.c.fibstatsmib"));
  ASSERT_TRUE(fib);
  EXPECT_EQ(fib->vrfName(), "a/b.c");
  EXPECT_EQ(makePtr<FibStatsSnmp::FibStatsMib>("fibstatsmib")->vrfName(), "default");
  dir->mibsDel("a/b.c");
  EXPECT_FALSE(Kel::resolve(root, "snmp/ip/vrf.mibs/a/b.c.ipmib"));
}

TEST(VrfTableEntry, stateAndRoutingComeFromTheRecords) {
  auto local = makePtr<Ip::VrfStatusLocal>(L3::VrfName("red"));
  auto global = makePtr<Ip::VrfStatusGlobal>(L3::VrfName("red"));
  auto mib = makePtr<IpVrfMib>("ipvrfmib");
  auto row = mib->vrfTableIs(Snmp::String("red"), nullptr, global, local);
  local->stateIs(Ip::vrfStateDeleting);
  global->stateIs(Ip::vrfStateInactive);
  EXPECT_EQ(row->vrfState(), Ip::vrfStateDeleting);
  local->stateIs(Ip::vrfStateActive);
  EXPECT_EQ(row->vrfState(), Ip::vrfStateInactive);
  EXPECT_EQ(makePtr<VrfTableEntry>("red", nullptr, nullptr, local)->vrfState(), Ip::vrfStateUnknown);
  EXPECT_EQ(row->routeDistinguisher().stringValue(), "");

  auto config = makePtr<Routing::Config>("red");
  auto status = row->vrfRoutingStatusIs("red", config, nullptr);
  EXPECT_FALSE(status->ipv4() || status->ipv6());
  config->routingIs(true);
  EXPECT_TRUE(status->ipv4());
  EXPECT_EQ(status->name(), "red");
  EXPECT_TRUE(row->vrfRoutingStatusDel());
}

TEST(NeighbourEntries, readTheSharedTableAtThatMoment) {
  auto table = makePtr<Arp::Table::TestStatus>();
  const Vrf::VrfIdMap::VrfId vrf(3);
  const Vantu::IntfId intf("eth0");
  const Vantu::IpGenAddr addr4(Vantu::IpAddr::fromString("10.0.0.1"));
  const Vantu::IpGenAddr addr6(Vantu::Ip6Addr::fromString("fe80::1"));
  table->entryIs({{vrf, addr4, intf}, Vantu::EthAddr::fromString("02:00:00:00:00:04"), {}});
  table->entryIs({{vrf, addr6, intf}, Vantu::EthAddr::fromString("02:00:00:00:00:06"), {}});
  Kel::System::clockIs([] { return 5.0; });
  auto mib = makePtr<IpMib>("ipmib");
  const auto rowOf = [&](const Vantu::IpGenAddr& addr) {
    return mib->ipNetToPhysicalTableIs(IpNetToPhysicalTableIndex(7, InetAddress::fromIpGenAddr(addr)), intf, addr,
                                       table, vrf);
  };
  auto row4 = rowOf(addr4);
  auto row6 = rowOf(addr6);
  Kel::System::clockIs([] { return 9.0; });
  EXPECT_EQ(rowOf(addr4), row4);
  Kel::System::clockIs({});
  EXPECT_EQ(row4->lastUpdated(), 5.0);
  EXPECT_EQ(row4->physAddress().stringValue(), "02:00:00:00:00:04");
  EXPECT_EQ(row6->physAddress().stringValue(), "02:00:00:00:00:06");
  table->entryIs({{vrf, addr4, intf}, Vantu::EthAddr::fromString("02:00:00:00:00:ff"), {}});
  EXPECT_EQ(makePtr<ArpTableEntry>(ArpTableIndex(7, addr4.v4()), intf, table, vrf)->physAddress().stringValue(),
            "02:00:00:00:00:ff");
  auto unset =
      makePtr<IpNetToPhysicalTableEntry>(IpNetToPhysicalTableIndex(), intf, Vantu::IpGenAddr(), table, vrf);
  EXPECT_DEATH(unset->arpEntry(), "assertion failed: false");
}

TEST(ProtocolMap, saysOtherOfWhatItDoesNotKnow) {
  ProtocolMap map;
  const Routing::Fib::RouteType type(11);
  EXPECT_EQ(map.protocol(type), ipRouteProtocolOther);
  fillProtocolMap(map);
  EXPECT_EQ(map.protocol(type), ipRouteProtocolLocal);
  const auto once = map;
  fillProtocolMap(map);
  EXPECT_EQ(map, once);
  map.protocolIs(type, IpRouteProtocol{});
  EXPECT_EQ(map.protocol(type), ipRouteProtocolOther);
}

TEST(IfIndex, comesFromTheProviderOfTheRecordsKind) {
  auto status = makePtr<Interface::IntfStatus>(Vantu::IntfId("eth0"));
  status->ifIndexIs(12);
  EXPECT_EQ(ifIndex(nullptr), 0xFFFFFFFF);
  EXPECT_EQ(ifIndex(status), noIfIndex);
  const Interface::LinuxIntfDetails linux;
  Interface::IntfDetailsProvider::providerIs("linux", &linux);
  EXPECT_EQ(ifIndex(status), noIfIndex);
  status->kindIs("linux");
  EXPECT_EQ(ifIndex(status), 12u);
  Interface::IntfDetailsProvider::providerIs("linux", nullptr);
  EXPECT_EQ(ifIndex(status), noIfIndex);
}

}  // namespace
}  // namespace IpSnmp
