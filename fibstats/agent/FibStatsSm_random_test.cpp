// Random histories of routes and neighbours, against a model that knows the rule alone and counts anew each time.

#include <gtest/gtest.h>

#include <random>
#include <set>

#include "fibstats/agent/testing/TestFibStats.h"

namespace FibStatsSnmp {
namespace {

template <class Family>
struct RandomHistory : FibStatsWorld<Family> {
  using World = FibStatsWorld<Family>;
  using Prefix = typename World::Prefix;
  using Route = typename World::Route;
  using ArpKey = Arp::Table::ArpKey;
  using VrfId = Vrf::VrfIdMap::VrfId;
  using World::arp;
  using World::host;
  using World::net;
  using World::routes;
  using World::sm;

  RandomHistory() { Kel::TraceConfig::levelsAre("FibStatsSm/0"); }

  unsigned pick(unsigned count) { return static_cast<unsigned>(random() % count); }
  static bool isCounted(const Route& route) {
    const std::set<unsigned> skipped = World::isIp4 ? std::set{0U, 5U, 12U} : std::set{0U, 3U, 8U};
    return !skipped.contains(route.routeType.value());
  }
  Route randomRoute() {
    const bool isHost = pick(2) == 0;
    const unsigned number = pick(isHost ? 12 : 6);
    const auto prefix = isHost ? host(firstHost + number) : net(number << 8U, Family::hostLength - 8);
    return World::route(prefix, isTypeFixed ? (number * 2 + isHost) % 20 : pick(20));
  }
  Arp::Table::ArpEntry randomNeighbour() {
    static constexpr const char* intfs[] = {"e1", "e2", "Management1"};
    return World::neighbour(World::addr(firstHost + pick(12)), intfs[pick(3)], 7 + pick(2));
  }
  std::map<Prefix, Route> randomRoutes() {
    std::map<Prefix, Route> table;
    for (unsigned n = pick(20); n > 0; --n) {
      const auto route = randomRoute();
      table[route.prefix] = route;
    }
    const unsigned others = pick(2) == 0 ? 0 : 2 * firstHost;
    for (unsigned n = 0; n < others; ++n) {
      if (n - firstHost >= 12) table[host(n)] = World::route(host(n), World::isIp4 ? 22 : 9);
    }
    return table;
  }
  std::vector<Arp::Table::ArpEntry> randomNeighbours() {
    std::vector<Arp::Table::ArpEntry> table;
    for (unsigned n = pick(20); n > 0; --n) table.push_back(randomNeighbour());
    return table;
  }

  // ---- the model
  bool isNeighbour(const Prefix& prefix) const {
    return std::ranges::any_of(neighbours, [&](const ArpKey& key) {
      return key.vrfId == vrfId && Family::host(key.addr) == prefix && key.intfId.text() != "Management1";
    });
  }
  bool isRoute(const Prefix& prefix) const {
    const auto at = routes->map.find(prefix);
    return at != routes->map.end() && isCounted(at->second);
  }
  void countWhatStands(const Prefix& prefix) {
    if (counted.contains(prefix)) return;
    if (isRoute(prefix)) {
      counted[prefix] = sm->mibRouteType(routes->map.at(prefix));
    } else if (isNeighbour(prefix)) {
      counted[prefix] = routeTypeAttached;
    }
  }
  void review() {
    std::erase_if(counted, [&](const auto& member) {
      const auto& [prefix, type] = member;
      return type == routeTypeAttached ? !isNeighbour(prefix) : !routes->map.contains(prefix);
    });
    for (const auto& [prefix, route] : routes->map) countWhatStands(prefix);
    for (const auto& key : neighbours) countWhatStands(Family::host(key.addr));
  }
  void routeChanged(const Prefix& prefix) {
    if (isRoute(prefix)) {
      counted.try_emplace(prefix, sm->mibRouteType(routes->map.at(prefix)));
    } else if (!routes->map.contains(prefix) && counted.erase(prefix) > 0 && sm->isReviewing()) {
      countWhatStands(prefix);
    }
  }
  void neighbourChanged(const ArpKey& key) {
    const auto prefix = Family::host(key.addr);
    if (key.vrfId != vrfId) return;
    if (neighbours.contains(key)) {
      if (key.intfId.text() == "Management1") return;
      if (sm->isReviewing()) countWhatStands(prefix);
      counted.try_emplace(prefix, routeTypeAttached);
    } else if (const auto at = counted.find(prefix);
               at != counted.end() && at->second == routeTypeAttached && !isNeighbour(prefix)) {
      counted.erase(at);
      if (sm->isReviewing()) countWhatStands(prefix);
    }
  }
  std::string recount() const {
    std::map<int, unsigned> types, lengths;
    for (const auto& [prefix, type] : counted) {
      ++types[type];
      ++lengths[static_cast<int>(prefix.length())];
    }
    std::string text = (counted.empty() ? "none" : std::to_string(counted.size())) + ";";
    for (const auto& [type, count] : types) text += fmt::format(" {}:{}", type, count);
    text += ";";
    for (const auto& [length, count] : lengths) text += fmt::format(" {}:{}", length, count);
    return text;
  }

