#pragma once
// Reads the neighbour tables from the store.
//
//   auto follower = Kel::makePtr<Quillo::TableFollower>(mount);
//   auto table = Kel::makePtr<Quillo::ArpTableMount>(follower);
//   after each refresh of the mount, as a task:  while (follower->step(100)) ... yield if you should ...
//
// It holds no entries: each lookup and each walk reads the current contents of the store.
//
// While a publisher makes its first pass over a new store, reads return what it has written so far, and no handler is
// called. The end of the pass is notified as one change (`handleTable`).

#include <string>

#include "quillo/tables/ArpTable.h"
#include "quillo/tables/VrfTableReader.h"

namespace Quillo {

class ArpTableMount final : public Arp::Table::Status {
 public:
  explicit ArpTableMount(Kel::Ptr<TableFollower> follower);

  using ArpKey = Arp::Table::ArpKey;
  using ArpEntry = Arp::Table::ArpEntry;
  using VrfId = Vrf::VrfIdMap::VrfId;

  // Whether the store has held a complete pass of a publisher. Stays true.
  bool initialized() const override { return follower_->initialized(); }
  // Look an entry up. Return an empty entry if there is none, and for a key that the table cannot have: an address of
  // the other IP version, or a VRF id or interface id that cannot be stored.
  ArpEntry arpEntry(const ArpKey& key) const override { return entry(TableId::arp, key); }
  ArpEntry neighborEntry(const ArpKey& key) const override { return entry(TableId::neighbor, key); }
  using Status::forEachArpEntry;
  using Status::forEachNeighborEntry;
  void forEachArpEntry(const VrfId& vrfId, const Vantu::IpGenAddr& from, const VisitWhile& visit) const override {
    walk(TableId::arp, vrfId, from, visit);
  }
  void forEachNeighborEntry(const VrfId& vrfId, const Vantu::IpGenAddr& from,
                            const VisitWhile& visit) const override {
    walk(TableId::neighbor, vrfId, from, visit);
  }

  // Reports damage to the follower, which passes it to the mount. The store is then reopened, and `handleTable`
  // notified.
  void corruptionDetected(const Pesk::CorruptionDetectedException& error) const override {
    follower_->corruptionDetected(error);
  }

 private:
  const VrfTableReader& reader(TableId table) const { return table == TableId::arp ? arp_ : neighbor_; }
  ArpEntry entry(TableId table, const ArpKey& key) const;
  void walk(TableId table, const VrfId& vrfId, const Vantu::IpGenAddr& from, const VisitWhile& visit) const;
  void notifyKey(TableId table, const std::string& bytes) const;

  Kel::Ptr<TableFollower> follower_;
  VrfTableReader arp_;
  VrfTableReader neighbor_;
  const TableWatch watch_;
};

}  // namespace Quillo
