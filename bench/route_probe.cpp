// The measuring side of bench/routes. Each subcommand does one thing in the network namespace that it is started in,
// and prints its result as one line of JSON. Durations are seconds, times are CLOCK_MONOTONIC, unless named otherwise.

#include <fmt/format.h>
#include <poll.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <thread>

#include "Measure.h"
#include "RouteLoader.h"
#include "RouteRequests.h"
#include "RouteSet.h"

namespace {

using Bench::RouteSet;
using Bench::SnmpClient;
using nlohmann::json;

constexpr auto stallInterval = std::chrono::milliseconds(5);
constexpr Bench::Patience patient{60'000'000, 0};
constexpr Bench::Patience knocks{20'000, 0};
constexpr double longestSilenceSeconds = 300;
const Bench::Oid sysUpTime{1, 3, 6, 1, 2, 1, 1, 3, 0};

struct Options {
  std::string endpoint;
  std::string community;
  std::string table = "ipCidrRouteTable";
  bool isIpv6 = false;
  std::uint32_t routes = 0;
  std::uint64_t rows = 0;
  std::size_t count = 0;
  double limit = 0;
  bool isWholeTable = false;
  bool isGetNext = false;
  bool isPatient = false;
  bool isOneNextHop = false;
  int repetitions = Bench::toolRepetitions;
  unsigned columns = 1;

  Bench::RouteTable routeTable() const { return {table, isIpv6}; }
};

// Waits until somebody listens: a request before that is lost.
std::unique_ptr<SnmpClient> answeringClient(const Options& options, Bench::Patience patience) {
  SnmpClient knocking(options.endpoint, options.community, knocks);
  const auto start = Bench::Clock::now();
  while (!knocking.answers(sysUpTime)) {
    if (Bench::secondsSince(start) > longestSilenceSeconds)
      throw std::runtime_error("no agent at " + options.endpoint);
  }
  return std::make_unique<SnmpClient>(options.endpoint, options.community, patience);
}

json plan(const Options& options) {
  const RouteSet set(options.routes);
  json interfaces = json::array();
  for (const auto& interface : RouteSet::interfaces()) {
    interfaces.push_back(
        {{"name", interface.name}, {"address", options.isIpv6 ? interface.address6 : interface.address}});
  }
  return {{"interfaces", interfaces},
          {"next_hop_sets", set.nextHopSets()},
          {"hops", set.hops()},
          {"rows", options.routeTable().rows(set, !options.isOneNextHop)}};
}

json load(const Options& options) {
  const RouteSet set(options.routes);
  Bench::RouteLoader loader(set, options.isIpv6);
  const double start = Bench::monotonicNow();
  loader.add(set.routes());
  return {{"start", start}, {"end", Bench::monotonicNow()}};
}

json valueOf(const Bench::Walk& walk) {
  return {{"rows", walk.rows},       {"seconds", walk.seconds}, {"complete", walk.isComplete},
          {"failure", walk.failure}, {"late", walk.late},       {"longest", walk.longestSeconds}};
}

// Begins when its standard input has a line or is closed.
json ready(const Options& options) {
  const RouteSet set(options.routes);
  std::string line;
  std::getline(std::cin, line);
  const auto client = answeringClient(options, patient);
  const auto result = waitUntilComplete(*client, options.routeTable(), set, options.rows, options.limit);
  return {{"sampled", result.isSampled},
          {"sampled_at", result.sampledAt},
          {"complete", result.isComplete},
          {"complete_at", result.completeAt},
          {"walk", valueOf(result.lastWalk)}};
}

json walk(const Options& options) {
  const auto client = answeringClient(options, options.isPatient ? patient : Bench::toolPatience);
  const auto table = options.routeTable();
  std::vector<Bench::Oid> roots;
  for (unsigned i = 0; i < options.columns; ++i) roots.push_back(table.columnOid(table.measuredColumn() - i));
  if (options.isWholeTable) roots = {table.oid()};
  return valueOf(Bench::walkColumns(*client, roots, options.isGetNext ? 0 : options.repetitions, options.limit));
}

json requests(const Options& options) {
  const RouteSet set(options.routes);
  const auto client = answeringClient(options, patient);
  json result = json::object();
  for (const auto& kind : askAtRandom(*client, options.routeTable(), set, options.count, options.limit)) {
    result[kind.name] = {{"count", kind.microseconds.size()},
                         {"p50_us", Bench::quantile(kind.microseconds, 0.5)},
                         {"p99_us", Bench::quantile(kind.microseconds, 0.99)},
                         {"unexpected", kind.unexpected}};
  }
  return result;
}

json visible(const Options& options) {
  const RouteSet set(1);
  const auto client = answeringClient(options, patient);
  const auto times = timeToVisible(*client, options.routeTable(), set, options.count, options.limit);
  if (times.empty()) return {{"count", 0}};
  return {{"count", times.size()},
          {"p50", Bench::quantile(times, 0.5)},
          {"p99", Bench::quantile(times, 0.99)},
          {"longest", Bench::quantile(times, 1)}};
}

bool isInputOpen() {
  pollfd input{STDIN_FILENO, POLLIN, 0};
  return ::poll(&input, 1, 0) == 0;
}

// Requests sysUpTime.0 at fixed times until its standard input is closed. Prints a line at the first answer. If an
// unanswered request delays the next one, the latency of that counts from its fixed time, as for a second manager. But
// this program's own delay, where the system wakes it late, is not the agent's.
json stall(const Options& options) {
  const auto client = answeringClient(options, patient);
  fmt::print("answered\n");
  std::fflush(stdout);
  json samples = json::array();
  for (auto due = Bench::Clock::now(); isInputOpen(); due += stallInterval) {
    if (Bench::Clock::now() < due) {
      std::this_thread::sleep_until(due);
      due = Bench::Clock::now();
    }
    try {
      client->get(sysUpTime);
      samples.push_back({Bench::seconds(due.time_since_epoch()), Bench::secondsSince(due)});
    } catch (const Bench::Unanswered&) {
      // The wait shows in the requests that were due meanwhile.
    }
  }
  return samples;
}

}  // namespace

int main(int argc, char* argv[]) {
  CLI::App app("Measures an SNMP agent's route table for bench/routes");
  app.require_subcommand(1);
  Options options;
  app.add_option("--table", options.table);
  app.add_flag("--ipv6", options.isIpv6, "the set's routes as those of IPv6");
  json result;
  const auto command = [&](const char* name, const char* what, json (*run)(const Options&)) {
    auto* added = app.add_subcommand(name, what);
    added->callback([&result, &options, run] { result = run(options); });
    return added;
  };
  const auto withRoutes = [&](CLI::App* added) {
    added->add_option("--routes", options.routes, "size of the route set")->required();
  };
  const auto withAgent = [&](CLI::App* added) {
    added->add_option("--agent", options.endpoint, "such as udp:127.0.0.1:1161")->required();
    added->add_option("--community", options.community)->required();
  };
  const auto withLimit = [&](CLI::App* added) {
    added->add_option("--limit", options.limit, "seconds after which it stops")->required();
  };
  const auto withCount = [&](CLI::App* added) { added->add_option("--count", options.count)->required(); };

  auto* added = command("plan", "the interfaces and the number of rows", plan);
  withRoutes(added);
  added->add_flag("--one-next-hop", options.isOneNextHop, "of an agent that serves one next hop a route");
  withRoutes(command("load", "gives the routes to the kernel", load));
  added = command("ready", "waits for the first complete walk", ready);
  withAgent(added), withRoutes(added), withLimit(added);
  added->add_option("--rows", options.rows, "rows of a complete column")->required();
  added = command("walk", "walks the table, or a column", walk);
  withAgent(added), withLimit(added);
  added->add_flag("--whole-table", options.isWholeTable, "instead of one column");
  added->add_option("--repetitions", options.repetitions);
  added->add_option("--columns", options.columns,
                    "how many, asked for at once; the others are those before the measured one");
  added->add_flag("--getnext", options.isGetNext);
  added->add_flag("--patient", options.isPatient, "waits a minute for an answer");
  added = command("requests", "latencies of single requests", requests);
  withAgent(added), withRoutes(added), withCount(added), withLimit(added);
  added = command("visible", "time from a new route to its row", visible);
  withAgent(added), withCount(added), withLimit(added);
  withAgent(command("stall", "latencies of sysUpTime.0 until standard input is closed", stall));
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error);
  } catch (const std::exception& error) {
    fmt::print(stderr, "route_probe: {}\n", error.what());
    return 1;
  }
  fmt::print("{}\n", result.dump());
  return 0;
}
