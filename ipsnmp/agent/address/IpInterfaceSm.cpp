#include "ipsnmp/agent/address/IpInterfaceSm.h"

#include <utility>

KEL_TYPE_DEFINE(IpSnmp::IpInterfaceSm)

namespace IpSnmp {

void IpInterfaceSm::KelIp6IntfConfig::handleAddr(const Vantu::Ip6AddrWithMask& addr) {
  if (Vantu::IpGenAddr(addr.address()).isLinkLocal()) owner_->rowChanged(notifier()->intfId());
}

IpInterfaceSm::~IpInterfaceSm() {
  IpInterfaceSm::kelStop();
}

void IpInterfaceSm::kelStart() {
  isRunning_ = true;
  kelIntfStatusDir_ = Kel::makePtr<KelIntfStatusDir>([this](const Vantu::IntfId& intfId) { handleIntf(intfId); });
  kelIntfStatusDir_->notifierIs(intfStatusDir());
  const auto watch = [this]<class Reactor>(std::type_identity<Reactor>, const auto& watched) {
    const auto reactor = Kel::makePtr<Reactor>(this);
    reactor->notifierIs(watched);
    reactors_.push_back(reactor);
  };
  watch(std::type_identity<KelL3ConfigDir>{}, l3ConfigDir());
  watch(std::type_identity<KelAllIntfProtocol>{}, allIntfProtocol());
  watch(std::type_identity<KelAllIntfStats>{}, allIntfStats());
  if (ipVersion() == Ip::ipVersion6) watch(std::type_identity<KelIp6Config>{}, ip6Config());
  watch(std::type_identity<KelVrfMibsDir>{}, vrfMibsDir());
  for (const auto& intfId : allIntfProtocol()->intfProtocol().keys()) handleIntf(intfId);
  for (const auto& intfId : allIntfStats()->intfStats().keys()) handleIntf(intfId);
}

void IpInterfaceSm::kelStop() {
  if (!std::exchange(isRunning_, false)) return;
  kelIntfStatusDir_ = nullptr;
  reactors_.clear();
  for (const auto& [intfId, watch] : watches_) remove(intfId, watch.place);
  watches_.clear();
  interfaces_.clear();
}

void IpInterfaceSm::handleIntf(const Vantu::IntfId& givenId) {
  if (!isRunning_) return;
  const Vantu::IntfId intfId = givenId;  // the caller's may live in the record
  const auto protocol = allIntfProtocol()->intfProtocol(intfId);
  if (!protocol && !allIntfStats()->intfStatsHas(intfId)) {
    const auto at = watches_.find(intfId);
    if (at == watches_.end()) return;
    const Watch gone = std::move(at->second);
    watches_.erase(at);
    leaveVrf(gone.place.vrf, intfId);
    return remove(intfId, gone.place);
  }
  Watch& watch = watches_[intfId];
  if (!watch.status) {
    watch.status = Kel::makePtr<IfIndexWatch>([this, intfId] { handleIntf(intfId); });
    watch.l3Config = Kel::makePtr<KelL3Config>(this);
    watch.protocol = Kel::makePtr<KelIntfProtocol>(this);
    if (ipVersion() == Ip::ipVersion6) watch.addresses = Kel::makePtr<KelIp6IntfConfig>(this);
  }
  watch.status->notifierIs(intfStatusDir()->intfStatus(intfId));
  watch.l3Config->notifierIs(l3ConfigDir()->intfConfig(intfId));
  watch.protocol->notifierIs(protocol);
  if (watch.addresses) watch.addresses->notifierIs(ip6Config()->intf(intfId));
  const Place place = placeOf(intfId);
  if (place != watch.place) {
    remove(intfId, watch.place);
    leaveVrf(watch.place.vrf, intfId);
    watch.place = place;
  }
  interfaces_[place.vrf].insert(intfId);
  write(intfId, place);
}

// An interface without a layer-3 record is in no VRF.
IpInterfaceSm::Place IpInterfaceSm::placeOf(const Vantu::IntfId& intfId) const {
  const auto l3Config = l3ConfigDir()->intfConfig(intfId);
  const auto ifIndex = assignedIfIndex(intfStatusDir()->intfStatus(intfId));
  return l3Config && ifIndex != 0 ? Place{l3Config->vrf(), ifIndex} : Place();
}

Kel::Ptr<IpMib> IpInterfaceSm::mibOf(const L3::VrfName& vrf) const {
  if (vrf.isDefault()) return ipMib();
  const auto mibs = vrfMibsDir()->mibs(vrf.stringValue());
  return mibs ? mibs->ipmib() : nullptr;
}

// Names of VRFs that are gone are not kept.
void IpInterfaceSm::leaveVrf(const L3::VrfName& vrf, const Vantu::IntfId& intfId) {
  const auto at = interfaces_.find(vrf);
  if (at == interfaces_.end()) return;
  at->second.erase(intfId);
  if (at->second.empty()) interfaces_.erase(at);
}

// The VRF has another cache, or none any more.
void IpInterfaceSm::handleVrf(const Kel::Name& vrfName) {
  if (!isRunning_ || !vrfMibsDir()->mibsHas(vrfName)) return;
  const auto at = interfaces_.find(L3::VrfName(vrfName));
  if (at == interfaces_.end()) return;
  const auto intfIds = at->second;
  for (const auto& intfId : intfIds) handleIntf(intfId);
}

void IpInterfaceSm::write(const Vantu::IntfId& intfId, const Place& place) {
  const auto mib = mibOf(place.vrf);
  if (!mib || place.ifIndex == 0) return;
  const IpVersionIfIndex key(ipVersion(), place.ifIndex);
  const auto protocol = allIntfProtocol()->intfProtocol(intfId);
  const auto addresses = ipVersion() == Ip::ipVersion6 ? ip6Config()->intf(intfId) : nullptr;
  const auto present = mib->ipInterfaceTable(key);
  if (!protocol) {
    if (present && present->protocol()->intfId() == intfId) {
      mib->ipInterfaceTableDel(key);
      interfacesChanged(*mib);
    }
  } else if (!present || present->protocol() != protocol || present->addresses() != addresses) {
    const auto row = mib->ipInterfaceTableIs(key);
    row->protocolIs(protocol);
    row->addressesIs(addresses);
    interfacesChanged(*mib);
  }
  const auto stats = allIntfStats()->intfStats(intfId);
  const auto counted = mib->ipIfTrafficTable(key);
  if (!stats) {
    if (!counted || counted->stats()->intfId() != intfId) return;
    mib->ipIfTrafficTableDel(key);
  } else if (!counted || counted->stats() != stats) {
    mib->ipIfTrafficTableIs(key)->statsIs(stats);
  } else {
    return;
  }
  mib->ipIfStatsTableLastChangeIs(Kel::System::currentTime());
}

void IpInterfaceSm::remove(const Vantu::IntfId& intfId, const Place& place) {
  const auto mib = mibOf(place.vrf);
  if (!mib || place.ifIndex == 0) return;
  const IpVersionIfIndex key(ipVersion(), place.ifIndex);
  if (const auto row = mib->ipInterfaceTable(key); row && row->protocol()->intfId() == intfId) {
    mib->ipInterfaceTableDel(key);
    interfacesChanged(*mib);
  }
  if (const auto row = mib->ipIfTrafficTable(key); row && row->stats()->intfId() == intfId) {
    mib->ipIfTrafficTableDel(key);
    mib->ipIfStatsTableLastChangeIs(Kel::System::currentTime());
  }
}

void IpInterfaceSm::rowChanged(const Vantu::IntfId& intfId) {
  const auto at = watches_.find(intfId);
  if (at == watches_.end() || at->second.place.ifIndex == 0) return;
  if (const auto mib = mibOf(at->second.place.vrf)) interfacesChanged(*mib);
}

void IpInterfaceSm::interfacesChanged(IpMib& mib) const {
  const auto now = Kel::System::currentTime();
  if (ipVersion() == Ip::ipVersion4) {
    mib.ipv4InterfaceTableLastChangeIs(now);
  } else {
    mib.ipv6InterfaceTableLastChangeIs(now);
  }
}

}  // namespace IpSnmp
