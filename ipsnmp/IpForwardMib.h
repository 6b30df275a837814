#pragma once
// The IP-FORWARD-MIB cache of one VRF. It copies no route but the few that walks read ahead: it refers to the shared
// tables of routes and FECs, and to the ordered prefixes and next hops derived from them. A row of ipCidrRouteTable or
// inetCidrRouteTable is computed at each request.

#include <optional>
#include <vector>

#include "ipsnmp/RoutesAhead.h"
#include "kel/Entity.h"
#include "kel/SmallCollection.h"
#include "quillo/fecs/FecRouteList.h"
#include "quillo/tables/FibTables.h"
#include "snmp/IfMib.h"
#include "vantu/Prefix.h"
#include "vantu/RouteTypes.h"

namespace IpSnmp {

// The index of ipCidrRouteTable (RFC 2096); compares in the SNMP order.
class IpCidrRouteTableIndex {
  KEL_VALUE_TYPE("IpSnmp::IpCidrRouteTableIndex", IpCidrRouteTableIndex,
                 ((Vantu::IpAddr, dest))((Vantu::IpAddr, mask))((std::uint32_t, tos))((Vantu::IpAddr, nextHop)))
};

// ipCidrRouteType; reject(2) is never produced.
constexpr std::int32_t ipCidrRouteTypeOther = 1, ipCidrRouteTypeLocal = 3, ipCidrRouteTypeRemote = 4;

// One row, as a value. `ifIndex` is 0 when unknown.
class IpCidrRouteTableEntry {
  KEL_VALUE_TYPE("IpSnmp::IpCidrRouteTableEntry", IpCidrRouteTableEntry,
                 ((IpCidrRouteTableIndex, index))((std::uint32_t, ifIndex))((Routing::RouteMetric, metric))(
                     (Routing::RoutePreference, preference))((Routing::Fib::RouteType, protocol))((std::int32_t,
                                                                                                   type)))
};

// The next hops of one FEC. There may be as many FECs as routes, so it is kept small
// (docs/decisions/0035-fecs-are-small.md).
class IpForwardFec : public Kel::Entity {
  KEL_TYPE_BEGIN("IpSnmp::IpForwardFec", IpForwardFec, Kel::Entity)
 public:
  KEL_CONSTRUCTOR(IpForwardFec, ((Quillo::Fib::FecId, fecId)))
  // IPv4 next hops (0.0.0.0: on-link), each with the position of its via in the shared FEC.
  KEL_VALUES(Small, Vantu::IpAddr, Quillo::Fib::ViaIndex, nextHop, NextHop)
  using KelNextHop = Kel::Small<Vantu::IpAddr, Quillo::Fib::ViaIndex>;
  KEL_TYPE_END_DECLARE
};

// A shared FEC as last read.
struct FecAsRead {
  Quillo::Fib::FecId fecId;
  Quillo::Fib::Fec fec;          // no such FEC: the table has none
  std::uint64_t generation = 0;  // of its table at that time; 0: read it again
};

// The FECs of one VRF, or of all of them where they share one forwarding table.
class IpForwardFecs : public Kel::Entity {
  KEL_TYPE_BEGIN("IpSnmp::IpForwardFecs", IpForwardFecs, Kel::Entity)
 public:
  KEL_MEMBERS(Hashed, Quillo::Fib::FecId, IpForwardFec, forwardFec, ForwardFec)
  KEL_TYPE_END_DECLARE

  // The entry of this FEC in a cache for IpForwardMib, since thousands of rows may need the same FEC. Its generation is
  // 0 if it was not read yet, or another FEC has used the entry since. At most `maxAsRead` FECs are kept at a time.
  // Lifetime: the reference is valid until the next call.
  static constexpr std::size_t maxAsRead = 4096;
  FecAsRead& asRead(const Quillo::Fib::FecId& fecId) const;

 private:
  mutable std::vector<FecAsRead> asRead_;  // by the FEC's id modulo the size, which is a power of two
};

// What walks of ipCidrRouteTable need beside the shared tables: the order of the prefixes, and the next hops.
class FecsAndPrefixes : public Kel::Entity {
  KEL_TYPE_BEGIN("IpSnmp::FecsAndPrefixes", FecsAndPrefixes, Kel::Entity)
 public:
  // Every IPv4 prefix of the route table, in the order of the rows. The value is always true.
  KEL_VALUES(Ordered, Vantu::IpAddrWithMask, bool, orderedPrefix, OrderedPrefix)
  using KelOrderedPrefix = Kel::Ordered<Vantu::IpAddrWithMask, bool>;
  // The FECs that the routes refer to.
  KEL_REFERENCE(const IpForwardFecs, forwardFecs, ForwardFecs)
  KEL_TYPE_END_DECLARE

