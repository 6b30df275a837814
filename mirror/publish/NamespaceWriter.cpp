#include "mirror/publish/NamespaceWriter.h"

#include <linux/if.h>

#include <algorithm>

#include "kel/Trace.h"
#include "varnix/ByteText.h"

namespace Mirror {

namespace {

Kel::TraceHandle treeWriterTrace("MirrorTree");

using Ipv4Addresses = std::map<Vantu::IpAddrWithMask, std::uint64_t>;  // with KernelAddress::order
using Ipv6Addresses = std::map<Vantu::Ip6AddrWithMask, Ip6::AddressInfo>;

// An address may occur several times, with different peers.
Ipv4Addresses ipv4AddressesOf(const KernelInterface& interface) {
  Ipv4Addresses result;
  for (const auto& [key, address] : interface.addresses) {
    if (key.local.af() != Vantu::ipv4_ || key.local.isZero()) continue;
    const auto [at, isNew] = result.try_emplace({key.local.v4(), address.prefixLength}, address.order);
    if (!isNew) at->second = std::min(at->second, address.order);
  }
  return result;
}

Ipv6Addresses ipv6AddressesOf(const KernelInterface& interface) {
  Ipv6Addresses result;
  for (const auto& [key, address] : interface.addresses) {
    if (key.local.af() != Vantu::ipv6_ || key.local.isZero()) continue;
    result.emplace(Vantu::Ip6AddrWithMask(key.local.v6(), address.prefixLength), Ip6::AddressInfo(address.state()));
  }
  return result;
}

Ipv6Addresses usable(Ipv6Addresses addresses) {
  std::erase_if(addresses, [](const auto& entry) {
    const Ip6::AddressState state = entry.second.state();
    return state == Ip6::addressStateTentative || state == Ip6::addressStateDuplicate;
  });
  return addresses;
}

// Returns `present` if it still exists, else the oldest; 0.0.0.0 without addresses.
Vantu::IpAddrWithMask firstOf(const Ipv4Addresses& addresses, const Vantu::IpAddrWithMask& present) {
  if (addresses.empty()) return {};
  if (addresses.contains(present)) return present;
  const auto isEarlier = [](const auto& a, const auto& b) { return a.second < b.second; };
  return std::min_element(addresses.begin(), addresses.end(), isEarlier)->first;
}

template <class Record>
void secondariesAre(Record& record, const Ipv4Addresses& addresses, const Vantu::IpAddrWithMask& first) {
  for (const auto& present : record.secondaryAddrWithMask().keys()) {
    if (present == first || !addresses.contains(present)) record.secondaryAddrWithMaskDel(present);
  }
  for (const auto& [address, order] : addresses) {
    if (address != first) record.secondaryAddrWithMaskIs(address, true);
  }
}

template <class Record>
void ipv6AddressesAre(Record& record, const Ipv6Addresses& addresses) {
  for (const auto& present : record.addr().keys()) {
    if (!addresses.contains(present)) record.addrDel(present);
  }
  for (const auto& [address, info] : addresses) record.addrIs(address, info);
}

}  // namespace

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
    picture_.vrfs.writeRecords(scope_.vrf(), Vrfs::mainTable);
  }
  interfaces_.sync(state, ifIndexes);
  writeNeighbours(state, ifIndexes);
}

