#include "mirror/vrf/VrfDevices.h"

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

std::optional<VrfDevices::Membership> VrfDevices::membership(std::uint32_t ifIndex, const KernelLink& link) const {
  for (const std::uint32_t index : {ifIndex, link.master}) {
    const auto at = devices_.find(index);
    if (at == devices_.end()) continue;
    const Device& device = at->second;
    if (!device.vrfId) return std::nullopt;
    return Membership{L3::VrfName(device.name), *device.vrfId};
  }
  return Membership();
}

std::optional<Vrf::VrfIdMap::VrfId> VrfDevices::vrfId(std::uint32_t device) const {
  const auto at = devices_.find(device);
  return at == devices_.end() ? std::nullopt : at->second.vrfId;
}

}  // namespace Mirror
