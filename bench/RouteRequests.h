#pragma once
// Requests to an agent's table of routes: the names of its rows, walks, and latencies of single requests.

#include <cstdint>
#include <string>
#include <vector>

#include "RouteSet.h"
#include "SnmpClient.h"

namespace Bench {

// One of the two tables of IP-FORWARD-MIB that agents keep IPv4 routes in.
class RouteTable {
 public:
  // "ipCidrRouteTable" (RFC 2096: destination, mask, type of service, next hop), or "ipForwardTable" (RFC 1354:
  // destination, protocol, policy, next hop). Throws std::runtime_error on any other name.
  explicit RouteTable(const std::string& name);

  // A column that every agent serves: the type of the route. So is the one behind it.
  static constexpr unsigned measuredColumn = 6;

  const Oid& oid() const { return oid_; }
  Oid columnOid(unsigned column) const;
  // In the measured column.
  Oid rowOid(const Route& route, std::uint32_t nextHop) const;
  bool isIn(unsigned column, const Oid& name) const;

  // Rows of a complete column, the connected routes of the set's interfaces included. With one next hop a route, where
  // `hasEveryNextHop` does not hold. In ipForwardTable, routes to one address over one next hop are the same row.
  std::uint64_t rows(const RouteSet& set, bool hasEveryNextHop) const;

 private:
  bool isByMask_;
  Oid oid_;
};

// What net-snmp's command-line tools do unless they are told otherwise.
constexpr Patience toolPatience{1'000'000, 5};
constexpr int toolRepetitions = 10;

struct Walk {
  std::uint64_t rows = 0;
  double seconds = 0;
  bool isComplete = false;    // it came to the end; otherwise its time was up, or it failed
  std::string failure;        // why it broke off; empty when it did not
  std::uint64_t late = 0;     // answers that took longer than the first timeout, so that a request was sent again
  double longestSeconds = 0;  // the slowest answer
};

// Everything below `root`, from its beginning, with GETBULK of so many repetitions, or with GETNEXT when that is 0. Ends
// at the latest `limitSeconds` after its start, or when a request fails.
Walk walk(SnmpClient& client, const Oid& root, int maxRepetitions, double limitSeconds);

// False also when the request fails.
bool hasRow(SnmpClient& client, const Oid& name);

struct Readiness {
  bool isSampled = false;   // all of a sample of routes was seen
  double sampledAt = 0;     // when the last of it was
  bool isComplete = false;  // a walk found all rows
  double completeAt = 0;    // when that walk, or the last one, began
  Walk lastWalk;
};

// Waits until routes from all over the set have rows, then walks a column until a walk finds `rows` rows. Gives up at
// `limitSeconds`, or when walks have ended early with the same number of rows for some seconds.
Readiness waitUntilComplete(SnmpClient& client, const RouteTable& table, const RouteSet& set, std::uint64_t rows,
                            double limitSeconds);

struct RequestKind {
  std::string name;
  std::vector<double> microseconds;
  std::uint64_t unexpected = 0;  // answers other than the kind of request must have
};

// Up to `count` requests of each of four kinds, in turns, for at most `limitSeconds`: "next", a GETNEXT from a row or from
// between two; "miss", a GET of a row that is not there; "end", a GETNEXT from past a column's last row; "half", a
// GETNEXT with the first half of an index. All from random routes.
std::vector<RequestKind> askAtRandom(SnmpClient& client, const RouteTable& table, const RouteSet& set,
                                     std::size_t count, double limitSeconds);

// Seconds from before a route is given to the kernel until its row is answered, for up to `count` routes one after the
// other, each taken away again, and gone from the table, before the next one. A last one that did not appear in time
// does not count.
std::vector<double> timeToVisible(SnmpClient& client, const RouteTable& table, const RouteSet& set,
                                  std::size_t count, double limitSeconds);

}  // namespace Bench
