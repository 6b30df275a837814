#include "quillo/tables/RouteScan.h"

#include <gtest/gtest.h>

#include <random>
#include <set>

#include "quillo/testing/TestFibTables.h"

namespace Quillo {
namespace {

using Vantu::Prefix;
using Table = TestRouteStatus<Prefix>;
constexpr std::size_t pieceSize = RouteScan<Prefix>::pieceSize;

auto walkOf(const std::set<Prefix>& known) {
  return [&known](const Prefix* after, auto visit) {
    auto at = after != nullptr ? known.upper_bound(*after) : known.begin();
    while (at != known.end() && visit(*at)) ++at;
  };
}
void enter(Table& table, const Prefix& prefix) {
  table.map[prefix].prefix = prefix;
}

struct Random {
  std::mt19937 engine{7};
  unsigned below(unsigned limit) { return std::uniform_int_distribution<unsigned>(0, limit - 1)(engine); }
  // Few addresses, so that several lengths of one are common.
  Prefix prefix() { return {Vantu::IpAddr((10U << 24) | below(4000) << 8), 16 + below(17)}; }
};

TEST(RouteScan, namesWhatEitherSideHasOnceInPiecesOfBoundedSize) {
  Random random;
  for (int round = 0; round < 20; ++round) {
    auto table = Kel::makePtr<Table>();
    std::set<Prefix> known, all;
    const unsigned sizes[] = {0, 1, pieceSize, 2 * pieceSize, 4321};
    for (auto n = sizes[random.below(5)]; table->map.size() < n;) enter(*table, random.prefix());
    for (auto n = sizes[random.below(5)]; known.size() < n;) known.insert(random.prefix());
    for (const auto& [prefix, route] : table->map) all.insert(prefix);
    all.insert(known.begin(), known.end());

    RouteScan<Prefix> scan;
    EXPECT_FALSE(scan.isOn());
    scan.begin();
    std::set<Prefix> named;
    while (scan.isOn()) {
      const auto piece = scan.piece(table.get(), walkOf(known));
      ASSERT_LE(piece.size(), 2 * pieceSize);
      for (const auto& prefix : piece) ASSERT_TRUE(named.insert(prefix).second) << prefix;
    }
    ASSERT_EQ(named, all) << "round " << round;
  }
}

TEST(RouteScan, whatStandsThroughoutIsNamedWhateverChangesMeanwhile) {
  Random random;
  auto table = Kel::makePtr<Table>();
  std::set<Prefix> standing, known;
  while (standing.size() < 3 * pieceSize) standing.insert(random.prefix());
  for (const auto& prefix : standing) random.below(2) ? enter(*table, prefix) : void(known.insert(prefix));
  RouteScan<Prefix> scan;
  scan.begin();
  auto left = standing;
  while (scan.isOn()) {
    for (const auto& prefix : scan.piece(table.get(), walkOf(known))) left.erase(prefix);
    for (int i = 0; i < 500; ++i) {
      const auto prefix = random.prefix();
      if (standing.contains(prefix)) continue;
      if (!table->map.erase(prefix)) enter(*table, prefix);
      if (!known.erase(prefix)) known.insert(prefix);
    }
  }
  EXPECT_TRUE(left.empty()) << left.size() << " were not named, the first " << *left.begin();
}

TEST(RouteScan, damageIsReportedAndTheRestIsNamed) {
  auto table = Kel::makePtr<Table>();
  const Prefix bad(Vantu::IpAddr(1), 32), good(Vantu::IpAddr(2), 32), old(Vantu::IpAddr(3), 32);
  enter(*table, bad);
  enter(*table, good);
  table->damagedEntries[bad] = "checksum";
  RouteScan<Prefix> scan;
  scan.begin();
  EXPECT_EQ(scan.piece(table.get(), walkOf({old})), (std::vector{good, old}));
  EXPECT_FALSE(scan.isOn());
  EXPECT_EQ(table->reports.size(), 1u);
  scan.begin();
  EXPECT_EQ(scan.piece(nullptr, walkOf({old})), std::vector{old});
}

}  // namespace
}  // namespace Quillo
