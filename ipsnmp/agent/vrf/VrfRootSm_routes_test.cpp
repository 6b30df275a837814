#include <gmock/gmock.h>

#include "ipsnmp/agent/testing/TestVrfWorld.h"

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

struct VrfRoutesTest : testing::Test, VrfWorld {
  VrfRoutesTest() {
    manager = Kel::makePtr<Varnix::EntityManager>(
        Kel::makePtr<Kel::Dir>(""), Kel::makePtr<Quillo::Mount>(Quillo::MountConfig{"/nonexistent/store"}));
    manager->setQuilloMount(mount);
    ifMib->ifIndexByIntfIdIs(intfOf("eth0"), 3);
    updateTables(red);
  }
  // The tables of VRF red: one IPv4 route, through one FEC.
  void updateTables(RouteTables& tables) {
    tables.routeIs("10.0.0.0/8", 1);
    tables.fecIs(1, {{"192.0.2.1", "eth0"}});
    mount->tables["routing/vrf/status/red"] = tables.routes;
    mount->tables["forwarding/vrf/status/red"] = tables.fecs;
    mount->tables["routing6/vrf/status/red"] = routes6 = Kel::makePtr<Quillo::TestRouteStatus<Vantu::Ip6Prefix>>();
  }
  void redIs() {
    startReady();
    vrfIs("red", 1);
    runTasks();
  }
  Ptr<IpSnmp::IpForwardMib> redMib() const { return vrfMibsDir->mibs("red")->ipforwardmib(); }
  Ptr<IpSnmp::IpRouteTableSm> redSm() const { return vrfRootSm->vrfRoot("red")->ipRouteTableSm(); }
  unsigned count(Ip::IpVersion version, FibStatsSnmp::RouteType type) const {
    const auto mib = vrfMibsDir->mibs("red")->fibstatsmib();
    const auto found = mib->routeTypeTable(FibStatsSnmp::RouteTypeKey(version, type));
    return found ? found->totalRoutes() : 0U;
  }

  const std::string row = "10.0.0.0/8 192.0.2.1 if3 type4 proto7 metric10 pref1";
  Ptr<TestMount> mount = Kel::makePtr<TestMount>();
  RouteTables red;
  Ptr<Quillo::TestRouteStatus<Vantu::Ip6Prefix>> routes6;
  const Quillo::Fib6::Route route6{
      Vantu::Ip6Prefix::fromString("2001:db8::/32"), Routing::Fib::RouteType(4), {}, {}, {}};
};

TEST_F(VrfRoutesTest, routesComeAndGoWithTheirVrf) {
  startReady();
  const auto routesBefore = red.routes->use_count();
  const auto fecsBefore = red.fecs->use_count();
  for (int i = 0; i < 3; ++i) {
    mount->asked.clear();
    vrfIs("red", 1);
    EXPECT_THAT(mount->asked,
                ElementsAre("routing/vrf/status/red", "routing6/vrf/status/red", "forwarding/vrf/status/red"));
    runTasks();
    const auto mib = redMib();
    EXPECT_THAT(rowTextsOf(mib), ElementsAre(row));
    EXPECT_EQ(redSm()->vrfName(), "red");
    red.fecIs(1, {{"192.0.2.1", "eth0"}});
    EXPECT_TRUE(redSm()->routeBacklogHas(prefixOf("10.0.0.0/8"))) << "routes of a FEC that changes are looked up";
    localDel("red");
    EXPECT_THAT(rowTextsOf(mib), IsEmpty());  // although a request may hold it still
  }
  EXPECT_EQ(routesBefore, red.routes->use_count());
  EXPECT_EQ(fecsBefore, red.fecs->use_count());
}

TEST_F(VrfRoutesTest, oneForwardingTableServesAllInUnifiedMode) {
  RouteTables all;
  all.fecIs(1, {{"192.0.2.1", "eth0"}});
  red.fecs->fecDel(FecId(1));
  routeTableSm = Kel::makePtr<IpSnmp::IpRouteTableSm>(scheduler, "default", all.mib, all.routes, all.fecs, all.fecs,
                                                      nullptr, ifMib);
  fecMode = Quillo::Fib::fecModeUnified;
  redIs();
  EXPECT_EQ(vrfRootSm->unifiedForwardingStatus(), all.fecs);
  EXPECT_THAT(mount->asked, ElementsAre("routing/vrf/status/red", "routing6/vrf/status/red"));
  EXPECT_THAT(rowTextsOf(redMib()), ElementsAre(row));
  EXPECT_FALSE(redSm()->fecTask() || redSm()->localForwardingFecs());
  redSm()->handleFec(FecId(1));
  EXPECT_THAT(redSm()->fecBacklog(), IsEmpty());
  all.fecIs(1, {{"192.0.2.9", "eth0"}});
  EXPECT_TRUE(redSm()->routeBacklogHas(prefixOf("10.0.0.0/8")));
}

TEST_F(VrfRoutesTest, tablesOfAnotherTypeOrDisabledOnesAreAbsent) {
  mount->tables["routing/vrf/status/red"] = red.fecs;
  redIs();
  EXPECT_TRUE(isServed("red"));
  EXPECT_FALSE(redMib()->routeStatus());
  root->vrfRootSmDel();
  mount->asked.clear();
  routeTablesEnabled = false;
  vrfRootSmIs();
  runTasks();
  EXPECT_TRUE(isServed("red"));
  EXPECT_THAT(mount->asked, IsEmpty());
  EXPECT_FALSE(redSm());
}

TEST_F(VrfRoutesTest, anotherIdIsAnotherTableWithOtherNeighbours) {
  using namespace FibStatsSnmp;
  arp->entryIs(neighbour(1, "10.0.0.1", "eth0"));
  arp->entryIs(neighbour(2, "10.0.0.1", "eth0"));
  arp->entryIs(neighbour(2, "10.0.0.2", "eth0"));
  redIs();
  EXPECT_EQ(count(Ip::ipVersion4, routeTypeStatic), 1U);
  EXPECT_EQ(count(Ip::ipVersion4, routeTypeAttached), 1U);
  RouteTables other;
  updateTables(other);
  other.routeIs("10.1.0.0/16", 1);
  const auto before = red.routes->use_count();
  idIs("red", 2);
  runTasks();
  EXPECT_EQ(2U, rowTextsOf(redMib()).size());
  EXPECT_LT(red.routes->use_count(), before - 2);
  EXPECT_EQ(count(Ip::ipVersion4, routeTypeStatic), 2U);
  EXPECT_EQ(count(Ip::ipVersion4, routeTypeAttached), 2U);
  // A configuration that comes late is asked for the routes that come later still.
  tree.routing6VrfConfigDir->vrfConfigIs("red")->staticRouteIs(Routing6::StaticRouteKey(route6.prefix, {}),
                                                               Routing::StaticRouteFacts(true, true));
  routes6->routeIs(route6);
  EXPECT_EQ(count(Ip::ipVersion6, routeTypeStaticNexthopGroup), 1U);
  other.fecIs(1, {{"192.0.2.2", "eth0"}});
  EXPECT_EQ(redSm()->routeBacklog().size(), 2U) << "the FEC's routes";
}

}  // namespace
}  // namespace IpSnmpTest
