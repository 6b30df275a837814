#pragma once
// Requests to an agent's route table: names of rows, walks, and latencies of single requests.

#include <cstdint>
#include <string>
#include <vector>

#include "RouteSet.h"
#include "SnmpClient.h"

namespace Bench {

// One of the two IPv4 route tables of IP-FORWARD-MIB.
class RouteTable {
 public:
  // "ipCidrRouteTable" (RFC 2096: destination, mask, type of service, next hop), or "ipForwardTable" (RFC 1354:
  // destination, protocol, policy, next hop). Throws std::runtime_error on any other name.
  explicit RouteTable(const std::string& name);

  // The type of the route: column 6 of both tables. Every measured agent serves it and the column after it.
  static constexpr unsigned measuredColumn = 6;

  const Oid& oid() const { return oid_; }
  Oid columnOid(unsigned column) const;
  // The row's object in the measured column.
  Oid rowOid(const Route& route, std::uint32_t nextHop) const;
  bool isIn(unsigned column, const Oid& name) const;

  // The rows of a complete column, including the connected routes of the set's interfaces. Without `hasEveryNextHop`,
  // each route has one next hop. In ipForwardTable, routes to one address through one next hop share a row.
  std::uint64_t rows(const RouteSet& set, bool hasEveryNextHop) const;

 private:
  bool isByMask_;
  Oid oid_;
};

// The defaults of net-snmp's command-line tools.
constexpr Patience toolPatience{1'000'000, 5};
constexpr int toolRepetitions = 10;

struct Walk {
  std::uint64_t rows = 0;
  double seconds = 0;
  bool isComplete = false;    // reached the end; otherwise it timed out or failed
  std::string failure;        // the cause of a failure
  std::uint64_t late = 0;     // answers after the first timeout, for which a request was sent again
  double longestSeconds = 0;  // the slowest answer
};

// Walks everything below `root` with GETBULK of `maxRepetitions`, or with GETNEXT if that is 0. Ends early after
// `limitSeconds`, or when a request fails.
Walk walk(SnmpClient& client, const Oid& root, int maxRepetitions, double limitSeconds);
// Walks several columns of a table in parallel with GETBULK. `rows` of the result counts each row once for each column.
// Requires: one column, or `maxRepetitions` above 0.
Walk walkColumns(SnmpClient& client, const std::vector<Oid>& columns, int maxRepetitions, double limitSeconds);

// Returns false also if the request fails.
bool hasRow(SnmpClient& client, const Oid& name);

struct Readiness {
  bool isSampled = false;   // every route of the sample had a row
  double sampledAt = 0;     // when the last of these rows was seen
  bool isComplete = false;  // a walk found all rows
  double completeAt = 0;    // when that walk, or else the last one, began
  Walk lastWalk;
};

// Waits until a sample of the set's routes has rows, then walks a column until a walk finds `rows` rows. Gives up after
// `limitSeconds`, or when the walks' number of rows stays the same for some seconds.
Readiness waitUntilComplete(SnmpClient& client, const RouteTable& table, const RouteSet& set, std::uint64_t rows,
                            double limitSeconds);

struct RequestKind {
  std::string name;
  std::vector<double> microseconds;
  std::uint64_t unexpected = 0;  // wrong answers
};

// Sends up to `count` requests of each of four kinds, in turns, for at most `limitSeconds`. Each request is made from a
// route chosen at random.
//   next  a GETNEXT after a row, or after a name between two rows
//   miss  a GET of a missing row
//   end   a GETNEXT after a column's last row
//   half  a GETNEXT with the first half of an index
std::vector<RequestKind> askAtRandom(SnmpClient& client, const RouteTable& table, const RouteSet& set,
                                     std::size_t count, double limitSeconds);

// Measures the seconds from adding a route to the kernel until its row is answered. Does so for up to `count` routes
// one after the other, and waits until each is deleted again. Ends early, without a time for
// the last route, when a route does not appear within `limitSeconds` of the start.
std::vector<double> timeToVisible(SnmpClient& client, const RouteTable& table, const RouteSet& set,
                                  std::size_t count, double limitSeconds);

}  // namespace Bench
