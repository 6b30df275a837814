// VRFs and their tables of routes.

#include <gmock/gmock.h>

#include "ipsnmp/agent/testing/TestVrfWorld.h"
#include "ipsnmp/testing/TestRoutes.h"

namespace IpSnmpTest {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

struct TestMount : KelQuillo::Mount {
  Ptr<const Quillo::FibTable> table(std::string_view path) const override {
    asked.emplace_back(path);
    const auto at = tables.find(std::string(path));
    return at == tables.end() ? nullptr : at->second;
  }
  std::map<std::string, Ptr<const Quillo::FibTable>> tables;
  mutable std::vector<std::string> asked;
};

std::vector<std::string> rowTextsOf(const Ptr<IpSnmp::IpForwardMib>& mib) {
  std::vector<std::string> texts;
  for (RouteIterator at(mib); at; ++at) texts.push_back(rowText(*at));
  return texts;
}

struct VrfRoutesTest : testing::Test, VrfWorld {
  VrfRoutesTest() {
    manager = Kel::makePtr<Varnix::EntityManager>(
        Kel::makePtr<Kel::Dir>(""), Kel::makePtr<Quillo::Mount>(Quillo::MountConfig{"/nonexistent/store"}));
    manager->quilloMountIs(mount);
    ifMib->ifIndexByIntfIdIs(intfOf("eth0"), 3);
  }
  // A VRF's tables: one route, through one FEC.
  void tablesAre(RouteTables& tables, const std::string& vrf) {
    tables.routeIs("10.0.0.0/8", 1);
    tables.fecIs(1, {{"192.0.2.1", "eth0"}});
    mount->tables["routing/vrf/status/" + vrf] = tables.routes;
    mount->tables["forwarding/vrf/status/" + vrf] = tables.fecs;
  }
  Ptr<Quillo::TestRouteStatus<Vantu::Ip6Prefix>> routes6Are(const std::string& vrf) {
    auto routes = Kel::makePtr<Quillo::TestRouteStatus<Vantu::Ip6Prefix>>();
    mount->tables["routing6/vrf/status/" + vrf] = routes;
    return routes;
  }
  void startReady() {
    start();
    agentIsReady();
    runTasks();
  }
  Ptr<IpSnmp::IpForwardMib> mibOf(const std::string& vrf) const { return vrfMibsDir->mibs(vrf)->ipforwardmib(); }

