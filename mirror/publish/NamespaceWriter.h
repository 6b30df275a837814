#pragma once
// Writes the kernel's state of one network namespace into the picture.

#include <cstdint>
#include <functional>
#include <map>
#include <set>

#include "mirror/kernel/KernelState.h"
#include "mirror/publish/TreePublisher.h"
#include "mirror/routes/NamespaceRoutes.h"
#include "mirror/vrf/VrfIds.h"
#include "mirror/vrf/Vrfs.h"
#include "varnix/Tree.h"

namespace Mirror {

// Keeps the interface entities of one network namespace as the kernel has them.
//
// | entity                              | exists while                               | holds                   |
// |-------------------------------------|--------------------------------------------|-------------------------|
// | Interface::IntfStatus, kind "linux" | there is a link                            | ifIndex, state, details |
// | L3::Intf::Config, L3::Intf::Status  | the link is in a VRF                       | the VRF                 |
// | Ip::IpIntfConfig                    | the link is in a VRF                       | all IPv4 addresses      |
// | Ip::IpIntfStatus                    | ... and has an IPv4 address                | usable IPv4 addresses   |
// | Ip6::IntfConfig, Ip6::IntfStatus    | the link is in a VRF, has an IPv6 address  | all; usable ones        |
//
// To readers, Ip::IpIntfConfig makes an interface a member of its VRF. So it does not depend on addresses, which
// change with the link state.
//
// NamespaceScope determines id and ifIndex, and `vrfOf` the VRF. Addresses are usable while the interface is
// administratively up and running; IPv6 addresses also need duplicate address detection to have succeeded. Of a
// point-to-point address only the local one is published. Labels ("eth0:1") are ignored. Linux has no unnumbered
// interfaces, so `unnumberedIntfId` stays empty.
//
// The first address of an interface stays first until it is removed; its successor is the oldest of the others. Dumps
// use the same order, so a restarted mirror chooses the same address.
//
// An interface that was renamed, or created again under another index, is deleted and created, not modified.
class TreeWriter {
 public:
  // None: the interface is in no VRF.
  using VrfOf = std::function<std::optional<L3::VrfName>(std::uint32_t ifIndex, const KernelLink& link)>;

  // The writer owns the entities that the table names, for the ids of this scope.
  TreeWriter(const Varnix::Tree& tree, NamespaceScope scope, VrfOf vrfOf);

  // Writes the named interfaces as they are in `state`.
  void sync(const KernelState& state, const std::set<std::uint32_t>& ifIndexes);
  // The kernel's indexes of the published interfaces.
  std::set<std::uint32_t> written() const;
  // Invalid for an interface that is not published.
  Vantu::IntfId id(std::uint32_t ifIndex) const;

 private:
  Vantu::IntfId idOf(const KernelInterface* interface, std::uint32_t ifIndex);
  void remove(const Vantu::IntfId& id);
  void removeFromVrf(const Vantu::IntfId& id);
  void write(const Vantu::IntfId& id, std::uint32_t ifIndex, const KernelInterface& interface);
  void writeDetails(Interface::IntfStatus& status, const KernelLink& link) const;
  void writeIpv4(const Vantu::IntfId& id, const KernelInterface& interface);
  void writeIpv6(const Vantu::IntfId& id, const KernelInterface& interface);

  Varnix::Tree tree_;
  NamespaceScope scope_;
  VrfOf vrfOf_;
  std::map<std::uint32_t, Vantu::IntfId> written_;  // by the kernel's index
  std::set<std::uint32_t> refused_;                 // indexes that are too large, each traced once
};

// Keeps a namespace's part of the picture as the kernel has it: VRF, interfaces and neighbours. A neighbour is
// published under the VRF of its interface, while the interface is in a VRF.
class NamespaceWriter {
 public:
  // Requires: Vrfs::namespaceIs() was called for the VRF, unless the scope is the default one.
  NamespaceWriter(Picture& picture, NamespaceScope scope);

  // Writes all of `state` and removes everything else. The first call publishes the VRF.
  void syncAll(const KernelState& state);
  // Writes only the named changes. Requires: syncAll() was called.
  void sync(const KernelState& state, const KernelState::Changes& changes);
  void setForwarding(Vantu::Af af, bool forwarding);
  void setDefaults(const IpDefaults& defaults);
  // Removes the namespace from the picture. Only the destructor may follow.
  void withdraw();

  // The kernel's routing tables that belong to VRFs, each with the id of its VRF. The id is none for a VRF device that
  // is not served as a VRF, or that no sync has written yet.
  NamespaceRoutes::Tables tables(const KernelState& state) const;

  const NamespaceScope& scope() const { return scope_; }
  // Invalid for an interface that is not published.
  Vantu::IntfId interfaceId(std::uint32_t ifIndex) const { return interfaces_.id(ifIndex); }

 private:
  using Place = NeighbourTable::Place;

  std::optional<VrfDevices::Membership> membershipOf(std::uint32_t ifIndex, const KernelLink& link) const;
  Place placeOf(const KernelState& state, std::uint32_t ifIndex) const;
  void writeNeighbours(const KernelState& state, const std::set<std::uint32_t>& ifIndexes);
  void neighbourIs(const KernelState& state, std::uint32_t ifIndex, const Vantu::IpGenAddr& addr);

  Picture& picture_;
  NamespaceScope scope_;
  VrfDevices devices_;  // of the default namespace only
  TreeWriter interfaces_;
  std::map<std::uint32_t, Place> places_;  // of the published interfaces, by the kernel's index
};

}  // namespace Mirror
