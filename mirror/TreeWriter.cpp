#include "mirror/TreeWriter.h"

#include "kel/Trace.h"

namespace Mirror {

namespace {

Kel::TraceHandle traceHandle("MirrorTree");

// Empty when the interface is not to be published.
Vantu::IntfId idOf(const KernelInterface* interface) {
  return interface && interface->link ? Vantu::IntfId(interface->link->name) : Vantu::IntfId();
}

using Ipv4Addresses = std::map<Vantu::IpAddrWithMask, std::uint64_t>;  // with their order
using Ipv6Addresses = std::map<Vantu::Ip6AddrWithMask, Ip6::AddressInfo>;

// One address may be there with several peers.
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

Ipv6Addresses inForce(Ipv6Addresses addresses) {
  std::erase_if(addresses, [](const auto& entry) {
    const Ip6::AddressState state = entry.second.state();
    return state == Ip6::addressStateTentative || state == Ip6::addressStateDuplicate;
  });
  return addresses;
}

Vantu::IpAddrWithMask firstOf(const Ipv4Addresses& addresses, const Vantu::IpAddrWithMask& present) {
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

void TreeWriter::syncAll(const KernelState& state) {
  std::set<std::uint32_t> ifIndexes;
  for (const auto& [ifIndex, id] : written_) ifIndexes.insert(ifIndex);
  for (const auto& [ifIndex, interface] : state.interfaces()) ifIndexes.insert(ifIndex);
  sync(state, ifIndexes);
}

// All that goes goes first, since names may have been passed on.
void TreeWriter::sync(const KernelState& state, const std::set<std::uint32_t>& ifIndexes) {
  for (const std::uint32_t ifIndex : ifIndexes) {
    const auto at = written_.find(ifIndex);
    if (at == written_.end() || at->second == idOf(state.interface(ifIndex))) continue;
    remove(at->second);
    written_.erase(at);
  }
  for (const std::uint32_t ifIndex : ifIndexes) {
    const auto* interface = state.interface(ifIndex);
    const Vantu::IntfId id = idOf(interface);
    if (!id.isValid()) continue;
    write(id, ifIndex, *interface);
    written_[ifIndex] = id;
  }
}

void TreeWriter::forwardingIs(Vantu::Af af, bool forwarding) {
  const bool present = af == Vantu::ipv4_ ? tree_.routingConfig->routing() : tree_.routing6Config->routing();
  if (present == forwarding) return;
  QTRACE(traceHandle, 6) << af << " forwarding " << (forwarding ? "on" : "off");
  if (af == Vantu::ipv4_) {
    tree_.routingConfig->routingIs(forwarding);
  } else {
    tree_.routing6Config->routingIs(forwarding);
  }
}

void TreeWriter::remove(const Vantu::IntfId& id) {
  QTRACE(traceHandle, 6) << id << " removed";
  tree_.ipConfig->ipIntfConfigDel(id);
  tree_.ipStatus->ipIntfStatusDel(id);
  tree_.ip6Config->intfDel(id);
  tree_.ip6Status->intfDel(id);
  tree_.l3ConfigDir->intfConfigDel(id);
  tree_.l3StatusDir->intfStatusDel(id);
  tree_.intfStatusDir->intfStatusDel(id);
}

void TreeWriter::write(const Vantu::IntfId& id, std::uint32_t ifIndex, const KernelInterface& interface) {
  QTRACE(traceHandle, 6) << id << " (ifIndex " << ifIndex << ") has " << interface.addresses.size() << " addresses"
                         << (interface.link->isRunning() ? "" : ", not in force");
  const auto status = tree_.intfStatusDir->intfStatusIs(id);
  status->kindIs(Interface::LinuxIntfDetails::kind);
  status->ifIndexIs(ifIndex);
  status->operStatusIs(interface.link->operStatus);
  status->ethAddrIs(interface.link->ethAddr);
  tree_.l3ConfigDir->intfConfigIs(id)->vrfIs(L3::VrfName());
  tree_.l3StatusDir->intfStatusIs(id)->vrfIs(L3::VrfName());
  writeIpv4(id, interface);
  writeIpv6(id, interface);
}

void TreeWriter::writeIpv4(const Vantu::IntfId& id, const KernelInterface& interface) {
  const Ipv4Addresses addresses = ipv4AddressesOf(interface);
  if (addresses.empty()) {
    tree_.ipConfig->ipIntfConfigDel(id);
    tree_.ipStatus->ipIntfStatusDel(id);
    return;
  }
  const auto config = tree_.ipConfig->ipIntfConfigIs(id);
  const auto first = firstOf(addresses, config->addrWithMask());
  config->l3ConfigIs(tree_.l3ConfigDir->intfConfig(id));
  config->addrWithMaskIs(first);
  secondariesAre(*config, addresses, first);

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
  ipv6AddressesAre(*status, interface.link->isRunning() ? inForce(addresses) : Ipv6Addresses());
}

}  // namespace Mirror
