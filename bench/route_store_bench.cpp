// Measures routes between a real store and the cache of a VRF, without SNMP, in processor time: writing, looking up and
// scanning them, reading them into the cache, and walking the rows. Also measures the longest turn of the scheduler.
//
//   route_store_bench [routes] [FECs] [directory]      default: 1000000 1000 /dev/shm/quorin-route-bench
//
// The directory must not exist; it is removed again.

#include <cstdlib>
#include <filesystem>
#include <random>

#include "RouteCache.h"
#include "quillo/tables/FibMount.h"
#include "quillo/tables/Records.h"

namespace {

using Bench::secondsSince;
using Kel::Ptr;
using Quillo::Fib::FecId;
using Vantu::Prefix;
using Clock = Bench::CpuClock;

const Vrf::VrfIdMap::VrfId vrfId(1);
constexpr std::size_t batchSize = 10'000;

void say(const char* what, Clock::time_point start, std::size_t count) {
  fmt::print("{}: {:.2f} s, {:.0f} ns each\n", what, secondsSince(start),
             secondsSince(start) * 1e9 / static_cast<double>(count));
}

std::vector<Prefix> makePrefixes(std::size_t count) {
  std::mt19937 random{1};
  std::vector<Prefix> all;
  while (all.size() < count) {
    while (all.size() < count) {
      all.emplace_back(Vantu::IpAddr(static_cast<std::uint32_t>(random())),
                       16 + static_cast<unsigned>(random() % 9));
    }
    std::sort(all.begin(), all.end());
    all.erase(std::unique(all.begin(), all.end()), all.end());
  }
  std::shuffle(all.begin(), all.end(), random);
  return all;
}

void publish(const std::string& directory, const std::vector<Prefix>& prefixes, unsigned fecs) {
  const auto start = Clock::now();
  Quillo::Publisher publisher({.directory = directory, .name = "bench"});
  publisher.beginFullPass({Quillo::TableId::route, Quillo::TableId::fec});
  auto batch = publisher.begin();
  for (unsigned i = 1; i <= fecs; ++i) {
    const Quillo::Fib::Via via{Vantu::IpAddr(0x0A000000 + i), Bench::RouteCache::intfId(i)};
    Quillo::fecIs(batch, vrfId, {FecId(i), {via}});
  }
  for (std::size_t i = 0; i < prefixes.size(); ++i) {
    Quillo::Fib::Route route;
    route.prefix = prefixes[i];
    route.routeType = Routing::Fib::RouteType(22);
    route.fecId = FecId(1 + i % fecs);
    Quillo::routeIs(batch, vrfId, route);
    if (i % batchSize == 0) batch.commit();
  }
  batch.commit();
  publisher.endFullPass();
  say("published, a route", start, prefixes.size());
}

struct Agent : Bench::RouteCache {
  explicit Agent(const std::string& directory)
      : mount(Kel::makePtr<Quillo::Mount>(Quillo::MountConfig{directory})),
        follower(Kel::makePtr<Quillo::TableFollower>(mount)),
        fib(Kel::makePtr<Quillo::FibMount>(follower)) {
    mount->setTurnHandler([this] { turnEnd->scheduleTask(); });
    mount->refresh();
    follower->step(1);
  }

  Ptr<Quillo::Mount> mount;
  Ptr<Quillo::TableFollower> follower;
  Ptr<Quillo::FibMount> fib;
  Ptr<Brev::Task> turnEnd =
      Kel::makePtr<Brev::Task>(scheduler, "turn end", 0, [this](Brev::Task&) { mount->turnEnds(); });
};

void lookUp(const Agent& agent, const std::vector<Prefix>& prefixes, unsigned fecs) {
  const auto routes = agent.fib->routeStatus(vrfId);
  const auto forwarding = agent.fib->forwardingStatus(vrfId);
  constexpr std::size_t count = 300'000;
  auto start = Clock::now();
  for (std::size_t i = 0; i < count; ++i) routes->route(prefixes[i * 7919 % prefixes.size()]);
  say("random lookups in one turn", start, count);
  start = Clock::now();
  for (std::size_t i = 0; i < count; ++i) {
    routes->route(prefixes[i * 7919 % prefixes.size()]);
    agent.mount->turnEnds();
  }
  say("random lookups, a turn each", start, count);
  Quillo::Fib::Fec fec;
  start = Clock::now();
  for (std::size_t i = 0; i < count; ++i) forwarding->readFec(FecId(1 + i * 7919 % fecs), fec);
  say("random FECs in one turn", start, count);
  std::size_t seen = 0;
  start = Clock::now();
  routes->forEachRoute(Prefix(), [&](const Quillo::Fib::Route&) { return ++seen > 0; });
  say("scan, a route", start, seen);
  agent.mount->turnEnds();
}

void load(const Agent& agent, const std::vector<Prefix>& prefixes) {
  const auto routes = agent.fib->routeStatus(vrfId);
  const auto forwarding = agent.fib->forwardingStatus(vrfId);
  const auto before = Bench::usedBytes();
  auto start = Clock::now();
  const auto sm = Kel::makePtr<IpSnmp::IpRouteTableSm>(agent.scheduler, "red", agent.mib, routes, forwarding,
                                                       nullptr, nullptr, agent.ifMib);
  const auto fecSm = Kel::makePtr<IpSnmp::PerVrfFecSm>(sm, routes, forwarding);
  double longest = secondsSince(start);
  longest = std::max(longest, agent.run());
  say("taken into the cache, a route", start, prefixes.size());
  fmt::print("longest turn {:.1f} ms, {:.1f} bytes a route\n", longest * 1e3,
             static_cast<double>(Bench::usedBytes() - before) / static_cast<double>(prefixes.size()));

  start = Clock::now();
  const auto rows = agent.walk();
  say("walk, a row", start, rows);
  start = Clock::now();
  agent.getNextAtRandom(prefixes, [&] { agent.run(); });
  say("random getnext, a turn each", start, Agent::randomSteps);
  fecSm->kelStop();
  sm->kelStop();
}

}  // namespace

int main(int argc, char** argv) {
  const auto routes = static_cast<unsigned>(argc > 1 ? std::atoi(argv[1]) : 1'000'000);
  const auto fecs = static_cast<unsigned>(argc > 2 ? std::atoi(argv[2]) : 1000);
  const std::string directory = argc > 3 ? argv[3] : "/dev/shm/quorin-route-bench";
  if (routes == 0 || fecs == 0 || std::filesystem::exists(directory)) {
    fmt::print(stderr, "usage: {} [routes] [FECs] [directory]; both above 0, {} must not exist\n", argv[0],
               directory);
    return 2;
  }
  fmt::print("{} routes over {} FECs in {}\n", routes, fecs, directory);
  const auto prefixes = makePrefixes(routes);
  publish(directory, prefixes, fecs);
  {
    const Agent agent(directory);
    lookUp(agent, prefixes, fecs);
    load(agent, prefixes);
  }
  std::filesystem::remove_all(directory);
}
