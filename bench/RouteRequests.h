#pragma once
// Latencies of single requests to the route table.

#include <string>
#include <vector>

#include "RouteSet.h"
#include "RouteTable.h"
#include "SnmpClient.h"

namespace Bench {

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