void NamespaceWriter::sync(const KernelState& state, const KernelState::Changes& changes) {
  if (scope_.isDefault() && devices_.sync(state, changes.interfaces)) {
    syncAll(state);
    return;
  }
  interfaces_.sync(state, changes.interfaces);
  writeNeighbours(state, changes.interfaces);
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

void NamespaceWriter::setForwarding(Vantu::Af af, bool forwarding) {
  picture_.vrfs.setForwarding(scope_.vrf(), af, forwarding);
}

void NamespaceWriter::setDefaults(const IpDefaults& defaults) {
  picture_.vrfs.setDefaults(scope_.vrf(), defaults);
}

void NamespaceWriter::withdraw() {
  const auto all = interfaces_.written();
  const KernelState nothing;
  interfaces_.sync(nothing, all);
  writeNeighbours(nothing, all);
  picture_.vrfs.namespaceDel(scope_.vrf());
}

std::optional<VrfDevices::Membership> NamespaceWriter::membershipOf(std::uint32_t ifIndex,
                                                                    const KernelLink& link) const {
  if (scope_.isDefault()) return devices_.membership(ifIndex, link);
  return VrfDevices::Membership{scope_.vrf(), scope_.vrfId()};
}

// Has an invalid id if the interface's neighbours are not published.
NeighbourTable::Place NamespaceWriter::placeOf(const KernelState& state, std::uint32_t ifIndex) const {
  const KernelInterface* interface = state.interface(ifIndex);
  if (!interface || !interface->link) return {};
  const auto membership = membershipOf(ifIndex, *interface->link);
  return membership ? Place{membership->vrfId, interfaces_.id(ifIndex)} : Place();
}

// Removals first, since names may have been reassigned.
void NamespaceWriter::writeNeighbours(const KernelState& state, const std::set<std::uint32_t>& ifIndexes) {
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
    picture_.neighbours.writeNeighbours(place, state.interface(ifIndex)->neighbours);
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

TreeWriter::TreeWriter(const Varnix::Tree& tree, NamespaceScope scope, VrfOf vrfOf)
    : tree_(tree), scope_(std::move(scope)), vrfOf_(std::move(vrfOf)) {
}

std::set<std::uint32_t> TreeWriter::written() const {
  std::set<std::uint32_t> ifIndexes;
  for (const auto& [ifIndex, id] : written_) ifIndexes.insert(ifIndexes.end(), ifIndex);
  return ifIndexes;
}

Vantu::IntfId TreeWriter::id(std::uint32_t ifIndex) const {
  const auto at = written_.find(ifIndex);
  return at == written_.end() ? Vantu::IntfId() : at->second;
}

// Invalid if the interface must not be published.
Vantu::IntfId TreeWriter::idOf(const KernelInterface* interface, std::uint32_t ifIndex) {
  if (!interface || !interface->link || interface->link->name.empty()) {
    refused_.erase(ifIndex);
    return {};
  }
  if (scope_.ifIndex(ifIndex)) return scope_.intfId(interface->link->name);
  if (refused_.insert(ifIndex).second) {
    QTRACE(treeWriterTrace, 0) << Varnix::escapeBytes(scope_.intfId(interface->link->name).text())
                               << ": not published, the kernel's index " << ifIndex << " is not below "
                               << (1U << NamespaceScope::ifIndexBits) << "; make the namespace anew";
  }
  return {};
}

// Removals first, since names may have been reassigned.
void TreeWriter::sync(const KernelState& state, const std::set<std::uint32_t>& ifIndexes) {
  for (const std::uint32_t ifIndex : ifIndexes) {
    const auto at = written_.find(ifIndex);
    if (at == written_.end() || at->second == idOf(state.interface(ifIndex), ifIndex)) continue;
    remove(at->second);
    written_.erase(at);
  }
  for (const std::uint32_t ifIndex : ifIndexes) {
    const auto* interface = state.interface(ifIndex);
    const Vantu::IntfId id = idOf(interface, ifIndex);
    if (!id.isValid()) continue;
    write(id, ifIndex, *interface);
    written_[ifIndex] = id;
  }
}

void TreeWriter::remove(const Vantu::IntfId& id) {
  QTRACE(treeWriterTrace, 6) << id << " removed";
  removeFromVrf(id);
  tree_.ip6IntfStats->intfStatsDel(id);
  tree_.ipIntfProtocol->intfProtocolDel(id);
  tree_.ip6IntfProtocol->intfProtocolDel(id);
  tree_.intfCountersDir->intfCountersDel(id);
  tree_.intfStatusDir->intfStatusDel(id);
}

void TreeWriter::removeFromVrf(const Vantu::IntfId& id) {
  tree_.ipConfig->ipIntfConfigDel(id);
  tree_.ipStatus->ipIntfStatusDel(id);
  tree_.ip6Config->intfDel(id);
  tree_.ip6Status->intfDel(id);
  tree_.l3ConfigDir->intfConfigDel(id);
  tree_.l3StatusDir->intfStatusDel(id);
}

void TreeWriter::write(const Vantu::IntfId& id, std::uint32_t ifIndex, const KernelInterface& interface) {
  QTRACE(treeWriterTrace, 6) << id << " (ifIndex " << ifIndex << ") has " << interface.addresses.size()
                             << " addresses" << (interface.link->isRunning() ? "" : ", not in force");
  const auto status = tree_.intfStatusDir->intfStatusIs(id);
  status->kindIs(Interface::LinuxIntfDetails::kind);
  status->ifIndexIs(*scope_.ifIndex(ifIndex));
  status->operStatusIs(interface.link->operStatus);
  status->ethAddrIs(interface.link->ethAddr);
  writeDetails(*status, *interface.link);
  const auto vrf = vrfOf_(ifIndex, *interface.link);
  if (!vrf) return removeFromVrf(id);
  tree_.l3ConfigDir->intfConfigIs(id)->vrfIs(*vrf);
  tree_.l3StatusDir->intfStatusIs(id)->vrfIs(*vrf);
  writeIpv4(id, interface);
  writeIpv6(id, interface);
}

void TreeWriter::writeDetails(Interface::IntfStatus& status, const KernelLink& link) const {
  const LinkDetails& details = link.details;
  status.adminStatusIs(link.flags & IFF_UP ? Interface::adminStatusUp : Interface::adminStatusDown);
  status.ifTypeIs(details.ifType);
  status.mtuIs(details.mtu);
  status.physAddressIs(details.address);
  status.aliasIs(details.alias);
  status.promiscuousIs(details.isPromiscuous);
  status.connectorPresentIs(details.hasConnector);
  const auto published = [&](std::uint32_t ifIndex) { return ifIndex ? scope_.ifIndex(ifIndex).value_or(0) : 0; };
  status.lowerIfIndexIs(published(details.lower));
  status.upperIfIndexIs(published(details.isPort ? link.master : 0));
}

void TreeWriter::writeIpv4(const Vantu::IntfId& id, const KernelInterface& interface) {
  const Ipv4Addresses addresses = ipv4AddressesOf(interface);
  const auto config = tree_.ipConfig->ipIntfConfigIs(id);
  const auto first = firstOf(addresses, config->addrWithMask());
  config->l3ConfigIs(tree_.l3ConfigDir->intfConfig(id));
  config->addrWithMaskIs(first);
  secondariesAre(*config, addresses, first);
  if (addresses.empty()) {
    tree_.ipStatus->ipIntfStatusDel(id);
    return;
  }

  const bool isRunning = interface.link->isRunning();
  const auto status = tree_.ipStatus->ipIntfStatusIs(id);
  status->l3StatusIs(tree_.l3StatusDir->intfStatus(id));
  status->activeAddrWithMaskIs(isRunning ? first : Vantu::IpAddrWithMask());
  secondariesAre(*status, isRunning ? addresses : Ipv4Addresses(), first);
}

void TreeWriter::writeIpv6(const Vantu::IntfId& id, const KernelInterface& interface) {
  const Ipv6Addresses addresses = ipv6AddressesOf(interface);
  if (addresses.empty()) {
    tree_.ip6Config->intfDel(id);
    tree_.ip6Status->intfDel(id);
    return;
  }
  const auto config = tree_.ip6Config->intfIs(id);
  config->l3ConfigIs(tree_.l3ConfigDir->intfConfig(id));
  ipv6AddressesAre(*config, addresses);

  const auto status = tree_.ip6Status->intfIs(id);
  status->l3StatusIs(tree_.l3StatusDir->intfStatus(id));
  ipv6AddressesAre(*status, interface.link->isRunning() ? usable(addresses) : Ipv6Addresses());
}

}  // namespace Mirror
