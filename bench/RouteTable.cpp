#include "RouteTable.h"

#include <algorithm>
#include <boost/unordered/unordered_flat_set.hpp>
#include <stdexcept>

namespace Bench {
namespace {

constexpr std::uint64_t protocolOther = 1;  // what zebra makes of the kernel's routes

void append(Oid& oid, std::uint32_t address) {
  for (unsigned shift = 32; shift > 0; shift -= 8) oid.push_back((address >> (shift - 8)) & 0xFFU);
}

}  // namespace

RouteTable::RouteTable(const std::string& name)
    : isByMask_(name == "ipCidrRouteTable"), oid_{1, 3, 6, 1, 2, 1, 4, 24, isByMask_ ? 4U : 2U} {
  if (!isByMask_ && name != "ipForwardTable") throw std::runtime_error("no table of routes is called " + name);
}

Oid RouteTable::columnOid(unsigned column) const {
  Oid name = oid_;
  name.insert(name.end(), {1, column});
  return name;
}

Oid RouteTable::rowOid(const Route& route, std::uint32_t nextHop) const {
  Oid name = columnOid(measuredColumn);
  append(name, route.prefix);
  if (isByMask_) {
    append(name, mask(route.length));
    name.push_back(0);  // the type of service
  } else {
    name.push_back(protocolOther);
    name.push_back(0);  // the policy
  }
  append(name, nextHop);
  return name;
}

bool RouteTable::isIn(unsigned column, const Oid& name) const {
  const auto prefix = columnOid(column);
  return name.size() > prefix.size() && std::equal(prefix.begin(), prefix.end(), name.begin());
}

std::uint64_t RouteTable::rows(const RouteSet& set, bool hasEveryNextHop) const {
  const auto connected = RouteSet::interfaces().size();
  if (isByMask_) return (hasEveryNextHop ? set.hops() : set.routes().size()) + connected;
  boost::unordered_flat_set<std::uint64_t> seen;
  for (const auto& route : set.routes()) {
    seen.insert(std::uint64_t{route.prefix} << 32U | set.nextHops(route).front().gateway);
  }
  return seen.size() + connected;
}

}  // namespace Bench
