#include "RouteWalk.h"

#include <algorithm>
#include <thread>

#include "Random.h"
#include "Timing.h"

namespace Bench {
namespace {

constexpr auto pollInterval = std::chrono::milliseconds(5);
constexpr double secondsWithoutProgress = 5;
constexpr std::size_t sampledRoutes = 64;

// Rows of routes from all over the set, that of the last one first: it is the last to come into the kernel.
std::vector<Oid> sampleOf(const RouteTable& table, const RouteSet& set) {
  std::vector<Oid> sample;
  Random random(3);
  const auto& routes = set.routes();
  for (std::size_t i = 0; i < sampledRoutes; ++i) {
    const auto& route = i == 0 ? routes.back() : routes[random.below(routes.size())];
    // The first next hop: not every agent serves the others.
    sample.push_back(table.rowOid(route, set.nextHops(route).front().gateway));
  }
  return sample;
}

}  // namespace

bool hasRow(SnmpClient& client, const Oid& name) {
  try {
    return !client.get(name).at(0).isEndOfView;
  } catch (const std::runtime_error&) {
    return false;
  }
}

Walk walk(SnmpClient& client, const Oid& root, int maxRepetitions, double limitSeconds) {
  Walk result;
  const auto start = Clock::now();
  const double firstTimeout = static_cast<double>(toolPatience.timeoutMicroseconds) / 1e6;
  Oid from = root;
  while (!result.isComplete && secondsSince(start) < limitSeconds) {
    const auto asked = Clock::now();
    std::vector<Binding> answer;
    try {
      answer = maxRepetitions > 0 ? client.getBulk(from, maxRepetitions) : client.getNext(from);
    } catch (const std::runtime_error& error) {
      result.failure = error.what();
    }
    const double took = secondsSince(asked);
    result.longestSeconds = std::max(result.longestSeconds, took);
    if (took > firstTimeout) ++result.late;
    if (!result.failure.empty()) break;
    for (const auto& binding : answer) {
      const auto& name = binding.name;
      const bool isBelow = name.size() > root.size() && std::equal(root.begin(), root.end(), name.begin());
      result.isComplete = binding.isEndOfView || !isBelow;
      if (result.isComplete) break;
      ++result.rows;
    }
    if (!result.isComplete && !(from < answer.back().name)) throw std::runtime_error("the walk does not advance");
    if (!answer.empty()) from = answer.back().name;
  }
  result.seconds = secondsSince(start);
  return result;
}

Readiness waitUntilComplete(SnmpClient& client, const RouteTable& table, const RouteSet& set, std::uint64_t rows,
                            double limitSeconds) {
  Readiness result;
  const auto start = Clock::now();
  const auto left = [&] { return limitSeconds - secondsSince(start); };
  const auto sample = sampleOf(table, set);
  for (std::size_t seen = 0; !result.isSampled && left() > 0;) {
    result.sampledAt = monotonicNow();
    if (hasRow(client, sample[seen])) {
      result.isSampled = ++seen == sample.size();
    } else {
      std::this_thread::sleep_for(pollInterval);
    }
  }
  double progressAt = result.sampledAt;
  while (result.isSampled && !result.isComplete && left() > 0) {
    const auto rowsBefore = result.lastWalk.rows;
    result.completeAt = monotonicNow();
    result.lastWalk = walk(client, table.columnOid(RouteTable::measuredColumn), toolRepetitions, left());
    result.isComplete = result.lastWalk.isComplete && result.lastWalk.rows >= rows;
    if (result.lastWalk.rows > rowsBefore) progressAt = monotonicNow();
    if (monotonicNow() - progressAt > secondsWithoutProgress) break;
  }
  return result;
}

}  // namespace Bench
