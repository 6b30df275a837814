#include "mirror/VrfDevices.h"

namespace Mirror {

std::optional<VrfDevices::Device> VrfDevices::deviceOf(const KernelState& state, std::uint32_t ifIndex) {
  const KernelInterface* interface = state.interface(ifIndex);
  if (!interface || !interface->link || !interface->link->vrfTable || interface->link->name.empty()) return {};
  return Device{interface->link->name, *interface->link->vrfTable};
}

bool VrfDevices::sync(const KernelState& state, const std::set<std::uint32_t>& ifIndexes) {
  bool hasChanged = false;
  // All that goes goes first, since names may have been passed on.
  for (const std::uint32_t ifIndex : ifIndexes) {
    const auto at = devices_.find(ifIndex);
    const auto now = deviceOf(state, ifIndex);
    if (at == devices_.end() ? !now : now && at->second.isSame(*now)) continue;
    hasChanged = true;
    if (at == devices_.end()) continue;
    vrfs_.deviceDel(L3::VrfName(at->second.name));
    devices_.erase(at);
  }
  if (hasChanged) {
    for (const std::uint32_t ifIndex : ifIndexes) {
      if (auto now = deviceOf(state, ifIndex)) devices_.try_emplace(ifIndex, std::move(*now));
    }
  }
  if (!hasChanged && version_ == vrfs_.version()) return false;
  for (auto& [ifIndex, device] : devices_) device.vrfId = vrfs_.deviceIs(L3::VrfName(device.name), device.table);
  hasChanged |= !devices_.empty();
  version_ = vrfs_.version();
  return hasChanged;
}

VrfDevices::Membership VrfDevices::membership(std::uint32_t ifIndex, const KernelLink& link) const {
  for (const std::uint32_t device : {ifIndex, link.master}) {
    const auto at = devices_.find(device);
    if (at != devices_.end() && at->second.vrfId) return {L3::VrfName(at->second.name), *at->second.vrfId};
  }
  return {};
}

std::map<std::uint32_t, Vrf::VrfIdMap::VrfId> VrfDevices::tables() const {
  std::map<std::uint32_t, Vrf::VrfIdMap::VrfId> tables;
  for (const auto& [ifIndex, device] : devices_) {
    if (device.vrfId) tables.emplace(device.table, *device.vrfId);
  }
  return tables;
}

}  // namespace Mirror
