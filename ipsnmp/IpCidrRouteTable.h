#pragma once
// One row of ipCidrRouteTable (RFC 2096), as a value. Rows are computed on demand and never stored.

#include "kel/ValueType.h"
#include "vantu/IpAddr.h"
#include "vantu/RouteTypes.h"

namespace IpSnmp {

// Its order is the SNMP index order of the table.
class IpCidrRouteTableIndex {
  KEL_VALUE_TYPE("IpSnmp::IpCidrRouteTableIndex", IpCidrRouteTableIndex,
                 ((Vantu::IpAddr, dest))((Vantu::IpAddr, mask))((std::uint32_t, tos))((Vantu::IpAddr, nextHop)))
};

// ipCidrRouteType; reject(2) is never produced.
constexpr std::int32_t ipCidrRouteTypeOther = 1, ipCidrRouteTypeLocal = 3, ipCidrRouteTypeRemote = 4;

// `ifIndex` is 0 when unknown.
class IpCidrRouteTableEntry {
  KEL_VALUE_TYPE("IpSnmp::IpCidrRouteTableEntry", IpCidrRouteTableEntry,
                 ((IpCidrRouteTableIndex, index))((std::uint32_t, ifIndex))((Routing::RouteMetric, metric))(
                     (Routing::RoutePreference, preference))((Routing::Fib::RouteType, protocol))((std::int32_t,
                                                                                                   type)))
};

}  // namespace IpSnmp
