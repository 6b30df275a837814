#include "quillo/fecs/FecRouteList.h"

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <set>

#include "quillo/fecs/FecRouteListSm.h"
#include "quillo/testing/TestFibTables.h"

namespace Quillo::Fib {
namespace {

using Vantu::Prefix;

using Model = std::map<Prefix, FecId>;

// Everything that the list says, read in every way that it offers.
void expectEqual(const FecRouteList& list, const Model& model) {
  ASSERT_EQ(list.prefixCount(), model.size());
  std::map<FecId, std::set<Prefix>> byFec;
  for (const auto& [prefix, fecId] : model) {
    ASSERT_EQ(list.fecId(prefix), fecId) << prefix;
    byFec[fecId].insert(prefix);
  }
  for (const auto& [fecId, prefixes] : byFec) {
    // Each is a place to go on from.
    const Prefix* after = nullptr;
    for (const auto& prefix : prefixes) {
      Prefix next;
      list.forEachPrefix(fecId, after, [&](const Prefix& listed) { return next = listed, false; });
      ASSERT_EQ(next, prefix) << "FEC " << fecId;
      after = &prefix;
    }
    list.forEachPrefix(fecId, after, [&](const Prefix& prefix) { return ADD_FAILURE() << prefix, false; });
  }
  auto expected = model.begin();
  list.forEachPrefix(nullptr,
                     [&](const Prefix& prefix) { return expected != model.end() && prefix == expected++->first; });
  ASSERT_TRUE(expected == model.end());
}

struct Random {
  std::mt19937 engine{3};
  unsigned below(unsigned limit) { return std::uniform_int_distribution<unsigned>(0, limit - 1)(engine); }
  // The ends of the address space and of the lengths are among them; neighbours differ in one bit.
  Prefix prefix() {
    const std::uint32_t addresses[] = {0, 0x0A000000, 0x0A000100, 0xFFFFFFFF, below(4) << 30};
    return {Vantu::IpAddr(addresses[below(5)]), below(33)};
  }
  FecId fecId() { return FecId(below(3) ? below(6) : ~std::uint64_t{0} - below(3)); }
};

struct Followed : testing::Test {
  using Routes = TestRouteStatus<Prefix>;
  Kel::Ptr<Routes> routes = Kel::makePtr<Routes>();
  Kel::Ptr<TestForwardingStatus> fecs = Kel::makePtr<TestForwardingStatus>();
  Kel::Ptr<FecRouteList> list = Kel::makePtr<FecRouteList>();
  Kel::Ptr<FibUtils::FecRouteListSm> sm;
  Random random;

