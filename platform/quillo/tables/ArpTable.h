#pragma once
// The readers' interface to the shared table of the neighbours of all VRFs.
//
// The table has two maps: the ARP map of IPv4 entries and the neighbour map of IPv6 entries. Both are ordered by VRF,
// address and interface, so the entries of a VRF are one range.

#include <functional>
#include <ostream>

#include "kel/Notifier.h"
#include "quillo/StoreException.h"
#include "vantu/EthAddr.h"
#include "vantu/IntfId.h"
#include "vantu/IpAddr.h"
#include "vantu/VrfId.h"

namespace Arp {

// The state of an entry.
struct ArpEntryStatus {
  bool isStatic = false;
  friend bool operator==(const ArpEntryStatus&, const ArpEntryStatus&) = default;
};

namespace Table {

struct ArpKey {
  Vrf::VrfIdMap::VrfId vrfId;
  Vantu::IpGenAddr addr;
  Vantu::IntfId intfId;
  friend auto operator<=>(const ArpKey&, const ArpKey&) = default;
};

// In traces: "<vrf id>/<address>/<interface>".
inline std::ostream& operator<<(std::ostream& out, const ArpKey& key) {
  return out << key.vrfId << "/" << key.addr << "/" << key.intfId;
}

// A default-constructed entry (VRF id unknown) means "no such entry".
struct ArpEntry {
  ArpKey key;
  Vantu::EthAddr ethAddr;
  ArpEntryStatus status;

  const Vrf::VrfIdMap::VrfId& vrfId() const { return key.vrfId; }
  const Vantu::IpGenAddr& addr() const { return key.addr; }
  const Vantu::IntfId& intfId() const { return key.intfId; }
  bool exists() const { return key.vrfId.isKnown(); }
  friend bool operator==(const ArpEntry&, const ArpEntry&) = default;
};

// Each read returns the current contents. A lookup or a walk throws Pesk::CorruptionDetectedException for damage,
// which the caller passes to `corruptionDetected`. It throws Quillo::StoreException while the table cannot be read: the
// caller then keeps its data, and `handleTable` is notified when the table can be read again.
class Status : public Kel::Notifier {
 public:
  class Notifiee : public Kel::Notifier::Notifiee {
   public:
    void notifierIs(const Kel::Ptr<const Status>& notifier) { kelAttach(notifier); }
    Kel::Ptr<const Status> notifier() const { return boost::static_pointer_cast<const Status>(kelNotifier()); }

    // The first complete contents of the table can be read.
    virtual void handleInitialized() {}
    // An entry was added, deleted or changed.
    virtual void onArpEntry(const ArpKey&) {}
    virtual void onNeighborEntry(const ArpKey&) {}
    // Any entry may have changed (the store was recreated, or the reader fell too far behind): compare the table with
    // your copy. No handler is called for single entries.
    virtual void handleTable() {}
  };

  virtual bool initialized() const = 0;
  virtual ArpEntry arpEntry(const ArpKey& key) const = 0;       // IPv4 map
  virtual ArpEntry neighborEntry(const ArpKey& key) const = 0;  // IPv6 map

  // Visits the VRF's entries of one snapshot from the address `from` on, in order of the key, until `visit` returns
  // false. Entries of one address are adjacent. Throws for damage after it has visited all readable entries.
  // Requires: `from` is of the map's family, or unset for all entries. `visit` neither walks nor changes the table.
  using VisitWhile = std::function<bool(const ArpEntry&)>;
  virtual void forEachArpEntry(const Vrf::VrfIdMap::VrfId& vrfId, const Vantu::IpGenAddr& from,
                               const VisitWhile& visit) const = 0;
  virtual void forEachNeighborEntry(const Vrf::VrfIdMap::VrfId& vrfId, const Vantu::IpGenAddr& from,
                                    const VisitWhile& visit) const = 0;

  // Visit all entries of the VRF.
  using Visit = std::function<void(const ArpEntry&)>;
  void forEachArpEntry(const Vrf::VrfIdMap::VrfId& vrfId, const Visit& visit) const {
    forEachArpEntry(vrfId, {}, [&visit](const ArpEntry& entry) { return visit(entry), true; });
  }
  void forEachNeighborEntry(const Vrf::VrfIdMap::VrfId& vrfId, const Visit& visit) const {
    forEachNeighborEntry(vrfId, {}, [&visit](const ArpEntry& entry) { return visit(entry), true; });
  }

  virtual void corruptionDetected(const Pesk::CorruptionDetectedException& error) const = 0;
};

}  // namespace Table
}  // namespace Arp
