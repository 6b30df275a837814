#include "ipsnmp/agent/IfMibSm.h"
#include "ipsnmp/agent/TestVrfWorld.h"

namespace IpSnmpTest {
namespace {

using namespace IpSnmp;

struct VrfIfTableSmTest : testing::Test, VrfWorld {
  VrfIfTableSmTest() {
    machine = Kel::makePtr<VrfIfTableSm>(ipVrfMib, tree.intfStatusDir, tree.ipConfig, tree.ip6Config);
  }
  void intf6VrfIs(std::string_view intf, std::string_view vrf) {
    auto l3 = l3ConfigDir6->intfConfigIs(intfOf(intf));
    l3->vrfIs(L3::VrfName(vrf));
    tree.ip6Config->intfIs(intfOf(intf))->l3ConfigIs(l3);
  }
  std::string table() const { return vrfIfs(*ipVrfMib); }
  // Records of their own, so that the two configurations may differ.
  Ptr<L3::Intf::ConfigDir> l3ConfigDir6 = Kel::makePtr<L3::Intf::ConfigDir>("config6");
  Ptr<VrfIfTableSm> machine;
};

TEST_F(VrfIfTableSmTest, anInterfaceMovesBetweenVrfs) {
  auto status = intfIs("eth0", 3);
  intfVrfIs("eth0", "red");
  EXPECT_EQ(table(), "3 red eth0;");
  const auto row = ipVrfMib->vrfIfTable(3);
  intfVrfIs("eth0", "default");
  EXPECT_EQ(table(), "");
  intfVrfIs("eth0", "red");
  EXPECT_EQ(table(), "3 red eth0;");
  const auto again = ipVrfMib->vrfIfTable(3);
  intfVrfIs("eth0", "blue");
  EXPECT_EQ(table(), "3 blue eth0;");
  EXPECT_EQ(ipVrfMib->vrfIfTable(3), again);
  status->ifIndexIs(4);
  EXPECT_EQ(table(), "4 blue eth0;");
  tree.ipConfig->ipIntfConfig(intfOf("eth0"))->l3ConfigIs(nullptr);
  EXPECT_EQ(table(), "");
  EXPECT_EQ(row->vrfName(), "red");  // a row that is held stays readable
}

TEST_F(VrfIfTableSmTest, theRowStaysUntilNeitherConfigurationClaimsIt) {
  intfIs("eth0", 3);
  intfVrfIs("eth0", "red");
  intf6VrfIs("eth0", "red");
  EXPECT_EQ(table(), "3 red eth0;");
  tree.ipConfig->ipIntfConfigDel(intfOf("eth0"));
  EXPECT_EQ(table(), "3 red eth0;");
  intf6VrfIs("eth0", "blue");
  EXPECT_EQ(table(), "3 blue eth0;");
  intfVrfIs("eth0", "red");
  EXPECT_EQ(table(), "3 red eth0;");  // the IPv4 one decides
  intfVrfIs("eth0", "default");
  EXPECT_EQ(table(), "3 blue eth0;");
  tree.ip6Config->intfDel(intfOf("eth0"));
  EXPECT_EQ(table(), "");
}

TEST_F(VrfIfTableSmTest, theStatusRecordComesAndGoes) {
  intfVrfIs("eth0", "red");
  EXPECT_EQ(table(), "");
  auto status = intfIs("eth0", 3);
  EXPECT_EQ(table(), "3 red eth0;");
  tree.intfStatusDir->intfStatusDel(intfOf("eth0"));
  EXPECT_EQ(table(), "");
  auto second = intfIs("eth0", 3);
  EXPECT_EQ(ipVrfMib->vrfIfTable(3)->intfStatus(), second);
  status->ifIndexIs(9);
  EXPECT_EQ(table(), "3 red eth0;");
  intfVrfIs("eth1", "blue");
  intfIs("eth1", 3);  // in passing, two interfaces have one ifIndex
  EXPECT_EQ(table(), "3 red eth0;");
  second->ifIndexIs(0);
  EXPECT_EQ(table(), "3 blue eth1;");
  second->ifIndexIs(3);
  EXPECT_EQ(table(), "3 red eth0;");
  machine = nullptr;
  EXPECT_EQ(table(), "");
}

TEST_F(VrfIfTableSmTest, rowsAreMadeByHand) {
  TraceCatcher traces("VrfIfTableSm/6");
  auto status = intfIs("eth0", 3);
  machine->addToVrfIfTable("red", status);
  EXPECT_EQ(traces.take(" for vrf red"), 1);
  EXPECT_EQ(table(), "3 red eth0;");
  machine->addToVrfIfTable("default", status);
  EXPECT_EQ(table(), "");
  status->ifIndexIs(0);
  machine->addToVrfIfTable("red", status);
  machine->addToVrfIfTable("red", nullptr);
  EXPECT_EQ(table(), "");
}

TEST(IfMibSm, keepsTheMapEqualToTheRecords) {
  VrfWorld world;
  world.intfIs("eth0", 3);
  auto machine = Kel::makePtr<IfMibSm>(world.tree.intfStatusDir, world.ifMib);
  const auto map = [&] {
    std::map<std::string, int> all;
    for (const auto& [intfId, ifIndex] : world.ifMib->ifIndexByIntfId()) all[intfId.text()] = ifIndex;
    return all;
  };
  using Map = std::map<std::string, int>;
  auto eth1 = world.intfIs("eth1", 4);
  world.intfIs("eth2", 0);
  world.intfIs("eth3", 0x80000000);
  EXPECT_EQ(map(), (Map{{"eth0", 3}, {"eth1", 4}}));
  eth1->ifIndexIs(5);
  EXPECT_EQ(map(), (Map{{"eth0", 3}, {"eth1", 5}}));
  eth1->kindIs("without a provider");
  world.tree.intfStatusDir->intfStatusDel(intfOf("eth0"));
  EXPECT_EQ(map(), Map{});
  world.intfIs("eth0", 6);
  EXPECT_EQ(map(), (Map{{"eth0", 6}}));
  machine = nullptr;
  EXPECT_EQ(map(), Map{});
}

}  // namespace
}  // namespace IpSnmpTest