  // ---- the history
  void makeMachine() {
    counted.clear();
    vrfId = VrfId(7);
    this->start();
    if (hasScheduler) sm->taskSchedulerIs(this->scheduler_);
  }
  void neighboursAre(const std::vector<Arp::Table::ArpEntry>& table) {
    neighbours.clear();
    for (const auto& entry : table) neighbours.insert(entry.key);
    arp->tableIs(table);
  }
  // The machine is made before the store is read; either table is told first.
  void restart() {
    sm = nullptr;
    routes->isInitialized = arp->isInitialized = false;
    makeMachine();
    routes->map = randomRoutes();
    neighboursAre(randomNeighbours());
    const unsigned order = pick(3);
    if (order == 0) routes->initializedIs();
    if (order == 1) routes->isInitialized = true;
    arp->initializedIs();
    if (order != 0) routes->initializedIs();
    review();
  }
  void tableStep() {
    switch (pick(5)) {
      case 0:
        return restart();
      case 1:
        if (const auto id = std::array{VrfId(7), VrfId(8), VrfId()}[pick(3)]; id != vrfId) {
          sm->vrfIdIs(vrfId = id);
          review();
        }
        return;
      case 2:
        routes = Kel::makePtr<Quillo::TestRouteStatus<Prefix>>();
        routes->map = randomRoutes();
        sm->routeStatusIs(routes);
        counted.clear();
        return review();
      case 3:
        routes->map = randomRoutes();
        neighboursAre(randomNeighbours());
        review();
        return routes->tableIs(routes->map);
      default:
        routes->tableIs(randomRoutes());
        review();
        neighboursAre(randomNeighbours());
        return review();
    }
  }
  void keyStep() {
    if (pick(2) == 0) {
      const auto route = randomRoute();
      if (pick(2) == 0) {
        routes->routeIs(route);
      } else if (routes->map.contains(route.prefix)) {
        routes->routeDel(route.prefix);
      } else {
        return;
      }
      return routeChanged(route.prefix);
    }
    auto entry = randomNeighbour();
    if (pick(2) == 0) {
      neighbours.insert(entry.key);
      arp->entryIs(entry);
    } else if (const auto next = neighbours.lower_bound(entry.key); next != neighbours.end()) {
      entry.key = *next;
      neighbours.erase(next);
      arp->entryDel(entry.key);
    }
    neighbourChanged(entry.key);
  }

  std::mt19937 random{20261121};
  unsigned firstHost = 0;  // every other table has as many further routes on either side of the hosts
  bool isTypeFixed = false, hasScheduler = false;
  VrfId vrfId;
  std::map<Prefix, RouteType> counted;
  std::set<ArpKey> neighbours;
};

using Families = testing::Types<Ip4Routes, Ip6Routes>;
TYPED_TEST_SUITE(RandomHistory, Families, );

TYPED_TEST(RandomHistory, agreesWithACountFromScratch) {
  this->makeMachine();
  for (int n = 0; n < 5000; ++n) {
    this->pick(10) == 0 ? this->tableStep() : this->keyStep();
    ASSERT_EQ(this->rows(), this->recount()) << "after step " << n;
  }
  this->neighboursAre({});
  this->routes->tableIs({});
  EXPECT_EQ(this->rows(), "none;;");
}

// Whatever is notified during a review, afterwards just what stands is counted. Of a host that has both a route and a
// neighbour the model knows either.
TYPED_TEST(RandomHistory, agreesWithACountFromScratchAfterEachReviewInPieces) {
  this->firstHost = 600;
  this->isTypeFixed = this->hasScheduler = true;
  this->makeMachine();
  Kel::System::clockIs([this] { return this->now_ += 0.006; });  // a quantum is two looks at it
  unsigned interrupted = 0;
  for (int round = 0; round < 100; ++round) {
    this->tableStep();
    for (unsigned n = this->pick(30); n > 0; --n) {
      this->pick(20) == 0 ? this->tableStep() : this->keyStep();
      if (this->pick(2) == 0) this->scheduler_->runReady();
      if (this->sm->isReviewing()) ++interrupted;
    }
    this->runTasks();
    ASSERT_FALSE(this->sm->isReviewing());
    for (auto& [prefix, type] : this->counted) {
      if (this->isRoute(prefix) && this->isNeighbour(prefix))
        type = this->sm->prefixRouteType().find(prefix).value();
    }
    ASSERT_EQ(this->rows(), this->recount()) << "after round " << round;
    for (int n = 0; n < 5; ++n) this->keyStep();
    ASSERT_EQ(this->rows(), this->recount()) << "after round " << round;
  }
  EXPECT_GT(interrupted, 100U);
}

}  // namespace
}  // namespace FibStatsSnmp
