#pragma once
// Walks IpMib::arpTable, which stores nothing: each row is computed from an IPv4 row of ipNetToPhysicalTable.
//
//   for (IpMib::ArpTableIteratorConst at(ipMib); at.curEntry(); at.fetch(at.curEntry()->index(), true)) ...
//
// Guarantees: each step searches from an index, so rows may be added and removed between steps. A step costs one
// ordered search, and one more for each interface whose IPv6 rows it skips.
// Lifetime: the iterator holds the cache and its current row; both stay readable after their removal.

#include "ipsnmp/IpMib.h"

namespace IpSnmp {

class IpMib::ArpTableIteratorConst {
 public:
  // Starts at the first row. A null cache has no rows.
  explicit ArpTableIteratorConst(Kel::Ptr<const IpMib> ipMib);
  // Starts at the row of the index; at the end without such a row.
  ArpTableIteratorConst(Kel::Ptr<const IpMib> ipMib, const ArpTableIndex& index);

  // Moves to the row of the index or, with getNext, to its upper_bound; to the end without such a row.
  void fetch(const ArpTableIndex& index, bool getNext);

  // Null at the end.
  const Kel::Ptr<const ArpTableEntry>& curEntry() const { return curEntry_; }

 private:
  using Table = Kel::Ordered<IpNetToPhysicalTableIndex, Kel::Ptr<IpNetToPhysicalTableEntry>>;
  using Place = Table::ConstIterator;

  const Table& table() const { return ipMib_->ipNetToPhysicalTable(); }
  Place ipv4From(Place it) const;
  void setCurEntry(Place it);

  Kel::Ptr<const IpMib> ipMib_;
  Kel::Ptr<const ArpTableEntry> curEntry_;
};

}  // namespace IpSnmp
