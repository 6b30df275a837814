#include "ipsnmp/agent/Root.h"

#include "ipsnmp/agent/testing/TestVrfWorld.h"

namespace IpSnmpTest {
namespace {

using namespace IpSnmp;
using namespace Quillo::Fib;

TEST(Root, fecModeFollowsTheConfiguration) {
  World world;
  auto root = Kel::makePtr<Root>("root");
  auto status = Kel::makePtr<FecModeStatus>("fecmode");
  Kel::callOperation(*root, "fecModeSmIs", {Ptr<const L3::Config>(world.tree.l3Config), status});
  Kel::callOperation(*root, "fecModeRestartSmIs", {Ptr<const FecModeStatus>(status)});
  const auto restartSm = root->fecModeRestartSm();
  EXPECT_EQ(restartSm->fecMode(), fecModePerVrf) << "none is configured";
  world.tree.l3Config->fecModeIs(fecModeUnified);
  EXPECT_EQ(restartSm->fecMode(), fecModeUnified);
  Kel::callOperation(*root, "fecModeRestartSmDel", {});
  world.tree.l3Config->fecModeIs(fecModeUnknown);
  EXPECT_EQ(status->fecMode(), fecModePerVrf);
  const auto fecModeSm = root->fecModeSm();
  root = nullptr;
  world.tree.l3Config->fecModeIs(fecModeUnified);
  EXPECT_TRUE(status->fecMode() == fecModePerVrf && restartSm->fecMode() == fecModeUnified) << "both were stopped";
}

// The IPv4 routes that are counted after a neighbour has come.
unsigned countWith(VrfWorld& world, const Ptr<FibStatsSnmp::FibStatsMib>& mib, std::string_view addr) {
  world.arp->entryIs(neighbour(1, addr, "eth0"));
  return mib->summaryTable(Ip::ipVersion4)->totalRoutes();
}

TEST(Root, everyMachineStopsWithIt) {
  VrfWorld world;
  auto& root = world.root;
  world.sm = root->ipAddressTableSmIs(world.tree.intfStatusDir, world.ipMib, world.tree.ipConfig,
                                      world.tree.ipStatus, world.tree.ip6Config, world.tree.ip6Status);
  const auto stats = FibStatsSnmp::fibStatsMibFactory("fibstatsmib");
  const auto statsSm = root->fibStatsSmIs(nullptr, world.arp, VrfId(1), nullptr, stats);
  RouteTables tables;
  tables.intfIs("eth0", 3);
  tables.fecIs(1, {{"10.1.1.1", "eth0"}});
  tables.routeIs("10.0.0.0/24", 1);
  const auto routeSm = root->ipRouteTableSmIs(world.scheduler, "default", tables.mib, tables.routes, tables.fecs,
                                              nullptr, nullptr, tables.ifMib);
  const auto fecSm = root->perVrfFecSmIs(routeSm, tables.routes, tables.fecs);
  world.intfIs("eth0", 3);
  world.intfVrfIs("eth0", "red");
  world.statusIs("eth0", "10.1.1.1/24");
  world.vrfIs("red", 1);
  world.startReady();
  const auto red = world.vrfRootSm->vrfRoot("red");
  const auto redStats = world.vrfMibsDir->mibs("red")->fibstatsmib();
  EXPECT_EQ(red->arpTableSm()->fullName(), "root.vrfRootDir.vrfRoot/red.arpTableSm");
  EXPECT_EQ(world.sm->vrfIpMib("red")->fullName(), "vrf.mibs/red.ipmib") << "the machine does not own the cache";
  EXPECT_EQ(vrfIfs(*world.ipVrfMib), "3 red eth0;");
  EXPECT_NE(IpSnmpTest::tables(*world.ipMib), TableLines());
  EXPECT_EQ(countWith(world, stats, "10.0.0.1"), 1U);
  EXPECT_EQ(redStats->summaryTable(Ip::ipVersion4)->totalRoutes(), 1U);
  EXPECT_EQ(tables.rowTexts().size(), 1U);
  root = nullptr;
  // Although this test holds machines.
  world.statusIs("eth0", "10.1.1.2/24");
  EXPECT_EQ(countWith(world, stats, "10.0.0.2"), 1U);
  EXPECT_EQ(redStats->summaryTable(Ip::ipVersion4)->totalRoutes(), 1U);
  EXPECT_EQ(vrfIfs(*world.ipVrfMib), "");
  EXPECT_EQ(IpSnmpTest::tables(*world.ipMib), TableLines());
  EXPECT_EQ(tables.rowTexts().size(), 0U);
  EXPECT_FALSE(world.isServed("red") || red->fibStatsSm());
  world.vrfIs("blue", 2);
  world.runTasks();
  EXPECT_FALSE(world.isServed("blue"));
  EXPECT_EQ(world.scheduler->tasks().size(), 0U);
}

}  // namespace
}  // namespace IpSnmpTest
