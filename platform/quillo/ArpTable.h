#pragma once
// The shared table of IPv4 ARP and IPv6 neighbour entries of all VRFs, as its readers see it.

#include "kel/Notifier.h"
#include "quillo/Corruption.h"
#include "vantu/EthAddr.h"
#include "vantu/IntfId.h"
#include "vantu/IpGenAddr.h"
#include "vantu/VrfId.h"

namespace Arp {

// What is known of an entry beside its addresses.
struct ArpEntryStatus {
  bool isStatic = false;
  friend bool operator==(const ArpEntryStatus&, const ArpEntryStatus&) = default;
};

namespace Table {

// Ordered by VRF, then address, then interface, so that one VRF's entries are one range.
struct ArpKey {
  Vrf::VrfIdMap::VrfId vrfId;
  Vantu::IpGenAddr addr;
  Vantu::IntfId intfId;
  friend auto operator<=>(const ArpKey&, const ArpKey&) = default;
};

// A default-constructed entry (VRF id unknown) stands for "no such entry".
struct ArpEntry {
  ArpKey key;
  Vantu::EthAddr ethAddr;
  ArpEntryStatus status;

  const Vrf::VrfIdMap::VrfId& vrfId() const { return key.vrfId; }
  const Vantu::IpGenAddr& addr() const { return key.addr; }
  const Vantu::IntfId& intfId() const { return key.intfId; }
  friend bool operator==(const ArpEntry&, const ArpEntry&) = default;
};

// Reads see the table as it is at that moment. A lookup may throw Pesk::CorruptionDetectedException, which the
// caller passes to `corruptionDetected`.
class Status : public Kel::Notifier {
 public:
  virtual ArpEntry arpEntry(const ArpKey& key) const = 0;       // IPv4 map
  virtual ArpEntry neighborEntry(const ArpKey& key) const = 0;  // IPv6 map
  virtual void corruptionDetected(const Pesk::CorruptionDetectedException& error) const = 0;
};

}  // namespace Table
}  // namespace Arp
