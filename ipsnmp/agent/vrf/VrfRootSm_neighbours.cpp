// The VRF root state machine: the VRFs' ids in the shared neighbour table, and the dispatch of its changes.

#include <set>

#include "ipsnmp/agent/vrf/VrfRootSm.h"
#include "kel/Trace.h"
#include "quillo/StoreException.h"

namespace IpSnmp {
namespace {

Kel::TraceHandle vrfNeighboursTrace("VrfNeighbours");

constexpr Vrf::VrfIdMap::VrfId usualDefaultVrfId{0};

}  // namespace

// ---- ids ----

std::vector<VrfRootSm::VrfId> VrfRootSm::IdClaims::setClaim(const L3::VrfName& vrfName, VrfId id) {
  auto& present = idByName_[vrfName];
  const auto before = std::exchange(present, id);
  if (before == id) return {};
  claims_.erase({before, !vrfName.isDefault(), vrfName});
  if (!id.isKnown()) {
    idByName_.erase(vrfName);
    return {before};
  }
  claims_.emplace(id, !vrfName.isDefault(), vrfName);
  return before.isKnown() ? std::vector{before, id} : std::vector{id};
}

std::optional<L3::VrfName> VrfRootSm::IdClaims::holder(VrfId id) const {
  const auto at = claims_.lower_bound({id, false, L3::VrfName()});
  if (at == claims_.end() || std::get<0>(*at) != id) return std::nullopt;
  return std::get<2>(*at);
}

VrfRootSm::VrfId VrfRootSm::publishedId(const L3::VrfName& vrfName) const {
  const auto map = nameToIdMap();
  const auto* id = map ? map->vrfId(vrfName) : nullptr;
  if (id != nullptr) return *id;
  return vrfName.isDefault() ? usualDefaultVrfId : VrfId();
}

VrfRootSm::VrfId VrfRootSm::arpQuilloVrfIdOf(const L3::VrfName& vrfName) const {
  const auto* id = arpQuilloVrfNameToIdMap(vrfName);
  return id != nullptr ? *id : VrfId();
}

void VrfRootSm::handleVrfNameToIdChange(const L3::VrfName& givenName) {
  QTRACE_ENTRY(vrfNeighboursTrace, this);
  const L3::VrfName vrfName = givenName;
  const Kel::Ptr<VrfRootSm> self(this);
  if (const auto map = nameToIdMap()) {
    if (const auto* id = vrfNameStatus()->vrfId(vrfName)) {
      map->vrfIdIs(vrfName, *id);
    } else {
      map->vrfIdDel(vrfName);
      removeUnlessComplete(vrfName);
    }
  }
  if (!vrfName.isDefault()) handleVrfCreation(vrfName.stringValue());
}

void VrfRootSm::handleNameToIdMap() {
  QTRACE_ENTRY(vrfNeighboursTrace, this);
  const Kel::Ptr<VrfRootSm> self(this);
  const auto map = nameToIdMap();
  if (!map) return;
  handleNameToIdMap(L3::VrfName());
  for (const auto& vrfName : map->vrfId().keys()) handleNameToIdMap(vrfName);
}

void VrfRootSm::handleNameToIdMap(const L3::VrfName& givenName) {
  QTRACE_ENTRY(vrfNeighboursTrace, this);
  const L3::VrfName vrfName = givenName;
  const Kel::Ptr<VrfRootSm> self(this);
  const auto published = publishedId(vrfName);
  if (vrfName.isDefault()) {
    defaultVrfIdIs(published);
  } else if (const auto root = vrfRoot(vrfName.stringValue())) {
    // A VRF without an id has no tables: another VRF may get the id.
    const bool isAnother = root->vrfId() != published;
    root->vrfIdIs(published);
    if (isAnother) remountTables(*root, mountTables(vrfName));
  }
  std::set<L3::VrfName> changed;
  for (const auto id : idClaims_.setClaim(vrfName, published)) {
    const auto holder = idClaims_.holder(id);
    if (const auto* found = arpQuilloVrfIdReverseMapper(id)) {
      const L3::VrfName before = *found;
      if (before == holder) continue;
      if (arpQuilloVrfIdOf(before) == id) arpQuilloVrfNameToIdMapDel(before);
      changed.insert(before);
    }
    if (holder) {
      arpQuilloVrfIdReverseMapperIs(id, *holder);
      arpQuilloVrfNameToIdMapIs(*holder, id);
      changed.insert(*holder);
    } else {
      arpQuilloVrfIdReverseMapperDel(id);
    }
  }
  for (const auto& name : changed) handleArpQuilloVrfName(name);
}

Kel::Ptr<ArpTableSm> VrfRootSm::arpTableSmOf(const L3::VrfName& vrfName) {
  Kel::Ptr<ArpTableSm> sm;
  if (vrfName.isDefault()) {
    sm = defaultVrfArpTableSm();
  } else {
    const auto root = vrfRoot(vrfName.stringValue());
    if (!root) {
      QTRACE(vrfNeighboursTrace, 6) << "vrf root for " << vrfName << " not found";
      return nullptr;
    }
    sm = root->arpTableSm();
  }
  if (!sm) {
    QTRACE(vrfNeighboursTrace, 6) << "arpTableSm for " << vrfName << " not found";
  }
  return sm;
}

void VrfRootSm::handleArpQuilloVrfName(const L3::VrfName& vrfName) {
  QTRACE_ENTRY(vrfNeighboursTrace, this);
  const auto id = arpQuilloVrfIdOf(vrfName);
  if (id.isKnown()) {
    QTRACE(vrfNeighboursTrace, 6) << vrfName << " updating arp quillo vrf id " << id;
  } else {
    QTRACE(vrfNeighboursTrace, 6) << vrfName << " invalidating arp quillo vrf id ";
  }
  if (const auto sm = arpTableSmOf(vrfName)) sm->arpQuilloVrfIdIs(id);
  refreshFibStats(vrfName.stringValue());
}

// ---- neighbours ----

Kel::Ptr<ArpTableSm> VrfRootSm::arpTableSmOf(VrfId id, L3::VrfName& vrfName) {
  // The default VRF's machine has an id before the ids are published by name.
  vrfName = L3::VrfName();
  const auto& defaultSm = defaultVrfArpTableSm();
  if (defaultSm && defaultSm->arpQuilloVrfId() == id) return defaultSm;
  const auto* found = arpQuilloVrfIdReverseMapper(id);
  if (found == nullptr) return nullptr;
  vrfName = *found;
  const auto root = vrfRoot(vrfName.stringValue());
  auto sm = root ? root->arpTableSm() : nullptr;
  return sm && sm->arpQuilloVrfId() == id ? sm : nullptr;
}

void VrfRootSm::handleNeighbour(const Arp::Table::ArpKey& givenKey) {
  const Arp::Table::ArpKey key = givenKey;
  if (!key.vrfId.isKnown()) return;
  L3::VrfName vrfName;
  const auto sm = arpTableSmOf(key.vrfId, vrfName);
  if (!sm) return;
  Arp::Table::ArpEntry entry;
  try {
    entry = key.addr.af() == Vantu::ipv4_ ? arpQuillo()->arpEntry(key) : arpQuillo()->neighborEntry(key);
  } catch (const Pesk::CorruptionDetectedException& error) {
    // Whether the neighbour exists is unknown, so its row stays.
    arpQuillo()->corruptionDetected(error);
    return;
  } catch (const Quillo::StoreException&) {
    return;  // the table notifies when it can be read again
  }
  if (entry.exists() && entry.key == key) {
    QTRACE(vrfNeighboursTrace, 6) << "Arp entry " << key << " (vrf '" << vrfName << "') updated in arp quillo";
    sm->addArpEntry(entry);
  } else {
    QTRACE(vrfNeighboursTrace, 6) << "Arp entry " << key << " (vrf '" << vrfName << "') deleted from arp quillo";
    sm->delArpEntry(key);
  }
}

void VrfRootSm::handleArpEntry(const Arp::Table::ArpKey& key) {
  QTRACE_ENTRY(vrfNeighboursTrace, this);
  handleNeighbour(key);
}

void VrfRootSm::handleNeighborEntry(const Arp::Table::ArpKey& key) {
  QTRACE_ENTRY(vrfNeighboursTrace, this);
  handleNeighbour(key);
}

void VrfRootSm::handleIntfStatus(const Vantu::IntfId& givenId) {
  QTRACE_ENTRY(vrfNeighboursTrace, this);
  const Vantu::IntfId intfId = givenId;
  const Kel::Ptr<VrfRootSm> self(this);
  for (const auto& sm : arpTableSms()) sm->handleIntfStatus(intfId);
}

// Catches up on interfaces added between the creation of the default VRF's neighbour machine and of this one.
void VrfRootSm::handleIntfStatus() {
  QTRACE_ENTRY(vrfNeighboursTrace, this);
  const Kel::Ptr<VrfRootSm> self(this);
  for (const auto& intfId : intfStatusDir()->intfStatus().keys()) handleIntfStatus(intfId);
}

std::vector<Kel::Ptr<ArpTableSm>> VrfRootSm::arpTableSms() {
  std::vector<Kel::Ptr<ArpTableSm>> all;
  if (defaultVrfArpTableSm()) all.push_back(defaultVrfArpTableSm());
  for (const auto& [name, root] : vrfRoot()) {
    if (auto sm = root->arpTableSm()) all.push_back(std::move(sm));
  }
  return all;
}

}  // namespace IpSnmp
