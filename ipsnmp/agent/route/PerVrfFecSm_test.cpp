#include "ipsnmp/agent/route/PerVrfFecSm.h"

#include <gtest/gtest.h>

#include "ipsnmp/agent/Root.h"
#include "ipsnmp/agent/testing/TestRouteSm.h"

namespace IpSnmpTest {
namespace {

using namespace IpSnmp;
using Texts = std::vector<std::string>;

struct FecSm : RouteSmTest {
  Ptr<PerVrfFecSm> fecSm;

  FecSm() {
    intfIs("eth0", 3);
    for (unsigned i = 1; i < 4; ++i) fecIs(i, {{"10.1.1.1", "eth0"}});
    for (unsigned i = 0; i < 3; ++i) routeIs(fmt::format("10.0.{}.0/24", i), 1);
    routeIs("10.2.0.0/16", 2);
  }
  void smsAre() {
    smIs();
    fecSm = Kel::makePtr<PerVrfFecSm>(sm, routes, fecs);
    run();
  }
  std::vector<Vantu::Prefix> queued() const { return sm->routeBacklog().keys(); }
  static Vantu::Prefix numbered(unsigned i) { return {Vantu::IpAddr(0x0B000000 + (i << 8)), 24}; }
};

TEST_F(FecSm, changeOfAFecQueuesThePrefixesThatUseIt) {
  TraceLines lines("PerVrfFecSm");
  smsAre();
  EXPECT_EQ(lines.taken(), Texts{"2 void IpSnmp::PerVrfFecSm::handleInitialized()"});
  runFor(60);
  EXPECT_FALSE(sm->routeChanges());
  fecIs(1, {{"10.1.1.2", "eth0"}});
  fecIs(1, {{"10.1.1.3", "eth0"}});
  EXPECT_EQ(queued(), (std::vector{prefixOf("10.0.0.0/24"), prefixOf("10.0.1.0/24"), prefixOf("10.0.2.0/24")}));
  const Texts said{"6 void IpSnmp::PerVrfFecSm::handleFec(const Quillo::Fib::FecId&) for 1",
                   "6 prefix 10.0.0.0/24, fecId 1", "6 prefix 10.0.1.0/24, fecId 1",
                   "6 prefix 10.0.2.0/24, fecId 1"};
  auto twice = said;
  twice.insert(twice.end(), said.begin(), said.end());
  EXPECT_EQ(lines.taken(), twice);
  const auto before = sm->routeTask()->workCount();
  run();
  EXPECT_EQ(sm->routeTask()->workCount(), before + 3);
  EXPECT_TRUE(sm->routeChanges());
}

TEST_F(FecSm, fecThatNoRouteUsesQueuesNothing) {
  smsAre();
  fecIs(3, {{"10.1.1.2", "eth0"}});
  fecSm->handleFec(FecId(77));
  EXPECT_EQ(queued().size(), 0u);
}

TEST_F(FecSm, prefixesMoveWithTheirRoutes) {
  smsAre();
  routeIs("10.0.1.0/24", 2);
  routes->routeDel(prefixOf("10.0.2.0/24"));
  run();
  fecIs(2, {});
  EXPECT_EQ(queued(), (std::vector{prefixOf("10.0.1.0/24"), prefixOf("10.2.0.0/16")}));
  run();
  fecs->fecDel(FecId(1));
  EXPECT_EQ(queued(), std::vector{prefixOf("10.0.0.0/24")});
}

// The first piece goes at once, the others in a task; a change in between begins the FEC anew.
TEST_F(FecSm, fecOfManyRoutesIsWorkedOffInPieces) {
  const unsigned size = 3 * PerVrfFecSm::pieceSize + 5;
  for (unsigned i = 0; i < size; i += 2) routes->map[numbered(i)] = route(numbered(i), 3);
  smsAre();
  EXPECT_EQ(fecSm->fecRouteList()->prefixCount(), (size + 1) / 2 + 4);
  for (unsigned i = 1; i < size; i += 2) routes->map[numbered(i)] = route(numbered(i), 3);
  routes->tableIs(routes->map);  // read in pieces as the first one was
  run();
  EXPECT_EQ(fecSm->fecRouteList()->prefixCount(), size + 4);
  sm->routeTask()->cancelTask();
  sm->routeTask()->quantumIs(1e-9);  // so that the backlog stays to be seen
  tickIs(0.001);
  fecIs(3, {{"10.1.1.2", "eth0"}});
  fecIs(1, {});
  EXPECT_EQ(queued().size(), PerVrfFecSm::pieceSize + 3);
  for (int i = 0; i < 20; ++i) scheduler_->runReady();
  std::set<Vantu::Prefix> all;
  for (unsigned i = 0; i < size; ++i) all.insert(numbered(i));
  for (const auto& prefix : queued()) all.erase(prefix);
  EXPECT_EQ(all.size(), 0u) << "first " << *all.begin();
  sm->routeTask()->quantumIs(1);
  for (int i = 0; i < 200; ++i) scheduler_->runReady();
  EXPECT_TRUE(scheduler_->idle()) << "no task works on without work";
}

TEST_F(FecSm, anotherForwardingTableConcernsEveryRoute) {
  smsAre();
  runFor(60);
  const auto before = sm->routeTask()->workCount();
  fecs->tableIs(fecs->map);
  run();
  EXPECT_EQ(sm->routeTask()->workCount() - before, 4u);
  const auto other = Kel::makePtr<Quillo::TestForwardingStatus>();
  fecSm->vrfForwardingStatusIs(other);
  EXPECT_EQ(queued().size(), 4u);
  run();
  fecIs(1, {});
  EXPECT_EQ(queued().size(), 0u);
  other->fecIs(fec(2, {}));
  EXPECT_EQ(queued(), std::vector{prefixOf("10.2.0.0/16")});
}

TEST_F(FecSm, deletingItsPartsStopsThem) {
  smsAre();
  EXPECT_TRUE(fecSm->fecRouteListSmDel());
  routeIs("10.9.0.0/16", 2);
  run();
  fecIs(2, {});
  EXPECT_EQ(queued(), std::vector{prefixOf("10.2.0.0/16")});
  run();
  EXPECT_TRUE(fecSm->vrfForwardingStatusDel());
  fecIs(1, {});
  EXPECT_EQ(queued().size(), 0u);
  EXPECT_TRUE(fecSm->fecRouteListDel());
  fecSm->handleFec(FecId(1));
  EXPECT_EQ(queued().size(), 0u);
}

// Of a fetch from the first row: where it leads to, and how many prefixes it looked at.
struct Fetched {
  std::string row;
  bool gaveUp;
  unsigned lookups;
};
Fetched fetched(const FecSm& tables) {
  tables.routes->lookups = 0;
  const RouteIterator at(tables.mib);
  return {at ? rowText(*at) : "end", at.gaveUp(), tables.routes->lookups};
}

TEST_F(FecSm, prefixesWithoutRowsArePassedOver) {
  constexpr unsigned size = 5000;
  const std::string first = "11.0.0.0/24 10.1.1.1 if3 type4 proto7 metric10 pref1";
  const std::string last = "200.0.0.0/8 10.1.1.1 if3 type4 proto7 metric10 pref1";
  routes->map.clear();
  // By turns: an IPv6 next hop, none at all, a type without rows, an interface without ifIndex, small FECs with one.
  fecIs(10, {{"fe80::1", "eth0"}});
  fecIs(11, {});
  fecIs(12, {{"10.1.1.1", "none"}});
  for (unsigned i = 0; i < size; ++i) {
    const unsigned kind = i % 5;
    if (kind == 4) fecIs(100 + i, {{"10.1.1.1", "none"}});
    routes->map[numbered(i)] = route(numbered(i),
                                     kind == 4   ? 100 + i
                                     : kind == 3 ? 1
                                                 : 10 + kind,
                                     kind == 3 ? 5 : 7);
  }
  routeIs("200.0.0.0/8", 1);
  smsAre();
  EXPECT_EQ(fetched(*this).row, last);
  EXPECT_LT(fetched(*this).lookups, 100U);
  intfIs("none", 3);
  EXPECT_EQ(rows().size(), size / 5 * 2 + 1);
  intfIs("none", 0);
  EXPECT_EQ(fetched(*this).row, last);
  EXPECT_LT(fetched(*this).lookups, 100U);
  fecIs(10, {{"10.1.1.1", "eth0"}});
  run();
  EXPECT_EQ(fetched(*this).row, first);
  EXPECT_EQ(rows().size(), size / 5 + 1);
  fecIs(10, {{"fe80::2", "eth0"}});
  run();
  EXPECT_EQ(fetched(*this).row, last);
  EXPECT_LT(fetched(*this).lookups, 100U);
  // What went from the store, while nobody has been told yet, is not passed over: the walk does not call it the end.
  fecIs(10, {{"10.1.1.1", "eth0"}});
  fecIs(12, {{"10.1.1.1", "eth0"}});
  run();
  fecs->map.erase(FecId(10));
  fecs->map.erase(FecId(12));
  EXPECT_TRUE(fetched(*this).gaveUp);
  EXPECT_EQ(fetched(*this).lookups, RouteIterator::maxFruitless);
  fecs->tableIs(fecs->map);
  run();
  EXPECT_FALSE(fetched(*this).gaveUp);
  EXPECT_EQ(fetched(*this).row, last);
  for (bool* const areNotified : {&routes->areChangesNotified, &fecs->areChangesNotified}) {
    *areNotified = false;
    EXPECT_TRUE(fetched(*this).gaveUp) << "a pending change may give a row to any prefix";
    *areNotified = true;
  }
}

TEST_F(FecSm, stoppedMachineIsStill) {
  for (unsigned i = 0; i < 5000; ++i) routes->map[numbered(i)] = route(numbered(i), 3);
  smIs();
  fecSm = Kel::makePtr<PerVrfFecSm>(sm, routes, fecs);  // with the table half read
  const auto list = fecSm->fecRouteList();
  const auto listSm = fecSm->fecRouteListSm();
  fecSm->kelStop();
  const auto count = list->prefixCount();
  run();
  const auto backlog = sm->routeBacklog().size();
  routeIs("10.9.0.0/16", 2);
  fecIs(1, {});
  routes->tableIs(routes->map);
  fecSm->handleFec(FecId(1));
  EXPECT_EQ(list->prefixCount(), count);
  fecSm = nullptr;
  run();
  EXPECT_EQ(sm->routeBacklog().size(), backlog);
}

TEST_F(FecSm, rootWiresBothMachinesByName) {
  const auto root = Kel::makePtr<Root>("root");
  const Ptr<const Quillo::Fib::RouteStatus> routeStatus = routes;
  const Ptr<const Quillo::Fib::ForwardingStatus> own = fecs, unified;
  const Ptr<const IpForwardFecs> shared;
  const std::vector<Kel::Value> arguments{
      scheduler_, Kel::Name("default"), mib, routeStatus, own, unified, shared, Ptr<const IntfSnmp::IfMib>(ifMib)};
  const auto made = Kel::callOperation(*root, "ipRouteTableSmIs", arguments);
  EXPECT_EQ(Kel::callOperation(*root, "ipRouteTableSmIs", arguments), made);
  sm = root->ipRouteTableSm();
  EXPECT_EQ(sm->vrfName(), "default");
  Kel::callOperation(*root, "perVrfFecSmIs", {sm, routeStatus, own});
  run();
  EXPECT_EQ(rows().size(), 4u);
  fecIs(1, {{"10.1.1.2", "eth0"}});
  EXPECT_EQ(queued().size(), 3u);
  const auto kept = root->perVrfFecSm();
  Kel::callOperation(*root, "perVrfFecSmDel", {});
  Kel::callOperation(*root, "ipRouteTableSmDel", {});
  EXPECT_EQ(rows().size(), 0u);
  EXPECT_FALSE(kept->fecRouteList());
  EXPECT_EQ(scheduler_->tasks().size(), 0u);
}

}  // namespace
}  // namespace IpSnmpTest
