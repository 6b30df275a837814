#include "ipsnmp/agent/route/IpRouteTableSm.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ipsnmp/ProtocolMap.h"
#include "ipsnmp/agent/testing/TestRouteSm.h"

namespace IpSnmpTest {
namespace {

using namespace IpSnmp;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using Texts = std::vector<std::string>;

struct RouteSm : RouteSmTest {
  RouteSm() {
    intfIs("eth0", 3);
    fecIs(1, {{"10.1.1.1", "eth0"}});
    fecIs(2, {{"10.1.1.2", "eth0"}, {"10.1.1.3", "eth0"}});
  }
  std::vector<Vantu::IpAddrWithMask> prefixes() const { return sm->fecsAndPrefixes()->orderedPrefix().keys(); }
  std::vector<Vantu::IpAddr> nextHops(unsigned fecId) const {
    const auto fec = sm->localForwardingFecs()->forwardFec(FecId(fecId));
    return fec ? fec->nextHop().keys() : std::vector<Vantu::IpAddr>{};
  }
};

// ---- instantiation ----

TEST_F(RouteSm, perVrfTablesGiveTheVrfItsOwnFecs) {
  routeIs("10.0.0.0/24", 1);
  smIs();
  EXPECT_EQ(sm->routeTask()->name(), "ipRouteTable v4 Route VRF:red");
  EXPECT_EQ(sm->fecTask()->name(), "ipRouteTable v4 Fec VRF:red");
  EXPECT_EQ(sm->routeCountTask()->name(), "ipRouteTable v4 Route count VRF:red");
  EXPECT_EQ(sm->routeCountTimerTask()->name(), "ipRouteTable v4 Route count timer VRF:red");
  EXPECT_EQ(sm->routeTask()->priority(), 2);
  EXPECT_EQ(sm->fecTask()->priority(), 2);
  EXPECT_EQ(sm->routeCountTask()->priority(), 3);
  EXPECT_EQ(sm->routeCountTimerTask()->priority(), 3);
  EXPECT_EQ(mib->routeStatus(), routes);
  EXPECT_EQ(mib->vrfForwardingStatus(), fecs);
  EXPECT_EQ(mib->ifMib(), ifMib);
  EXPECT_EQ(mib->fecsAndPrefixes(), sm->fecsAndPrefixes());
  EXPECT_EQ(sm->fecsAndPrefixes()->forwardFecs(), sm->localForwardingFecs());
  EXPECT_EQ(protocolMap().protocol(Routing::Fib::RouteType(11)), ipRouteProtocolLocal);
  EXPECT_TRUE(sm->routeChanges());
  EXPECT_EQ(sm->routeBacklog().keys(), std::vector{prefixOf("10.0.0.0/24")});
  EXPECT_EQ(sm->fecBacklog().keys(), (std::vector{FecId(1), FecId(2)}));
  run();
  EXPECT_EQ(rowTexts(), Texts{"10.0.0.0/24 10.1.1.1 if3 type4 proto7 metric10 pref1"});
}

TEST_F(RouteSm, unifiedTableSharesTheFecsOfTheDefaultVrf) {
  routeIs("10.0.0.0/24", 1);
  smIs("default", routes, fecs, fecs, nullptr);
  EXPECT_EQ(mib->vrfForwardingStatus(), fecs);
  ASSERT_TRUE(sm->fecTask());
  run();
  EXPECT_EQ(rows().size(), 1u);

  const auto redMib = Kel::makePtr<IpForwardMib>("red");
  const auto redRoutes = Kel::makePtr<Quillo::TestRouteStatus<Vantu::Prefix>>();
  const auto red = Kel::makePtr<IpRouteTableSm>(scheduler_, "red", redMib, redRoutes, nullptr, fecs,
                                                sm->localForwardingFecs(), ifMib);
  EXPECT_FALSE(red->fecTask());
  EXPECT_FALSE(red->localForwardingFecs());
  EXPECT_EQ(redMib->vrfForwardingStatus(), fecs);
  redRoutes->routeIs(route(prefixOf("10.7.0.0/16"), 2));
  red->handleFec(FecId(2));
  red->handleFec();
  run();
  EXPECT_THAT(red->fecBacklog(), IsEmpty());
  RouteIterator at(redMib);
  ASSERT_TRUE(at);
  EXPECT_EQ(rowText(*at), "10.7.0.0/16 10.1.1.2 if3 type4 proto7 metric10 pref1");
  EXPECT_EQ(redMib->numRoutes(), 2);
}

TEST_F(RouteSm, wrongTablesAreFatal) {
  const auto shared = Kel::makePtr<IpForwardFecs>();
  const auto fatal = [&](const char* vrf, auto own, auto unified, auto all, const char* text) {
    EXPECT_DEATH(smIs(vrf, routes, own, unified, all), std::string("assertion failed: ") + text);
  };
  fatal("default", nullptr, fecs, nullptr, "vrfForwardingStatus\\(\\)");
  fatal("default", fecs, fecs, shared, "!allForwardingFecs\\(\\)");
  fatal("red", fecs, fecs, shared, "!vrfForwardingStatus\\(\\)");
  fatal("red", nullptr, fecs, nullptr, "allForwardingFecs\\(\\)");
  fatal("red", fecs, nullptr, shared, "!allForwardingFecs\\(\\)");
  fatal("default", fecs, nullptr, shared, "!allForwardingFecs\\(\\)");
}

TEST_F(RouteSm, tablesThatAreAbsentOrNotReadyHaveNothing) {
  smIs("red", nullptr, nullptr, nullptr, nullptr);
  run();
  EXPECT_THAT(rows(), IsEmpty());
  routes->isInitialized = fecs->isInitialized = false;
  routes->map[prefixOf("10.0.0.0/24")] = route(prefixOf("10.0.0.0/24"), 1);
  sm->routeStatusIs(routes);
  sm->vrfForwardingStatusIs(fecs);
  run();
  EXPECT_THAT(prefixes(), IsEmpty());
  routes->initializedIs();
  fecs->initializedIs();
  run();
  EXPECT_EQ(rows().size(), 1u);
  EXPECT_EQ(mib->numRoutes(), 1) << "the first count waits for the tables";
}

// ---- backlogs ----

TEST_F(RouteSm, notificationsOfOneKeyCollapse) {
  smIs();
  run();
  TraceLines lines("IpRouteTableSm");
  const auto before = sm->routeTask()->workCount();
  routeIs("10.0.0.0/24", 1);
  routes->routeDel(prefixOf("10.0.0.0/24"));
  fecIs(1, {});
  fecIs(1, {{"10.1.1.7", "eth0"}});
  run();
  EXPECT_EQ(lines.taken(), (Texts{"2 Starting VRF red IP route backlog processing", "6 10.0.0.0/24 route deleted",
                                  "2 VRF red backlog processing done after processing 1 prefixes",
                                  "2 Starting VRF red IP fec backlog processing", "6 1 fec added",
                                  "2 VRF red backlog processing done after processing 1 fecs"}));
  EXPECT_EQ(sm->routeTask()->workCount(), before + 1);
  EXPECT_EQ(sm->routeTask()->workPending(), 0u);
  EXPECT_TRUE(sm->routeChanges());
}

TEST_F(RouteSm, initialScanNamesEveryKey) {
  TraceLines lines("IpRouteTableSm");
  routeIs("10.0.0.0/24", 1);
  fecs->fecDel(FecId(2));
  smIs();
  EXPECT_EQ(lines.taken(), (Texts{"2 void IpSnmp::IpRouteTableSm::handleRoute() initially",
                                  "6 void IpSnmp::IpRouteTableSm::handleRoute() initially for 10.0.0.0/24",
                                  "2 void IpSnmp::IpRouteTableSm::handleFec() initially",
                                  "6 void IpSnmp::IpRouteTableSm::handleFec() initially for 1"}));
}

TEST_F(RouteSm, passThatYieldsGoesOnAtItsBookmark) {
  smIs();
  run();
  TraceLines lines("IpRouteTableSm");
  for (unsigned i = 0; i < 50; ++i) routeIs(fmt::format("10.0.{}.0/24", 100 + i), 1);
  tickIs(0.003);
  scheduler_->runReady();
  const auto bookmark = sm->routeBookmark();
  const auto left = sm->routeBacklog().size();
  EXPECT_EQ(sm->routeBacklog().begin()->first, bookmark);
  const auto said = lines.taken();
  EXPECT_THAT(
      said, Contains(fmt::format("2 VRF red backlog processing yielding after processing {} prefixes", 50 - left)));
  EXPECT_EQ(said.back(),
            fmt::format("2 VRF red IPv4 route processing rescheduled due to {} entries in backlog", left));
  EXPECT_EQ(sm->routeTask()->workPending(), left);
  // What comes behind the bookmark waits for the next pass; what went at it is no obstacle.
  routeIs("9.0.0.0/8", 1);
  sm->routeBacklogDel(bookmark);
  scheduler_->runReady();
  EXPECT_GT(sm->routeBookmark(), bookmark);
  EXPECT_TRUE(sm->routeBacklogHas(prefixOf("9.0.0.0/8")));
  run();
  EXPECT_THAT(sm->routeBacklog(), IsEmpty());
  EXPECT_EQ(sm->routeBookmark(), Vantu::Prefix());
  EXPECT_EQ(prefixes().size(), 50u);  // and 9.0.0.0/8, without the one that the test took out
  EXPECT_EQ(prefixes().front(), prefixOf("9.0.0.0/8").addrWithMask());
}

TEST_F(RouteSm, largeTableIsEnteredInPieces) {
  constexpr unsigned size = 5000;
  for (unsigned i = 0; i < size; ++i) {
    const Vantu::Prefix prefix(Vantu::IpAddr(0x0A000000 + (i << 8)), 24);
    routes->map[prefix] = route(prefix, 1 + i);
    fecs->map[FecId(1 + i)] = fec(1 + i, {{"10.1.1.1", "eth0"}});
  }
  smIs();
  tickIs(0.0001);
  std::size_t most = 0;
  while (sm->routeBacklog().size() + sm->fecBacklog().size() > 0) {
    most = std::max({most, sm->routeBacklog().size(), sm->fecBacklog().size()});
    // Changes on either side of where the scan is.
    routes->routeDel(Vantu::Prefix(Vantu::IpAddr(0x0A000000), 24));
    routes->routeIs(route(Vantu::Prefix(Vantu::IpAddr(0x0A000000 + (size << 8)), 24), 1));
    scheduler_->runReady();
  }
  run();
  EXPECT_LT(most, 1100u);
  EXPECT_EQ(prefixes().size(), size);
  EXPECT_EQ(sm->localForwardingFecs()->forwardFec().size(), size);
  EXPECT_EQ(rows().size(), size);
}

// A prefix or FEC that is in the table before and after is never out of the cache in between.
TEST_F(RouteSm, anotherTableIsTakenOverWithoutFlapping) {
  struct Watch : FecsAndPrefixes::Notifiee {
    void handleOrderedPrefix(const Vantu::IpAddrWithMask& prefix) override { changed.push_back(prefix.length()); }
    std::vector<unsigned> changed;
  };
  struct FecWatch : IpForwardFecs::Notifiee {
    void handleForwardFec(const FecId& fecId) override { changed.push_back(fecId.value()); }
    std::vector<std::uint64_t> changed;
  };
  const auto prefix = [](unsigned i, unsigned length) {
    return Vantu::Prefix(Vantu::IpAddr(0x0A000000 + (i << 8)), length);
  };
  std::map<Vantu::Prefix, Quillo::Fib::Route> next;
  std::map<FecId, Quillo::Fib::Fec> nextFecs;
  for (unsigned i = 0; i < 3000; ++i) {
    routes->map[prefix(i, 24)] = route(prefix(i, 24), 1);
    next[prefix(i, 24)] = route(prefix(i, 24), 2);
    if (i % 100 == 0) routes->map[prefix(i, 30)] = route(prefix(i, 30), 1);
    if (i % 100 == 50) next[prefix(i, 31)] = route(prefix(i, 31), 2);
    fecs->map[FecId(1 + i)] = fec(1 + i, {{"10.1.1.1", "eth0"}});
    if (i % 100 != 99) nextFecs[FecId(1 + i)] = fec(1 + i, {{"10.1.1.2", "eth0"}});
  }
  smIs();
  run();
  const auto watch = Kel::makePtr<Watch>();
  watch->notifierIs(sm->fecsAndPrefixes());
  const auto fecWatch = Kel::makePtr<FecWatch>();
  fecWatch->notifierIs(sm->localForwardingFecs());
  routes->tableIs(std::move(next));
  fecs->tableIs(std::move(nextFecs));
  run();
  EXPECT_EQ(std::count(watch->changed.begin(), watch->changed.end(), 30u), 30);
  EXPECT_EQ(std::count(watch->changed.begin(), watch->changed.end(), 31u), 30);
  EXPECT_EQ(watch->changed.size(), 60u);
  EXPECT_EQ(fecWatch->changed.size(), 30u);
  EXPECT_EQ(nextHops(1), std::vector{ip("10.1.1.2")});
  EXPECT_EQ(rows(), model.rows(model.settled()));
}

TEST_F(RouteSm, otherTablesAreFollowedWhenTheyTakeThePlace) {
  routeIs("10.0.0.0/24", 1);
  smIs();
  run();
  const auto otherRoutes = Kel::makePtr<Quillo::TestRouteStatus<Vantu::Prefix>>();
  otherRoutes->routeIs(route(prefixOf("10.5.0.0/24"), 9));
  const auto otherFecs = Kel::makePtr<Quillo::TestForwardingStatus>();
  otherFecs->fecIs(fec(9, {{"10.1.1.9", "eth0"}}));
  sm->routeStatusIs(otherRoutes);
  sm->vrfForwardingStatusIs(otherFecs);
  run();
  EXPECT_EQ(rowTexts(), Texts{"10.5.0.0/24 10.1.1.9 if3 type4 proto7 metric10 pref1"});
  routeIs("10.9.0.0/24", 1);
  fecIs(7, {});
  EXPECT_THAT(sm->routeBacklog(), IsEmpty());
  EXPECT_THAT(sm->fecBacklog(), IsEmpty());
  EXPECT_EQ(sm->localForwardingFecs()->forwardFec().size(), 1u);
}

TEST_F(RouteSm, nextHopsFollowTheVias) {
  fecIs(1, {{"10.1.1.1", "eth0"}, {"fe80::1", "eth0"}, {"10.1.1.2", "eth0"}, {"10.1.1.1", "eth1"}});
  smIs();
  run();
  EXPECT_EQ(nextHops(1), (std::vector{ip("10.1.1.1"), ip("10.1.1.2")}));
  EXPECT_EQ(sm->localForwardingFecs()->forwardFec(FecId(1))->nextHop(ip("10.1.1.1"))->value(), 3u);
  const auto fec1 = sm->localForwardingFecs()->forwardFec(FecId(1));
  fecIs(1, {{"10.1.1.3", "eth0"}, {"10.1.1.2", "eth0"}});
  run();
  EXPECT_EQ(nextHops(1), (std::vector{ip("10.1.1.2"), ip("10.1.1.3")}));
  EXPECT_EQ(sm->localForwardingFecs()->forwardFec(FecId(1)), fec1);
  fecs->fecDel(FecId(1));
  run();
  EXPECT_FALSE(sm->localForwardingFecs()->forwardFecHas(FecId(1)));
}

TEST_F(RouteSm, fecWithTooManyViasIsRefusedAlone) {
  auto big = fec(1, {});
  for (unsigned i = 0; i < 512; ++i) big.via.push_back({Vantu::IpAddr(0x0A020000 + i), Vantu::IntfId("eth0")});
  fecs->fecIs(big);
  routeIs("10.0.0.0/24", 1);
  routeIs("10.0.1.0/24", 2);
  smIs();
  run();
  EXPECT_EQ(rows().size(), 514u);
  TraceLines lines("IpRouteTableSm");
  big.via.push_back(big.via.front());
  fecs->fecIs(big);
  run();
  EXPECT_THAT(lines.taken(), Contains("0 VRF red fec 1 is not served: PodArray::set expected size <= 512"));
  EXPECT_EQ(rows().size(), 2u);
  big.via.resize(2);
  fecs->fecIs(big);
  run();
  EXPECT_EQ(rows().size(), 4u);
}

// ---- damage ----

TEST_F(RouteSm, damagedEntriesAreAbsentUntilTheyAreSound) {
  routeIs("10.0.0.0/24", 1);
  routeIs("10.0.1.0/24", 2);
  smIs();
  run();
  const auto all = rows();
  routes->damagedEntries[prefixOf("10.0.0.0/24")] = "checksum";
  fecs->damagedEntries[FecId(2)] = "checksum";
  sm->handleRoute(prefixOf("10.0.0.0/24"));
  sm->handleFec(FecId(2));
  run();
  EXPECT_EQ(prefixes(), std::vector{prefixOf("10.0.1.0/24").addrWithMask()});
  EXPECT_THAT(nextHops(2), IsEmpty());
  EXPECT_THAT(routes->reports, ElementsAre(HasSubstr("checksum")));
  EXPECT_THAT(fecs->reports, ElementsAre(HasSubstr("checksum")));
  routes->damagedEntries.clear();
  fecs->damagedEntries.clear();
  routes->tableIs(routes->map);
  fecs->tableIs(fecs->map);
  run();
  EXPECT_EQ(rows(), all);
}

TEST_F(RouteSm, damagedTablesAreEmptyUntilTheyAreSound) {
  routeIs("10.0.0.0/24", 1);
  smIs();
  run();
  routes->damage = fecs->damage = "a page";
  routes->tableIs(routes->map);
  fecs->tableIs(fecs->map);
  run();
  EXPECT_THAT(prefixes(), IsEmpty());
  EXPECT_THAT(sm->localForwardingFecs()->forwardFec(), IsEmpty());
  EXPECT_THAT(routes->reports, Not(IsEmpty()));
  EXPECT_THAT(fecs->reports, Not(IsEmpty()));
  routes->damage = fecs->damage = std::nullopt;
  routes->tableIs(routes->map);
  fecs->tableIs(fecs->map);
  run();
  EXPECT_EQ(rows().size(), 1u);
}

TEST_F(RouteSm, unreadableTablesAreNotAskedAgainBeforeTheyTell) {
  smIs();
  run();
  routes->isUnreadable = fecs->isUnreadable = true;
  routeIs("10.0.0.0/24", 1);
  fecIs(1, {{"10.1.1.9", "eth0"}});
  for (int i = 0; i < 5; ++i) scheduler_->runReady();
  EXPECT_TRUE(scheduler_->idle());
  EXPECT_EQ(sm->routeBacklog().size(), 1u);
  EXPECT_EQ(sm->fecBacklog().size(), 1u);
  routes->isUnreadable = fecs->isUnreadable = false;
  routes->tableIs(routes->map);
  fecs->tableIs(fecs->map);
  run();
  EXPECT_EQ(rowTexts(), Texts{"10.0.0.0/24 10.1.1.9 if3 type4 proto7 metric10 pref1"});
}

// ---- the end ----

TEST_F(RouteSm, stoppingTakesEverythingOutOfTheCache) {
  routeIs("10.0.0.0/24", 1);
  smIs();
  run();
  ASSERT_EQ(mib->numRoutes(), 1);
  routeIs("10.0.1.0/24", 1);
  RouteIterator at(mib);
  sm->kelStop();
  EXPECT_EQ(mib->numRoutes(), 0);
  EXPECT_FALSE(mib->routeStatus());
  EXPECT_FALSE(mib->vrfForwardingStatus());
  EXPECT_FALSE(mib->fecsAndPrefixes());
  EXPECT_FALSE(mib->ifMib());
  EXPECT_TRUE((++at).isAtEnd());
  EXPECT_TRUE(scheduler_->idle());
  sm->handleRoute(prefixOf("10.0.0.0/24"));
  sm->handleRoute();
  sm->handleFec(FecId(1));
  sm->handleFec();
  sm->routeStatusIs(nullptr);
  sm->vrfForwardingStatusIs(nullptr);
  routeIs("10.0.2.0/24", 1);
  now_ += 1000;
  run();
  EXPECT_EQ(scheduler_->tasks().size(), 0u);
  sm = nullptr;
}

TEST_F(RouteSm, successorsCacheIsLeftAlone) {
  routeIs("10.0.0.0/24", 1);
  smIs();
  const auto first = sm;
  smIs();
  first->kelStop();
  run();
  EXPECT_EQ(rows().size(), 1u);
}

TEST_F(RouteSm, deletedTaskRunsNoMore) {
  smIs();
  run();
  routeIs("10.0.0.0/24", 1);
  EXPECT_TRUE(sm->routeTaskDel());
  run();
  EXPECT_THAT(prefixes(), IsEmpty());
  routeIs("10.0.1.0/24", 1);
  EXPECT_EQ(sm->routeBacklog().size(), 2u);
}

}  // namespace
}  // namespace IpSnmpTest