  const std::string row = "10.0.0.0/8 192.0.2.1 if3 type4 proto7 metric10 pref1";
  Ptr<TestMount> mount = Kel::makePtr<TestMount>();
  RouteTables red;
  const Quillo::Fib6::Route route6{
      Vantu::Ip6Prefix::fromString("2001:db8::/32"), Routing::Fib::RouteType(4), {}, {}, {}};
};

// What is there when the VRF's context is entered.
struct OnServed : IpSnmp::VrfRootSm::Notifiee {
  IpSnmp::VrfMibsDir* dir = nullptr;
  std::vector<std::string> seen;
  void handleServedVrf(const L3::VrfName& vrf) override {
    const auto mibs = dir->mibs(vrf.stringValue());
    const bool isComplete = mibs && mibs->ipforwardmib()->routeStatus() && mibs->ipforwardmib()->fecsAndPrefixes();
    seen.push_back((notifier()->servedVrfHas(vrf) ? "enter " : "leave ") +
                   std::string(isComplete ? "whole" : "part"));
  }
};

TEST_F(VrfRoutesTest, routesComeAndGoWithTheirVrf) {
  tablesAre(red, "red");
  startReady();
  const auto onServed = Kel::makePtr<OnServed>();
  onServed->dir = vrfMibsDir.get();
  onServed->notifierIs(vrfRootSm);
  const auto routesBefore = red.routes->use_count();
  const auto fecsBefore = red.fecs->use_count();
  for (int i = 0; i < 3; ++i) {
    mount->asked.clear();
    vrfIs("red", 1);
    EXPECT_THAT(mount->asked,
                ElementsAre("routing/vrf/status/red", "routing6/vrf/status/red", "forwarding/vrf/status/red"));
    runTasks();
    const auto mib = mibOf("red");
    EXPECT_THAT(rowTextsOf(mib), ElementsAre(row));
    const auto root = vrfRootSm->vrfRoot("red");
    EXPECT_EQ(root->ipForwardMib(), mib);
    EXPECT_EQ(root->ipRouteTableSm()->vrfName(), "red");
    // A FEC that changes has its routes looked at again.
    red.fecIs(1, {{"192.0.2.2", "eth0"}});
    EXPECT_TRUE(root->ipRouteTableSm()->routeBacklogHas(prefixOf("10.0.0.0/8")));
    red.fecIs(1, {{"192.0.2.1", "eth0"}});
    localDel("red");
    EXPECT_THAT(rowTextsOf(mib), IsEmpty());  // although a request may hold it still
  }
  runTasks();
  EXPECT_EQ(routesBefore, red.routes->use_count());
  EXPECT_EQ(fecsBefore, red.fecs->use_count());
  EXPECT_THAT(onServed->seen, ElementsAre("enter whole", "leave whole", "enter whole", "leave whole", "enter whole",
                                          "leave whole"));
}

TEST_F(VrfRoutesTest, routesAndNeighboursAreCounted) {
  tablesAre(red, "red");
  const auto routes6 = routes6Are("red");
  startReady();
  arp->entryIs(neighbour(1, "10.0.0.1", "eth0"));
  arp->entryIs(neighbour(2, "10.0.0.1", "eth0"));
  arp->entryIs(neighbour(2, "10.0.0.2", "eth0"));
  vrfIs("red", 1);
  const auto mib = vrfMibsDir->mibs("red")->fibstatsmib();
  const auto count = [&](Ip::IpVersion version, FibStatsSnmp::RouteType type) {
    const auto found = mib->routeTypeTable(FibStatsSnmp::RouteTypeKey(version, type));
    return found ? found->totalRoutes() : 0U;
  };
  EXPECT_EQ(count(Ip::ipVersion4, FibStatsSnmp::routeTypeStatic), 1U);
  EXPECT_EQ(count(Ip::ipVersion4, FibStatsSnmp::routeTypeAttached), 1U);
  idIs("red", 2);
  runTasks();
  EXPECT_EQ(count(Ip::ipVersion4, FibStatsSnmp::routeTypeAttached), 2U);
  // A configuration that comes late is asked for the routes that come later still.
  tree.routing6VrfConfigDir->vrfConfigIs("red")->staticRouteIs(Routing6::StaticRouteKey(route6.prefix, {}),
                                                               Routing::StaticRouteFacts(true, true));
  routes6->routeIs(route6);
  EXPECT_EQ(count(Ip::ipVersion6, FibStatsSnmp::routeTypeStaticNexthopGroup), 1U);
  localDel("red");
  red.routes->routeDel(prefixOf("10.0.0.0/8"));
  EXPECT_EQ(count(Ip::ipVersion4, FibStatsSnmp::routeTypeStatic), 1U) << "the counts went with the VRF";
  EXPECT_FALSE(vrfMibsDir->mibs("red"));
}

TEST_F(VrfRoutesTest, mountsOfAnotherTypeAreAbsent) {
  tablesAre(red, "red");
  mount->tables["routing/vrf/status/red"] = red.fecs;
  startReady();
  vrfIs("red", 1);
  runTasks();
  EXPECT_TRUE(isServed("red"));
  EXPECT_FALSE(mibOf("red")->routeStatus());
  EXPECT_THAT(rowTextsOf(mibOf("red")), IsEmpty());
}

TEST_F(VrfRoutesTest, tablesThatCannotBeReadAtFirstAreReadWhenTheyCan) {
  tablesAre(red, "red");
  red.routes->isUnreadable = red.fecs->isUnreadable = true;
  startReady();
  vrfIs("red", 1);
  EXPECT_TRUE(isServed("red"));
  red.routes->isUnreadable = red.fecs->isUnreadable = false;
  red.routes->tableIs(red.routes->map);
  red.fecs->tableIs(red.fecs->map);
  runTasks();
  EXPECT_THAT(rowTextsOf(mibOf("red")), ElementsAre(row));
}

TEST_F(VrfRoutesTest, oneForwardingTableServesAllInUnifiedMode) {
  RouteTables all;
  tablesAre(all, "default");
  tablesAre(red, "red");
  red.fecs->fecDel(FecId(1));
  const auto defaultMib = Kel::makePtr<IpSnmp::IpForwardMib>("ipforwardmib");
  routeTableSm = Kel::makePtr<IpSnmp::IpRouteTableSm>(scheduler, "default", defaultMib, all.routes, all.fecs,
                                                      all.fecs, nullptr, ifMib);
  fecMode = Quillo::Fib::fecModeUnified;
  startReady();
  EXPECT_EQ(vrfRootSm->unifiedForwardingStatus(), all.fecs);
  vrfIs("red", 1);
  EXPECT_THAT(mount->asked, ElementsAre("routing/vrf/status/red", "routing6/vrf/status/red"));
  runTasks();
  EXPECT_THAT(rowTextsOf(mibOf("red")), ElementsAre(row));
  EXPECT_THAT(rowTextsOf(defaultMib), ElementsAre(row));
  EXPECT_EQ(mibOf("red")->fecsAndPrefixes()->forwardFecs(), routeTableSm->localForwardingFecs());
  EXPECT_FALSE(vrfRootSm->vrfRoot("red")->ipRouteTableSm()->fecTask());
  all.fecIs(1, {{"192.0.2.9", "eth0"}});
  EXPECT_TRUE(vrfRootSm->vrfRoot("red")->ipRouteTableSm()->routeBacklogHas(prefixOf("10.0.0.0/8")));
  runTasks();
  EXPECT_EQ(1U, rowTextsOf(mibOf("red")).size());
}

TEST_F(VrfRoutesTest, disabledRouteTablesAreNotRead) {
  tablesAre(red, "red");
  routeTablesEnabled = false;
  startReady();
  vrfIs("red", 1);
  runTasks();
  EXPECT_TRUE(isServed("red"));
  EXPECT_THAT(mount->asked, IsEmpty());
  EXPECT_FALSE(vrfRootSm->vrfRoot("red")->ipRouteTableSm());
}

TEST_F(VrfRoutesTest, anotherIdIsAnotherTable) {
  tablesAre(red, "red");
  startReady();
  vrfIs("red", 1);
  runTasks();
  RouteTables other;
  tablesAre(other, "red");
  other.routeIs("10.1.0.0/16", 1);
  const auto other6 = routes6Are("red");
  const auto before = red.routes->use_count();
  idIs("red", 2);
  other6->routeIs(route6);
  runTasks();
  EXPECT_EQ(2U, rowTextsOf(mibOf("red")).size());
  EXPECT_LT(red.routes->use_count(), before - 2);
  const auto counts = vrfMibsDir->mibs("red")->fibstatsmib();
  EXPECT_EQ(counts->summaryTable(Ip::ipVersion4)->totalRoutes(), 2U);
  ASSERT_TRUE(counts->summaryTable(Ip::ipVersion6));
  EXPECT_EQ(counts->summaryTable(Ip::ipVersion6)->totalRoutes(), 1U);
  other.fecIs(1, {{"192.0.2.2", "eth0"}});
  EXPECT_EQ(vrfRootSm->vrfRoot("red")->ipRouteTableSm()->routeBacklog().size(), 2U) << "the FEC's routes";
}

}  // namespace
}  // namespace IpSnmpTest
