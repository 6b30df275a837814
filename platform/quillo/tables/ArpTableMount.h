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

#include "quillo/tables/RecordTable.h"
#include "quillo/tables/Records.h"

namespace Quillo {

class ArpTableMount final : public Arp::Table::Status {
 public:
  explicit ArpTableMount(const Kel::Ptr<TableFollower>& follower);

  using ArpKey = Arp::Table::ArpKey;
  using ArpEntry = Arp::Table::ArpEntry;
  using VrfId = Vrf::VrfIdMap::VrfId;

  // Whether the store has held a complete pass of a publisher. Stays true.
  bool initialized() const override { return arp_.follower().initialized(); }
  // Look an entry up. Return an empty entry if there is none, and for a key that the table cannot have: an address of
  // the other IP version, or a VRF id or interface id that cannot be stored.
  ArpEntry arpEntry(const ArpKey& key) const override;
  ArpEntry neighborEntry(const ArpKey& key) const override;
  using Status::forEachArpEntry;
  using Status::forEachNeighborEntry;
  void forEachArpEntry(const VrfId& vrfId, const Vantu::IpGenAddr& from, const VisitWhile& visit) const override {
    arp_.forEach({vrfId, from, {}}, visit);
  }
  void forEachNeighborEntry(const VrfId& vrfId, const Vantu::IpGenAddr& from,
                            const VisitWhile& visit) const override {
    neighbor_.forEach({vrfId, from, {}}, visit);
  }

  // Reports damage to the follower, which passes it to the mount. The store is then reopened, and `handleTable`
  // notified.
  void corruptionDetected(const Pesk::CorruptionDetectedException& error) const override {
    arp_.follower().corruptionDetected(error);
  }

 private:
  void notify(const std::function<void(Notifiee&)>& call) const;

  const RecordTable<ArpRecord<Vantu::ipv4_>> arp_;
  const RecordTable<ArpRecord<Vantu::ipv6_>> neighbor_;
  const TableWatch watch_;
};

}  // namespace Quillo
