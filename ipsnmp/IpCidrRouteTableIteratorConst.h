#pragma once
// Walks the rows of ipCidrRouteTable in index order, one row a usable next hop of a valid route.
//
// Nothing but the present row is kept: each step searches for the next one from its index, so that prefixes, next
// hops and whole tables may come and go between two steps. A step costs a search among the ordered prefixes, a
// lookup of the route, one of its FEC and a search among the next hops.
//
// Prefixes without a row (IPv6 next hops, interfaces without an ifIndex) may be many in a row: behind the first few it
// passes over them. While the machines have changes of many routes or FECs still before them, there may be some that it
// cannot pass over; it gives up after `maxFruitless` of them, so that no request holds up the agent.
//
// The tos of an index has no part in where it lies: rows have tos 0, and an index with another is positioned by
// prefix and next hop alone.

#include "ipsnmp/IpForwardMib.h"

namespace IpSnmp {

class IpForwardMib::IpCidrRouteTableIteratorConst {
 public:
  // On the first row.
  explicit IpCidrRouteTableIteratorConst(Kel::Ptr<const IpForwardMib> mib);
  // As after fetch(index, getNext).
  IpCidrRouteTableIteratorConst(Kel::Ptr<const IpForwardMib> mib, const IpCidrRouteTableIndex& index, bool getNext);

  // Goes to the first row at or after the index, or strictly after it; or to the end. A mask that is not contiguous
  // stands for its leading ones. The next hop of the index applies to the first prefix that is visited, even if that
  // is not the prefix of the index. Throws Kel::RangeException ("Prefix::validAsPrefix != true not allowed") when
  // the ordered prefixes hold one with host bits; the iterator is at the end then.
  void fetch(const IpCidrRouteTableIndex& index, bool getNext);

  // Prefixes without a row that a fetch looks at.
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
