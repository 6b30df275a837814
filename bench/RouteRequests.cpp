#include "RouteRequests.h"

#include <algorithm>
#include <boost/unordered/unordered_flat_set.hpp>
#include <functional>
#include <stdexcept>
#include <thread>

#include "Measure.h"
#include "RouteLoader.h"

namespace Bench {
namespace {

constexpr std::uint64_t protocolOther = 1;  // of the kernel's routes in zebra
constexpr auto pollInterval = std::chrono::milliseconds(5);
constexpr double secondsWithoutProgress = 5;
constexpr std::size_t sampledRoutes = 64;
constexpr std::size_t requestsPerRound = 50;
constexpr auto visiblePollInterval = std::chrono::microseconds(500);
constexpr std::size_t subidsOfAddress = 4;
constexpr std::uint32_t noGateway = 0x0AFFFFFF;

constexpr std::uint32_t inetIpv4 = 1, inetIpv6 = 2;  // InetAddressType (RFC 4001)

void append(Oid& oid, std::uint32_t address) {
  for (unsigned shift = 32; shift > 0; shift -= 8) oid.push_back((address >> (shift - 8)) & 0xFFU);
}

void appendInet(Oid& oid, std::uint32_t ipv4, const Address6& ipv6, bool isIpv6) {
  oid.push_back(isIpv6 ? inetIpv6 : inetIpv4);
  oid.push_back(isIpv6 ? ipv6.size() : subidsOfAddress);
  if (isIpv6) {
    oid.insert(oid.end(), ipv6.begin(), ipv6.end());
  } else {
    append(oid, ipv4);
  }
}

// A random sample of the set. The first is the last route, which the kernel gets last.
std::vector<Route> sampleOf(const RouteSet& set) {
  std::vector<Route> sample;
  Random random(3);
  const auto& routes = set.routes();
  for (std::size_t i = 0; i < sampledRoutes; ++i) {
    sample.push_back(i == 0 ? routes.back() : routes[random.below(routes.size())]);
  }
  return sample;
}

bool isBelow(Name name, const Oid& root) {
  return name.size() > root.size() && std::equal(root.begin(), root.end(), name.begin());
}

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
    // Half of the time an index without a row, just before that of the route.
    return getNext(table_.rowOid(route, set_.nextHops(route).front().gateway - random_.below(2)));
  }
  Request miss() {
    return {true, table_.rowOid(any(), noGateway), [](const Binding& answer) { return answer.isEndOfView; }};
  }
  Request end() {
    auto request = getNext(table_.behindOid());
    request.isAnswer = [this](const Binding& answer) { return table_.isIn(nextColumn_, answer.name); };
    return request;
  }
  Request half() {
    auto name = table_.rowOid(any(), 0);
    const auto subidsOfColumn = table_.columnOid(table_.measuredColumn()).size();
    name.resize(subidsOfColumn + subidsOfAddress + random_.below(subidsOfAddress));
    return getNext(name);
  }

 private:
  const Route& any() { return set_.routes()[random_.below(set_.routes().size())]; }
  Request getNext(const Oid& name) const {
    return {false, name, [this, name](const Binding& answer) {
              const bool isHere = table_.isIn(table_.measuredColumn(), answer.name);
              return std::ranges::lexicographical_compare(name, answer.name) &&
                     (isHere || table_.isIn(nextColumn_, answer.name));
            }};
  }
  const RouteTable& table_;
  const RouteSet& set_;
  const unsigned nextColumn_ = table_.measuredColumn() + 1;
  Random random_{4};
};

void ask(SnmpClient& client, const Request& request, RequestKind& kind) {
  const auto start = Clock::now();
  const std::vector<Binding>* answer = nullptr;
  try {
    answer = request.isGet ? &client.get(request.name) : &client.getNext(request.name);
  } catch (const std::runtime_error&) {
    // No answer, or an error: counts as unexpected, with its latency.
  }
  kind.microseconds.push_back(secondsSince(start) * 1e6);
  if (answer == nullptr || answer->size() != 1 || !request.isAnswer(answer->front())) ++kind.unexpected;
}

}  // namespace

RouteTable::RouteTable(const std::string& name, bool isIpv6)
    : kind_(name == "inetCidrRouteTable" ? Kind::inet
            : name == "ipCidrRouteTable" ? Kind::byMask
                                         : Kind::byProtocol),
      isIpv6_(isIpv6),
      oid_{1, 3, 6, 1, 2, 1, 4, 24, kind_ == Kind::inet ? 7U : kind_ == Kind::byMask ? 4U : 2U} {
  if (kind_ == Kind::byProtocol && name != "ipForwardTable")
    throw std::runtime_error("no table of routes is called " + name);
  if (isIpv6 && kind_ != Kind::inet) throw std::runtime_error(name + " has no IPv6 routes");
}

Oid RouteTable::columnOid(unsigned column) const {
  Oid name = oid_;
  name.insert(name.end(), {1, column});
  return name;
}

Oid RouteTable::routeOid(const Route& route) const {
  Oid name = columnOid(measuredColumn());
  if (kind_ == Kind::inet) {
    appendInet(name, route.prefix, prefix6(route.prefix), isIpv6_);
    name.push_back(isIpv6_ ? length6(route.length) : route.length);
  } else {
    append(name, route.prefix);
    if (kind_ == Kind::byMask) append(name, mask(route.length));
  }
  return name;
}

