#include "ipsnmp/agent/route/IfMibSm.h"
#include "ipsnmp/agent/testing/TestVrfWorld.h"

namespace IpSnmpTest {
namespace {

using namespace IpSnmp;

struct VrfIfTableSmTest : testing::Test, VrfWorld {
  VrfIfTableSmTest() {
    machine = Kel::makePtr<VrfIfTableSm>(ipVrfMib, tree.intfStatusDir, tree.ipConfig, tree.ip6Config);
  }
  std::string table() const { return vrfIfs(*ipVrfMib); }
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
  tree.intfStatusDir->intfStatusDel(intfOf("eth0"));
  const auto next = intfIs("eth0", 5);
  status->ifIndexIs(9);  // the record that went is not heard any more
  EXPECT_EQ(table(), "5 blue eth0;");
  EXPECT_EQ(ipVrfMib->vrfIfTable(5)->intfStatus(), next);
  tree.ipConfig->ipIntfConfig(intfOf("eth0"))->l3ConfigIs(nullptr);
  EXPECT_EQ(table(), "");
  EXPECT_EQ(row->vrfName(), "red");  // a row that is held stays readable
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