  // Lets walks skip prefixes without a row. Null: a walk looks up each prefix.
  const Kel::Ptr<const Quillo::Fib::FecRouteList>& fecRouteList() const { return fecRouteList_; }
  void fecRouteListIs(Kel::Ptr<const Quillo::Fib::FecRouteList> list) { fecRouteList_ = std::move(list); }

 private:
  Kel::Ptr<const Quillo::Fib::FecRouteList> fecRouteList_;
};

class IpForwardMib : public Kel::Entity {
  KEL_TYPE_BEGIN("IpSnmp::IpForwardMib", IpForwardMib, Kel::Entity)
 public:
  KEL_NAMED(IpForwardMib, Kel::Entity)
  // All null at first. ipCidrRouteTable has no rows while one of the first three is null. Without `ifMib` only vias
  // without an interface have rows.
  KEL_REFERENCE(const Quillo::Fib::RouteStatus, routeStatus, RouteStatus)
  // The table that resolves the FECs of the routes: the VRF's own, or the one of all VRFs.
  KEL_REFERENCE(const Quillo::Fib::ForwardingStatus, vrfForwardingStatus, VrfForwardingStatus)
  KEL_REFERENCE(const IpSnmp::FecsAndPrefixes, fecsAndPrefixes, FecsAndPrefixes)
  KEL_REFERENCE(const IntfSnmp::IfMib, ifMib, IfMib)
  KEL_STORED(std::int32_t, numRoutes, NumRoutes, 0)           // rows of ipCidrRouteTable, as last counted
  KEL_STORED(std::uint32_t, inetNumRoutes, InetNumRoutes, 0)  // rows of inetCidrRouteTable, as last counted

  // A virtual collection: its rows are computed when they are read, in index order by
  // ipsnmp/IpCidrRouteTableIteratorConst.h.
  class IpCidrRouteTableIteratorConst;
  // The row of exactly this index. Throws as the iterator does.
  std::optional<IpCidrRouteTableEntry> ipCidrRouteTable(const IpCidrRouteTableIndex& index) const;
  KEL_VIRTUAL_MEMBERS(IpCidrRouteTableEntry, ipCidrRouteTable)
  KEL_TYPE_END_DECLARE

  // For inetCidrRouteTable (InetCidrRoutes.h): the IPv6 routes, null at first.
  const Kel::Ptr<const Quillo::Fib6::RouteStatus>& route6Status() const { return route6Status_; }
  void route6StatusIs(Kel::Ptr<const Quillo::Fib6::RouteStatus> table) { route6Status_ = std::move(table); }

  // Whether a route can have rows: it exists, and its type is not 1 or 3 (internal to the switch) or 5 (the host route
  // of a neighbour).
  bool validRoute(const Quillo::Fib::Route& route) const;
  // The ifIndex of a next hop's row; 0 without an interface. None if a next hop on this interface has no row: a dynamic
  // tunnel, or an interface without an ifIndex.
  std::optional<std::uint32_t> ifIndexOfHop(const Vantu::IntfId& intfId) const;
  bool validIntf(const Vantu::IntfId& intfId) const { return ifIndexOfHop(intfId).has_value(); }

  // The sources of a prefix's rows.
  struct Resolved {
    const char* missing = nullptr;  // a trace text that names what does not exist (" has no fec"); null: all exists
    Quillo::Fib::Route route;
    Kel::Ptr<const IpForwardFec> forwardFec;
    const Quillo::Fib::Fec* fec = nullptr;  // the shared FEC

    // The interface of a next hop's via. Null if the FEC has changed and the via is gone, but its next hops are not
    // updated yet. Requires: resolve() found all, and is not called again before the last use.
    const Vantu::IntfId* intfId(const Quillo::Fib::ViaIndex& via) const;
  };
  // Looks up the route, its FEC and the FEC's next hops. Reports damage to the table and counts it as missing. Throws
  // Quillo::StoreException while the store cannot be read.
  // Lifetime: the result is valid until the next call of this or fec().
  Resolved resolve(const Vantu::Prefix& prefix) const;
  // Looks up a FEC in the shared table; "no such FEC" if the table lacks it or it is damaged. Reports damage to the
  // table. Throws as resolve(). Lifetime: the reference is valid until the next call of fec() or resolve().
  const Quillo::Fib::Fec& fec(const Quillo::Fib::FecId& fecId) const;

  // The routes in order, for all walks.
  RoutesAhead<Quillo::Fib::RouteStatus>& routesAhead() const { return routesAhead_; }
  RoutesAhead<Quillo::Fib6::RouteStatus>& routes6Ahead() const { return routes6Ahead_; }

 private:
  void readFec(FecAsRead& into) const;

  Kel::Ptr<const Quillo::Fib6::RouteStatus> route6Status_;
  mutable FecAsRead unkept_;  // for fec() without a cache

  mutable RoutesAhead<Quillo::Fib::RouteStatus> routesAhead_;
  mutable RoutesAhead<Quillo::Fib6::RouteStatus> routes6Ahead_;
};

}  // namespace IpSnmp
