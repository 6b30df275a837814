// What the random histories do not show: traces, and changes that nobody notifies.

#include "ipsnmp/agent/address/IpAddressTableSm.h"

#include <gmock/gmock.h>

#include "ipsnmp/agent/testing/TestWorld.h"

namespace IpSnmpTest {
namespace {

using namespace IpSnmp;

const L3::VrfName defaultVrf;

TEST(IpAddressTableSm, decisionsAreTraced) {
  World world;
  TraceLines lines("IpAddressTableSm");
  const auto addr = mask4("10.1.1.1/24");
  auto& sm = *world.sm;
  const struct {
    std::function<void()> event;
    const char* line;
  } rows[] = {
      {[&] { sm.doAddAddr(intfOf("eth2"), addressSourceConfig, 2, defaultVrf, addr); },
       "6 eth2 (ifIndex 2) is the first in the prefix table"},
      {[&] { sm.doAddAddr(intfOf("eth1"), addressSourceConfig, 1, defaultVrf, addr); },
       "6 eth1 (ifIndex 1) taking over prefix table row for ifIndex 2 because old intfKey "
       "Value('IpSnmp::IntfDataKey', ** {'source': addressSourceConfig, 'intfId': 'eth2'}) < new intfKey "
       "Value('IpSnmp::IntfDataKey', ** {'source': addressSourceConfig, 'intfId': 'eth1'})"},
      {[&] { sm.doAddAddr(intfOf("eth0"), addressSourceBorrowed, 9, defaultVrf, addr); },
       "6 eth0 not added to the prefix table; ifIndex 1 is better"},
      {[&] { sm.doAddAddr(intfOf("eth1"), addressSourceConfig, 1, defaultVrf, mask4("10.1.1.1/16")); },
       "6 eth1 already has address 10.1.1.1 with prefix length 24; ignoring it"},
      {[&] { sm.doAddAddr(intfOf("eth1"), addressSourceConfig, 1, L3::VrfName("red"), addr); },
       "6 no ipmib in vrf red"},
      {[&] { sm.doDelAddr(intfOf("eth1"), addressSourceConfig, L3::VrfName("red"), addr); },
       "6 no ipmib in vrf red"},
      {[&] {
         world.configIs("eth5", "10.1.1.1/24");
         world.statusIs("eth5", "10.1.1.1/24");
         world.tree.ip6Config->intfIs(intfOf("eth5"));
         world.tree.ip6Status->intfIs(intfOf("eth5"));
         world.intfIs("eth5", 5);
       },
       "6 eth5 Have IpIntfConfig"},
      {[&] { world.intfIs("eth5", 0); }, "6 eth5 has no ifIndex; ignoring 10.1.1.1/24"},
      {[&] { world.tree.intfStatusDir->intfStatusDel(intfOf("eth5")); }, "6 eth5 Have IpIntfStatus"},
      {[&] { world.intfIs("eth5", 5); }, "6 eth5 Have Ip6IntfConfig"},
      {[&] { world.tree.intfStatusDir->intfStatusDel(intfOf("eth5")); }, "6 eth5 Have Ip6IntfStatus"},
  };
  for (const auto& row : rows) {
    row.event();
    EXPECT_THAT(lines.take(), testing::Contains(row.line));
  }
}

TEST(IpAddressTableSm, ifIndexIsAskedForWithEachAddress) {
  struct Details : Interface::IntfDetailsProvider {
    std::uint32_t index = 0;
    std::uint32_t ifIndex(const Interface::IntfStatus&) const override { return index; }
  };
  World world;
  Details details;
  Interface::IntfDetailsProvider::providerIs("other", &details);
  world.tree.intfStatusDir->intfStatusIs(intfOf("eth0"))->kindIs("other");
  const auto record = world.statusIs("eth0", "10.1.1.1/24");
  details.index = 5;  // nobody is notified
  record->secondaryAddrWithMaskIs(mask4("10.1.2.1/24"), true);
  EXPECT_EQ(tables(*world.ipMib), (TableLines{"10.1.1.1 preferred: 0/eth0=5/24", "10.1.2.1 preferred: 0/eth0=5/24",
                                              "row 10.1.1.1 5 255.255.255.0", "row 10.1.2.1 5 255.255.255.0",
                                              "prefix 5 10.1.1.0/24", "prefix 5 10.1.2.0/24"}));
  details.index = 0x80000000u;  // negative as an InterfaceIndex
  world.sm->handleIntfInVrf("default");
  EXPECT_EQ(tables(*world.ipMib), TableLines());
  Interface::IntfDetailsProvider::providerIs("other", nullptr);
}

TEST(IpAddressTableSm, aPairThatIsReportedAgainStays) {
  World world;
  std::set<std::uint64_t> versions;
  for (const int ifIndex : {3, 4, 4}) {
    world.sm->doAddAddr(intfOf("eth0"), addressSourceStatus, ifIndex, defaultVrf, mask4("10.1.1.1/24"));
    versions.insert(world.ipMib->ipAddressTable().version());
  }
  EXPECT_EQ(versions.size(), 2U);
  EXPECT_EQ(tables(*world.ipMib), (TableLines{"10.1.1.1 preferred: 0/eth0=4/24", "row 10.1.1.1 4 255.255.255.0",
                                              "prefix 4 10.1.1.0/24"}));
}

TEST(IfIndexMap, keepsTheLatestIfIndexInOrderOfTheInterfaces) {
  IfIndexMap map;
  for (const auto& [intf, ifIndex] : {std::pair{"eth1", 7}, {"eth0", 3}, {"eth1", 4}}) {
    map.ifIndexIs(intfOf(intf), ifIndex);
  }
  EXPECT_EQ(Kel::Value(map).print(), "Value('IpSnmp::IfIndexMap', ** {'eth0': 3, 'eth1': 4})");
  EXPECT_TRUE(map.ifIndexDel(intfOf("eth0")));
  EXPECT_FALSE(map.ifIndexDel(intfOf("eth0")) || map.ifIndex(intfOf("eth0")));
}

}  // namespace
}  // namespace IpSnmpTest
