#include "ipsnmp/agent/route/PerVrfFecSm.h"

#include "ipsnmp/agent/testing/TestRouteSm.h"

namespace IpSnmpTest {
namespace {

using namespace IpSnmp;
using Prefixes = std::vector<Vantu::Prefix>;

struct FecSm : RouteSmTest {
  Ptr<PerVrfFecSm> fecSm;

  FecSm() {
    fecIs(3, {{"10.1.1.1", "eth0"}});
    for (unsigned i = 0; i < 3; ++i) routeIs(fmt::format("10.0.{}.0/24", i), 1);
    routeIs("10.2.0.0/16", 2);
  }
  void smsAre() {
    smIs();
    fecSm = Kel::makePtr<PerVrfFecSm>(sm, routes, fecs);
    run();
  }
  Prefixes queued() const { return sm->routeBacklog().keys(); }
};

TEST_F(FecSm, changeOfAFecQueuesThePrefixesThatUseIt) {
  TraceLines lines("PerVrfFecSm");
  smsAre();
  EXPECT_EQ(lines.take(), Texts{"2 void IpSnmp::PerVrfFecSm::handleInitialized()"});
  runFor(60);
  fecIs(1, {{"10.1.1.2", "eth0"}});
  EXPECT_EQ(lines.take(), (Texts{"6 void IpSnmp::PerVrfFecSm::handleFec(const Quillo::Fib::FecId&) for 1",
                                 "6 prefix 10.0.0.0/24, fecId 1", "6 prefix 10.0.1.0/24, fecId 1",
                                 "6 prefix 10.0.2.0/24, fecId 1"}));
  routeIs("10.0.1.0/24", 2);
  run();
  EXPECT_TRUE(sm->routeChanges());
  fecIs(2, {});
  fecIs(3, {{"10.1.1.2", "eth0"}});  // no route uses it
  EXPECT_EQ(queued(), (Prefixes{prefixOf("10.0.1.0/24"), prefixOf("10.2.0.0/16")}));
}

// The first piece is queued at once, the others in a task; a change in between begins the FEC anew.
TEST_F(FecSm, fecOfManyRoutesIsWorkedOffInPieces) {
  const unsigned size = 3 * PerVrfFecSm::pieceSize + 5;
  smsAre();
  for (const unsigned count : {size / 2, size}) {
    numberedRoutesAre(count, 3);
    routes->tableIs(routes->map);  // read in pieces
    run();
    EXPECT_EQ(fecSm->fecRouteList()->prefixCount(), count + 4);
  }
  sm->routeTask()->cancelTask();
  sm->routeTask()->quantumIs(1e-9);  // so that the backlog stays
  tickIs(0.001);
  fecIs(3, {{"10.1.1.2", "eth0"}});
  fecIs(1, {});
  EXPECT_EQ(queued().size(), PerVrfFecSm::pieceSize + 3);
  for (int i = 0; i < 20; ++i) scheduler_->runReady();
  for (unsigned i = 0; i < size; ++i) ASSERT_TRUE(sm->routeBacklogHas(numbered(i))) << i;
  sm->routeTask()->quantumIs(1);
  for (int i = 0; i < 200; ++i) scheduler_->runReady();
  EXPECT_TRUE(scheduler_->idle()) << "no task works on without work";
}

TEST_F(FecSm, anotherForwardingTableConcernsEveryRoute) {
  smsAre();
  RouteTables other;
  fecSm->vrfForwardingStatusIs(other.fecs);
  EXPECT_EQ(queued().size(), 4U);
  run();
  fecIs(1, {});
  other.fecIs(2, {});
  fecSm->vrfForwardingStatusDel();
  other.fecIs(1, {});
  EXPECT_EQ(queued(), Prefixes{prefixOf("10.2.0.0/16")});
}

TEST_F(FecSm, walksPassOverPrefixesWithoutRows) {
  constexpr unsigned size = 5000;
  const std::string rest = " 10.1.1.1 if3 type4 proto7 metric10 pref1";
  // The first row; it takes few lookups unless the walk gives up.
  const auto first = [this] {
    routes->lookups = 0;
    const RouteIterator at(mib);
    const unsigned least = at.gaveUp() ? RouteIterator::maxFruitless : 0;
    EXPECT_TRUE(routes->lookups >= least && routes->lookups < least + 100) << routes->lookups;
    return at ? rowText(*at) : at.gaveUp() ? "gave up" : "end";
  };
  routes->map.clear();
  // By turns: an IPv6 next hop, an interface without ifIndex, a type without rows.
  fecIs(10, {{"fe80::1", "eth0"}});
  fecIs(11, {{"10.1.1.1", "none"}});
  for (unsigned i = 0; i < size; ++i) routes->map[numbered(i)] = route(numbered(i), 10 + i % 2, i % 3 ? 7 : 5);
  routeIs("200.0.0.0/8", 1);
  smsAre();
  EXPECT_EQ(first(), "200.0.0.0/8" + rest);
  intfIs("none", 3);
  EXPECT_EQ(first(), "11.0.1.0/24" + rest);
  fecIs(10, {{"10.1.1.1", "eth0"}});
  run();
  // What is gone from the store without a notification is not passed over: the walk does not call it the end.
  fecs->map.erase(FecId(10));
  fecs->map.erase(FecId(11));
  EXPECT_EQ(first(), "gave up");
  fecs->tableIs(fecs->map);
  run();
  EXPECT_EQ(first(), "200.0.0.0/8" + rest);
  for (bool* const areNotified : {&routes->areChangesNotified, &fecs->areChangesNotified}) {
    *areNotified = false;
    EXPECT_EQ(first(), "gave up") << "a pending change may give a row to any prefix";
    *areNotified = true;
  }
}

TEST_F(FecSm, stoppedMachineDoesNothing) {
  numberedRoutesAre(5000, 3);
  smIs();
  fecSm = Kel::makePtr<PerVrfFecSm>(sm, routes, fecs);  // with the table half read
  const auto list = fecSm->fecRouteList();
  fecSm->kelStop();
  EXPECT_FALSE(sm->fecsAndPrefixes()->fecRouteList());
  const auto count = list->prefixCount();
  routeIs("10.9.0.0/16", 2);
  run();
  fecIs(1, {});
  EXPECT_EQ(list->prefixCount(), count);
  EXPECT_EQ(queued(), Prefixes{});
}

}  // namespace
}  // namespace IpSnmpTest
