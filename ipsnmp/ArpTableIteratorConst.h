#pragma once
// Walks IpMib::arpTable, which stores nothing: each row is made from an IPv4 row of ipNetToPhysicalTable.
//
//   for (IpMib::ArpTableIteratorConst at(ipMib); at.curEntry(); at.fetch(at.curEntry()->index(), true)) ...
//
// Guarantees: each step is one ordered search, so rows may come and go between steps. Lifetime: the iterator holds the
// cache and its current row, and both stay readable when they are removed.

#include "ipsnmp/IpMib.h"

namespace IpSnmp {

class IpMib::ArpTableIteratorConst {
 public:
  // On the first row. Without a cache (null) there are no rows.
  explicit ArpTableIteratorConst(Kel::Ptr<const IpMib> ipMib);
  // On the row of the index; at the end when there is none.
  ArpTableIteratorConst(Kel::Ptr<const IpMib> ipMib, const ArpTableIndex& index);

  // Goes to the row of the index or, with getNext, to the first row after the index; to the end when there is none.
  void fetch(const ArpTableIndex& index, bool getNext);

  // Null at the end.
  const Kel::Ptr<const ArpTableEntry>& curEntry() const { return curEntry_; }

 private:
  using Table = Kel::Ordered<IpNetToPhysicalTableIndex, Kel::Ptr<IpNetToPhysicalTableEntry>>;
  using Place = Table::ConstIterator;

  const Table& table() const { return ipMib_->ipNetToPhysicalTable(); }
  Place ipv4From(Place it) const;
  void curEntryIs(Place it);

  Kel::Ptr<const IpMib> ipMib_;
  Kel::Ptr<const ArpTableEntry> curEntry_;
};

}  // namespace IpSnmp