Oid RouteTable::rowOid(const Route& route, std::uint32_t nextHop) const {
  Oid name = routeOid(route);
  if (kind_ == Kind::inet) {
    name.insert(name.end(), {2, 0, 0});  // the policy 0.0
    appendInet(name, nextHop, gateway6(nextHop), isIpv6_);
    return name;
  }
  if (kind_ == Kind::byProtocol) name.push_back(protocolOther);
  name.push_back(0);  // the type of service, the policy
  append(name, nextHop);
  return name;
}

Oid RouteTable::behindOid() const {
  if (kind_ != Kind::inet) return rowOid({~std::uint32_t{0}, 32, 0}, noGateway);
  Oid name = columnOid(measuredColumn());
  Address6 highest;
  highest.fill(0xFF);
  appendInet(name, 0, highest, true);
  name.push_back(8 * highest.size());
  return name;
}

bool RouteTable::isIn(unsigned column, Name name) const {
  return isBelow(name, columnOid(column));
}

std::uint64_t RouteTable::rows(const RouteSet& set, bool hasEveryNextHop) const {
  const auto connected = RouteSet::interfaces().size();
  if (kind_ != Kind::byProtocol) return (hasEveryNextHop ? set.hops() : set.routes().size()) + connected;
  boost::unordered_flat_set<std::uint64_t> seen;
  for (const auto& route : set.routes()) {
    seen.insert(std::uint64_t{route.prefix} << 32U | set.nextHops(route).front().gateway);
  }
  return seen.size() + connected;
}

bool hasRow(SnmpClient& client, const RouteTable& table, const Route& route) {
  const auto name = table.routeOid(route);
  try {
    return isBelow(client.getNext(name).at(0).name, name);
  } catch (const std::runtime_error&) {
    return false;
  }
}

Walk walk(SnmpClient& client, const Oid& root, int maxRepetitions, double limitSeconds) {
  return walkColumns(client, {root}, maxRepetitions, limitSeconds);
}

Walk walkColumns(SnmpClient& client, const std::vector<Oid>& columns, int maxRepetitions, double limitSeconds) {
  Walk result;
  const auto start = Clock::now();
  const double firstTimeout = static_cast<double>(toolPatience.timeoutMicroseconds) / 1e6;
  std::vector<Oid> from = columns;
  while (!result.isComplete && secondsSince(start) < limitSeconds) {
    const auto asked = Clock::now();
    std::span<const Binding> answer;
    try {
      answer = maxRepetitions > 0 ? client.getBulk(from, maxRepetitions) : client.getNext(from.front());
    } catch (const std::runtime_error& error) {
      result.failure = error.what();
    }
    const double took = secondsSince(asked);
    result.longestSeconds = std::max(result.longestSeconds, took);
    if (took > firstTimeout) ++result.late;
    if (!result.failure.empty()) break;
    if (answer.size() < columns.size()) throw std::runtime_error("an answer lacks columns");
    for (std::size_t i = 0; i < answer.size(); ++i) {
      const auto name = answer[i].name;
      const auto column = i % columns.size();
      result.isComplete = answer[i].isEndOfView || !isBelow(name, columns[column]);
      if (result.isComplete) break;
      ++result.rows;
      if (i < answer.size() - columns.size()) continue;
      if (!std::ranges::lexicographical_compare(from[column], name)) {
        throw std::runtime_error("the walk does not advance");
      }
      from[column].assign(name.begin(), name.end());
    }
  }
  result.seconds = secondsSince(start);
  return result;
}

Readiness waitUntilComplete(SnmpClient& client, const RouteTable& table, const RouteSet& set, std::uint64_t rows,
                            double limitSeconds) {
  Readiness result;
  const auto start = Clock::now();
  const auto left = [&] { return limitSeconds - secondsSince(start); };
  const auto sample = sampleOf(set);
  for (std::size_t seen = 0; !result.isSampled && left() > 0;) {
    result.sampledAt = monotonicNow();
    if (hasRow(client, table, sample[seen])) {
      result.isSampled = ++seen == sample.size();
    } else {
      std::this_thread::sleep_for(pollInterval);
    }
  }
  double progressAt = result.sampledAt;
  while (result.isSampled && !result.isComplete && left() > 0) {
    const auto rowsBefore = result.lastWalk.rows;
    result.completeAt = monotonicNow();
    result.lastWalk = walk(client, table.columnOid(table.measuredColumn()), toolRepetitions, left());
    result.isComplete = result.lastWalk.isComplete && result.lastWalk.rows >= rows;
    if (result.lastWalk.rows > rowsBefore) progressAt = monotonicNow();
    if (monotonicNow() - progressAt > secondsWithoutProgress) break;
  }
  return result;
}

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
        // A kind that takes seconds must not take the others' share.
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
  RouteLoader loader(set, table.isIpv6());
  std::vector<double> times;
  const auto start = Clock::now();
  const auto becomes = [&](const Route& route, bool isThere) {
    while (secondsSince(start) < limitSeconds) {
      if (hasRow(client, table, route) == isThere) return true;
      std::this_thread::sleep_for(visiblePollInterval);
    }
    return false;
  };
  for (std::uint32_t i = 0; i < count; ++i) {
    const auto route = RouteSet::unusedRoute(i * 37);
    const auto added = Clock::now();
    loader.add(route);
    const bool isThere = becomes(route, true);
    if (isThere) times.push_back(secondsSince(added));
    loader.del(route);
    if (!isThere || !becomes(route, false)) break;
  }
  return times;
}

}  // namespace Bench
