#include "ipsnmp/IpCidrRouteTableIteratorConst.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ipsnmp/testing/TestRoutes.h"

namespace IpSnmpTest {
namespace {

struct Walk : testing::Test, SettledRoutes {
  Walk() {
    intfIs("eth0", 3);
    fecIs(1, {{"10.1.1.1", "eth0"}});
  }
  void routesAre(unsigned count) {
    for (unsigned i = 0; i < count; ++i) routeIs(fmt::format("10.{}.{}.0/24", i / 250, i % 250), 1);
    settle();
  }
};

using testing::Contains;
using testing::HasSubstr;
using Texts = std::vector<std::string>;

TEST_F(Walk, tracesEachStepAndWhyARowIsMissing) {
  fecIs(1, {{"10.1.1.1", "eth9"}, {"10.1.1.2", "eth0"}});
  fecIs(3, {{"10.1.1.1", "eth0"}});
  routeIs("12.0.0.0/8", 2);
  routeIs("13.0.0.0/8", 3);
  routesAre(1);
  prefixes->orderedPrefixIs(prefixOf("11.0.0.0/8").addrWithMask(), true);
  forwardFecs->forwardFecDel(FecId(3));
  TraceLines lines("IpCidrRouteTableIteratorConst");
  RouteIterator at(mib);
  EXPECT_EQ(lines.take(),
            (Texts{"7 Index: " + Kel::print(IpCidrRouteTableIndex()) + " getNext 0",
                   "7 10.0.0.0/24 has invalid intf eth9", "7 10.0.0.0/24 has entry " + Kel::print(*at)}));
  const auto index = Kel::print(at.index());
  EXPECT_TRUE((++at).isAtEnd());
  EXPECT_EQ(lines.take(),
            (Texts{"7 Index: " + index + " getNext 1", "7 Going to next via", "7 11.0.0.0/8 has invalid route",
                   "7 12.0.0.0/8 has no fec", "7 13.0.0.0/8 has no forward fec"}));
  EXPECT_TRUE((++at).isAtEnd());
  EXPECT_EQ(lines.take(), Texts{}) << "the end is the end";
}

TEST_F(Walk, prefixesWhoseRoutesWentAreNotLookedUpOneByOne) {
  routesAre(10'000);
  for (unsigned i = 100; i < 9'900; ++i) {
    routes->map.erase(prefixOf(fmt::format("10.{}.{}.0/24", i / 250, i % 250)));
  }
  EXPECT_EQ(rows().size(), 200U);
  routes->lookups = 0;
  EXPECT_EQ(RouteIterator(mib, IpCidrRouteTableIndex(ip("10.0.100.0"), ip("255.255.255.0"), 0, {}), false).index(),
            IpCidrRouteTableIndex(ip("10.39.150.0"), ip("255.255.255.0"), 0, ip("10.1.1.1")));
  EXPECT_LT(routes->lookups, 100U);
  mib->vrfForwardingStatusIs(nullptr);
  routes->lookups = 0;
  EXPECT_EQ(rows().size(), 0U);
  EXPECT_LT(routes->lookups, 100U) << "without FECs there is no row to look for";
}

TEST_F(Walk, cacheWithoutTablesHasNoRows) {
  fecIs(1, {{"10.1.1.1", ""}, {"10.1.1.2", "eth0"}});
  routesAre(1);
  RouteIterator at(mib);
  mib->ifMibIs(nullptr);
  EXPECT_EQ(rows().size(), 1U) << "an interface has no ifIndex";
  for (const auto& removeTable : std::vector<std::function<void()>>{
           [this] { prefixes->forwardFecsIs(nullptr); }, [this] { mib->vrfForwardingStatusIs(nullptr); },
           [this] { mib->routeStatusIs(nullptr); }, [this] { mib->fecsAndPrefixesIs(nullptr); }}) {
    removeTable();
    EXPECT_EQ(rows().size(), 0U);
  }
  EXPECT_EQ(rowText(*at), "10.0.0.0/24 10.1.1.1 if0 type1 proto7 metric10 pref1");
  EXPECT_TRUE((++at).isAtEnd());
  EXPECT_TRUE(RouteIterator(nullptr).isAtEnd());
}

TEST_F(Walk, whatWasReadIsUsedAgainUntilItsTableChanges) {
  routesAre(400);
  routes->currentGeneration = fecs->currentGeneration = 1;
  const auto lookups = [this] {
    return std::pair(std::exchange(routes->lookups, 0U), std::exchange(fecs->lookups, 0U));
  };
  RouteIterator at(mib);
  EXPECT_EQ(lookups(), std::pair(1U, 1U));
  // As a GETNEXT does: to the row that was asked for, then to the next.
  while (at) {
    RouteIterator request(mib, at.index(), false);
    at = ++request;
  }
  EXPECT_EQ(lookups(), std::pair(8U, 0U)) << "pieces that grow to 128 routes";
  fecIs(1, {{"10.1.1.1", ""}});
  EXPECT_EQ(rowTexts().front(), "10.0.0.0/24 10.1.1.1 if0 type1 proto7 metric10 pref1");
  EXPECT_EQ(lookups().second, 1U);
  // Another table has another generation.
  const auto other = Kel::makePtr<Quillo::TestRouteStatus<Vantu::Prefix>>();
  other->currentGeneration = 100;
  mib->routeStatusIs(other);
  EXPECT_EQ(rows().size(), 0U);
}

// Tables and what is derived from them change between any two steps, each without the other.
TEST_F(Walk, agreesWithTheModelOverRandomTablesAndIndexes) {
  for (unsigned seed = 1; seed <= 25; ++seed) {
    SCOPED_TRACE(seed);
    RandomRoutes random(seed);
    random.intfs(*this);
    routes->currentGeneration = fecs->currentGeneration = seed % 2 ? 1'000'000 * seed : 0;  // no number twice
    for (int i = 0; i < 300; ++i) random.change(*this);
    settle();
    const auto all = model.rows(derived);
    ASSERT_EQ(rows(), all);
    for (int i = 0; i < 300; ++i) {
      const auto index = random.index();
      const bool getNext = random.below(2);
      const RouteIterator at(mib, index, getNext);
      ASSERT_EQ(at ? std::optional(*at) : std::nullopt, model.fetch(derived, index, getNext)) << index;
      const auto exact = mib->ipCidrRouteTable(index);
      const auto found =
          std::find_if(all.begin(), all.end(), [&](const auto& row) { return row.index() == index; });
      ASSERT_EQ(exact, found == all.end() ? std::nullopt : std::optional(*found)) << index;
    }
    std::optional<IpCidrRouteTableIndex> last;
    for (RouteIterator at(mib); at;) {
      ASSERT_TRUE(!last || *last < at.index());
      last = at.index();
      for (unsigned changes = random.below(4); changes > 0; --changes) random.change(*this);
      if (random.below(3) == 0) random.damage(*this, true);
      if (random.below(3) == 0) settle();
      const auto expected = model.fetch(derived, *last, true);
      ++at;
      ASSERT_EQ(at ? std::optional(*at) : std::nullopt, expected) << *last;
    }
  }
  for (auto* reports : {&routes->reports, &fecs->reports}) EXPECT_THAT(*reports, Contains(HasSubstr("checksum")));
}

}  // namespace
}  // namespace IpSnmpTest
