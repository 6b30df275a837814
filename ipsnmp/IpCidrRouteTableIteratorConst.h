#pragma once
// Walks the rows of ipCidrRouteTable in index order: one row for each usable next hop of a valid route.
//
// Guarantees: a step searches anew behind the index of the current row, so prefixes, next hops and whole tables may
// change between steps. It costs a search in the ordered prefixes, lookups of the route and its FEC, and a search in the
// next hops.
//
// The walk skips long runs of prefixes without a row (IPv6 next hops, interfaces without an ifIndex) after the first
// few. While the state machines have a backlog, it must look some of these prefixes up. It gives up after
// `maxFruitless` such lookups, so that no request blocks the agent.
//
// Rows have tos 0. The tos of a requested index does not affect the position, which only prefix and next hop determine.
//
// Throws Quillo::StoreException while the store cannot be read.

#include "ipsnmp/IpForwardMib.h"

namespace IpSnmp {

class IpForwardMib::IpCidrRouteTableIteratorConst {
 public:
  // Starts at the first row.
  explicit IpCidrRouteTableIteratorConst(Kel::Ptr<const IpForwardMib> mib);
  // Starts where fetch(index, getNext) moves to.
  IpCidrRouteTableIteratorConst(Kel::Ptr<const IpForwardMib> mib, const IpCidrRouteTableIndex& index, bool getNext);

  // Moves to the first row at or after the position of the index. A mask with holes counts as its leading ones. The
  // next hop of the index applies to the first prefix visited, even if that is not the prefix of the index.
  // With getNext, skips a row whose index equals `index` in all four parts. So it does not skip the row at that
  // position if `index` has another tos, or a mask with holes: that row may be less than `index`.
  // Throws Kel::RangeException ("Prefix::validAsPrefix != true not allowed") on an ordered prefix with host bits, and
  // is then at the end.
  void fetch(const IpCidrRouteTableIndex& index, bool getNext);

  // The most prefixes without a row that one fetch looks up.
  static constexpr unsigned maxFruitless = 1000;

  bool isAtEnd() const { return isAtEnd_; }
  // Whether the walk gave up: it is at the end, but further rows may exist.
  bool gaveUp() const { return gaveUp_; }
  explicit operator bool() const { return !isAtEnd_; }
  // Requires: not at the end.
  const IpCidrRouteTableIndex& index() const { return entry_.index(); }
  const IpCidrRouteTableEntry& operator*() const { return entry_; }
  const IpCidrRouteTableEntry* operator->() const { return &entry_; }
  // Moves to the next row; no-op at the end.
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
