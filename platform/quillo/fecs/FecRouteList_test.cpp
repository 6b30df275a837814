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
};

Prefix numbered(unsigned i) {
  return {Vantu::IpAddr(i << 8), 24};
}

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
  const auto prefix = [&] { return random.below(8) ? numbered(random.below(1500)) : random.prefix(); };
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

TEST(FecRouteListSm, skipsOnlyWhatItHasRead) {
  const auto routes = Kel::makePtr<TestRouteStatus<Prefix>>();
  const auto fecs = Kel::makePtr<TestForwardingStatus>();
  const auto list = Kel::makePtr<FecRouteList>();
  constexpr auto pieceSize = static_cast<unsigned>(TableScan<Fib::RouteStatus>::pieceSize);
  for (unsigned i = 1; i <= pieceSize + 1; ++i) {
    routes->map[numbered(i)] = {numbered(i), Routing::Fib::RouteType(7), {}, {}, FecId(1)};
  }
  fecs->damagedEntries[FecId(1)] = "checksum";
  routes->isInitialized = false;
  const auto sm = Kel::makePtr<FibUtils::FecRouteListSm>(routes, fecs, list);
  unsigned begun = 0;
  sm->setScanHandler([&] { ++begun; });
  routes->initializedIs();
  EXPECT_EQ(begun, 1U);
  EXPECT_EQ(fecs->reports.size(), 1U);
  const auto none = [](const Vantu::IntfId&) { return false; };
  Prefix found;
  EXPECT_TRUE(list->nextThrough(numbered(1), none, found));
  EXPECT_EQ(found, numbered(pieceSize));
  while (sm->isScanning()) sm->scanPiece();
  EXPECT_FALSE(list->nextThrough(numbered(1), none, found));
  routes->tableIs(routes->map);
  EXPECT_TRUE(list->nextThrough(numbered(1), none, found)) << "what is read anew is not skipped";
  routes->damagedEntries[numbered(2)] = "checksum";
  routes->routeIs(routes->map[numbered(2)]);
  EXPECT_EQ(routes->reports.size(), 1U);
  const Vantu::IpAddr hop(7);
  EXPECT_EQ(FibUtils::ipv4NextHops({FecId(1), {{hop, {}}, {hop, {}}}}).at(hop), ViaIndex(1))
      << "of equals the last";
  sm->kelStop();
  routes->routeDel(numbered(1));
  EXPECT_EQ(list->prefixCount(), pieceSize);
}

}  // namespace
}  // namespace Quillo::Fib
