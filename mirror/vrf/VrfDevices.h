#pragma once
// The VRF devices of the default namespace (kernel type "vrf"), and which interfaces belong to them: the device
// itself, and those that have it as their master.
//
// A device may be no VRF that is served (Vrfs::deviceIs): its interfaces then are in no VRF, the default one included,
// since the kernel does not use the default VRF's routes for them either.

#include <map>
#include <optional>
#include <set>

#include "mirror/kernel/KernelState.h"
#include "mirror/vrf/NamespaceScope.h"
#include "mirror/vrf/Vrfs.h"

namespace Mirror {

class VrfDevices {
 public:
  explicit VrfDevices(Vrfs& vrfs) : vrfs_(vrfs) {}

  // To be called before the interfaces are written, with those that changed. True when others too may belong to
  // another VRF than before.
  bool sync(const KernelState& state, const std::set<std::uint32_t>& ifIndexes);

  struct Membership {
    L3::VrfName vrf;
    Vrf::VrfIdMap::VrfId vrfId{0};
    friend bool operator==(const Membership&, const Membership&) = default;
  };
  // The default VRF's for an interface that belongs to no device; none for one that is in no VRF.
  std::optional<Membership> membership(std::uint32_t ifIndex, const KernelLink& link) const;

  // None for what is no device, or one that is not served as a VRF.
  std::optional<Vrf::VrfIdMap::VrfId> vrfId(std::uint32_t device) const;

 private:
  struct Device {
    std::string name;
    std::uint32_t table = 0;
    std::optional<Vrf::VrfIdMap::VrfId> vrfId = std::nullopt;  // none: cannot be a VRF
    bool isSame(const Device& other) const { return name == other.name && table == other.table; }
  };
  static std::optional<Device> deviceOf(const KernelState& state, std::uint32_t ifIndex);

  Vrfs& vrfs_;
  std::uint64_t version_ = 0;
  std::map<std::uint32_t, Device> devices_;  // by ifIndex
};

}  // namespace Mirror
