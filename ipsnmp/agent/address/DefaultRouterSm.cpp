#include "ipsnmp/agent/address/DefaultRouterSm.h"

KEL_TYPE_DEFINE(IpSnmp::DefaultRouterSm)

namespace IpSnmp {

DefaultRouterSm::~DefaultRouterSm() {
  DefaultRouterSm::kelStop();
}

void DefaultRouterSm::kelStart() {
  const auto watch = [this]<class Reactor>(const Kel::Ptr<Reactor>& reactor, const auto& watched) {
    reactor->notifierIs(watched);
    reactors_.push_back(reactor);
  };
  watch(Kel::makePtr<KelVrfConfigDir>(this), vrfConfigDir());
  watch(Kel::makePtr<KelVrfMibsDir>(this), vrfMibsDir());
  watch(Kel::makePtr<KelIfMib>(this), ifMib());
  handleVrfConfig(L3::VrfName::defaultName);
  for (const auto& vrfName : vrfConfigDir()->vrfConfig().keys()) handleVrfConfig(vrfName);
}

void DefaultRouterSm::kelStop() {
  if (reactors_.empty()) return;
  reactors_.clear();
  for (const auto& [vrfName, vrf] : vrfs_) {
    if (const auto mib = mibOf(vrfName)) mib->ipDefaultRouterTableDelAll();
  }
  vrfs_.clear();
  users_.clear();
}

void DefaultRouterSm::handleVrfConfig(const Kel::Name& givenName) {
  if (reactors_.empty()) return;
  const Kel::Name vrfName = givenName;  // the caller's may live in the record
  const bool isDefault = vrfName == L3::VrfName::defaultName;
  const auto record = isDefault ? config() : vrfConfigDir()->vrfConfig(vrfName);
  auto& vrf = vrfs_[vrfName];
  if (!vrf.config) vrf.config = Kel::makePtr<KelConfig>(this, vrfName);
  vrf.config->notifierIs(record);
  update(vrfName);
  if (!record) vrfs_.erase(vrfName);
}

void DefaultRouterSm::handleIfIndex(const Vantu::IntfId& intfId) {
  const auto at = users_.find(intfId);
  if (at == users_.end()) return;
  const auto vrfNames = at->second;
  for (const auto& vrfName : vrfNames) update(vrfName);
}

void DefaultRouterSm::update(const Kel::Name& vrfName) {
  const auto at = vrfs_.find(vrfName);
  if (at == vrfs_.end()) return;
  auto& vrf = at->second;
  for (const auto& intfId : vrf.interfaces) {
    const auto user = users_.find(intfId);
    user->second.erase(vrfName);
    if (user->second.empty()) users_.erase(user);
  }
  vrf.interfaces.clear();
  std::map<DefaultRouterIndex, Routing::DefaultRouterFacts> rows;
  if (const auto record = vrf.config->notifier()) {
    for (const auto& [router, facts] : record->defaultRouter()) {
      vrf.interfaces.insert(router.intfId());
      users_[router.intfId()].insert(vrfName);
      const auto* const ifIndex = ifMib()->ifIndexByIntfId(router.intfId());
      if (ifIndex == nullptr || router.address().af() == Vantu::unknown_) continue;
      rows[DefaultRouterIndex(InetAddress::fromIpGenAddr(router.address()), static_cast<std::uint32_t>(*ifIndex))] =
          facts;
    }
  }
  const auto mib = mibOf(vrfName);
  if (!mib) return;
  for (const auto& index : mib->ipDefaultRouterTable().keys()) {
    if (!rows.contains(index)) mib->ipDefaultRouterTableDel(index);
  }
  for (const auto& [index, facts] : rows) {
    const auto row = mib->ipDefaultRouterTableIs(index);
    row->expiresIs(facts.expires() == 0 ? 0 : Kel::System::localTime(facts.expires(), facts.utcOffset()));
    row->preferenceIs(facts.preference());
  }
}

Kel::Ptr<IpMib> DefaultRouterSm::mibOf(const Kel::Name& vrfName) const {
  if (vrfName == L3::VrfName::defaultName) return ipMib();
  const auto mibs = vrfMibsDir()->mibs(vrfName);
  return mibs ? mibs->ipmib() : nullptr;
}

}  // namespace IpSnmp
