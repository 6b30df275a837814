#include "ipsnmp/agent/Root.h"

#include "ipsnmp/agent/address/IfIndexMap.h"
#include "ipsnmp/agent/testing/TestVrfWorld.h"

namespace IpSnmpTest {
namespace {

using namespace IpSnmp;

std::vector<Kel::Value> arguments(const World& world) {
  return {world.tree.intfStatusDir, world.ipMib,          world.tree.ipConfig,
          world.tree.ipStatus,      world.tree.ip6Config, world.tree.ip6Status};
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

// What the FIB statistics machines of the VRF with id 1 work on.
struct FibStats {
  Ptr<FibStatsSnmp::FibStatsSm> makeSm(VrfRoot& root) const {
    return root.fibStatsSmIs(nullptr, arp, VrfId(1), nullptr, mib);
  }
  // The IPv4 routes after a neighbour has come.
  unsigned countWith(std::string_view addr) const {
    arp->entryIs(neighbour(1, addr, "eth0"));
    return mib->summaryTable(Ip::ipVersion4)->totalRoutes();
  }
  Ptr<Arp::Table::TestStatus> arp = Kel::makePtr<Arp::Table::TestStatus>();
  Ptr<FibStatsSnmp::FibStatsMib> mib = FibStatsSnmp::fibStatsMibFactory("fibstatsmib");
};

// The machines of the mode in which FECs are kept.
struct FecMode {
  FecMode(const World& world, Root& root) {
    sm = Kel::callOperation(root, "fecModeSmIs", {Ptr<const L3::Config>(world.tree.l3Config), status});
    Kel::callOperation(root, "fecModeRestartSmIs", {Ptr<const Quillo::Fib::FecModeStatus>(status)});
    restartSm = root.fecModeRestartSm();
  }
  Ptr<Quillo::Fib::FecModeStatus> status = Kel::makePtr<Quillo::Fib::FecModeStatus>("fecmode");
  Kel::Value sm;
  Ptr<FecModeRestartSm> restartSm;
};

TEST(Root, fecModeFollowsTheConfiguration) {
  using namespace Quillo::Fib;
  World world;
  auto root = Kel::makePtr<Root>("root");
  const FecMode fecMode(world, *root);
  EXPECT_EQ(fecMode.status->fecMode(), fecModePerVrf) << "none is configured";
  EXPECT_EQ(fecMode.restartSm->fecMode(), fecModePerVrf);
  world.tree.l3Config->fecModeIs(fecModeUnified);
  EXPECT_EQ(fecMode.restartSm->fecMode(), fecModeUnified);
  Kel::callOperation(*root, "fecModeRestartSmDel", {});
  world.tree.l3Config->fecModeIs(fecModeUnknown);
  EXPECT_EQ(fecMode.status->fecMode(), fecModePerVrf);
  EXPECT_EQ(fecMode.restartSm->fecMode(), fecModeUnified) << "it was stopped";
}

TEST(Root, destroyingItStopsEveryMachine) {
  World world;
  world.sm = nullptr;
  world.intfIs("eth0", 3);
  world.statusIs("eth0", "10.1.1.1/24");
  auto root = Kel::makePtr<Root>("root");
  auto watcher = Kel::makePtr<Root::Notifiee>();
  watcher->notifierIs(root);
  watcher->notifierIs(nullptr);
  auto sm = root->ipAddressTableSmIs(world.tree.intfStatusDir, world.ipMib, world.tree.ipConfig,
                                     world.tree.ipStatus, world.tree.ip6Config, world.tree.ip6Status);
  FibStats fibStats;
  const auto fibSm =
      Kel::callOperation(*root, "fibStatsSmIs",
                         {Ptr<const Quillo::Fib::RouteStatus>(), Ptr<const Arp::Table::Status>(fibStats.arp),
                          VrfId(1), Ptr<const Routing::Config>(), fibStats.mib});
  const auto fib6Sm =
      Kel::callOperation(*root, "fib6StatsSmIs",
                         {Ptr<const Quillo::Fib6::RouteStatus>(), Ptr<const Arp::Table::Status>(fibStats.arp),
                          VrfId(1), Ptr<const Routing6::Config>(), fibStats.mib});
  auto dir = root->vrfRootDirIs("vrfs");
  auto red = dir->vrfRootIs("red");
  EXPECT_EQ(red->fullName(), "root.vrfRootDir.vrfRoot/red");
  FibStats redFibStats;
  const auto redFibSm = redFibStats.makeSm(*red);
  EXPECT_EQ(fibStats.countWith("10.0.0.1"), 1U);
  EXPECT_EQ(redFibStats.countWith("10.0.0.1"), 1U);
  const FecMode fecMode(world, *root);
  root = nullptr;
  // Although the handles of the test hold the machines.
  EXPECT_EQ(fibStats.countWith("10.0.0.2"), 1U);
  EXPECT_EQ(redFibStats.countWith("10.0.0.2"), 1U);
  world.tree.l3Config->fecModeIs(Quillo::Fib::fecModeUnified);
  EXPECT_EQ(fecMode.status->fecMode(), Quillo::Fib::fecModePerVrf);
  EXPECT_EQ(tables(*world.ipMib), "");
  EXPECT_FALSE(red->fibStatsSm());
  EXPECT_TRUE(dir->vrfRoot().empty());
}

TEST(Root, vrfMachinesAreWiredByNameAndGoWithIt) {
  VrfWorld world;
  world.sm = nullptr;
  world.intfIs("eth0", 3);
  world.intfVrfIs("eth0", "red");
  world.arp->entryIs(neighbour(0, "10.0.0.1", "eth0"));
  world.vrfIs("red", 1);
  world.agentIsReady();
  auto root = Kel::makePtr<Root>("root");
  Kel::callOperation(*root, "ipAddressTableSmIs", arguments(world));
  world.sm = root->ipAddressTableSm();
  const std::vector<Kel::Value> arpArguments{Ptr<const Interface::AllIntfStatusDir>(world.tree.intfStatusDir),
                                             world.ipMib, Ptr<const Arp::Table::Status>(world.arp), VrfId(0)};
  const auto arpSm = Kel::callOperation(*root, "arpTableSmIs", arpArguments);
  EXPECT_EQ(Kel::callOperation(*root, "arpTableSmIs", arpArguments), arpSm);
  world.arpTableSm = root->arpTableSm();
  Kel::callOperation(*root, "vrfIfTableSmIs",
                     {world.ipVrfMib, Ptr<const Interface::AllIntfStatusDir>(world.tree.intfStatusDir),
                      Ptr<const Ip::Config>(world.tree.ipConfig), Ptr<const Ip6::Config>(world.tree.ip6Config)});
  Kel::callOperation(*root, "vrfRootDirIs", {Kel::Name("vrfs")});
  world.vrfRootDir = root->vrfRootDir();
  Kel::callOperation(*root, "vrfRootSmIs", world.vrfRootArguments());
  world.vrfRootSm = root->vrfRootSm();
  EXPECT_EQ(Kel::callOperation(*root, "vrfRootSmIs", world.vrfRootArguments()), world.vrfRootSm);
  world.runTasks();
  EXPECT_TRUE(world.isServed("red"));
  EXPECT_EQ(neighbours(*world.ipMib), "3 10.0.0.1 eth0@0;");
  EXPECT_EQ(vrfIfs(*world.ipVrfMib), "3 red eth0;");
  EXPECT_EQ(world.vrfRootSm->vrfRoot("red")->arpTableSm()->fullName(), "root.vrfRootDir.vrfRoot/red.arpTableSm");
  root = nullptr;
  // Although the handles of the test hold the machines.
  EXPECT_FALSE(world.isServed("red"));
  EXPECT_EQ(vrfIfs(*world.ipVrfMib), "");
  EXPECT_TRUE(world.ipVrfMib->vrfTable().empty());
  world.vrfIs("blue", 2);
  world.runTasks();
  EXPECT_FALSE(world.isServed("blue"));
}

TEST(IfIndexMap, keepsTheLatestIfIndexInOrderOfTheInterfaces) {
  IfIndexMap map;
  map.ifIndexIs(intfOf("eth1"), 7);
  map.ifIndexIs(intfOf("eth0"), 3);
  map.ifIndexIs(intfOf("eth1"), 4);
  EXPECT_EQ(Kel::Value(map).print(), "Value('IpSnmp::IfIndexMap', ** {'eth0': 3, 'eth1': 4})");
  EXPECT_EQ(map.ifIndex(intfOf("eth0")), 3);
  EXPECT_TRUE(map.ifIndexDel(intfOf("eth0")));
  EXPECT_FALSE(map.ifIndexDel(intfOf("eth0")));
  EXPECT_FALSE(map.ifIndex(intfOf("eth0")));
}

}  // namespace
}  // namespace IpSnmpTest