  void scanAll() {
    while (sm->isScanning()) sm->scanPiece();
  }
  void smIs() { sm = Kel::makePtr<FibUtils::FecRouteListSm>(routes, fecs, list); }
  void fecIs(unsigned fecId, const std::vector<Via>& vias) { fecs->fecIs({FecId(fecId), vias}); }
  // The prefixes that are found on an interface.
  std::vector<Prefix> through(std::string_view intf) const {
    std::vector<Prefix> all;
    const auto isIt = [&](const Vantu::IntfId& id) { return id == Vantu::IntfId(intf); };
    Prefix at;
    for (unsigned i = 0; list->nextThrough(numbered(i), isIt, at); i = (at.address().value() >> 8) + 1) {
      all.push_back(at);
    }
    return all;
  }
  static Route route(const Prefix& prefix, FecId fecId) {
    return {prefix, Routing::Fib::RouteType(7), {}, {}, fecId};
  }
  static Prefix numbered(unsigned i) { return {Vantu::IpAddr(i << 8), 24}; }
  Model model() const {
    Model made;
    for (const auto& [prefix, at] : routes->map) {
      if (at.fecId != FecId()) made[prefix] = at.fecId;
    }
    return made;
  }
};

// FECs 1 and 2 get most prefixes, so that they become large, and small again while more go than come.
TEST(FecRouteList, listsAndFindsWhatLookingAtEachPrefixWould) {
  const Vantu::IntfId names[] = {Vantu::IntfId(), Vantu::IntfId("eth0"), Vantu::IntfId("eth1"),
                                 Vantu::IntfId("eth2")};
  const Prefix last(Vantu::IpAddr(0xFFFFFFFF), 32);
  Random random;
  const auto list = Kel::makePtr<FecRouteList>();
  std::map<Prefix, std::pair<FecId, bool>> model;
  std::map<FecId, FecRouteList::Intfs> intfsOf;
  std::set<Vantu::IntfId> good;
  const auto isGood = [&](const Vantu::IntfId& intf) { return good.contains(intf); };
  const auto prefix = [&] { return random.below(8) ? Followed::numbered(random.below(1500)) : random.prefix(); };
  for (unsigned i = 0; i < 24'000; ++i) {
    const bool isShrinking = i / 4000 % 2 == 1;
    const FecId fecId(random.below(3) ? 1 + random.below(2) : random.below(9) + (~std::uint64_t{0} - 9));
    const auto changed = prefix();
    const bool isGone = random.below(5)<(isShrinking ? 4U : 1U), isSought = random.below(5)> 0;
    if (isGone) {
      model.erase(changed);
    } else {
      model[changed] = {fecId, isSought};
    }
    list->fecIdIs(changed, isGone ? FecId() : fecId, isSought);
    if (random.below(50) == 0) {
      auto& intfs = intfsOf[fecId] = {};
      std::copy_if(std::begin(names), std::end(names), std::back_inserter(intfs),
                   [&](const auto&) { return random.below(3) == 0; });
      list->setFecInterfaces(fecId, intfs);
    }
    if (list->needsIntfs(fecId)) list->setFecInterfaces(fecId, intfsOf[fecId]);
    const auto& name = names[random.below(4)];
    if (random.below(50) == 0 && good.erase(name) == 0) good.insert(name);
    const auto from = prefix(), completeTo = random.below(4) ? last : prefix();
    auto expected = model.lower_bound(from);
    const auto isNext = [&](const auto& fec) {
      return fec.second && std::any_of(intfsOf[fec.first].begin(), intfsOf[fec.first].end(), isGood);
    };
    while (expected != model.end() && !isNext(expected->second)) ++expected;
    list->setCompleteTo(&completeTo);
    Prefix found;
    const bool isFound = list->nextThrough(from, isGood, found);
    if (completeTo == last || (expected != model.end() && expected->first <= completeTo)) {
      ASSERT_EQ(isFound, expected != model.end()) << "operation " << i;
      ASSERT_TRUE(!isFound || found == expected->first) << "operation " << i;
    } else {
      ASSERT_TRUE(isFound) << "operation " << i;
      ASSERT_EQ(found, std::max(from, completeTo)) << "operation " << i;
    }
    if (i % 500 != 0) continue;
    Model all;
    for (const auto& [listed, fec] : model) all[listed] = fec.first;
    expectEqual(*list, all);
    ASSERT_FALSE(testing::Test::HasFailure()) << "operation " << i;
  }
  for (const auto& entry : model) list->fecIdIs(entry.first, FecId());
  expectEqual(*list, {});
}

// At once where it is one route, and in pieces where it is the table.
TEST_F(Followed, changesOfTheTable) {
  const unsigned size = 3 * RouteScan<Prefix>::pieceSize;
  for (unsigned i = 0; i < size; ++i) routes->map[numbered(i)] = route(numbered(i), FecId(1 + i % 5));
  routes->isInitialized = false;
  smIs();
  EXPECT_EQ(list->prefixCount(), 0u);
  unsigned begun = 0;
  sm->setScanHandler([&] { ++begun; });
  routes->initializedIs();
  EXPECT_EQ(list->prefixCount(), RouteScan<Prefix>::pieceSize);
  for (unsigned round = 0; round < 4; ++round) {
    EXPECT_EQ(begun, 1 + round);
    for (unsigned i = 0; i < 200; ++i) {
      const auto prefix = random.below(2) ? random.prefix() : numbered(random.below(size));
      random.below(3) ? routes->routeIs(route(prefix, random.fecId())) : routes->routeDel(prefix);
      if (i == 100) scanAll();
    }
    auto expected = model();
    for (const auto& damaged : routes->damagedEntries) expected.erase(damaged.first);
    expectEqual(*list, expected);
    EXPECT_EQ(routes->reports.empty(), round == 0);
    // Another table, some of it elsewhere and some damaged: what is gone goes.
    auto other = std::exchange(routes->map, {});
    std::erase_if(other, [&](const auto&) { return random.below(3) == 0; });
    routes->damagedEntries.clear();
    for (auto& [prefix, at] : other) {
      if (random.below(3) == 0) at.fecId = random.fecId();
      if (round < 2 && random.below(100) == 0) routes->damagedEntries[prefix] = "checksum";
    }
    routes->tableIs(other);
  }
  scanAll();
  sm->kelStop();
  const auto before = model();
  routes->routeIs(route(numbered(2), FecId(9)));
  expectEqual(*list, before);
}

TEST_F(Followed, prefixesAreFoundOnTheInterfacesOfTheirIpv4NextHops) {
  const Vantu::IpAddr hop(0x0A000001);
  const auto ipv6 = Vantu::Ip6Addr::fromString("fe80::1");
  const Vantu::IntfId eth0("eth0"), eth1("eth1"), eth2("eth2");
  fecIs(1, {{hop, eth0}});
  fecIs(2, {{hop, eth0}, {ipv6, eth1}, {hop, eth2}});  // of equal next hops the last counts
  fecIs(3, {{ipv6, eth0}});
  fecIs(4, std::vector<Via>(Fec::maxVias + 1, {hop, eth0}));
  for (unsigned i = 1; i <= 5; ++i) routes->routeIs(route(numbered(i), FecId(i)));
  smIs();
  EXPECT_EQ(through("eth0"), std::vector{numbered(1)});
  EXPECT_EQ(through("eth1"), std::vector<Prefix>{});
  EXPECT_EQ(through("eth2"), std::vector{numbered(2)});
  fecIs(5, {{Vantu::IpAddr(), eth0}});
  fecIs(1, {});
  EXPECT_EQ(through("eth0"), std::vector{numbered(5)});
  // A table that does not notify the single changes.
  fecs->damagedEntries[FecId(5)] = "checksum";
  fecs->map[FecId(3)].via = {{hop, eth0}};
  fecs->tableIs(fecs->map);
  EXPECT_EQ(through("eth0"), std::vector{numbered(3)});
  EXPECT_EQ(fecs->reports.size(), 1u);
  // An incomplete list skips nothing.
  sm->kelStop();
  for (int i = 0; i < 2; ++i) {
    Prefix next;
    EXPECT_TRUE(list->nextThrough(
        numbered(1), [](const auto&) { return false; }, next));
    EXPECT_EQ(next, numbered(1));
    sm = Kel::makePtr<FibUtils::FecRouteListSm>(routes, nullptr, list);
  }
}

}  // namespace
}  // namespace Quillo::Fib
