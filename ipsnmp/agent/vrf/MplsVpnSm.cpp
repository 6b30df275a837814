#include "ipsnmp/agent/vrf/MplsVpnSm.h"

#include "ipsnmp/IfTables.h"
#include "varnix/Values.h"

KEL_TYPE_DEFINE(IpSnmp::MplsVpnSm)

namespace IpSnmp {

MplsVpnSm::~MplsVpnSm() {
  MplsVpnSm::kelStop();
}

void MplsVpnSm::kelStart() {
  vrfsWatch_ = Kel::makePtr<VrfsWatch>(this);
  mibsWatch_ = Kel::makePtr<MibsWatch>(this);
  vrfsWatch_->notifierIs(ipVrfMib());
  mibsWatch_->notifierIs(vrfMibsDir());
  for (const auto& [name, row] : ipVrfMib()->vrfTable()) handleVrf(name);
  for (const auto& [ifIndex, row] : ipVrfMib()->vrfIfTable()) handleInterface(ifIndex);
}

void MplsVpnSm::kelStop() {
  if (!vrfsWatch_) return;
  vrfsWatch_ = nullptr;
  mibsWatch_ = nullptr;
  routes_.clear();
  configs_.clear();
  members_.clear();
  membersByVrf_.clear();
  mib()->ifConfTableDelAll();
  mib()->vrfTableDelAll();
  mib()->activeVrfsIs(0);
}

template <class Visit>
void MplsVpnSm::forEachMember(const Snmp::String& vrf, Visit visit) {
  for (auto at = membersByVrf_.lower_bound({vrf, 0}); at != membersByVrf_.end() && at->first == vrf; ++at) {
    visit(at->second, members_.at(at->second));
  }
}

void MplsVpnSm::handleVrf(const Snmp::String& givenName) {
  if (!vrfsWatch_) return;
  const Snmp::String name = givenName;  // the caller's may live in the row
  if (name.bytes() > longestVpnName || name.raw() == L3::VrfName::defaultName) return;
  const auto vrf = ipVrfMib()->vrfTable(name);
  if (!vrf) {
    forEachMember(name, [this](std::uint32_t ifIndex, Member& member) { unlist(ifIndex, member); });
    routes_.erase(name);
    configs_.erase(name);
    mib()->vrfTableDel(name);
    return;
  }
  const bool isNew = !mib()->vrfTableHas(name);
  const auto entry = mib()->vrfTableIs(name);
  if (entry->vrf() == vrf) return;
  entry->vrfIs(vrf);
  entry->lastChangedIs(Kel::System::currentTime());
  auto& config = configs_[name];
  if (!config) config = Kel::makePtr<ConfigWatch>(entry.get());
  config->notifierIs(vrf->vrfConfig());
  if (!isNew) return;
  entry->creationTimeIs(entry->lastChanged());
  forEachMember(name, [this](std::uint32_t ifIndex, Member& member) { list(ifIndex, member); });
  handleRoutes(name);
}

void MplsVpnSm::handleInterface(std::uint32_t ifIndex) {
  if (!vrfsWatch_) return;
  const auto row = ipVrfMib()->vrfIfTable(ifIndex);
  if (!row) {
    const auto at = members_.find(ifIndex);
    if (at == members_.end()) return;
    unlist(ifIndex, at->second);
    membersByVrf_.erase({at->second.vrf, ifIndex});
    members_.erase(at);
    return;
  }
  auto& member = members_[ifIndex];
  if (!member.row) {
    member.row = Kel::makePtr<RowWatch>(this);
    member.status = Kel::makePtr<StatusWatch>(this, ifIndex);
  }
  member.row->notifierIs(row);
  member.status->notifierIs(row->intfStatus());
  const bool isUp = row->intfStatus() && ifOperStatus(*row->intfStatus()) == Interface::operStatusUp;
  const Snmp::String vrf(row->vrfName());
  if (member.isListed && member.vrf == vrf) {
    if (std::exchange(member.isUp, isUp) == isUp) return;
    const auto entry = mib()->vrfTable(vrf);
    return setActive(*entry, isUp ? entry->activeInterfaces() + 1 : entry->activeInterfaces() - 1);
  }
  unlist(ifIndex, member);
  membersByVrf_.erase({member.vrf, ifIndex});
  member.vrf = vrf;
  member.isUp = isUp;
  membersByVrf_.insert({vrf, ifIndex});
  list(ifIndex, member);
}

void MplsVpnSm::list(std::uint32_t ifIndex, Member& member) {
  const auto vrf = mib()->vrfTable(member.vrf);
  if (!vrf || member.isListed) return;
  member.isListed = true;
  mib()->ifConfTableIs(VpnIfKey(member.vrf, ifIndex));
  vrf->interfacesIs(vrf->interfaces() + 1);
  vrf->lastChangedIs(Kel::System::currentTime());
  if (member.isUp) setActive(*vrf, vrf->activeInterfaces() + 1);
}

void MplsVpnSm::unlist(std::uint32_t ifIndex, Member& member) {
  if (!std::exchange(member.isListed, false)) return;
  mib()->ifConfTableDel(VpnIfKey(member.vrf, ifIndex));
  const auto vrf = mib()->vrfTable(member.vrf);
  vrf->interfacesIs(vrf->interfaces() - 1);
  vrf->lastChangedIs(Kel::System::currentTime());
  if (member.isUp) setActive(*vrf, vrf->activeInterfaces() - 1);
}

void MplsVpnSm::setActive(VpnVrfEntry& vrf, std::uint32_t interfaces) {
  const bool wasActive = vrf.activeInterfaces() != 0;
  const bool isActive = interfaces != 0;
  vrf.activeInterfacesIs(interfaces);
  if (isActive && !wasActive) mib()->activeVrfsIs(mib()->activeVrfs() + 1);
  if (wasActive && !isActive) mib()->activeVrfsIs(mib()->activeVrfs() - 1);
}

void MplsVpnSm::handleRoutes(const Snmp::String& givenName) {
  const Snmp::String name = givenName;
  const auto entry = mib()->vrfTable(name);
  if (!vrfsWatch_ || !entry) return;
  const auto mibs = vrfMibsDir()->mibs(Kel::Name(name.raw()));
  const Kel::Ptr<const IpForwardMib> forward = mibs ? mibs->ipforwardmib() : nullptr;
  auto& watch = routes_[name];
  if (!watch || watch->notifier() != forward) {
    // A cache of its own starts with no routes, and so does the count.
    const auto former = std::exchange(watch, Kel::makePtr<RoutesWatch>(this, name));
    if (former) entry->routesDeletedIs(entry->routesDeleted() + former->counted_);
    watch->notifierIs(forward);
    entry->forwardMibIs(forward);
  }
  if (!forward) return;
  const auto routes = forward->inetNumRoutes();
  const auto former = std::exchange(watch->counted_, routes);
  if (routes > former) entry->routesAddedIs(entry->routesAdded() + (routes - former));
  if (routes < former) entry->routesDeletedIs(entry->routesDeleted() + (former - routes));
}

}  // namespace IpSnmp
