#include "ipsnmp/agent/address/IpAddressTableSm.h"

#include "ipsnmp/agent/testing/TestWorld.h"

namespace IpSnmpTest {
namespace {

using namespace IpSnmp;

const L3::VrfName defaultVrf;

TEST(IpAddressTableSm, configuredAddressIsInaccessibleUntilInForce) {
  World world;
  world.intfIs("eth0", 3);
  world.configIs("eth0", "10.1.1.1/24");
  EXPECT_EQ(tables(*world.ipMib),
            "10.1.1.1 config: 1/eth0=3/24\n"
            "row 10.1.1.1 3 255.255.255.0\n"
            "prefix 3 10.1.1.0/24\n");
  const auto configuredRow = world.ipMib->ipAddressPrefixTable().begin()->second;
  world.statusIs("eth0", "10.1.1.1/24");
  EXPECT_EQ(tables(*world.ipMib),
            "10.1.1.1 preferred: 0/eth0=3/24 1/eth0=3/24\n"
            "row 10.1.1.1 3 255.255.255.0\n"
            "prefix 3 10.1.1.0/24\n");
  EXPECT_NE(world.ipMib->ipAddressPrefixTable().begin()->second, configuredRow);
  world.tree.ipStatus->ipIntfStatusDel(intfOf("eth0"));
  EXPECT_EQ(world.ipMib->ipAddressPrefixTable().begin()->second, configuredRow);
  world.tree.ipConfig->ipIntfConfigDel(intfOf("eth0"));
  EXPECT_EQ(tables(*world.ipMib), "");
  EXPECT_TRUE(world.sm->ipIntfConfig().empty());
}

TEST(IpAddressTableSm, prefixRowGoesToTheFirstPairOfAnAddress) {
  World world;
  TraceCatcher trace;
  const auto addr = mask4("10.1.1.1/24");
  world.sm->doAddAddr(intfOf("eth2"), addressSourceConfig, 2, defaultVrf, addr);
  EXPECT_EQ(trace.take("eth2 (ifIndex 2) is the first in the prefix table"), 1);
  world.sm->doAddAddr(intfOf("eth1"), addressSourceConfig, 1, defaultVrf, addr);
  EXPECT_EQ(
      trace.take("eth1 (ifIndex 1) taking over prefix table row for ifIndex 2 because old intfKey "
                 "Value('IpSnmp::IntfDataKey', ** {'source': addressSourceConfig, 'intfId': 'eth2'}) < new intfKey "
                 "Value('IpSnmp::IntfDataKey', ** {'source': addressSourceConfig, 'intfId': 'eth1'})"),
      1);
  world.sm->doAddAddr(intfOf("eth0"), addressSourceBorrowed, 9, defaultVrf, addr);
  EXPECT_EQ(trace.take("eth0 not added to the prefix table; ifIndex 1 is better"), 1);
  EXPECT_EQ(tables(*world.ipMib),
            "10.1.1.1 config: 1/eth1=1/24 1/eth2=2/24 2/eth0=9/24\n"
            "row 10.1.1.1 1 255.255.255.0\n"
            "prefix 1 10.1.1.0/24\n");
  world.sm->doDelAddr(intfOf("eth1"), addressSourceConfig, defaultVrf, addr);
  world.sm->doDelAddr(intfOf("eth1"), addressSourceConfig, defaultVrf, addr);
  EXPECT_EQ(tables(*world.ipMib),
            "10.1.1.1 config: 1/eth2=2/24 2/eth0=9/24\n"
            "row 10.1.1.1 2 255.255.255.0\n"
            "prefix 2 10.1.1.0/24\n");
  world.sm->doDelAddr(intfOf("eth0"), addressSourceBorrowed, defaultVrf, addr);
  world.sm->doDelAddr(intfOf("eth2"), addressSourceConfig, defaultVrf, addr);
  EXPECT_EQ(tables(*world.ipMib), "");
}

TEST(IpAddressTableSm, firstPrefixLengthStaysAndTheOtherIsNotLost) {
  World world;
  TraceCatcher trace;
  world.intfIs("eth0", 3);
  auto record = world.statusIs("eth0", "10.1.1.1/24");
  record->secondaryAddrWithMaskIs(mask4("10.1.1.1/16"), true);
  EXPECT_EQ(trace.take("eth0 already has address 10.1.1.1 with prefix length 24; ignoring it"), 1);
  EXPECT_NE(tables(*world.ipMib).find("prefix 3 10.1.1.0/24\n"), std::string::npos);
  record->activeAddrWithMaskIs({});
  EXPECT_EQ(tables(*world.ipMib),
            "10.1.1.1 preferred: 0/eth0=3/16\n"
            "row 10.1.1.1 3 255.255.0.0\n"
            "prefix 3 10.1.0.0/16\n");
}

TEST(IpAddressTableSm, ip6AddressesAreInNoIp4Table) {
  World world;
  world.intfIs("eth0", 3);
  world.intfIs("eth1", 4);
  auto status = world.tree.ip6Status->intfIs(intfOf("eth0"));
  status->addrIs(mask6("fe80::1/64"), Ip6::AddressInfo(Ip6::addressStateTentative));
  world.tree.ip6Config->intfIs(intfOf("eth1"))->addrIs(mask6("fe80::1/10"), Ip6::AddressInfo());
  world.tree.ip6Config->intf(intfOf("eth1"))->addrIs(mask6("::/64"), Ip6::AddressInfo());
  EXPECT_EQ(tables(*world.ipMib), "fe80::1 preferred: 0/eth0=3/64 1/eth1=4/10\nprefix 3 fe80::/64\n");
  status->addrIs(mask6("fe80::1/64"), Ip6::AddressInfo(Ip6::addressStatePreferred));
  EXPECT_EQ(world.sm->ip6IntfStatus(intfOf("eth0"))->oldAddr().at(mask6("fe80::1/64")).state(),
            Ip6::addressStatePreferred);
  status->addrDel(mask6("fe80::1/64"));
  EXPECT_EQ(tables(*world.ipMib), "fe80::1 config: 1/eth1=4/10\nprefix 4 fe80::/10\n");
}

TEST(IpAddressTableSm, waitsForStatusRecordAndIfIndex) {
  World world;
  TraceCatcher trace;
  world.statusIs("eth0", "10.1.1.1/24");
  EXPECT_EQ(tables(*world.ipMib), "");
  auto status = world.tree.intfStatusDir->intfStatusIs(intfOf("eth0"));
  EXPECT_EQ(trace.take("eth0 Have IpIntfStatus"), 1);
  EXPECT_EQ(tables(*world.ipMib), "");  // nobody knows the details of an interface without a kind
  status->kindIs("linux");
  EXPECT_EQ(tables(*world.ipMib), "");
  status->ifIndexIs(7);
  EXPECT_NE(tables(*world.ipMib).find("prefix 7 10.1.1.0/24"), std::string::npos);
  status->ifIndexIs(0x80000000u);  // negative as an InterfaceIndex
  EXPECT_EQ(tables(*world.ipMib), "");
  status->ifIndexIs(8);
  EXPECT_EQ(tables(*world.ipMib),
            "10.1.1.1 preferred: 0/eth0=8/24\n"
            "row 10.1.1.1 8 255.255.255.0\n"
            "prefix 8 10.1.1.0/24\n");
  world.tree.intfStatusDir->intfStatusDel(intfOf("eth0"));
  EXPECT_EQ(tables(*world.ipMib), "");
  status->ifIndexIs(9);  // the record that went is not heard any more
  EXPECT_EQ(tables(*world.ipMib), "");
  world.intfIs("eth0", 10);
  EXPECT_NE(tables(*world.ipMib).find("prefix 10 10.1.1.0/24"), std::string::npos);
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
  details.index = 5;  // nobody is told
  record->secondaryAddrWithMaskIs(mask4("10.1.2.1/24"), true);
  EXPECT_EQ(tables(*world.ipMib),
            "10.1.1.1 preferred: 0/eth0=5/24\n10.1.2.1 preferred: 0/eth0=5/24\n"
            "row 10.1.1.1 5 255.255.255.0\nrow 10.1.2.1 5 255.255.255.0\n"
            "prefix 5 10.1.1.0/24\nprefix 5 10.1.2.0/24\n");
  details.index = 6;
  world.sm->handleIntfInVrf("default");
  EXPECT_NE(tables(*world.ipMib).find("row 10.1.2.1 6"), std::string::npos);
  Interface::IntfDetailsProvider::providerIs("other", nullptr);
}

TEST(IpAddressTableSm, anotherIfIndexOfAPairReplacesThePair) {
  World world;
  world.sm->doAddAddr(intfOf("eth0"), addressSourceStatus, 3, defaultVrf, mask4("10.1.1.1/24"));
  world.sm->doAddAddr(intfOf("eth0"), addressSourceStatus, 4, defaultVrf, mask4("10.1.1.1/24"));
  const auto version = world.ipMib->ipAddressTable().version();
  world.sm->doAddAddr(intfOf("eth0"), addressSourceStatus, 4, defaultVrf, mask4("10.1.1.1/24"));
  EXPECT_EQ(world.ipMib->ipAddressTable().version(), version);  // told again: nothing to do
  world.sm->doAddAddr(intfOf("eth0"), addressSourceStatus, 0, defaultVrf, mask4("10.1.1.2/24"));
  world.sm->doAddAddr(intfOf("eth0"), addressSourceStatus, 3, defaultVrf, mask4("0.0.0.0/8"));
  EXPECT_EQ(tables(*world.ipMib),
            "10.1.1.1 preferred: 0/eth0=4/24\n"
            "row 10.1.1.1 4 255.255.255.0\n"
            "prefix 4 10.1.1.0/24\n");
}

TEST(IpAddressTableSm, addressesOfAVrfWithoutACacheAreTraced) {
  World world;
  TraceCatcher trace;
  world.intfIs("red/eth0", 3);
  auto l3 = world.tree.l3StatusDir->intfStatusIs(intfOf("red/eth0"));
  l3->vrfIs(L3::VrfName("red"));
  auto record = world.tree.ipStatus->ipIntfStatusIs(intfOf("red/eth0"));
  record->l3StatusIs(l3);
  record->activeAddrWithMaskIs(mask4("10.1.1.1/24"));
  EXPECT_EQ(trace.take("no ipmib in vrf red"), 1);
  auto red = Kel::makePtr<IpMib>("red");
  world.sm->vrfIpMibIs(red);
  EXPECT_EQ(tables(*red), "");
  world.sm->handleIntfInVrf("red");
  EXPECT_NE(tables(*red), "");
  EXPECT_TRUE(world.sm->vrfIpMibDel("red"));
  EXPECT_FALSE(world.sm->vrfIpMibDel("red"));
  trace.take("");
  record->activeAddrWithMaskIs({});
  EXPECT_EQ(trace.take("no ipmib in vrf red"), 1);
}

TEST(IpAddressTableSm, vrfCachesKeepTheirPlaceInTheTree) {
  World world;
  auto dir = Kel::makePtr<VrfMibsDir>("vrf");
  auto red = dir->mibsIs("red")->ipmib();
  world.sm->vrfIpMibIs(red);
  EXPECT_EQ(world.sm->vrfIpMib("red"), red);
  world.sm = nullptr;
  EXPECT_EQ(red->fullName(), "vrf.mibs/red.ipmib");
}

TEST(IpAddressTableSm, stoppedMachineLeavesNothingAndHearsNothing) {
  World world;
  world.intfIs("eth0", 3);
  auto record = world.statusIs("eth0", "10.1.1.1/24");
  auto reactor = world.sm->ipIntfStatus(intfOf("eth0"));
  const auto before = tables(*world.ipMib);
  world.sm->kelStop();
  EXPECT_EQ(tables(*world.ipMib), "");
  record->activeAddrWithMaskIs(mask4("10.1.1.2/24"));
  world.statusIs("eth1", "10.1.1.1/24");
  world.sm->handleIntfInVrf("default");
  EXPECT_EQ(tables(*world.ipMib), "");
  record->activeAddrWithMaskIs(mask4("10.1.1.1/24"));
  world.smIs();
  EXPECT_EQ(tables(*world.ipMib), before);
  EXPECT_FALSE(reactor->notifier());
}

// A machine that goes, with its reactors, while a change of a record is still being told.
TEST(IpAddressTableSm, mayDieInsideAHandler) {
  struct Killer : Ip::IpIntfStatus::Notifiee {
    World* world = nullptr;
    void handleActiveAddrWithMask() override { world->sm = nullptr; }
  };
  World world;
  world.sm = nullptr;
  world.intfIs("eth0", 3);
  auto record = world.statusIs("eth0", "10.1.1.1/24");
  auto killer = Kel::makePtr<Killer>();
  killer->world = &world;
  killer->notifierIs(record);
  world.smIs();
  EXPECT_NE(tables(*world.ipMib), "");
  record->activeAddrWithMaskIs(mask4("10.1.1.2/24"));
  EXPECT_EQ(tables(*world.ipMib), "");
}

}  // namespace
}  // namespace IpSnmpTest
