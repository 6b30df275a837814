#include "quillo/FecRouteList.h"

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <set>

#include "quillo/FecRouteListSm.h"
#include "quillo/TestFibTables.h"

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
  ASSERT_EQ(list.fecCount(), byFec.size());
  for (const auto& [fecId, prefixes] : byFec) {
    // One by one, so that each is a place to go on from.
    std::vector<Prefix> listed;
    for (bool isMore = true; isMore;) {
      const auto size = listed.size();
      const Prefix after = listed.empty() ? Prefix() : listed.back();
      list.forEachPrefix(fecId, listed.empty() ? nullptr : &after, [&](const Prefix& prefix) {
        listed.push_back(prefix);
        return false;
      });
      isMore = listed.size() > size;
    }
    ASSERT_TRUE(std::equal(listed.begin(), listed.end(), prefixes.begin(), prefixes.end())) << "FEC " << fecId;
  }
  std::vector<Prefix> all;
  list.forEachPrefix(nullptr, [&](const Prefix& prefix) {
    all.push_back(prefix);
    return true;
  });
  ASSERT_TRUE(std::equal(all.begin(), all.end(), model.begin(), model.end(),
                         [](const auto& prefix, const auto& entry) { return prefix == entry.first; }));
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

TEST(FecRouteList, agreesWithAModelOverRandomOperations) {
  Random random;
  auto list = Kel::makePtr<FecRouteList>();
  Model model;
  for (int i = 0; i < 3000; ++i) {
    const auto prefix = random.prefix();
    const auto fecId = random.fecId();
    list->fecIdIs(prefix, fecId);
    if (fecId == FecId()) {
      model.erase(prefix);
    } else {
      model[prefix] = fecId;
    }
    if (i % 10 == 0) expectEqual(*list, model);
    if (HasFatalFailure()) FAIL() << "after operation " << i;
  }
  for (const auto& [prefix, fecId] : Model(model)) list->fecIdIs(prefix, FecId());
  expectEqual(*list, {});
  EXPECT_EQ(list->fecId(random.prefix()), FecId());
}

struct Followed : testing::Test {
  using Routes = TestRouteStatus<Prefix>;
  Kel::Ptr<Routes> routes = Kel::makePtr<Routes>();
  Kel::Ptr<FecRouteList> list = Kel::makePtr<FecRouteList>();
  Kel::Ptr<FibUtils::FecRouteListSm> sm;
  Random random;

  void smIs() { sm = Kel::makePtr<FibUtils::FecRouteListSm>(routes, nullptr, list); }
  static Route route(const Prefix& prefix, FecId fecId) {
    Route made;
    made.prefix = prefix;
    made.routeType = Routing::Fib::RouteType(7);
    made.fecId = fecId;
    return made;
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

TEST_F(Followed, changesAreFollowedAtOnce) {
  routes->routeIs(route(numbered(1), FecId(1)));
  smIs();
  expectEqual(*list, model());
  for (int i = 0; i < 500; ++i) {
    random.below(3) ? routes->routeIs(route(random.prefix(), random.fecId())) : routes->routeDel(random.prefix());
  }
  expectEqual(*list, model());
  sm->kelStop();
  const auto before = model();
  routes->routeIs(route(numbered(2), FecId(9)));
  expectEqual(*list, before);
}

TEST_F(Followed, wholeTableIsReadInPiecesAndChangesMeanwhileAreNotLost) {
  const unsigned size = 3 * RouteScan<Prefix>::pieceSize;
  for (unsigned i = 0; i < size; ++i) routes->map[numbered(i)] = route(numbered(i), FecId(1 + i % 5));
  routes->isInitialized = false;
  smIs();
  EXPECT_EQ(list->prefixCount(), 0u);
  int begun = 0;
  sm->scanBeginsIs([&] { ++begun; });
  routes->initializedIs();
  EXPECT_EQ(begun, 1);
  EXPECT_EQ(list->prefixCount(), RouteScan<Prefix>::pieceSize);
  routes->routeIs(route(numbered(1), FecId(77)));
  routes->routeDel(numbered(2));
  routes->routeIs(route(numbered(size - 1), FecId(78)));
  while (sm->isScanning()) sm->scanPiece();
  expectEqual(*list, model());
  // Another table with half of it, some of that elsewhere: what is gone goes.
  std::map<Prefix, Route> other;
  for (unsigned i = 0; i < size; i += 2) other[numbered(i)] = route(numbered(i), FecId(1 + i % 3));
  routes->tableIs(std::move(other));
  EXPECT_EQ(begun, 2);
  while (sm->isScanning()) sm->scanPiece();
  expectEqual(*list, model());
}

TEST_F(Followed, damagedRouteHasNoFecUntilTheTableIsSound) {
  routes->routeIs(route(numbered(1), FecId(1)));
  smIs();
  routes->damagedEntries[numbered(1)] = "checksum";
  routes->routeIs(route(numbered(1), FecId(2)));
  EXPECT_EQ(routes->reports.size(), 1u);
  expectEqual(*list, {});
  routes->damagedEntries.clear();
  routes->tableIs(routes->map);
  expectEqual(*list, model());
}

TEST(FecId, readsItsOwnText) {
  EXPECT_EQ(FecId::fromString(FecId(~std::uint64_t{0}).stringValue()), FecId(~std::uint64_t{0}));
  for (const auto* text : {"", "-1", "1x", "18446744073709551616"}) {
    EXPECT_THROW(FecId::fromString(text), Kel::RangeException) << text;
  }
}

}  // namespace
}  // namespace Quillo::Fib
