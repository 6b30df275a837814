// Random histories of routes and neighbours, against a model that knows the rule alone and counts anew each time.

#include <gtest/gtest.h>

#include <random>
#include <set>

#include "fibstats/agent/TestFibStats.h"

namespace FibStatsSnmp {
namespace {

template <class Family>
struct RandomHistory : FibStatsWorld<Family> {
  using World = FibStatsWorld<Family>;
  using Prefix = typename World::Prefix;
  using Route = typename World::Route;
  using World::arp;
  using World::host;
  using World::net;
  using World::routes;
  using World::sm;

  unsigned pick(unsigned count) { return static_cast<unsigned>(random() % count); }
  bool isSkipped(const Route& route) const {
    const std::set<unsigned> skipped = World::isIp4 ? std::set{0U, 5U, 12U} : std::set{0U, 3U, 8U};
    return skipped.contains(route.routeType.value());
  }
  Route randomRoute() {
    const auto prefix = pick(2) == 0 ? host(pick(12)) : net(pick(6) << 8U, Family::hostLength - 8);
    return World::route(prefix, pick(20));
  }
  Arp::Table::ArpEntry randomNeighbour() {
    static constexpr const char* intfs[] = {"e1", "e2", "Management1"};
    return World::neighbour(World::addr(pick(12)), intfs[pick(3)], 7 + pick(2));
  }

  // ---- the model
  void routeChanged(const Prefix& prefix) {
    const auto at = routes->map.find(prefix);
    if (at == routes->map.end()) {
      counted.erase(prefix);
    } else if (!isSkipped(at->second)) {
      counted.try_emplace(prefix, sm->mibRouteType(at->second));
    }
  }
  void neighbourChanged(const Arp::Table::ArpEntry& entry, bool isThere) {
    if (entry.vrfId().value() != 7) return;
    const auto prefix = Family::host(entry.addr());
    if (isThere) {
      if (entry.intfId().text() != "Management1") counted.try_emplace(prefix, routeTypeAttached);
    } else if (const auto at = counted.find(prefix); at != counted.end() && at->second == routeTypeAttached) {
      counted.erase(at);
    }
  }
  void routesReviewed() {
    for (const auto& [prefix, route] : routes->map) routeChanged(prefix);
    bool isHostFree = false;
    std::erase_if(counted, [&](const auto& member) {
      const auto& [prefix, type] = member;
      const bool isGone = type != routeTypeAttached && !routes->map.contains(prefix);
      isHostFree |= isGone && prefix.length() == Family::hostLength;
      return isGone;
    });
    if (isHostFree) neighboursReviewed();
  }
  void neighboursReviewed() {
    std::set<Prefix> hosts;
    for (const auto& entry : neighbours) {
      if (entry.vrfId().value() != 7 || entry.intfId().text() == "Management1") continue;
      neighbourChanged(entry, true);
      hosts.insert(Family::host(entry.addr()));
    }
    for (const auto& [prefix, type] : std::map(counted)) {
      if (type != routeTypeAttached || hosts.contains(prefix)) continue;
      counted.erase(prefix);
      if (routes->map.contains(prefix)) routeChanged(prefix);
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

  void step() {
    switch (pick(20)) {
      case 0: {
        std::map<Prefix, Route> table;
        for (unsigned n = pick(20); n > 0; --n) {
          const auto route = randomRoute();
          table[route.prefix] = route;
        }
        routes->tableIs(table);
        return routesReviewed();
      }
      case 1:
        neighbours.clear();
        for (unsigned n = pick(12); n > 0; --n) neighbours.push_back(randomNeighbour());
        arp->tableIs(neighbours);
        return neighboursReviewed();
      case 2:
      case 3:
      case 4:
      case 5: {
        if (routes->map.empty()) return;
        const auto prefix = std::next(routes->map.begin(), pick(static_cast<unsigned>(routes->map.size())))->first;
        routes->routeDel(prefix);
        return routeChanged(prefix);
      }
      case 6:
      case 7:
      case 8:
      case 9: {
        if (neighbours.empty()) return;
        const auto at = neighbours.begin() + pick(static_cast<unsigned>(neighbours.size()));
        const auto entry = *at;
        std::erase_if(neighbours, [&](const auto& other) { return other.key == entry.key; });
        arp->entryDel(entry.key);
        return neighbourChanged(entry, false);
      }
      case 10:
      case 11:
      case 12:
      case 13:
      case 14: {
        const auto entry = randomNeighbour();
        neighbours.push_back(entry);
        arp->entryIs(entry);
        return neighbourChanged(entry, true);
      }
      default: {
        const auto route = randomRoute();
        routes->routeIs(route);
        return routeChanged(route.prefix);
      }
    }
  }

  std::mt19937 random{20261121};
  std::map<Prefix, RouteType> counted;
  std::vector<Arp::Table::ArpEntry> neighbours;
};

using Families = testing::Types<Ip4Routes, Ip6Routes>;
TYPED_TEST_SUITE(RandomHistory, Families, );

TYPED_TEST(RandomHistory, agreesWithACountFromScratch) {
  this->start();
  for (int n = 0; n < 5000; ++n) {
    this->step();
    ASSERT_EQ(this->rows(), this->recount()) << "after step " << n;
    if (n % 1000 == 0) this->lines.clear();
  }
  this->arp->tableIs({});
  this->routes->tableIs({});
  EXPECT_EQ(this->rows(), "none;;");
}

}  // namespace
}  // namespace FibStatsSnmp
