#include "mirror/publish/NamespaceWriter.h"

namespace Mirror {

NamespaceWriter::NamespaceWriter(Picture& picture, NamespaceScope scope)
    : picture_(picture),
      scope_(std::move(scope)),
      devices_(picture.vrfs),
      interfaces_(picture.tree, scope_, [this](std::uint32_t ifIndex, const KernelLink& link) {
        const auto membership = membershipOf(ifIndex, link);
        return membership ? std::optional(membership->vrf) : std::nullopt;
      }) {
}

void NamespaceWriter::syncAll(const KernelState& state) {
  auto ifIndexes = interfaces_.written();
  for (const auto& [ifIndex, interface] : state.interfaces()) ifIndexes.insert(ifIndex);
  if (scope_.isDefault()) {
    devices_.sync(state, ifIndexes);
  } else {
    picture_.vrfs.recordsAre(scope_.vrf(), Vrfs::mainTable);
  }
  interfaces_.sync(state, ifIndexes);
  neighboursAre(state, ifIndexes);
}

void NamespaceWriter::sync(const KernelState& state, const KernelState::Changes& changes) {
  if (scope_.isDefault() && devices_.sync(state, changes.interfaces)) {
    syncAll(state);
    return;
  }
  interfaces_.sync(state, changes.interfaces);
  neighboursAre(state, changes.interfaces);
  for (const auto& [ifIndex, addr] : changes.neighbours) {
    if (!changes.interfaces.contains(ifIndex)) neighbourIs(state, ifIndex, addr);
  }
}

NamespaceRoutes::Tables NamespaceWriter::tables(const KernelState& state) const {
  NamespaceRoutes::Tables tables{{{Vrfs::mainTable}, scope_.vrfId()}};
  if (!scope_.isDefault()) return tables;
  for (const auto& [ifIndex, interface] : state.interfaces()) {
    if (!interface.link || !interface.link->vrfTable) continue;
    tables.emplace(NamespaceRoutes::TableUse{*interface.link->vrfTable, ifIndex}, devices_.vrfId(ifIndex));
  }
  return tables;
}

void NamespaceWriter::forwardingIs(Vantu::Af af, bool forwarding) {
  picture_.vrfs.forwardingIs(scope_.vrf(), af, forwarding);
}

void NamespaceWriter::withdraw() {
  const auto all = interfaces_.written();
  const KernelState nothing;
  interfaces_.sync(nothing, all);
  neighboursAre(nothing, all);
  picture_.vrfs.namespaceDel(scope_.vrf());
}

std::optional<VrfDevices::Membership> NamespaceWriter::membershipOf(std::uint32_t ifIndex,
                                                                    const KernelLink& link) const {
  if (scope_.isDefault()) return devices_.membership(ifIndex, link);
  return VrfDevices::Membership{scope_.vrf(), scope_.vrfId()};
}

// Without a valid id for an interface whose neighbours are not shown.
NeighbourTable::Place NamespaceWriter::placeOf(const KernelState& state, std::uint32_t ifIndex) const {
  const KernelInterface* interface = state.interface(ifIndex);
  if (!interface || !interface->link) return {};
  const auto membership = membershipOf(ifIndex, *interface->link);
  return membership ? Place{membership->vrfId, interfaces_.id(ifIndex)} : Place();
}

// All that goes goes first, since names may have been passed on.
void NamespaceWriter::neighboursAre(const KernelState& state, const std::set<std::uint32_t>& ifIndexes) {
  for (const std::uint32_t ifIndex : ifIndexes) {
    const auto at = places_.find(ifIndex);
    if (at == places_.end() || at->second == placeOf(state, ifIndex)) continue;
    picture_.neighbours.placeDel(at->second);
    places_.erase(at);
  }
  for (const std::uint32_t ifIndex : ifIndexes) {
    const Place place = placeOf(state, ifIndex);
    if (!place.intfId.isValid()) continue;
    places_[ifIndex] = place;
    picture_.neighbours.neighboursAre(place, state.interface(ifIndex)->neighbours);
  }
}

void NamespaceWriter::neighbourIs(const KernelState& state, std::uint32_t ifIndex, const Vantu::IpGenAddr& addr) {
  const auto at = places_.find(ifIndex);
  if (at == places_.end()) return;
  const KernelInterface* interface = state.interface(ifIndex);
  const auto* neighbours = interface ? &interface->neighbours : nullptr;
  if (neighbours && neighbours->contains(addr)) {
    picture_.neighbours.neighbourIs(at->second, addr, neighbours->at(addr));
  } else {
    picture_.neighbours.neighbourDel(at->second, addr);
  }
}

}  // namespace Mirror
