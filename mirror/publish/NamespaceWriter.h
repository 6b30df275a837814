#pragma once
// From what the kernel says of one network namespace to the picture.

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

// Brings the entities of interfaces in the state database to what the kernel says of those of one network namespace.
//
// | entity                              | exists while                               | holds                   |
// |-------------------------------------|--------------------------------------------|-------------------------|
// | Interface::IntfStatus, kind "linux" | there is a link                            | ifIndex, state, MAC     |
// | L3::Intf::Config, L3::Intf::Status  | the link is in a VRF                       | the VRF                 |
// | Ip::IpIntfConfig                    | the link is in a VRF                       | all IPv4 addresses      |
// | Ip::IpIntfStatus                    | ... and has an IPv4 address                | those that are in force |
// | Ip6::IntfConfig, Ip6::IntfStatus    | the link is in a VRF, has an IPv6 address  | the same of IPv6        |
//
// Ip::IpIntfConfig is what makes an interface a member of its VRF for readers, so it does not depend on addresses,
// which come and go with the state of the link.
//
// NamespaceScope gives an interface its id and its ifIndex, and the caller of each operation the VRF. Its addresses
// are in force while it is administratively up and running; an IPv6 address is not while duplicate address detection
// runs, or after it failed. Of a point-to-point address the local one counts. Labels ("eth0:1") are no names here.
// Linux knows no unnumbered interfaces, so `unnumberedIntfId` stays empty.
//
// The first address of an interface stays first until it goes; then the one that has been there longest among the
// others follows, which is also the order of a dump, so that a mirror that starts again chooses the same.
//
// An interface that was renamed, or made again under another index, is deleted and created, never changed in place.
class TreeWriter {
 public:
  // None: the interface is in no VRF.
  using VrfOf = std::function<std::optional<L3::VrfName>(std::uint32_t ifIndex, const KernelLink& link)>;

  // The entities of `tree` that the table names belong to this writer, as far as their ids are of this scope.
  TreeWriter(const Varnix::Tree& tree, NamespaceScope scope, VrfOf vrfOf);

  // Writes the named interfaces as they are in `state`.
  void sync(const KernelState& state, const std::set<std::uint32_t>& ifIndexes);
  // The kernel's indexes of all that is written.
  std::set<std::uint32_t> written() const;
  // Not valid for an interface that is not written.
  Vantu::IntfId id(std::uint32_t ifIndex) const;

 private:
  Vantu::IntfId idOf(const KernelInterface* interface, std::uint32_t ifIndex);
  void remove(const Vantu::IntfId& id);
  void removeFromVrf(const Vantu::IntfId& id);
  void write(const Vantu::IntfId& id, std::uint32_t ifIndex, const KernelInterface& interface);
  void writeIpv4(const Vantu::IntfId& id, const KernelInterface& interface);
  void writeIpv6(const Vantu::IntfId& id, const KernelInterface& interface);

  Varnix::Tree tree_;
  NamespaceScope scope_;
  VrfOf vrfOf_;
  std::map<std::uint32_t, Vantu::IntfId> written_;  // by the kernel's index
  std::set<std::uint32_t> refused_;                 // indexes that are too large
};

// Brings the part of the picture that shows one network namespace to what the kernel says: its VRF, interfaces and
// neighbours. A neighbour is published while its interface is in a VRF, and under that VRF.
class NamespaceWriter {
 public:
  // Requires: Vrfs::namespaceIs() was called for the VRF, unless the scope is the default one.
  NamespaceWriter(Picture& picture, NamespaceScope scope);

  // Writes all of `state` and removes what it does not contain. From the first call on the VRF is published.
  void syncAll(const KernelState& state);
  // Writes the named changes only.
  void sync(const KernelState& state, const KernelState::Changes& changes);
  void forwardingIs(Vantu::Af af, bool forwarding);
  // The namespace was deleted, or is no longer a VRF: removes all of it. Make no further call of this object.
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
