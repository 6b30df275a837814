#include <gtest/gtest.h>

#include "ipsnmp/agent/route/PerVrfFecSm.h"
#include "ipsnmp/agent/testing/TestRouteSm.h"

namespace IpSnmpTest {
namespace {

using Texts = std::vector<std::string>;

struct RouteCount : RouteSmTest {
  RouteCount() {
    intfIs("eth0", 3);
    fecIs(1, {{"10.1.1.1", "eth0"}});
    fecIs(2, {{"10.1.1.2", "eth0"}, {"10.1.1.3", "eth0"}, {"10.1.1.4", "unknown"}});
  }
  // Runs the count pass for one run that yields after its first prefix.
  void countOnePrefix() {
    Kel::System::clockIs([this] { return now_ += sm->routeCountTask()->taskCurrentlyRunning() ? 0.02 : 0; });
    scheduler_->runReady();
    Kel::System::clockIs([this] { return now_; });
  }
};

TEST_F(RouteCount, isTakenOnceAnIntervalAndOnlyAfterChanges) {
  routeIs("10.0.0.0/24", 1);
  routeIs("10.0.1.0/24", 2);
  smIs();
  run();
  EXPECT_EQ(mib->numRoutes(), 3) << "the first count does not wait for the timer";
  EXPECT_EQ(sm->routeCountExpectedIter(), 1u);
  EXPECT_EQ(sm->routeCountCurrentIter(), 1u);
  EXPECT_FALSE(sm->routeChanges());
  const auto counts = sm->routeCountTask()->runCount();
  for (int i = 0; i < 10; ++i) runFor(60);
  EXPECT_EQ(sm->routeCountTask()->runCount(), counts);
  EXPECT_EQ(sm->routeCountTimerTask()->runCount(), 10u);
  // A change of a FEC alone is a change, too.
  fecIs(2, {{"10.1.1.2", "eth0"}});
  runFor(59.9);
  EXPECT_EQ(mib->numRoutes(), 3);
  runFor(0.1);
  EXPECT_EQ(mib->numRoutes(), 2);
  // So is an interface that loses its ifIndex.
  intfIs("eth0", 0);
  runFor(60);
  EXPECT_EQ(mib->numRoutes(), 0);
  intfIs("eth0", 3);
  sm->routeCountIntervalIs(5);
  runFor(60);
  routeIs("10.0.2.0/24", 1);
  run();
  runFor(5);
  EXPECT_EQ(mib->numRoutes(), 3);
}

TEST_F(RouteCount, runsOnlyInItsOwnTasks) {
  routeIs("10.0.0.0/24", 1);
  smIs();
  run();
  routeIs("10.0.1.0/24", 1);
  run();
  sm->doCountRoutes();
  sm->handleRouteCountTimer();
  EXPECT_EQ(mib->numRoutes(), 1);
  EXPECT_EQ(sm->routeCountExpectedIter(), 1u);
}

TEST_F(RouteCount, tracesWhyAPrefixDoesNotCount) {
  routeIs("10.0.0.0/24", 1, 3);
  routeIs("10.0.1.0/24", 9);
  routeIs("10.0.2.0/24", 2);
  fecIs(4, {{"10.1.1.1", "eth0"}});
  routeIs("10.0.3.0/24", 4);
  smIs();
  run();
  sm->localForwardingFecs()->forwardFecDel(FecId(4));
  sm->routeChangesIs(true);
  TraceLines lines("IpRouteTableSm");
  runFor(60);
  EXPECT_EQ(lines.taken(), (Texts{"8 10.0.0.0/24 has invalid route", "8 10.0.1.0/24 has no fec",
                                  "8 10.0.2.0/24 has invalid intf unknown", "8 10.0.3.0/24 has no forward fec",
                                  "8 Finished counting routes"}));
  EXPECT_EQ(mib->numRoutes(), 2);
}

// The first prefix of all is the default route's, whose text is that of the bookmark that stands for no pass.
TEST_F(RouteCount, yieldsAtEveryPrefixAndCountsEachOnce) {
  routeIs("0.0.0.0/0", 2);
  for (unsigned i = 1; i < 6; ++i) routeIs(fmt::format("0.0.0.0/{}", i), 1);
  smIs();
  run();
  TraceLines lines("IpRouteTableSm");
  mib->numRoutesIs(0);
  sm->routeChangesIs(true);
  now_ += 60;
  for (unsigned counted = 1; counted < 6; ++counted) {
    do countOnePrefix();
    while (sm->routeCountTempValue() < static_cast<int>(counted + 1));
    EXPECT_EQ(sm->routeCountTempValue(), static_cast<int>(counted + 1));
    EXPECT_EQ(sm->routeCountBookmark(), prefixOf(fmt::format("0.0.0.0/{}", counted)).addrWithMask());
    EXPECT_EQ(lines.taken().back(), fmt::format("8 Yielding bookmark: 0.0.0.0/{}", counted));
    EXPECT_EQ(mib->numRoutes(), 0);
    EXPECT_EQ(sm->routeCountCurrentIter(), 2u);
  }
  countOnePrefix();
  EXPECT_EQ(lines.taken(), Texts{"8 Finished counting routes"});
  EXPECT_EQ(mib->numRoutes(), 7);
  EXPECT_EQ(sm->routeCountTempValue(), 0);
  EXPECT_EQ(sm->routeCountBookmark(), Vantu::IpAddrWithMask());
  EXPECT_TRUE(scheduler_->idle());
}

TEST_F(RouteCount, changesInMidPassNeitherDisturbItNorAreLost) {
  for (unsigned i = 0; i < 10; ++i) routeIs(fmt::format("10.0.{}.0/24", i), 1);
  smIs();
  run();
  sm->routeChangesIs(true);
  now_ += 60;
  while (sm->routeCountTempValue() < 4) countOnePrefix();
  const auto bookmark = sm->routeCountBookmark();
  // One that is counted already, the one at the bookmark, one to come, and a new one on either side.
  routes->routeDel(prefixOf("10.0.0.0/24"));
  routes->routeDel(Vantu::Prefix(bookmark));
  routes->routeDel(prefixOf("10.0.9.0/24"));
  routeIs("9.0.0.0/8", 1);
  routeIs("11.0.0.0/8", 1);
  run();
  EXPECT_EQ(mib->numRoutes(), 9);  // without the one at the bookmark and the one to come, with one new one
  EXPECT_TRUE(sm->routeChanges());
  runFor(60);
  EXPECT_EQ(mib->numRoutes(), static_cast<std::int32_t>(rows().size()));
  EXPECT_EQ(mib->numRoutes(), 9);
}

// A timer that fires while a pass is under way asks for one more.
TEST_F(RouteCount, passThatOutlivesTheIntervalIsFollowedByAnother) {
  for (unsigned i = 0; i < 5; ++i) routeIs(fmt::format("10.0.{}.0/24", i), 1);
  smIs();
  run();
  sm->routeChangesIs(true);
  now_ += 60;
  while (sm->routeCountTempValue() < 1) countOnePrefix();
  routeIs("9.0.0.0/8", 1);
  now_ += 60;
  while (sm->routeCountTempValue() < 2) countOnePrefix();  // the timer waits behind this run
  run();
  EXPECT_EQ(sm->routeCountExpectedIter(), 3u);
  EXPECT_EQ(sm->routeCountCurrentIter(), 2u);
  EXPECT_EQ(mib->numRoutes(), 5);
  EXPECT_FALSE(sm->routeChanges());
  runFor(60);
  EXPECT_EQ(sm->routeCountCurrentIter(), 4u);
  EXPECT_EQ(mib->numRoutes(), 6);
}

TEST_F(RouteCount, hostBitsInTheOrderEndThePassAndTheNextOneBeginsAnew) {
  for (unsigned i = 0; i < 4; ++i) routeIs(fmt::format("10.0.{}.0/24", i), 1);
  smIs();
  run();
  const auto bad = Vantu::IpAddrWithMask::fromString("10.0.9.1/24");
  sm->fecsAndPrefixes()->orderedPrefixIs(bad, true);
  TraceLines lines("TaskScheduler");
  sm->routeChangesIs(true);
  now_ += 60;
  while (sm->routeCountTempValue() < 2)
    countOnePrefix();  // it yields with a bookmark before it comes to the bad one
  run();
  ASSERT_EQ(lines.taken(), Texts{"0 task \"ipRouteTable v4 Route count VRF:red\" ended with an exception: "
                                 "Prefix::validAsPrefix != true not allowed"});
  sm->fecsAndPrefixes()->orderedPrefixDel(bad);
  mib->numRoutesIs(0);
  sm->routeChangesIs(true);
  runFor(60);
  EXPECT_EQ(mib->numRoutes(), 4);
}

// Everything changes at any time, in runs that yield after a few steps; once it is quiet, rows and count agree with
// the model.
TEST_F(RouteCount, equalsTheRowsAfterAnyHistory) {
  for (unsigned seed = 1; seed <= 15; ++seed) {
    SCOPED_TRACE(seed);
    RandomRoutes random(seed);
    random.intfs(*this);
    smIs();
    const auto fecSm = Kel::makePtr<IpSnmp::PerVrfFecSm>(sm, routes, fecs);
    tickIs(0.001);
    for (int i = 0; i < 600; ++i) {
      random.change(*this);
      if (random.below(3) == 0) scheduler_->runReady();
      if (random.below(60) == 0) now_ += 30;
      if (random.below(40) == 0) {
        const auto prefix = random.prefix();
        if (!routes->damagedEntries.erase(prefix)) routes->damagedEntries[prefix] = "checksum";
        const FecId fecId(1 + random.below(8));
        if (!fecs->damagedEntries.erase(fecId)) fecs->damagedEntries[fecId] = "checksum";
        routes->tableIs(routes->map);
        fecs->tableIs(fecs->map);
      }
    }
    run();
    Kel::System::clockIs([this] { return now_; });
    sm->routeChangesIs(true);
    runFor(60);
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
