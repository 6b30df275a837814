#include "ipsnmp/agent/route/IpRouteTableSm.h"

#include <gmock/gmock.h>

#include "ipsnmp/ProtocolMap.h"
#include "ipsnmp/agent/route/PerVrfFecSm.h"
#include "ipsnmp/agent/testing/TestRouteSm.h"

namespace IpSnmpTest {
namespace {

using namespace IpSnmp;
using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;

struct RouteSm : RouteSmTest {
  std::vector<Vantu::IpAddrWithMask> prefixes() const { return sm->fecsAndPrefixes()->orderedPrefix().keys(); }
  // Runs the count task so that it yields after its first prefix.
  void countOnePrefix() {
    Kel::System::clockIs([this] { return now_ += sm->routeCountTask()->taskCurrentlyRunning() ? 0.02 : 0; });
    scheduler_->runReady();
    Kel::System::clockIs([this] { return now_; });
  }
  void countUntil(std::int32_t count) {
    while (sm->routeCountTempValue() < count) countOnePrefix();
  }
  void countAgain() {
    sm->routeChangesIs(true);
    now_ += 60;
  }
};

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
}

TEST_F(RouteSm, tablesThatAreAbsentOrNotReadyHaveNothing) {
  smIs("red", nullptr, nullptr, nullptr, nullptr);
  run();
  EXPECT_THAT(rows(), IsEmpty());
  routes->isInitialized = fecs->isInitialized = false;
  numberedRoutesAre(1, 1);
  sm->routeStatusIs(routes);
  sm->vrfForwardingStatusIs(fecs);
  run();
  EXPECT_THAT(prefixes(), IsEmpty());
  routes->initializedIs();
  fecs->initializedIs();
  run();
  EXPECT_EQ(rows().size(), 1u);
  EXPECT_EQ(mib->numRoutes(), 1) << "the first count waits for the tables";
  EXPECT_EQ(protocolMap().protocol(Routing::Fib::RouteType(11)), ipRouteProtocolLocal);
}

TEST_F(RouteSm, passesAreTraced) {
  TraceLines lines("IpRouteTableSm");
  routeIs("10.0.0.0/24", 1);
  fecs->fecDel(FecId(2));
  smIs();
  EXPECT_EQ(lines.take(), (Texts{"2 void IpSnmp::IpRouteTableSm::handleRoute() initially",
                                 "6 void IpSnmp::IpRouteTableSm::handleRoute() initially for 10.0.0.0/24",
                                 "2 void IpSnmp::IpRouteTableSm::handleFec() initially",
                                 "6 void IpSnmp::IpRouteTableSm::handleFec() initially for 1"}));
  run();
  EXPECT_EQ(lines.take(),
            (Texts{"2 Starting VRF red IP route backlog processing", "6 10.0.0.0/24 route added",
                   "2 VRF red backlog processing done after processing 1 prefixes",
                   "2 Starting VRF red IP fec backlog processing", "6 1 fec added",
                   "2 VRF red backlog processing done after processing 1 fecs", "8 Finished counting routes"}));
  // Notifications of one key collapse.
  const auto before = sm->routeTask()->workCount();
  routeIs("10.0.0.0/24", 1);
  routes->routeDel(prefixOf("10.0.0.0/24"));
  fecs->fecDel(FecId(1));
  run();
  EXPECT_THAT(lines.take(), testing::IsSupersetOf({"6 10.0.0.0/24 route deleted", "6 1 fec deleted"}));
  EXPECT_EQ(sm->routeTask()->workCount(), before + 1);
  EXPECT_EQ(sm->routeTask()->workPending(), 0u);
}

TEST_F(RouteSm, passThatYieldsContinuesAtItsBookmark) {
  smRuns();
  TraceLines lines("IpRouteTableSm");
  for (unsigned i = 0; i < 50; ++i) routes->routeIs(route(numbered(i), 1));
  tickIs(0.003);
  scheduler_->runReady();
  const auto bookmark = sm->routeBookmark();
  const auto left = sm->routeBacklog().size();
  EXPECT_EQ(sm->routeBacklog().begin()->first, bookmark);
  EXPECT_THAT(lines.take(),
              testing::IsSupersetOf(
                  {fmt::format("2 VRF red backlog processing yielding after processing {} prefixes", 50 - left),
                   fmt::format("2 VRF red IPv4 route processing rescheduled due to {} entries in backlog", left)}));
  EXPECT_EQ(sm->routeTask()->workPending(), left);
  routeIs("9.0.0.0/8", 1);  // below the bookmark
  sm->routeBacklogDel(bookmark);
  scheduler_->runReady();
  EXPECT_GT(sm->routeBookmark(), bookmark);
  EXPECT_TRUE(sm->routeBacklogHas(prefixOf("9.0.0.0/8")));
}

// A prefix or FEC that is in the old and in the new table is never out of the cache, nor more than a piece in a
// backlog.
TEST_F(RouteSm, wholeTablesAreReplacedInPiecesWithoutFlapping) {
  struct Watch : FecsAndPrefixes::Notifiee {
    void handleOrderedPrefix(const Vantu::IpAddrWithMask&) override { ++changes; }
    int changes = 0;
  };
  struct FecWatch : IpForwardFecs::Notifiee {
    void handleForwardFec(const FecId&) override { ++changes; }
    int changes = 0;
  };
  std::map<Vantu::Prefix, Quillo::Fib::Route> next;
  std::map<FecId, Quillo::Fib::Fec> nextFecs;
  for (unsigned i = 0; i < 3000; ++i) {
    routes->map[numbered(i)] = route(numbered(i), 1 + i);
    next[numbered(i)] = route(numbered(i), 2);
    if (i % 100 == 0) routes->map[numbered(i, 30)] = route(numbered(i, 30), 1);
    if (i % 100 == 50) next[numbered(i, 31)] = route(numbered(i, 31), 2);
    fecs->map[FecId(1 + i)] = fec(1 + i, {{"10.1.1.1", "eth0"}});
    if (i % 100 != 99) nextFecs[FecId(1 + i)] = fec(1 + i, {{"10.1.1.2", "eth0"}});
  }
  smIs();
  tickIs(0.0001);
  for (std::size_t backlog = 1; backlog > 0; backlog = sm->routeBacklog().size() + sm->fecBacklog().size()) {
    EXPECT_LT(std::max(sm->routeBacklog().size(), sm->fecBacklog().size()), 1100u);
    scheduler_->runReady();
  }
  run();
  EXPECT_EQ(rows(), model.rows(model.settled()));
  const auto watch = Kel::makePtr<Watch>();
  watch->notifierIs(sm->fecsAndPrefixes());
  const auto fecWatch = Kel::makePtr<FecWatch>();
  fecWatch->notifierIs(sm->localForwardingFecs());
  routes->tableIs(std::move(next));
  fecs->tableIs(std::move(nextFecs));
  run();
  EXPECT_EQ(watch->changes, 60);
  EXPECT_EQ(fecWatch->changes, 30);
  EXPECT_EQ(rows(), model.rows(model.settled()));
  sm->routeStatusIs(nullptr);
  EXPECT_LT(sm->routeBacklog().size(), 1100u) << "what is known is looked up in pieces, too";
  run();
  EXPECT_THAT(prefixes(), IsEmpty());
}

TEST_F(RouteSm, fecWithTooManyViasIsRefusedAlone) {
  auto big = fec(1, {});
  for (unsigned i = 0; i < 512; ++i) big.via.push_back({Vantu::IpAddr(0x0A020000 + i), Vantu::IntfId("eth0")});
  fecs->fecIs(big);
  routeIs("10.0.0.0/24", 1);
  routeIs("10.0.1.0/24", 2);
  smRuns();
  EXPECT_EQ(rows().size(), 514u);
  TraceLines lines("IpRouteTableSm");
  big.via.push_back(big.via.front());
  fecs->fecIs(big);
  run();
  EXPECT_THAT(lines.take(), Contains("0 VRF red fec 1 is not served: PodArray::set expected size <= 512"));
  EXPECT_EQ(rows().size(), 2u);
}

TEST_F(RouteSm, damageIsReported) {
  routeIs("10.0.0.0/24", 1);
  smRuns();
  routes->damagedEntries[prefixOf("10.0.0.0/24")] = fecs->damagedEntries[FecId(2)] = "checksum";
  sm->handleRoute(prefixOf("10.0.0.0/24"));
  sm->handleFec(FecId(2));
  for (int i = 0; i < 2; ++i) {
    run();
    EXPECT_THAT(std::exchange(routes->reports, {}), Contains(HasSubstr("checksum")));
    EXPECT_THAT(std::exchange(fecs->reports, {}), Contains(HasSubstr("checksum")));
    tablesAreNotified();
  }
}

TEST_F(RouteSm, unreadableTablesAreNotAskedAgainBeforeTheyNotify) {
  routes->isUnreadable = fecs->isUnreadable = true;
  smIs();
  routeIs("10.0.0.0/24", 1);
  fecIs(1, {{"10.1.1.9", "eth0"}});
  for (int i = 0; i < 5; ++i) scheduler_->runReady();
  EXPECT_TRUE(scheduler_->idle());
  EXPECT_EQ(sm->routeBacklog().size(), 1u);
  EXPECT_EQ(sm->fecBacklog().size(), 1u);
  routes->isUnreadable = fecs->isUnreadable = false;
  tablesAreNotified();
  run();
  EXPECT_EQ(rowTexts(), Texts{"10.0.0.0/24 10.1.1.9 if3 type4 proto7 metric10 pref1"});
  routes->isUnreadable = fecs->isUnreadable = true;
  TraceLines lines("TaskScheduler");
  countAgain();
  run();
  EXPECT_THAT(lines.take(), IsEmpty()) << "it would pass for a fault of the agent";
  EXPECT_TRUE(sm->routeChanges()) << "nobody would count again";
  EXPECT_EQ(mib->numRoutes(), 1);
}

TEST_F(RouteSm, stoppingTakesEverythingOutOfTheCacheUnlessItIsASuccessors) {
  routeIs("10.0.0.0/24", 1);
  smRuns();
  RouteIterator at(mib);
  sm->kelStop();
  EXPECT_EQ(mib->numRoutes(), 0);
  EXPECT_FALSE(mib->routeStatus() || mib->vrfForwardingStatus() || mib->fecsAndPrefixes() || mib->ifMib());
  EXPECT_TRUE((++at).isAtEnd());
  tablesAreNotified();
  sm->handleRoute();
  sm->handleFec();
  sm->routeStatusIs(nullptr);
  runFor(1000);
  EXPECT_TRUE(scheduler_->tasks().empty());
  smIs();
  const auto first = sm;
  smIs();
  first->kelStop();
  run();
  EXPECT_EQ(rows().size(), 1U);
}

TEST_F(RouteSm, rowsAreCountedOnceAnIntervalAndOnlyAfterChanges) {
  routeIs("10.0.0.0/24", 1);
  routeIs("10.0.1.0/24", 2);
  smRuns();
  EXPECT_EQ(mib->numRoutes(), 3) << "the first count does not wait for the timer";
  EXPECT_EQ(sm->routeCountExpectedIter(), 1u);
  const auto counts = sm->routeCountTask()->runCount();
  for (int i = 0; i < 10; ++i) runFor(60);
  EXPECT_EQ(sm->routeCountTask()->runCount(), counts);
  EXPECT_EQ(sm->routeCountTimerTask()->runCount(), 10u);
  fecIs(2, {{"10.1.1.2", "eth0"}});
  runFor(59.9);
  sm->doCountRoutes();  // does nothing outside its task
  sm->handleRouteCountTimer();
  EXPECT_EQ(mib->numRoutes(), 3);
  runFor(0.1);
  EXPECT_EQ(mib->numRoutes(), 2) << "a change of a FEC alone is a change";
  intfIs("eth0", 0);
  runFor(60);
  EXPECT_EQ(mib->numRoutes(), 0) << "an interface lost its ifIndex";
  sm->routeCountIntervalIs(5);
  runFor(60);
  intfIs("eth0", 3);
  runFor(5);
  EXPECT_EQ(mib->numRoutes(), 2);
}

TEST_F(RouteSm, reasonsWhyAPrefixDoesNotCountAreTraced) {
  fecIs(2, {{"10.1.1.2", "eth0"}, {"10.1.1.3", "eth0"}, {"10.1.1.4", "unknown"}});
  fecIs(4, {{"10.1.1.1", "eth0"}});
  for (unsigned i = 0; i < 4; ++i) routeIs(fmt::format("10.0.{}.0/24", i), i == 1 ? 9 : i == 3 ? 4 : 2, i ? 7 : 3);
  smRuns();
  sm->localForwardingFecs()->forwardFecDel(FecId(4));
  countAgain();
  TraceLines lines("IpRouteTableSm");
  run();
  EXPECT_EQ(lines.take(), (Texts{"8 10.0.0.0/24 has invalid route", "8 10.0.1.0/24 has no fec",
                                 "8 10.0.2.0/24 has invalid intf unknown", "8 10.0.3.0/24 has no forward fec",
                                 "8 Finished counting routes"}));
  EXPECT_EQ(mib->numRoutes(), 2);
}

// The timer fires while a pass is under way: that requests one more pass.
TEST_F(RouteSm, passThatOutlivesTheIntervalIsFollowedByAnother) {
  for (unsigned i = 0; i < 10; ++i) routes->routeIs(route(numbered(i), 1));
  smRuns();
  countAgain();
  TraceLines lines("IpRouteTableSm");
  countUntil(4);
  EXPECT_EQ(lines.take().back(), "8 Yielding bookmark: 11.0.4.0/24");
  EXPECT_EQ(mib->numRoutes(), 10);
  routes->routeDel(numbered(0));  // counted already
  routes->routeDel(Vantu::Prefix(sm->routeCountBookmark()));
  now_ += 60;
  countUntil(5);  // the timer waits behind this run
  run();
  EXPECT_EQ(mib->numRoutes(), 9);
  sm->routeChangesIs(false);
  runFor(60);
  EXPECT_EQ(sm->routeCountCurrentIter(), 4u);
  EXPECT_EQ(mib->numRoutes(), 8);
}

TEST_F(RouteSm, hostBitsInTheOrderEndThePassAndTheNextOneBeginsAnew) {
  for (unsigned i = 0; i < 4; ++i) routes->routeIs(route(numbered(i), 1));
  smRuns();
  const auto bad = Vantu::IpAddrWithMask::fromString("11.0.9.1/24");
  sm->fecsAndPrefixes()->orderedPrefixIs(bad, true);
  EXPECT_THROW(rows(), Kel::RangeException);
  TraceLines lines("TaskScheduler");
  countAgain();
  countUntil(2);  // it yields with a bookmark before the bad one
  run();
  ASSERT_EQ(lines.take(), Texts{"0 task \"ipRouteTable v4 Route count VRF:red\" ended with an exception: "
                                "Prefix::validAsPrefix != true not allowed"});
  sm->fecsAndPrefixes()->orderedPrefixDel(bad);
  mib->numRoutesIs(0);
  countAgain();
  run();
  EXPECT_EQ(mib->numRoutes(), 4);
}

// Everything changes at any time, in runs that yield after a few steps; once it is quiet, rows and count agree with
// the model.
TEST_F(RouteSm, equalsTheRowsAfterAnyHistory) {
  for (unsigned seed = 1; seed <= 15; ++seed) {
    SCOPED_TRACE(seed);
    RandomRoutes random(seed);
    random.intfs(*this);
    smIs();
    const auto fecSm = Kel::makePtr<PerVrfFecSm>(sm, routes, fecs);
    tickIs(0.001);
    for (int i = 0; i < 600; ++i) {
      random.change(*this);
      if (random.below(3) == 0) scheduler_->runReady();
      if (random.below(60) == 0) now_ += 30;
      if (random.below(40) == 0) {
        const bool areNotified = random.below(2);
        random.damage(*this, areNotified);
        if (!areNotified) tablesAreNotified();
      }
    }
    run();
    Kel::System::clockIs([this] { return now_; });
    mib->numRoutesIs(-1);
    countAgain();
    do {
      countOnePrefix();
    } while (!scheduler_->idle());
    const auto expected = model.rows(model.settled());
    ASSERT_EQ(rows(), expected);
    ASSERT_EQ(mib->numRoutes(), static_cast<std::int32_t>(expected.size()));
    // The list of those that have rows names no other prefix, and each of them.
    for (int i = 0; i < 50; ++i) {
      const auto from = random.prefix();
      const auto next = model.fetch(
          model.settled(), IpCidrRouteTableIndex(from.address(), from.netmask(), 0, Vantu::IpAddr()), false);
      Vantu::Prefix found;
      const bool isFound = fecSm->fecRouteList()->nextThrough(
          from, [&](const auto& intf) { return mib->validIntf(intf); }, found);
      ASSERT_EQ(isFound, next.has_value()) << from;
      ASSERT_TRUE(!isFound || found.address() == next->index().dest()) << from << " gives " << found;
      ASSERT_TRUE(!isFound || found.netmask() == next->index().mask()) << from << " gives " << found;
    }
    routes->damagedEntries.clear();
    fecs->damagedEntries.clear();
  }
}

}  // namespace
}  // namespace IpSnmpTest
