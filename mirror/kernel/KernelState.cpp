#include "mirror/kernel/KernelState.h"

#include <linux/if.h>
#include <linux/if_addr.h>

namespace Mirror {

AddressKey::AddressKey(const AddressMessage& message) : local(message.local) {
  if (local.af() != Vantu::ipv4_) return;
  prefixLength = message.prefixLength;
  peer = message.peer;
}

bool KernelLink::isRunning() const {
  // Drivers without an operational state report "unknown", the loopback interface among them.
  return (flags & IFF_UP) && (operStatus == Interface::operStatusUp || operStatus == Interface::operStatusUnknown);
}

Ip6::AddressState KernelAddress::state() const {
  if (flags & IFA_F_DADFAILED) return Ip6::addressStateDuplicate;
  // An optimistic address is usable while duplicate address detection runs (RFC 4429).
  if ((flags & IFA_F_TENTATIVE) && !(flags & IFA_F_OPTIMISTIC)) return Ip6::addressStateTentative;
  return flags & IFA_F_DEPRECATED ? Ip6::addressStateDeprecated : Ip6::addressStatePreferred;
}

void KernelInterface::markAddressesTentative() {
  for (auto& [key, address] : addresses) {
    if (key.local.af() == Vantu::ipv6_ && !(address.flags & IFA_F_NODAD)) address.flags |= IFA_F_TENTATIVE;
  }
}

KernelState KernelState::complete() && {
  purpose_ = Purpose::current;
  notified_.clear();
  return std::move(*this);
}

bool KernelState::setAlias(std::uint32_t ifIndex, const std::string& alias) {
  const auto at = interfaces_.find(ifIndex);
  if (at == interfaces_.end() || !at->second.link || at->second.link->details.alias == alias) return false;
  at->second.link->details.alias = alias;
  changes_.interfaces.insert(ifIndex);
  return true;
}

const KernelInterface* KernelState::interface(std::uint32_t ifIndex) const {
  const auto at = interfaces_.find(ifIndex);
  return at == interfaces_.end() ? nullptr : &at->second;
}

void KernelState::apply(const LinkMessage& message) {
  auto& interface = interfaces_[message.ifIndex];
  changes_.interfaces.insert(message.ifIndex);
  if (message.isDeleted) {
    if (interface.link) owners_.erase(interface.link->name);
    changes_.names.insert(message.ifIndex);
    interfaces_.erase(message.ifIndex);
    return;
  }
  if (!interface.link) interface.link.emplace();
  KernelLink& link = *interface.link;
  if (!message.name.empty() && message.name != link.name) {
    if (!link.name.empty()) owners_.erase(link.name);
    takeName(message.name, message.ifIndex);
    link.name = message.name;
    changes_.names.insert(message.ifIndex);
  }
  if ((link.flags & IFF_UP) && !(message.flags & IFF_UP)) interface.markAddressesTentative();
  link.flags = message.flags;
  if (message.isWhole) {
    link.master = message.master;
    link.vrfTable = message.vrfTable;
    link.details = message.details;
  }
  if (message.operStatus) link.operStatus = *message.operStatus;
  if (message.ethAddr) link.ethAddr = *message.ethAddr;
}

// Names are unique: the previous owner has lost this one, whether or not that was notified yet.
void KernelState::takeName(const std::string& name, std::uint32_t newOwner) {
  const auto [at, isFree] = owners_.emplace(name, newOwner);
  if (isFree) return;
  interfaces_[at->second].link->name.clear();
  changes_.interfaces.insert(at->second);
  changes_.names.insert(at->second);
  at->second = newOwner;
}

void KernelState::apply(const AddressMessage& message) {
  auto& interface = interfaces_[message.ifIndex];
  changes_.interfaces.insert(message.ifIndex);
  const AddressKey key(message);
  if (message.isDeleted) {
    interface.addresses.erase(key);
    if (interface.isEmpty()) interfaces_.erase(message.ifIndex);
    return;
  }
  const auto [at, isNew] = interface.addresses.try_emplace(key);
  at->second.prefixLength = message.prefixLength;
  at->second.flags = message.flags;
  if (isNew) at->second.order = ++lastOrder_;
}

// Most notifications change a state that is not published.
void KernelState::apply(const NeighbourMessage& message) {
  const bool isThere = !message.isDeleted && message.isResolved();
  auto at = interfaces_.find(message.ifIndex);
  if (at == interfaces_.end()) {
    if (!isThere) return;
    at = interfaces_.try_emplace(message.ifIndex).first;
  }
  auto& neighbours = at->second.neighbours;
  if (isThere) {
    const KernelNeighbour latest{*message.ethAddr, message.isStatic()};
    const auto [known, isNew] = neighbours.try_emplace(message.addr, latest);
    if (!isNew && known->second == latest) return;
    known->second = latest;
  } else if (neighbours.erase(message.addr) == 0) {
    return;
  }
  changes_.neighbours.emplace(message.ifIndex, message.addr);
  if (at->second.isEmpty()) interfaces_.erase(at);
}

}  // namespace Mirror
