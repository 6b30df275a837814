#pragma once
// The IP-FORWARD-MIB cache of one VRF. It copies no route: it refers to the shared tables of routes and FECs, and to
// the ordered prefixes and next hops derived from them. A row of ipCidrRouteTable or inetCidrRouteTable is computed at
// each request.

#include <array>
#include <optional>
#include <vector>

#include "kel/Entity.h"
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

// The next hops of one FEC.
class IpForwardFec : public Kel::Entity {
  KEL_TYPE_BEGIN("IpSnmp::IpForwardFec", IpForwardFec, Kel::Entity)
 public:
  KEL_CONSTRUCTOR(IpForwardFec, ((Quillo::Fib::FecId, fecId)))
  // IPv4 next hops (0.0.0.0: on-link), each with the position of its via in the shared FEC.
  KEL_VALUES(Ordered, Vantu::IpAddr, Quillo::Fib::ViaIndex, nextHop, NextHop)
  using KelNextHop = Kel::Ordered<Vantu::IpAddr, Quillo::Fib::ViaIndex>;
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

  // The place of this FEC in a cache for IpForwardMib, since thousands of rows may need the same FEC. Up to `maxAsRead`
  // FECs are kept at a time. The reference is good until the next call.
  static constexpr std::size_t maxAsRead = 4096;
  FecAsRead& asRead(const Quillo::Fib::FecId& fecId) const;

 private:
  mutable std::vector<FecAsRead> asRead_;  // by the remainder of the FEC's id; a power of two
};

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
  // All null at first. There are no rows while one of the first three is null. Without `ifMib` only vias without an
  // interface have rows.
  KEL_REFERENCE(const Quillo::Fib::RouteStatus, routeStatus, RouteStatus)
  // The table that resolves the FECs of the routes: the VRF's own, or the one of all VRFs.
  KEL_REFERENCE(const Quillo::Fib::ForwardingStatus, vrfForwardingStatus, VrfForwardingStatus)
  KEL_REFERENCE(const IpSnmp::FecsAndPrefixes, fecsAndPrefixes, FecsAndPrefixes)
  KEL_REFERENCE(const IntfSnmp::IfMib, ifMib, IfMib)
  KEL_STORED(std::int32_t, numRoutes, NumRoutes, 0)  // rows of ipCidrRouteTable, as last counted

  // A virtual collection: its rows are computed when they are read, in index order by
  // ipsnmp/IpCidrRouteTableIteratorConst.h.
  class IpCidrRouteTableIteratorConst;
  // The row of exactly this index. Throws as the iterator does.
  std::optional<IpCidrRouteTableEntry> ipCidrRouteTable(const IpCidrRouteTableIndex& index) const;
  KEL_VIRTUAL_MEMBERS(IpCidrRouteTableEntry, ipCidrRouteTable)
  KEL_TYPE_END_DECLARE

  // For inetCidrRouteTable (InetCidrRoutes.h): the IPv6 routes, null at first; and the number of rows, as last counted.
  const Kel::Ptr<const Quillo::Fib6::RouteStatus>& route6Status() const { return route6Status_; }
  void route6StatusIs(Kel::Ptr<const Quillo::Fib6::RouteStatus> table) { route6Status_ = std::move(table); }
  std::uint32_t inetNumRoutes() const { return inetNumRoutes_; }
  void inetNumRoutesIs(std::uint32_t rows) { inetNumRoutes_ = rows; }

  // Whether a route can have rows: it exists, and its type is not 0, 1, 3 or 5.
  bool validRoute(const Quillo::Fib::Route& route) const;
  // Whether a next hop on this interface has a row: true without an interface; false for a dynamic tunnel and for an
  // interface without an ifIndex.
  bool validIntf(const Vantu::IntfId& intfId) const;
  // 0 without one.
  std::uint32_t ifIndex(const Vantu::IntfId& intfId) const;

  // The sources of a prefix's rows. The route is read once per generation of its table while the prefix stays the
  // same, the FEC once per generation for all its routes.
  struct Resolved {
    Vantu::Prefix prefix;
    Quillo::Fib::Route route;
    Kel::Ptr<const IpForwardFec> forwardFec;
    std::vector<Quillo::Fib::Via> vias;  // of the shared FEC

    // The interface of a next hop's via. Null if the FEC has changed and the via is gone, but its next hops are not
    // updated yet.
    const Vantu::IntfId* intfId(const Quillo::Fib::ViaIndex& via) const;

    // The generation of the route table when the route was read; 0: read it again.
    std::uint64_t routeGeneration = 0;
  };
  // Looks up the route, its FEC and the FEC's next hops. Returns null if all exist; otherwise a trace text that names
  // the missing one (" has no fec"). Reports damage to the table and counts it as missing. Reuse `into`, which keeps
  // its memory.
  const char* resolve(const Vantu::Prefix& prefix, Resolved& into) const;
  // A FEC of the shared table, or "no such FEC" where the table has none that can be read. Reports damage to the table.
  // Lifetime: until the next call of this or resolve().
  const Quillo::Fib::Fec& fec(const Quillo::Fib::FecId& fecId) const;

 private:
  void readRoute(const Vantu::Prefix& prefix, Resolved& into) const;
  void readFec(FecAsRead& into) const;

  Kel::Ptr<const Quillo::Fib6::RouteStatus> route6Status_;
  std::uint32_t inetNumRoutes_ = 0;
  mutable FecAsRead unkept_;  // for fec() without a cache

  // Scratch memory of the iterators, so that a step allocates nothing. A step visits the current prefix and the next
  // one, where the next request begins. So two entries save more than half of the lookups.
  mutable std::array<Resolved, 2> iteratorScratch_;
  mutable std::size_t iteratorScratchUsed_ = 0;  // the one used last
};

}  // namespace IpSnmp
