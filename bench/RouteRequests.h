#pragma once
// Requests to an agent's route table: names of rows, walks, and latencies of single requests.

#include <cstdint>
#include <string>
#include <vector>

#include "RouteSet.h"
#include "SnmpClient.h"

namespace Bench {

// One of the route tables of IP-FORWARD-MIB, and the routes of one IP version in it.
class RouteTable {
 public:
  // "inetCidrRouteTable" (RFC 4292), "ipCidrRouteTable" (RFC 2096: destination, mask, type of service, next hop), or
  // "ipForwardTable" (RFC 1354: destination, protocol, policy, next hop). Throws std::runtime_error on any other name,
  // and on one without IPv6 if `isIpv6`.
  RouteTable(const std::string& name, bool isIpv6);

  // A column that every measured agent serves, as it does the column after it and the three before it.
  unsigned measuredColumn() const { return kind_ == Kind::inet ? 10 : 6; }

  bool isIpv6() const { return isIpv6_; }
  const Oid& oid() const { return oid_; }
  Oid columnOid(unsigned column) const;
  // The row's object in the measured column.
  Oid rowOid(const Route& route, std::uint32_t nextHop) const;
  // The beginning of all rowOid() of the route, and in ipForwardTable of those with the same destination.
  Oid routeOid(const Route& route) const;
  // A name after all rows of the measured column.
  Oid behindOid() const;
  bool isIn(unsigned column, Name name) const;

  // The number of rows of a complete column, including the connected routes of the set's interfaces. ipCidrRouteTable:
  // with `hasEveryNextHop` one row for each next hop, otherwise one for each route. ipForwardTable: one for each pair
  // of prefix address and first next hop; `hasEveryNextHop` has no effect.
  std::uint64_t rows(const RouteSet& set, bool hasEveryNextHop) const;

 private:
  enum class Kind { inet, byMask, byProtocol };

  Kind kind_;
  bool isIpv6_;
  Oid oid_;
};

// The defaults of net-snmp's command-line tools.
constexpr Patience toolPatience{1'000'000, 5};
constexpr int toolRepetitions = 10;

struct Walk {
  std::uint64_t rows = 0;
  double seconds = 0;
  bool isComplete = false;  // reached the end; otherwise the limit passed or a request failed
  std::string failure;      // the cause of a failure
  // Answers, or failures, after more than toolPatience's timeout of 1 s: a client with toolPatience has sent these
  // requests again.
  std::uint64_t late = 0;
  double longestSeconds = 0;  // the slowest answer
};

// Walks everything below `root` with GETBULK of `maxRepetitions`, or with GETNEXT if that is 0. Ends early after
// `limitSeconds`, or when a request fails. Throws std::runtime_error if the walk does not advance.
Walk walk(SnmpClient& client, const Oid& root, int maxRepetitions, double limitSeconds);
// Walks several columns of a table in parallel with GETBULK. `rows` of the result counts each row once for each column.
// Ends early and throws as walk(), and throws also if an answer lacks columns. Requires: one column, or
// `maxRepetitions` above 0.
Walk walkColumns(SnmpClient& client, const std::vector<Oid>& columns, int maxRepetitions, double limitSeconds);

// Whether a GET of the route's row returns a value. False also if the request fails.
bool hasRow(SnmpClient& client, const RouteTable& table, const Route& route);

struct Readiness {
  bool isSampled = false;   // every route of the sample had a row
  double sampledAt = 0;     // when the last of these rows was seen, in seconds by monotonicNow()
  bool isComplete = false;  // a walk found all rows
  double completeAt = 0;    // when that walk, or else the last one, began, in seconds by monotonicNow()
  Walk lastWalk;
};

// Waits until a sample of the set's routes has rows, then walks a column until a walk finds at least `rows` rows. Gives
// up after `limitSeconds`, or when no walk has found more rows than the one before it for five seconds. Throws as
// walk(). Requires: the set has routes.
Readiness waitUntilComplete(SnmpClient& client, const RouteTable& table, const RouteSet& set, std::uint64_t rows,
                            double limitSeconds);

struct RequestKind {
  std::string name;
  std::vector<double> microseconds;  // the latency of each request, also of a failed one
  std::uint64_t unexpected = 0;      // wrong answers, error statuses and missing answers
};

// Sends up to `count` requests of each of four kinds, in rounds: first one of each kind, then 50. After
// `limitSeconds` no round begins, except the first. Within a round a kind ends early after a twentieth of that time. So
// slow kinds get fewer requests, and the last round may exceed the limit. Each request is made from a route chosen at
// random. Requires: the set has routes.
//   next  a GETNEXT after a row, or after a name between two rows
//   miss  a GET of a missing row
//   end   a GETNEXT after a column's last row
//   half  a GETNEXT with the first half of an index
std::vector<RequestKind> askAtRandom(SnmpClient& client, const RouteTable& table, const RouteSet& set,
                                     std::size_t count, double limitSeconds);

// Measures the seconds from adding a route to the kernel until its row is answered. Does so for up to `count` routes
// one after the other, and waits until the row of each has disappeared again. Ends early when a route does not appear,
// or does not disappear, within `limitSeconds` of the start; one that did not appear has no time. Throws as
// RouteLoader.
std::vector<double> timeToVisible(SnmpClient& client, const RouteTable& table, const RouteSet& set,
                                  std::size_t count, double limitSeconds);

}  // namespace Bench
