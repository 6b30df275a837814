// Rows and collections of the caches, as far as the tables' tests do not show them.

#include "ipsnmp/IpMib.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "quillo/testing/TestArpTable.h"

namespace IpSnmp {
namespace {

using Kel::makePtr;

InetAddress v4(const char* text) {
  return InetAddress::fromIpAddr(Vantu::IpAddr::fromString(text));
}

TEST(IpMib, whatIsThereIsNotReplacedByItself) {
  const auto mib = makePtr<IpMib>("ipmib");
  const auto first = makePtr<IpAddressPrefixEntry>(IpAddressPrefixKey());
  mib->ipAddressPrefixTableInsert(first);
  const auto version = mib->ipAddressPrefixTable().version();
  mib->ipAddressPrefixTableInsert(first);
  EXPECT_EQ(mib->ipAddressPrefixTable().version(), version);
  EXPECT_THROW(mib->arpTable(ArpTableIndex(1, Vantu::IpAddr(1))), Kel::NoImplementationException);
  const auto entry = makePtr<IpAddressEntry>(v4("10.0.0.1"));
  const IntfDataKey key(addressSourceConfig, Vantu::IntfId("eth0"));
  for (const auto& prefix : {first, makePtr<IpAddressPrefixEntry>(IpAddressPrefixKey())}) {
    entry->intfIs({key, prefix});
    EXPECT_EQ(entry->prefixEntry(), first);
  }
}

TEST(IpMibDeathTest, anAddressOfTheWrongFamilyAborts) {
  const auto v6 = makePtr<IpAddressEntry>(InetAddress::fromIp6Addr(Vantu::Ip6Addr::fromString("fe80::1")));
  EXPECT_DEATH(v6->ipAdEntAddr(), "assertion failed: addrVersion\\(\\) == Ip::ipVersion4\\(\\)");
  const auto broken = makePtr<IpAddressEntry>(InetAddress(Ip::ipVersion4, Snmp::String("abc")));
  EXPECT_DEATH(broken->ipAdEntAddr(), "assertion failed: addrBytes\\(\\)\\.bytes\\(\\) == 4");
  EXPECT_DEATH(InetAddress::fromIpGenAddr(Vantu::IpGenAddr()), "assertion failed: false");
  const auto unset =
      makePtr<IpNetToPhysicalTableEntry>(IpNetToPhysicalTableIndex(), Vantu::IntfId("eth0"), Vantu::IpGenAddr(),
                                         makePtr<Arp::Table::TestStatus>(), Vrf::VrfIdMap::VrfId(3));
  EXPECT_DEATH(unset->arpEntry(), "assertion failed: false");
}

TEST(VrfTableEntry, theGlobalStateCountsWhileTheLocalOneIsActive) {
  const auto local = makePtr<Ip::VrfStatusLocal>(L3::VrfName("red"));
  const auto global = makePtr<Ip::VrfStatusGlobal>(L3::VrfName("red"));
  const auto row = makePtr<VrfTableEntry>("red", nullptr, global, local);
  global->stateIs(Ip::vrfStateInactive);
  for (const auto& [state, expected] :
       {std::pair{Ip::vrfStateDeleting, Ip::vrfStateDeleting}, {Ip::vrfStateActive, Ip::vrfStateInactive}}) {
    local->stateIs(state);
    EXPECT_EQ(row->vrfState(), expected);
  }
  EXPECT_EQ(makePtr<VrfTableEntry>("red", nullptr, nullptr, local)->vrfState(), Ip::vrfStateUnknown);
}

TEST(NeighbourEntries, readTheTableOfTheirFamilyAndKeepTheTimeOfTheirCreation) {
  const auto table = makePtr<Arp::Table::TestStatus>();
  const auto mib = makePtr<IpMib>("ipmib");
  const Vrf::VrfIdMap::VrfId vrf(3);
  const Vantu::IntfId intf("eth0");
  for (const auto& [address, mac] :
       {std::pair{"10.0.0.1", "02:00:00:00:00:04"}, {"fe80::1", "02:00:00:00:00:06"}}) {
    const auto addr = Vantu::IpGenAddr::fromString(address);
    const auto physAddress = Vantu::EthAddr::fromString(mac);
    table->entryIs({{vrf, addr, intf}, physAddress, {}});
    for (const double now : {5.0, 9.0}) {
      Kel::System::clockIs([now] { return now; });
      const IpNetToPhysicalTableIndex index(7, InetAddress::fromIpGenAddr(addr));
      const auto row = mib->ipNetToPhysicalTableIs(index, intf, addr, table, vrf);
      EXPECT_EQ(row->lastUpdated(), 5.0);
      EXPECT_EQ(row->physAddress().stringValue(), mac);
    }
    Kel::System::clockIs({});
  }
}

TEST(IfIndex, comesFromTheProviderOfTheRecordsKind) {
  const auto status = makePtr<Interface::IntfStatus>(Vantu::IntfId("eth0"));
  status->ifIndexIs(12);
  const Interface::LinuxIntfDetails linux;
  Interface::IntfDetailsProvider::providerIs("linux", &linux);
  EXPECT_EQ(ifIndex(nullptr), 0xFFFFFFFF);
  EXPECT_EQ(ifIndex(status), noIfIndex);
  status->kindIs("linux");
  EXPECT_EQ(ifIndex(status), 12U);
  Interface::IntfDetailsProvider::providerIs("linux", nullptr);
  EXPECT_EQ(ifIndex(status), noIfIndex);
}

}  // namespace
}  // namespace IpSnmp
