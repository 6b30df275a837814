// Measures the route cache and the FIB statistics of one VRF, without SNMP and without a store. Results are the bytes
// for each route, the time to read a table, the longest turn of the scheduler meanwhile, and the time of an iterator
// step. The tables are hash maps in memory, so that only the cache is measured.
//
//   route_cache_bench [routes] [FECs]       default: 1000000 1000

#include <boost/unordered/unordered_flat_map.hpp>
#include <cstdlib>
#include <random>

#include "RouteCache.h"
#include "fibstats/agent/FibStatsSm.h"

namespace {

using Bench::secondsSince;
using Clock = Bench::CpuClock;
using Kel::Ptr;
using Quillo::Fib::Fec;
using Quillo::Fib::FecId;
using Vantu::Prefix;

class Routes final : public Quillo::Fib::RouteStatus {
 public:
  bool initialized() const override { return true; }
  void corruptionDetected(const std::string&) const override {}
  std::uint64_t generation() const override { return number; }
  Quillo::Fib::Route route(const Prefix& prefix) const override {
    const auto at = map.find(prefix);
    return at == map.end() ? Quillo::Fib::Route() : at->second;
  }
  void forEachRoute(const Prefix& from, const Visit& visit) const override {
    for (auto at = std::lower_bound(order.begin(), order.end(), from); at != order.end(); ++at) {
      if (!visit(map.find(*at)->second)) return;
    }
  }
  void changed(const Prefix& prefix) {
    kelNotify<Notifiee>([&](Notifiee& reactor) { reactor.onRoute(prefix); });
  }
  boost::unordered_flat_map<Prefix, Quillo::Fib::Route> map;
  std::vector<Prefix> order;
  std::uint64_t number = 1;
};

class Fecs final : public Quillo::Fib::ForwardingStatus {
 public:
  bool initialized() const override { return true; }
  void corruptionDetected(const std::string&) const override {}
  std::uint64_t generation() const override { return 1; }
  Fec fec(const FecId& fecId) const override {
    Fec found;
    readFec(fecId, found);
    return found;
  }
  void readFec(const FecId& fecId, Fec& into) const override { into = all[fecId.value() - 1]; }
  void forEachFec(const FecId& from, const Visit& visit) const override {
    for (const auto& fec : all) {
      if (fec.fecId >= from && !visit(fec)) return;
    }
  }
  std::vector<Fec> all;  // by id, from 1
};

struct World : Bench::RouteCache {
  Ptr<Routes> routes = Kel::makePtr<Routes>();
  Ptr<Fecs> fecs = Kel::makePtr<Fecs>();
  std::mt19937 random{1};

