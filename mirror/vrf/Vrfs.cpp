#include "mirror/vrf/Vrfs.h"

#include "kel/Trace.h"
#include "mirror/vrf/VrfIds.h"
#include "varnix/ByteText.h"

namespace Mirror {

namespace {

Kel::TraceHandle vrfsTrace("MirrorVrfs");

void infoIs(Kel::Dir& dir, const Kel::Name& name, std::uint32_t table) {
  const Kel::Ptr<Kel::Entity>* present = dir.entityPtr().find(name);
  auto info = present ? Kel::dynamicPtr<Routing::VrfInfo>(*present) : nullptr;
  if (!info) {
    info = Kel::makePtr<Routing::VrfInfo>(name);
    dir.entityIs(info);
  }
  info->kernelTableIs(table);
}

template <class Config, class Facts>
void staticRoutesAre(Config& config, const Facts& facts) {
  for (const auto& key : config.staticRoute().keys()) {
    if (!facts.contains(key)) config.staticRouteDel(key);
  }
  for (const auto& [key, value] : facts) config.staticRouteIs(key, value);
}

}  // namespace

Vrfs::Vrfs(const Varnix::Tree& tree) : tree_(tree), ids_(tree, NamespaceScope::maxVrfId) {
}

std::optional<Vrf::VrfIdMap::VrfId> Vrfs::namespaceIs(const L3::VrfName& name) {
  if (const auto at = kinds_.find(name); at != kinds_.end() && at->second == Kind::device) deviceDel(name);
  const auto id = ids_.idIs(name);
  if (!id) return refuse(name, noIdLeft);
  refused_.erase(name);
  kinds_[name] = Kind::ns;
  ++version_;
  return id;
}

void Vrfs::namespaceDel(const L3::VrfName& name) {
  const auto at = kinds_.find(name);
  if (at == kinds_.end() || at->second != Kind::ns) return;
  kinds_.erase(at);
  recordsDel(name);
  ids_.idDel(name);
  ++version_;
}

std::optional<Vrf::VrfIdMap::VrfId> Vrfs::addDevice(const L3::VrfName& name, std::uint32_t table) {
  const auto at = kinds_.find(name);
  if (at != kinds_.end() && at->second == Kind::ns) {
    return refuse(name, "the namespace of that name is the VRF, not the VRF device; rename one of them");
  }
  if (name.isDefault()) return refuse(name, "a VRF device cannot have the default VRF's name; rename it");
  const auto id = ids_.idIs(name);
  if (!id) return refuse(name, noIdLeft);
  refused_.erase(name);
  kinds_[name] = Kind::device;
  writeRecords(name, table);
  setForwarding(name, Vantu::ipv4_, tree_.routingConfig->routing());
  setForwarding(name, Vantu::ipv6_, tree_.routing6Config->routing());
  setDefaults(name, {.ttl = tree_.routingConfig->defaultTtl(),
                     .reasmTimeout = tree_.routingConfig->reasmTimeout(),
                     .hopLimit = tree_.routingConfig->defaultHopLimit()});
  return id;
}

void Vrfs::deviceDel(const L3::VrfName& name) {
  const auto at = kinds_.find(name);
  if (at == kinds_.end() || at->second != Kind::device) {
    refused_.erase(name);
    return;
  }
  kinds_.erase(at);
  recordsDel(name);
  ids_.idDel(name);
  ++version_;
}

std::nullopt_t Vrfs::refuse(const L3::VrfName& name, const std::string& why) {
  if (refused_.insert(name).second) {
    QTRACE(vrfsTrace, 0) << "VRF " << Varnix::escapeBytes(name.stringValue()) << " is not served: " << why;
  }
  return std::nullopt;
}

void Vrfs::writeRecords(const L3::VrfName& name, std::uint32_t table) {
  if (!tree_.allVrfStatusLocal->vrfHas(name)) {
    QTRACE(vrfsTrace, 1) << "VRF " << Varnix::escapeBytes(name.stringValue()) << " is there";
  }
  const Kel::Name text = name.stringValue();
  ids_.setExists(name, true);
  tree_.allVrfConfig->vrfConfigIs(name);
  tree_.routingVrfConfigDir->vrfConfigIs(text);
  tree_.routing6VrfConfigDir->vrfConfigIs(text);
  applySettings(name);
  infoIs(*tree_.routingVrfInfoDir, text, table);
  infoIs(*tree_.routing6VrfInfoDir, text, table);
  tree_.allVrfStatusGlobal->vrfIs(name)->stateIs(Ip::vrfStateActive);
  const auto local = tree_.allVrfStatusLocal->vrfIs(name);
  local->hasNamespaceIs(kinds_.at(name) == Kind::ns);
  local->stateIs(Ip::vrfStateActive);
}

void Vrfs::recordsDel(const L3::VrfName& name) {
  if (tree_.allVrfStatusLocal->vrfDel(name)) {
    QTRACE(vrfsTrace, 1) << "VRF " << Varnix::escapeBytes(name.stringValue()) << " is gone";
  }
  const Kel::Name text = name.stringValue();
  tree_.allVrfStatusGlobal->vrfDel(name);
  tree_.routingVrfInfoDir->entityDel(text);
  tree_.routing6VrfInfoDir->entityDel(text);
  tree_.routingVrfConfigDir->vrfConfigDel(text);
  tree_.routing6VrfConfigDir->vrfConfigDel(text);
  tree_.allVrfConfig->vrfConfigDel(name);
}

Kel::Ptr<Routing::Config> Vrfs::routing(const L3::VrfName& name) {
  return name.isDefault() ? tree_.routingConfig : tree_.routingVrfConfigDir->vrfConfig(name.stringValue());
}

Kel::Ptr<Routing6::Config> Vrfs::routing6(const L3::VrfName& name) {
  return name.isDefault() ? tree_.routing6Config : tree_.routing6VrfConfigDir->vrfConfig(name.stringValue());
}

void Vrfs::setForwarding(const L3::VrfName& name, Vantu::Af af, bool forwarding) {
  if (const auto config = routing(name); config && af == Vantu::ipv4_) config->routingIs(forwarding);
  if (const auto config = routing6(name); config && af == Vantu::ipv6_) config->routingIs(forwarding);
  if (!name.isDefault()) return;
  for (const auto& [other, kind] : kinds_) {
    if (kind == Kind::device) setForwarding(other, af, forwarding);
  }
}

void Vrfs::setDefaults(const L3::VrfName& name, const IpDefaults& defaults) {
  if (const auto config = routing(name)) {
    config->defaultTtlIs(defaults.ttl);
    config->defaultHopLimitIs(defaults.hopLimit);
    config->reasmTimeoutIs(defaults.reasmTimeout);
  }
  if (!name.isDefault()) return;
  for (const auto& [other, kind] : kinds_) {
    if (kind == Kind::device) setDefaults(other, defaults);
  }
}

void Vrfs::setDefaultRouters(const Vrf::VrfIdMap::VrfId& vrfId,
                             const std::map<Routing::DefaultRouterKey, Routing::DefaultRouterFacts>& routers) {
  const auto* const name = tree_.vrfIdStatus->vrfName(vrfId);
  const auto config = name != nullptr ? routing(*name) : nullptr;
  if (!config) return;
  for (const auto& present : config->defaultRouter().keys()) {
    if (!routers.contains(present)) config->defaultRouterDel(present);
  }
  for (const auto& [key, facts] : routers) config->defaultRouterIs(key, facts);
}

void Vrfs::setSettings(AllVrfSettings settings) {
  settings_ = std::move(settings);
  applySettings(L3::VrfName());
  for (const auto& [name, kind] : kinds_) applySettings(name);
}

// Writes the settings into the records that exist.
void Vrfs::applySettings(const L3::VrfName& name) {
  static const VrfSettings none;
  const auto at = settings_.find(name);
  const VrfSettings& settings = at == settings_.end() ? none : at->second;
  if (const auto config = tree_.allVrfConfig->vrfConfig(name)) {
    config->routeDistinguisherIs(settings.routeDistinguisher);
  }
  if (const auto config = routing(name)) staticRoutesAre(*config, settings.staticRoutes);
  if (const auto config = routing6(name)) staticRoutesAre(*config, settings.staticRoutes6);
}

std::optional<VrfDevices::Device> VrfDevices::deviceOf(const KernelState& state, std::uint32_t ifIndex) {
  const KernelInterface* interface = state.interface(ifIndex);
  if (!interface || !interface->link || !interface->link->vrfTable || interface->link->name.empty()) return {};
  return Device{interface->link->name, *interface->link->vrfTable};
}

bool VrfDevices::sync(const KernelState& state, const std::set<std::uint32_t>& ifIndexes) {
  bool hasChanged = false;
  // Removals first, since names may have been reassigned.
  for (const std::uint32_t ifIndex : ifIndexes) {
    const auto at = devices_.find(ifIndex);
    const auto now = deviceOf(state, ifIndex);
    if (at == devices_.end() ? !now : now && at->second.isSame(*now)) continue;
    hasChanged = true;
    if (at == devices_.end()) continue;
    vrfs_.deviceDel(L3::VrfName(at->second.name));
    devices_.erase(at);
  }
  if (hasChanged) {
    for (const std::uint32_t ifIndex : ifIndexes) {
      if (auto now = deviceOf(state, ifIndex)) devices_.try_emplace(ifIndex, std::move(*now));
    }
  }
  if (!hasChanged && version_ == vrfs_.version()) return false;
  for (auto& [ifIndex, device] : devices_) device.vrfId = vrfs_.addDevice(L3::VrfName(device.name), device.table);
  hasChanged |= !devices_.empty();
  version_ = vrfs_.version();
  return hasChanged;
}

std::optional<VrfDevices::Membership> VrfDevices::membership(std::uint32_t ifIndex, const KernelLink& link) const {
  for (const std::uint32_t index : {ifIndex, link.master}) {
    const auto at = devices_.find(index);
    if (at == devices_.end()) continue;
    const Device& device = at->second;
    if (!device.vrfId) return std::nullopt;
    return Membership{L3::VrfName(device.name), *device.vrfId};
  }
  return Membership();
}

std::optional<Vrf::VrfIdMap::VrfId> VrfDevices::vrfId(std::uint32_t device) const {
  const auto at = devices_.find(device);
  return at == devices_.end() ? std::nullopt : at->second.vrfId;
}

}  // namespace Mirror
