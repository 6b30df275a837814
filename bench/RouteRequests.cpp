#include "RouteRequests.h"

#include <algorithm>
#include <functional>
#include <stdexcept>
#include <thread>

#include "Random.h"
#include "RouteLoader.h"
#include "RouteWalk.h"
#include "Timing.h"

namespace Bench {
namespace {

constexpr std::size_t requestsPerRound = 50;
constexpr auto visiblePollInterval = std::chrono::microseconds(500);
constexpr std::size_t subidsOfAddress = 4;
constexpr std::uint32_t noGateway = 0x0AFFFFFF;

struct Request {
  bool isGet = false;
  Oid name;
  std::function<bool(const Binding&)> isAnswer;
};

class RequestMaker {
 public:
  RequestMaker(const RouteTable& table, const RouteSet& set) : table_(table), set_(set) {}

  Request next() {
    const auto& route = any();
    // One time of two an index that has no row: just before that of the route.
    return getNext(table_.rowOid(route, set_.nextHops(route).front().gateway - random_.below(2)));
  }
  Request miss() {
    return {true, table_.rowOid(any(), noGateway), [](const Binding& answer) { return answer.isEndOfView; }};
  }
  Request end() {
    auto request = getNext(table_.rowOid({~std::uint32_t{0} - random_.below(1000), 32, 0}, noGateway));
    request.isAnswer = [this](const Binding& answer) { return table_.isIn(nextColumn, answer.name); };
    return request;
  }
  Request half() {
    auto name = table_.rowOid(any(), 0);
    const auto subidsOfColumn = table_.columnOid(RouteTable::measuredColumn).size();
    name.resize(subidsOfColumn + subidsOfAddress + random_.below(subidsOfAddress));
    return getNext(name);
  }

 private:
  static constexpr unsigned nextColumn = RouteTable::measuredColumn + 1;

  const Route& any() { return set_.routes()[random_.below(set_.routes().size())]; }
  Request getNext(const Oid& name) const {
    return {false, name, [this, name](const Binding& answer) {
              const bool isHere = table_.isIn(RouteTable::measuredColumn, answer.name);
              return name < answer.name && (isHere || table_.isIn(nextColumn, answer.name));
            }};
  }
  const RouteTable& table_;
  const RouteSet& set_;
  Random random_{4};
};

void ask(SnmpClient& client, const Request& request, RequestKind& kind) {
  const auto start = Clock::now();
  std::vector<Binding> answer;
  try {
    answer = request.isGet ? client.get(request.name) : client.getNext(request.name);
  } catch (const std::runtime_error&) {
    // No answer, or an error: unexpected, and as late as it came.
  }
  kind.microseconds.push_back(secondsSince(start) * 1e6);
  if (answer.size() != 1 || !request.isAnswer(answer[0])) ++kind.unexpected;
}

}  // namespace

std::vector<RequestKind> askAtRandom(SnmpClient& client, const RouteTable& table, const RouteSet& set,
                                     std::size_t count, double limitSeconds) {
  RequestMaker maker(table, set);
  using Make = Request (RequestMaker::*)();
  const std::vector<std::pair<const char*, Make>> makes{{"next", &RequestMaker::next},
                                                        {"miss", &RequestMaker::miss},
                                                        {"end", &RequestMaker::end},
                                                        {"half", &RequestMaker::half}};
  std::vector<RequestKind> kinds;
  for (const auto& make : makes) kinds.push_back({make.first, {}, 0});
  const auto start = Clock::now();
  // Each kind gets at least one answer, however long it takes.
  for (std::size_t asked = 0; asked < count && (asked == 0 || secondsSince(start) < limitSeconds);) {
    const auto round = std::min(asked == 0 ? 1 : requestsPerRound, count - asked);
    for (std::size_t kind = 0; kind < makes.size(); ++kind) {
      const auto kindStart = Clock::now();
      for (std::size_t i = 0; i < round; ++i) {
        // A kind that takes seconds must not keep the others from their share.
        if (i > 0 && secondsSince(kindStart) > limitSeconds / 20) break;
        ask(client, (maker.*makes[kind].second)(), kinds[kind]);
      }
    }
    asked += round;
  }
  return kinds;
}

std::vector<double> timeToVisible(SnmpClient& client, const RouteTable& table, const RouteSet& set,
                                  std::size_t count, double limitSeconds) {
  RouteLoader loader(set);
  std::vector<double> times;
  const auto start = Clock::now();
  const auto becomes = [&](const Oid& name, bool isThere) {
    while (secondsSince(start) < limitSeconds) {
      if (hasRow(client, name) == isThere) return true;
      std::this_thread::sleep_for(visiblePollInterval);
    }
    return false;
  };
  for (std::uint32_t i = 0; i < count; ++i) {
    const auto route = RouteSet::unusedRoute(i * 37);
    const auto name = table.rowOid(route, set.nextHops(route).front().gateway);
    const auto added = Clock::now();
    loader.add(route);
    const bool isThere = becomes(name, true);
    if (isThere) times.push_back(secondsSince(added));
    loader.del(route);
    if (!isThere || !becomes(name, false)) break;
  }
  return times;
}

}  // namespace Bench
