#include "ctl/SwitchState.h"

#include <cmath>

#include "kel/Value.h"

namespace Ctl {

namespace {

void setKernelTable(Kel::Dir& dir, const Kel::Name& name, std::uint32_t table) {
  auto info = Kel::dynamicPtr<Routing::VrfInfo>(dir.entityPtr(name));
  if (!info) {
    info = Kel::makePtr<Routing::VrfInfo>(name);
    dir.entityIs(info);
  }
  info->kernelTableIs(table);
}

template <class Config, class Facts>
void setRouting(Config& config, bool forwards, const Facts& staticRoutes) {
  config.routingIs(forwards);
  for (const auto& [key, facts] : staticRoutes) config.staticRouteIs(key, facts);
}

template <class Record>
void setSecondaries(Record& record, const InterfaceSpec& spec) {
  for (std::size_t at = 1; at < spec.ipv4.size(); ++at) record.secondaryAddrWithMaskIs(spec.ipv4[at], true);
}

void addIpv4(const Varnix::Tree& tree, const InterfaceSpec& spec) {
  const auto config = tree.ipConfig->ipIntfConfigIs(spec.id);
  config->l3ConfigIs(tree.l3ConfigDir->intfConfig(spec.id));
  if (spec.ipv4.empty()) return;
  config->addrWithMaskIs(spec.ipv4.front());
  setSecondaries(*config, spec);
  const auto status = tree.ipStatus->ipIntfStatusIs(spec.id);
  status->l3StatusIs(tree.l3StatusDir->intfStatus(spec.id));
  if (!spec.isRunning()) return;
  status->activeAddrWithMaskIs(spec.ipv4.front());
  setSecondaries(*status, spec);
}

void addIpv6(const Varnix::Tree& tree, const InterfaceSpec& spec) {
  if (spec.ipv6.empty()) return;
  const auto config = tree.ip6Config->intfIs(spec.id);
  const auto status = tree.ip6Status->intfIs(spec.id);
  config->l3ConfigIs(tree.l3ConfigDir->intfConfig(spec.id));
  status->l3StatusIs(tree.l3StatusDir->intfStatus(spec.id));
  for (const auto& [address, state] : spec.ipv6) {
    config->addrIs(address, Ip6::AddressInfo(state));
    const bool isUsable = state != Ip6::addressStateTentative && state != Ip6::addressStateDuplicate;
    if (spec.isRunning() && isUsable) status->addrIs(address, Ip6::AddressInfo(state));
  }
}

template <class Config, class Facts>
void readRouting(const Config& config, bool& forwards, Facts& staticRoutes) {
  forwards = config.routing();
  for (const auto& [key, facts] : config.staticRoute()) staticRoutes.emplace(key, facts);
}

}  // namespace

void MovingCounters::set(Kel::Seconds seconds) const {
  Kel::Datum::Object values;
  for (const auto& counter : counters) {
    const double grown = std::fmod(counter.perSecond * seconds, 0x1p64);
    values.emplace_back(counter.name, counter.start + static_cast<std::uint64_t>(grown));
  }
  const Kel::Datum datum(std::move(values));
  const auto write = [&](const auto& to) {
    to->countersIs(Kel::fromDatum<std::decay_t<decltype(to->counters())>>(datum));
  };
  std::visit(write, record);
}

std::size_t SwitchState::routes() const {
  std::size_t count = 0;
  for (const auto& [vrfId, vrf] : tables) count += vrf.routes.size() + vrf.routes6.size();
  return count;
}

void addVrf(const Varnix::Tree& tree, const VrfSpec& spec) {
  const Kel::Name text = spec.name.stringValue();
  tree.vrfIdStatus->vrfNameIs(spec.id, spec.name);
  tree.vrfNameStatus->vrfIdIs(spec.name, spec.id);
  const bool isDefault = spec.name.isDefault();
  setRouting(isDefault ? *tree.routingConfig : *tree.routingVrfConfigDir->vrfConfigIs(text), spec.forwards4,
             spec.staticRoutes);
  setRouting(isDefault ? *tree.routing6Config : *tree.routing6VrfConfigDir->vrfConfigIs(text), spec.forwards6,
             spec.staticRoutes6);
  if (isDefault) return;
  tree.allVrfConfig->vrfConfigIs(spec.name)->routeDistinguisherIs(spec.routeDistinguisher);
  setKernelTable(*tree.routingVrfInfoDir, text, spec.kernelTable);
  setKernelTable(*tree.routing6VrfInfoDir, text, spec.kernelTable);
  tree.allVrfStatusGlobal->vrfIs(spec.name)->stateIs(Ip::vrfStateActive);
  const auto local = tree.allVrfStatusLocal->vrfIs(spec.name);
  local->hasNamespaceIs(spec.isNamespace);
  local->stateIs(Ip::vrfStateActive);
}

void addInterface(const Varnix::Tree& tree, const L3::VrfName& vrf, const InterfaceSpec& spec) {
  const auto status = tree.intfStatusDir->intfStatusIs(spec.id);
  status->kindIs(Interface::LinuxIntfDetails::kind);
  status->ifIndexIs(spec.ifIndex);
  status->operStatusIs(spec.state);
  status->adminStatusIs(spec.adminStatus);
  status->ifTypeIs(spec.ifType);
  status->mtuIs(spec.mtu);
  status->ethAddrIs(spec.mac);
  const auto& mac = spec.mac.bytes();
  status->physAddressIs(spec.mac.isZero() ? Kel::String() : Kel::String(mac.begin(), mac.end()));
  status->aliasIs(spec.alias);
  status->speedIs(spec.speed);
  status->duplexIs(spec.duplex);
  status->promiscuousIs(spec.promiscuous);
  status->connectorPresentIs(spec.connectorPresent);
  status->lowerIfIndexIs(spec.lowerIfIndex);
  status->upperIfIndexIs(spec.upperIfIndex);
  tree.l3ConfigDir->intfConfigIs(spec.id)->vrfIs(vrf);
  tree.l3StatusDir->intfStatusIs(spec.id)->vrfIs(vrf);
  addIpv4(tree, spec);
  addIpv6(tree, spec);
  for (std::size_t version = 0; version < spec.counters.size(); ++version) {
    if (!spec.counters[version]) continue;
    const auto stats = statsOf(tree, version)->intfStatsIs(spec.id);
    stats->countersIs(spec.counters[version]->counters);
    stats->discontinuityTimeIs(spec.counters[version]->discontinuityTime);
    stats->utcOffsetIs(spec.counters[version]->utcOffset);
  }
  if (spec.linkCounters) tree.intfCountersDir->intfCountersIs(spec.id)->countersIs(*spec.linkCounters);
}

VrfSpec vrfSpec(const Varnix::Tree& tree, const L3::VrfName& name, const VrfId& id) {
  VrfSpec spec;
  spec.name = name;
  spec.id = id;
  const Kel::Name text = name.stringValue();
  const bool isDefault = name.isDefault();
  if (const auto config = isDefault ? tree.routingConfig : tree.routingVrfConfigDir->vrfConfig(text)) {
    readRouting(*config, spec.forwards4, spec.staticRoutes);
  }
  if (const auto config = isDefault ? tree.routing6Config : tree.routing6VrfConfigDir->vrfConfig(text)) {
    readRouting(*config, spec.forwards6, spec.staticRoutes6);
  }
  if (const auto config = tree.allVrfConfig->vrfConfig(name))
    spec.routeDistinguisher = config->routeDistinguisher();
  if (const auto local = tree.allVrfStatusLocal->vrf(name)) spec.isNamespace = local->hasNamespace();
  if (const auto info = Kel::dynamicPtr<Routing::VrfInfo>(tree.routingVrfInfoDir->entityPtr(text))) {
    spec.kernelTable = info->kernelTable();
  }
  return spec;
}

InterfaceSpec interfaceSpec(const Varnix::Tree& tree, const Vantu::IntfId& id) {
  InterfaceSpec spec;
  spec.id = id;
  if (const auto status = tree.intfStatusDir->intfStatus(id)) {
    spec.ifIndex = status->ifIndex();
    spec.state = status->operStatus();
    spec.adminStatus = status->adminStatus();
    spec.ifType = status->ifType();
    spec.mtu = status->mtu();
    spec.mac = status->ethAddr();
    spec.alias = status->alias();
    spec.speed = status->speed();
    spec.duplex = status->duplex();
    spec.promiscuous = status->promiscuous();
    spec.connectorPresent = status->connectorPresent();
    spec.lowerIfIndex = status->lowerIfIndex();
    spec.upperIfIndex = status->upperIfIndex();
  }
  if (const auto config = tree.ipConfig->ipIntfConfig(id); config && !config->addrWithMask().address().isZero()) {
    spec.ipv4.push_back(config->addrWithMask());
    for (const auto& [address, isSet] : config->secondaryAddrWithMask()) {
      if (address != config->addrWithMask() && !address.address().isZero()) spec.ipv4.push_back(address);
    }
  }
  if (const auto config = tree.ip6Config->intf(id)) {
    for (const auto& [address, info] : config->addr()) spec.ipv6.emplace_back(address, info.state());
  }
  for (std::size_t version = 0; version < spec.counters.size(); ++version) {
    if (const auto stats = statsOf(tree, version)->intfStats(id)) {
      spec.counters[version] = {stats->counters(), stats->discontinuityTime(), stats->utcOffset()};
    }
  }
  if (const auto record = tree.intfCountersDir->intfCounters(id)) spec.linkCounters = record->counters();
  return spec;
}

}  // namespace Ctl