  World(unsigned routeCount, unsigned fecCount) {
    for (unsigned i = 0; i < fecCount; ++i) {
      Fec fec;
      fec.fecId = FecId(i + 1);
      fec.via.push_back({Vantu::IpAddr(0x0A000001 + i), intfId(i)});
      fecs->all.push_back(std::move(fec));
    }
    routes->map.reserve(routeCount);
    while (routes->map.size() < routeCount) {
      const Prefix prefix(Vantu::IpAddr(static_cast<std::uint32_t>(random())),
                          16 + static_cast<unsigned>(random() % 9));
      Quillo::Fib::Route route;
      route.prefix = prefix;
      route.routeType = Routing::Fib::RouteType(22);
      route.fecId = FecId(1 + random() % fecCount);
      if (routes->map.emplace(prefix, route).second) routes->order.push_back(prefix);
    }
    std::sort(routes->order.begin(), routes->order.end());
  }
};

void sayLoad(const char* what, const World& world, Clock::time_point start, std::size_t before, double longest) {
  const double count = static_cast<double>(world.routes->map.size());
  fmt::print("{}: {:.0f} ns and {:.1f} bytes a route, longest turn {:.1f} ms\n", what,
             secondsSince(start) * 1e9 / count, static_cast<double>(Bench::usedBytes() - before) / count,
             longest * 1e3);
}

void load(World& world, bool isNotified) {
  // The prefixes come from a scan of the table, or from notifications one by one in random order.
  auto notified = world.routes->order;
  std::shuffle(notified.begin(), notified.end(), world.random);
  const auto order = isNotified ? std::exchange(world.routes->order, {}) : world.routes->order;
  ++world.routes->number;
  const auto before = Bench::usedBytes();
  auto start = Clock::now();
  const auto sm = Kel::makePtr<IpSnmp::IpRouteTableSm>(world.scheduler, "red", world.mib, world.routes, world.fecs,
                                                       nullptr, nullptr, world.ifMib);
  double longest = secondsSince(start);
  const auto enter = [&] {
    if (!isNotified) return;
    for (std::size_t i = 0; i < notified.size(); ++i) {
      world.routes->changed(notified[i]);
      if (i % 4096 == 0) longest = std::max(longest, world.run());
    }
  };
  enter();
  longest = std::max(longest, world.run());
  sayLoad(isNotified ? "prefixes, notified" : "prefixes, scanned", world, start, before, longest);

  const auto middle = Bench::usedBytes();
  start = Clock::now();
  const auto fecSm = Kel::makePtr<IpSnmp::PerVrfFecSm>(sm, world.routes, world.fecs);
  longest = secondsSince(start);
  if (isNotified) {
    for (const auto& prefix : notified) fecSm->fecRouteListSm()->handleRoute(prefix);
  }
  longest = std::max(longest, world.run());
  sayLoad("prefixes by FEC", world, start, middle, longest);

  const auto beforeStats = Bench::usedBytes();
  start = Clock::now();
  const auto statsSm = FibStatsSnmp::fibStatsSmFactory(world.routes, nullptr, Vrf::VrfIdMap::VrfId(0), nullptr,
                                                       FibStatsSnmp::fibStatsMibFactory("red"));
  statsSm->taskSchedulerIs(world.scheduler);
  longest = secondsSince(start);
  if (isNotified) {
    for (const auto& prefix : notified) {
      const auto one = Clock::now();
      statsSm->handleRoute(prefix);
      longest = std::max(longest, secondsSince(one));
    }
  }
  longest = std::max(longest, world.run());
  sayLoad("FIB statistics", world, start, beforeStats, longest);

  fmt::print("together {:.1f} bytes a route\n",
             static_cast<double>(Bench::usedBytes() - before) / static_cast<double>(world.routes->map.size()));
  world.routes->order = order;
  ++world.routes->number;  // as after any change of the table

  start = Clock::now();
  const auto rows = world.walk();
  fmt::print("walk: {:.0f} ns a row, {} rows\n", secondsSince(start) * 1e9 / static_cast<double>(rows), rows);

  start = Clock::now();
  world.getNextAtRandom(notified, [] {});
  fmt::print("random getnext: {:.0f} ns\n", secondsSince(start) * 1e9 / static_cast<double>(World::randomSteps));

  world.routes->changed(notified.front());
  world.run();
  Kel::System::clockIs([now = Kel::System::currentTime() + 61]() mutable { return now += 1e-7; });
  start = Clock::now();
  world.run();
  fmt::print("count of the rows: {:.0f} ns a route, {} rows\n",
             secondsSince(start) * 1e9 / static_cast<double>(notified.size()), world.mib->numRoutes());
  Kel::System::clockIs({});
  statsSm->kelStop();
  fecSm->kelStop();
  sm->kelStop();
}

}  // namespace

int main(int argc, char** argv) {
  const auto routes = static_cast<unsigned>(argc > 1 ? std::atoi(argv[1]) : 1000000);
  const auto fecs = static_cast<unsigned>(argc > 2 ? std::atoi(argv[2]) : 1000);
  if (routes == 0 || fecs == 0) {
    fmt::print(stderr, "usage: {} [routes] [FECs]; both above 0\n", argv[0]);
    return 2;
  }
  fmt::print("{} routes over {} FECs\n", routes, fecs);
  World world(routes, fecs);
  load(world, false);
  load(world, true);
}
