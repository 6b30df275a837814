#include "RouteSet.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <boost/unordered/unordered_flat_set.hpp>

#include "Measure.h"

namespace Bench {
namespace {

constexpr unsigned interfaceCount = 4;
constexpr unsigned gatewaysOfInterface = 200;
constexpr unsigned singleSets = 600;
constexpr unsigned multipathSets = 300;
constexpr unsigned multipathPercent = 10;

// The percentage of routes with a length.
struct Share {
  std::uint8_t length;
  unsigned percent;
};
constexpr std::array shares{Share{24, 60}, Share{23, 9}, Share{22, 11}, Share{21, 5}, Share{20, 4}, Share{19, 3},
                            Share{18, 2},  Share{17, 1}, Share{16, 1},  Share{28, 1}, Share{30, 1}, Share{32, 2}};

std::uint32_t interfaceNetwork(unsigned interface) {
  return 0x0A000000U | (interface << 8U);  // 10.0.<interface>.0
}

std::uint8_t anyLength(Random& random) {
  unsigned left = random.below(100);
  for (const auto& share : shares) {
    if (left < share.percent) return share.length;
    left -= share.percent;
  }
  return 24;
}

// Whether the address is unicast, and neither ours (10/8, 198.18/15) nor the loopback's.
bool isUsable(std::uint32_t address) {
  const auto first = address >> 24U;
  return first != 0 && first != 10 && first != 127 && first < 224 && (address & mask(15)) != 0xC6120000;
}

}  // namespace

RouteSet::RouteSet(std::uint32_t routes) {
  makeNextHopSets();
  makeRoutes(routes);
}

void RouteSet::makeNextHopSets() {
  Random random(1);
  const auto gateway = [](unsigned number) {
    const unsigned interface = number % interfaceCount;
    return NextHop{interfaceNetwork(interface) + 2 + number / interfaceCount, interface};
  };
  for (unsigned i = 0; i < singleSets; ++i) nextHopSets_.push_back({gateway(i)});
  for (unsigned i = 0; i < multipathSets; ++i) {
    std::vector<NextHop> hops;
    const unsigned first = random.below(interfaceCount * gatewaysOfInterface);
    for (unsigned hop = 0; hop < 2 + i % 3; ++hop) {
      hops.push_back(gateway((first + hop * 7) % (interfaceCount * gatewaysOfInterface)));
    }
    std::sort(hops.begin(), hops.end(), [](const auto& a, const auto& b) { return a.gateway < b.gateway; });
    nextHopSets_.push_back(std::move(hops));
  }
}

void RouteSet::makeRoutes(std::uint32_t count) {
  Random random(2);
  boost::unordered_flat_set<std::uint64_t> seen;
  seen.reserve(count);
  routes_.reserve(count);
  while (routes_.size() < count) {
    Route route;
    route.length = anyLength(random);
    route.prefix = random.next() & mask(route.length);
    const bool isMultipath = random.below(100) < multipathPercent;
    const auto set = isMultipath ? singleSets + random.below(multipathSets) : random.below(singleSets);
    route.nextHops = static_cast<std::uint16_t>(set);
    if (!isUsable(route.prefix)) continue;
    if (seen.insert(std::uint64_t{route.prefix} << 8U | route.length).second) routes_.push_back(route);
  }
}

std::uint64_t RouteSet::hops() const {
  std::uint64_t hops = 0;
  for (const auto& route : routes_) hops += nextHops(route).size();
  return hops;
}

const std::vector<Interface>& RouteSet::interfaces() {
  static const auto all = [] {
    std::vector<Interface> made;
    for (unsigned i = 0; i < interfaceCount; ++i)
      made.push_back({fmt::format("via{}", i), fmt::format("10.0.{}.1/24", i),
                      fmt::format("fd00::a00:{:x}/120", i << 8U | 1U)});
    return made;
  }();
  return all;
}

Route RouteSet::unusedRoute(std::uint32_t number) {
  return {0xC6120000U + number % (1U << 15U) * 4, 30, 0};  // 198.18.0.0/15
}

}  // namespace Bench
