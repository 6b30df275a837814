#pragma once
// Brings the part of the picture that shows one network namespace to what the kernel says: its VRF, interfaces and
// neighbours. A neighbour is shown as long as its interface is in a VRF, and under that VRF.

#include <map>
#include <set>

#include "mirror/publish/Picture.h"
#include "mirror/publish/TreeWriter.h"
#include "mirror/routes/NamespaceRoutes.h"
#include "mirror/vrf/VrfDevices.h"

namespace Mirror {

class NamespaceWriter {
 public:
  // For another scope than the default one, Vrfs has the VRF as a namespace already.
  NamespaceWriter(Picture& picture, NamespaceScope scope);

  // The whole of it; what `state` does not have goes. Begins to show the VRF.
  void syncAll(const KernelState& state);
  // What changed.
  void sync(const KernelState& state, const KernelState::Changes& changes);
  void forwardingIs(Vantu::Af af, bool forwarding);
  // The namespace is gone, or is the VRF no more: nothing of it is left in the picture. The end of this object.
  void withdraw();

  // The kernel's routing tables that are VRFs', and which; none: that comes with the next sync.
  NamespaceRoutes::Tables tables(const KernelState& state) const;

  const NamespaceScope& scope() const { return scope_; }
  // Not valid for an interface that is not written.
  Vantu::IntfId interfaceId(std::uint32_t ifIndex) const { return interfaces_.id(ifIndex); }

 private:
  using Place = NeighbourTable::Place;

  std::optional<VrfDevices::Membership> membershipOf(std::uint32_t ifIndex, const KernelLink& link) const;
  Place placeOf(const KernelState& state, std::uint32_t ifIndex) const;
  void neighboursAre(const KernelState& state, const std::set<std::uint32_t>& ifIndexes);
  void neighbourIs(const KernelState& state, std::uint32_t ifIndex, const Vantu::IpGenAddr& addr);

  Picture& picture_;
  NamespaceScope scope_;
  VrfDevices devices_;  // of the default namespace only
  TreeWriter interfaces_;
  std::map<std::uint32_t, Place> places_;  // of the interfaces that are written, by the kernel's index
};

}  // namespace Mirror
