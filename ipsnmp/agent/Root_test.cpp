#include "ipsnmp/agent/Root.h"

#include "ipsnmp/agent/IfIndexMap.h"
#include "ipsnmp/agent/TestWorld.h"

namespace IpSnmpTest {
namespace {

using namespace IpSnmp;

std::vector<std::string> ownAttributes(const Kel::TypeInfo& type) {
  std::vector<std::string> names;
  for (const auto& attribute : type.attributes()) {
    if (!Kel::Entity::kelStaticTypeInfo().find(attribute.name)) names.push_back(attribute.name);
  }
  return names;
}

std::vector<Kel::Value> arguments(const World& world) {
  return {world.tree.intfStatusDir, world.ipMib,          world.tree.ipConfig,
          world.tree.ipStatus,      world.tree.ip6Config, world.tree.ip6Status};
}

TEST(Root, attributesInOrder) {
  EXPECT_EQ(ownAttributes(Root::kelStaticTypeInfo()),
            (std::vector<std::string>{"ipConfig", "ipStatus", "ip6Config", "ip6Status", "intfStatusDir", "ipMib",
                                      "fecModeSm", "fecModeRestartSm", "ipAddressTableSm", "arpTableSm",
                                      "ipForwardMib", "fibStatsMib", "fibStatsSm", "fib6StatsSm", "ipRouteTableSm",
                                      "perVrfFecSm", "vrfIfTableSm", "vrfRootSm", "vrfRootDir"}));
  EXPECT_EQ(ownAttributes(VrfRoot::kelStaticTypeInfo()),
            (std::vector<std::string>{"vrfId", "ipMib", "arpTableSm", "ipForwardMib", "fibStatsMib", "fibStatsSm",
                                      "fib6StatsSm", "ipRouteTableSm", "perVrfFecSm"}));
}

TEST(Root, addressMachineIsWiredByName) {
  World world;
  world.sm = nullptr;
  world.intfIs("eth0", 3);
  world.statusIs("eth0", "10.1.1.1/24");
  auto root = Kel::makePtr<Root>("root");
  auto sm = Kel::callOperation(*root, "ipAddressTableSmIs", arguments(world));
  ASSERT_EQ(sm, root->ipAddressTableSm());
  EXPECT_EQ(root->ipAddressTableSm()->fullName(), "root.ipAddressTableSm");
  EXPECT_NE(tables(*world.ipMib), "");
  EXPECT_EQ(Kel::callOperation(*root, "ipAddressTableSmIs", arguments(world)), sm);
  auto others = arguments(world);
  others[1] = Kel::makePtr<IpMib>("other");
  EXPECT_THROW(Kel::callOperation(*root, "ipAddressTableSmIs", others), Kel::ReinstantiationException);
  others[1] = Ptr<const IpMib>(world.ipMib);
  EXPECT_THROW(Kel::callOperation(*root, "ipAddressTableSmIs", others), Kel::AttributeException);
  Kel::callOperation(*root, "ipAddressTableSmDel", {});
  EXPECT_FALSE(root->ipAddressTableSm());
  EXPECT_EQ(tables(*world.ipMib), "");  // although `sm` still holds the machine
  Kel::callOperation(*root, "ipAddressTableSmIs", arguments(world));
  EXPECT_NE(tables(*world.ipMib), "");
}

// Deletes itself from a list when it is stopped.
class Machine : public Kel::Entity {
 public:
  Machine(Kel::Name name, std::vector<std::string>* stopped) : Entity(std::move(name)), stopped_(stopped) {}
  void kelStop() override { stopped_->push_back(name()); }

 private:
  std::vector<std::string>* stopped_;
};

TEST(Root, destroyingItStopsEveryMachineUsersFirst) {
  World world;
  world.sm = nullptr;
  world.intfIs("eth0", 3);
  world.statusIs("eth0", "10.1.1.1/24");
  std::vector<std::string> stopped;
  const auto machine = [&](const char* name) { return Kel::makePtr<Machine>(name, &stopped); };
  auto root = Kel::makePtr<Root>("root");
  auto watcher = Kel::makePtr<Root::Notifiee>();
  watcher->notifierIs(root);
  watcher->notifierIs(nullptr);
  auto sm = root->ipAddressTableSmIs(world.tree.intfStatusDir, world.ipMib, world.tree.ipConfig,
                                     world.tree.ipStatus, world.tree.ip6Config, world.tree.ip6Status);
  root->arpTableSmIs(machine("arp"));
  root->vrfRootSmIs(machine("vrfRootSm"));
  auto dir = root->vrfRootDirIs("vrfs");
  auto red = dir->vrfRootIs("red");
  EXPECT_EQ(red->fullName(), "root.vrfRootDir.vrfRoot/red");
  red->arpTableSmIs(machine("red arp"));
  red->perVrfFecSmIs(machine("red fec"));
  auto replaced = machine("replaced fec mode");
  root->fecModeSmIs(replaced);
  root->fecModeSmIs(machine("fec mode"));
  root = nullptr;
  EXPECT_EQ(stopped,
            (std::vector<std::string>{"replaced fec mode", "vrfRootSm", "red fec", "red arp", "arp", "fec mode"}));
  EXPECT_EQ(tables(*world.ipMib), "");
  EXPECT_FALSE(red->arpTableSm());
  EXPECT_TRUE(dir->vrfRoot().empty());
}

TEST(VrfRoot, deletingAMemberStopsItsMachines) {
  std::vector<std::string> stopped;
  auto dir = Kel::makePtr<VrfRootDir>("vrfs");
  auto red = dir->vrfRootIs("red");
  EXPECT_EQ(dir->vrfRootIs("red"), red);
  EXPECT_FALSE(red->vrfId().isKnown());
  red->ipRouteTableSmIs(Kel::makePtr<Machine>("route", &stopped));
  dir->vrfRootDel("red");
  EXPECT_EQ(stopped, std::vector<std::string>{"route"});
}

TEST(IfIndexMap, isAValue) {
  IfIndexMap map;
  map.ifIndexIs(intfOf("eth1"), 7);
  map.ifIndexIs(intfOf("eth0"), 3);
  map.ifIndexIs(intfOf("eth1"), 4);
  IfIndexMap copy = map;
  EXPECT_EQ(copy, map);
  EXPECT_EQ(Kel::Value(map).print(), "Value('IpSnmp::IfIndexMap', ** {'eth0': 3, 'eth1': 4})");
  EXPECT_TRUE(copy.ifIndexDel(intfOf("eth0")));
  EXPECT_FALSE(copy.ifIndexDel(intfOf("eth0")));
  EXPECT_FALSE(copy == map);
  EXPECT_FALSE(copy.ifIndex(intfOf("eth0")));
  EXPECT_EQ(map.ifIndex(intfOf("eth0")), 3);
  map.ifIndexDelAll();
  copy.ifIndexDelAll();
  EXPECT_EQ(copy, map);
}

}  // namespace
}  // namespace IpSnmpTest
