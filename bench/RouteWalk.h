#pragma once
// Walks of the route table, and the wait for one that finds all of it.

#include <cstdint>
#include <string>

#include "RouteSet.h"
#include "RouteTable.h"
#include "SnmpClient.h"

namespace Bench {

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

}  // namespace Bench
