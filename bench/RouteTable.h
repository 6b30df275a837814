#pragma once
// The names of rows in the two tables of IP-FORWARD-MIB that agents keep IPv4 routes in.

#include <cstdint>

#include "RouteSet.h"
#include "SnmpClient.h"

namespace Bench {

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

}  // namespace Bench
