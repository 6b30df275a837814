#pragma once
// Walks the rows of ipCidrRouteTable in index order: one row for each usable next hop of a valid route.
//
// Guarantees: prefixes, next hops and whole tables may change between two steps, since a step searches from the index
// of the present row. A step costs a search among the ordered prefixes, a lookup of the route, a lookup of its FEC
// and a search among the next hops.
//
// Long runs of prefixes without a row (IPv6 next hops, interfaces without an ifIndex) are passed over after the first
// few. While the state machines have a backlog of changes, some of them must be looked at one by one. After
// `maxFruitless` of these the walk gives up, so that no request blocks the agent.
//
// The tos of an index does not affect its position: rows have tos 0, and prefix and next hop alone are compared.

#include "ipsnmp/IpForwardMib.h"

namespace IpSnmp {

class IpForwardMib::IpCidrRouteTableIteratorConst {
 public:
  // On the first row.
  explicit IpCidrRouteTableIteratorConst(Kel::Ptr<const IpForwardMib> mib);
  // As after fetch(index, getNext).
  IpCidrRouteTableIteratorConst(Kel::Ptr<const IpForwardMib> mib, const IpCidrRouteTableIndex& index, bool getNext);

  // Goes to the first row at or after the index or, with getNext, after it; to the end when there is none. A mask with
  // holes counts as its leading ones. The next hop of the index applies to the first prefix visited, even if that is
  // not the prefix of the index. Throws Kel::RangeException ("Prefix::validAsPrefix != true not allowed") on an
  // ordered prefix with host bits; the iterator is at the end then.
  void fetch(const IpCidrRouteTableIndex& index, bool getNext);

  // How many prefixes without a row a fetch looks up.
  static constexpr unsigned maxFruitless = 1000;

  bool isAtEnd() const { return isAtEnd_; }
  // At the end because it gave up: there may be further rows.
  bool gaveUp() const { return gaveUp_; }
  explicit operator bool() const { return !isAtEnd_; }
  // Not at the end:
  const IpCidrRouteTableIndex& index() const { return entry_.index(); }
  const IpCidrRouteTableEntry& operator*() const { return entry_; }
  const IpCidrRouteTableEntry* operator->() const { return &entry_; }
  // To the next row. At the end it stays there.
  IpCidrRouteTableIteratorConst& operator++();

 private:
  bool fetchFrom(const Vantu::Prefix& prefix, const Vantu::IpAddr& firstNextHop,
                 const IpCidrRouteTableIndex* above);

  Kel::Ptr<const IpForwardMib> mib_;
  IpCidrRouteTableEntry entry_;
  bool isAtEnd_ = true;
  bool gaveUp_ = false;
};

}  // namespace IpSnmp
