#include "fibstats/agent/FibStatsSm.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "fibstats/agent/testing/TestFibStats.h"
#include "vantu/IntfId.h"

namespace FibStatsSnmp {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::Not;

using Stats4 = FibStatsWorld<Ip4Routes>;
using Stats6 = FibStatsWorld<Ip6Routes>;
template <class Family>
struct Stats : FibStatsWorld<Family> {};
using Families = testing::Types<Ip4Routes, Ip6Routes>;
TYPED_TEST_SUITE(Stats, Families, );

// What each number of the routing platform counts as; 0: it does not count.
template <class World>
std::vector<int> typesOf(World& world) {
  std::vector<int> types;
  world.start();
  for (unsigned t = 0; t <= 40; ++t) {
    world.routes->routeIs(world.route(world.net(t << 8U, World::isIp4 ? 24 : 120), t));
    const auto found = world.sm->prefixRouteType().find(world.net(t << 8U, World::isIp4 ? 24 : 120));
    types.push_back(found ? *found : 0);
  }
  return types;
}

TEST_F(Stats4, typesOfThePlatform) {
  config = nullptr;
  EXPECT_EQ(typesOf(*this), (std::vector<int>{0,   205, 205, 205, 205, 0,  1,  3,  204, 205, 8, 2, 0,   14,
                                              13,  13,  13,  13,  13,  13, 13, 14, 14,  14,  9, 9, 202, 3,
                                              200, 200, 200, 200, 200, 1,  1,  1,  1,   1,   1, 1, 1}));
  EXPECT_EQ(rows(), "38; 1:9 2:1 3:2 8:1 9:2 13:7 14:4 200:5 202:1 204:1 205:5; 24:38");
  EXPECT_EQ(sm->mibRouteType(route(net(0, 8), 5)), routeTypeAttached);
  EXPECT_EQ(sm->mibRouteType(route(net(0, 8), 255)), routeTypeOther);
  EXPECT_FALSE(sm->fibRouteFilter(route(net(0, 8), 32)));
  EXPECT_THAT(lines, Contains("6 FibStatsMib: skip 10.0.5.0/24 type 5"));
}

TEST_F(Stats6, typesOfThePlatform) {
  config = nullptr;
  EXPECT_EQ(typesOf(*this),
            (std::vector<int>{0, 205, 205, 0, 3, 205, 8, 2, 0, 14, 13, 13, 14, 9, 9, 202, 3, 1, 1, 1, 1,
                              1, 1,   1,   1, 1, 1,   1, 1, 1, 1,  1,  1,  1,  1, 1, 1,   1, 1, 1, 1}));
  EXPECT_EQ(sm->mibRouteType(route(net(0, 64), 3)), routeTypeAttached);
}

TYPED_TEST(Stats, staticRoutesAreWhatTheConfigurationSaysAndElseWhatTheySay) {
  using World = FibStatsWorld<TypeParam>;
  using Key = typename TypeParam::StaticRouteKey;
  const auto net = [](unsigned n) { return World::net(n << 8U, World::isIp4 ? 24 : 120); };
  const auto factsAre = [&](unsigned n, std::uint8_t preference, bool nexthopGroup, bool persistent) {
    this->config->staticRouteIs(Key(net(n), Routing::RoutePreference(preference)),
                                Routing::StaticRouteFacts(nexthopGroup, persistent));
  };
  factsAre(1, 1, true, false);
  factsAre(2, 1, false, false);
  factsAre(3, 1, false, true);
  factsAre(5, 5, true, true);
  this->start();
  const unsigned staticType = World::isIp4 ? 7 : 4, connected = World::isIp4 ? 11 : 7;
  const auto typeOf = [&](unsigned n, bool isPersistent = true, bool isNexthopGroup = false, unsigned type = 0) {
    auto route = World::route(net(n), type == 0 ? staticType : type, 1, 5);
    route.isPersistent = isPersistent;
    route.isNexthopGroup = isNexthopGroup;
    return int{this->sm->mibRouteType(route)};
  };
  std::vector<int> types;
  for (unsigned n = 1; n <= 5; ++n) types.push_back(typeOf(n));
  EXPECT_THAT(types, ElementsAre(202, 201, 3, 3, 3));
  EXPECT_EQ(typeOf(4, false), 201);
  EXPECT_EQ(typeOf(4, false, true), 202);
  EXPECT_EQ(typeOf(2, true, true), 201) << "the configuration says all";
  EXPECT_EQ(typeOf(3, false, true), 3);
  EXPECT_EQ(typeOf(4, false, true, connected), 2);
  this->sm->routingConfigIs(nullptr);
  EXPECT_EQ(typeOf(1, false, true), 3);
}

TYPED_TEST(Stats, aRouteKeepsItsFirstTypeUntilItGoes) {
  using World = FibStatsWorld<TypeParam>;
  const auto prefix = World::net(0x100, 24);
  const unsigned rip = World::isIp4 ? 10 : 6, bgp = World::isIp4 ? 22 : 9, internal = 1, skipped = 0;
  this->start();
  this->takeLines();
  this->routes->routeIs(World::route(prefix, skipped));
  EXPECT_EQ(this->rows(), "none;;");
  this->routes->routeIs(World::route(prefix, rip));
  EXPECT_EQ(this->rows(), "1; 8:1; 24:1");
  this->takeLines();
  this->routes->routeIs(World::route(prefix, bgp));
  EXPECT_THAT(this->takeLines(),
              ElementsAre(fmt::format("6 FibStatsMib: prefix={} vrf=red add=1", prefix.stringValue()),
                          fmt::format("6 FibStatsMib: {} vrf=red is a duplicate", prefix.stringValue())));
  this->routes->routeIs(World::route(World::net(0, 0), internal));
  EXPECT_EQ(this->rows(), "2; 8:1 205:1; 0:1 24:1");
  this->routes->routeDel(prefix);
  this->routes->routeDel(World::net(0, 0));
  EXPECT_EQ(this->rows(), "none;;");
  this->routes->routeIs(World::route(prefix, bgp));
  EXPECT_EQ(this->rows(), "1; 14:1; 24:1");
}

TYPED_TEST(Stats, aHostWithARouteIsNoAttachedOne) {
  using World = FibStatsWorld<TypeParam>;
  const unsigned rip = World::isIp4 ? 10 : 6;
  const auto one = World::neighbour(World::addr(1), "red/e1");
  this->start();
  this->routes->routeIs(World::route(World::host(1), rip));
  this->takeLines();
  this->arp->entryIs(one);
  EXPECT_THAT(this->takeLines(),
              ElementsAre(fmt::format("6 FibStatsMib: host={} vrf=red add=1", one.addr().stringValue()),
                          fmt::format("6 FibStatsMib: {} vrf=red is a duplicate", World::host(1).stringValue())));
  this->arp->entryDel(one.key);
  EXPECT_THAT(
      this->takeLines(),
      ElementsAre(fmt::format("6 FibStatsMib: host={} vrf=red add=0", one.addr().stringValue()),
                  fmt::format("6 FibStatsMib: {} not tracked as an attached route", one.addr().stringValue())));
}

TYPED_TEST(Stats, neighboursThatDoNotCount) {
  using World = FibStatsWorld<TypeParam>;
  Vantu::MgmtIntfId::configuredIs({Vantu::IntfId("oob0")});
  this->start();
  this->takeLines();
  for (const char* intf : {"red/Management1", "red/oob0"})
    this->arp->entryIs(World::neighbour(World::addr(1), intf));
  EXPECT_THAT(this->takeLines(), AllOf(Contains("6 FibStatsMib: routes using nexthop interface red/Management1 are "
                                                "intentionally not counted"),
                                       Contains("6 FibStatsMib: routes using nexthop interface red/oob0 are "
                                                "intentionally not counted")));
  Vantu::MgmtIntfId::configuredIs({});
  this->arp->entryIs(World::neighbour(World::addr(1), "e1", 8));  // of another VRF
  EXPECT_THAT(this->takeLines(), ElementsAre());
  EXPECT_EQ(this->rows(), "none;;");
  this->arp->entryIs(
      World::neighbour(Vantu::IpGenAddr::fromString(World::isIp4 ? "2001:db8::1" : "10.0.0.1"), "e1"));
  EXPECT_EQ(this->rows(), "none;;");
  this->arp->entryIs(
      World::neighbour(Vantu::IpGenAddr::fromString(World::isIp4 ? "169.254.0.1" : "fe80::1"), "e1"));
  EXPECT_EQ(this->rows(), World::isIp4 ? "1; 203:1; 32:1" : "none;;");
  if (!World::isIp4) {
    EXPECT_THAT(this->lines, Contains("6 FibStatsMib: routes using nexthop link-local address fe80::1 are "
                                      "intentionally not counted"));
  }
}

TYPED_TEST(Stats, theReviewAtTheStartTakesRoutesFirst) {
  using World = FibStatsWorld<TypeParam>;
  const unsigned rip = World::isIp4 ? 10 : 6;
  for (unsigned n = 0; n < 3; ++n) {
    this->routes->routeIs(World::route(World::host(n), rip));
    this->arp->entryIs(World::neighbour(World::addr(n + 1), "e1"));
  }
  this->mib->routeInc(TypeParam::version, routeTypeVcs, 1);  // what another machine has left
  this->start();
  EXPECT_EQ(this->rows(), fmt::format("4; 8:3 203:1; {}:4", TypeParam::hostLength));
  const std::string text = TypeParam::text;
  EXPECT_THAT(this->lines, testing::IsSupersetOf({"2 FibStatsMib: reviewing " + text + " FIB quillo",
                                                  "2 FibStatsMib: reviewing " + text + " ARP quillo"}));
  this->sm->kelStop();
  this->routes->routeDel(World::host(0));
  EXPECT_EQ(this->rows(), fmt::format("4; 8:3 203:1; {}:4", TypeParam::hostLength));
}

TYPED_TEST(Stats, aLargeTableIsReviewedInPieces) {
  using World = FibStatsWorld<TypeParam>;
  const unsigned rip = World::isIp4 ? 10 : 6, count = 10000;
  const std::string length = std::to_string(TypeParam::hostLength);
  std::map<typename World::Prefix, typename World::Route> table;
  for (unsigned n = 0; n < count; ++n) table[World::host(n)] = World::route(World::host(n), rip);
  this->routes->map = table;
  this->arp->entryIs(World::neighbour(World::addr(count), "e1"));
  this->start();
  EXPECT_TRUE(this->sm->isReviewing());
  EXPECT_EQ(this->sm->prefixRouteType().size(), 2 * World::Sm::pieceSize);
  // Before their routes are reached: a neighbour, a route that goes, another that comes.
  this->arp->entryIs(World::neighbour(World::addr(count - 1), "e1"));
  EXPECT_EQ(this->sm->prefixRouteType().find(World::host(count - 1)), routeTypeRip);
  this->routes->routeDel(World::host(count - 2));
  this->routes->routeIs(World::route(World::host(count + 1), rip));
  this->sm->taskSchedulerIs(this->scheduler_);
  EXPECT_EQ(this->scheduler_->tasks().at(0)->name(), fmt::format("fibStats {} review VRF:red", TypeParam::text));
  // Each look at the clock takes a third of a quantum.
  Kel::System::clockIs([this] { return this->now_ += 0.0034; });
  unsigned turns = 0;
  while (this->scheduler_->runReady()) ++turns;
  EXPECT_GT(turns, 2U);
  EXPECT_EQ(this->rows(), fmt::format("10001; 8:10000 203:1; {}:10001", length));
  // All at once another table, and another one of neighbours: one review. What stands never goes meanwhile.
  this->takeLines();
  for (unsigned n = 0; n < count; n += 2) table.erase(World::host(n));
  this->routes->tableIs(table);
  this->arp->tableIs({World::neighbour(World::addr(0), "e1"), World::neighbour(World::addr(1), "e1")});
  EXPECT_TRUE(this->sm->isReviewing());
  EXPECT_TRUE(this->sm->prefixRouteType().find(World::host(1)));
  this->runTasks();
  EXPECT_FALSE(this->sm->isReviewing());
  EXPECT_EQ(this->rows(), fmt::format("5001; 8:5000 203:1; {}:5001", length));
  EXPECT_EQ(this->sm->prefixRouteType().find(World::host(0)), routeTypeAttached);
  EXPECT_THAT(this->lines, Contains(testing::HasSubstr("reviewing")).Times(2)) << "of routes, of neighbours";
}

TYPED_TEST(Stats, damageChangesNoCount) {
  using World = FibStatsWorld<TypeParam>;
  const unsigned rip = World::isIp4 ? 10 : 6;
  const auto entry = World::neighbour(World::addr(1), "e1");
  this->routes->routeIs(World::route(World::host(0), rip));
  this->arp->entryIs(entry);
  this->start();
  const auto before = this->rows();
  this->routes->damage = "broken";
  this->arp->damage = "broken";
  this->routes->routeDel(World::host(0));
  this->arp->entryDel(entry.key);
  this->sm->handleRoute();
  this->arp->tableIs({});
  EXPECT_EQ(this->rows(), before);
  EXPECT_THAT(this->routes->reports, Not(ElementsAre()));
  EXPECT_THAT(this->arp->reports, Not(ElementsAre()));
  this->routes->damage.reset();
  this->arp->damage.reset();
  this->routes->tableIs({});
  this->arp->tableIs({});
  EXPECT_EQ(this->rows(), "none;;");
}

TYPED_TEST(Stats, withoutTablesNothingCounts) {
  using World = FibStatsWorld<TypeParam>;
  const auto none = Kel::makePtr<typename World::Sm>(nullptr, nullptr, Vrf::VrfIdMap::VrfId(1), nullptr, this->mib);
  const auto key = World::neighbour(World::addr(1), "e1", 1).key;
  if constexpr (World::isIp4) {
    none->handleArpEntry(key);
  } else {
    none->handleNeighborEntry(key);
  }
  EXPECT_EQ(this->rows(), "none;;");
}

}  // namespace
}  // namespace FibStatsSnmp
