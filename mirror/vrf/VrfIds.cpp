#include "mirror/vrf/VrfIds.h"

#include <algorithm>

#include "kel/Trace.h"
#include "varnix/ByteText.h"
#include "varnix/Document.h"

namespace Mirror {

namespace {

Kel::TraceHandle vrfIdsTrace("MirrorVrfIds");

}  // namespace

VrfIds::VrfIds(const Varnix::Tree& tree, std::uint32_t max) : tree_(tree), max_(max) {
  const L3::VrfName defaultName;
  assign(defaultName, VrfId(0));
  present_.insert(VrfId(0));
  setExists(defaultName, true);
}

void VrfIds::load(std::string_view document) {
  try {
    const auto parsed = Varnix::documentFromText(document);
    for (const auto& [attribute, value] : parsed.attributes) {
      const auto* entries = attribute == "vrfName" ? value.getIf<Kel::Datum::Object>() : nullptr;
      if (!entries) continue;
      for (const auto& [number, name] : *entries) {
        const VrfId id = VrfId::fromString(number);
        const auto* text = name.getIf<std::string>();
        const L3::VrfName vrf(text ? *text : "");
        if (id.value() == 0 || id.value() > max_ || vrf.isDefault() || ids_.contains(vrf)) continue;
        assign(vrf, id);
      }
    }
  } catch (const Kel::Exception& error) {
    QTRACE(vrfIdsTrace, 0) << "the store's record of VRF ids is no use, some VRFs get new ones: " << error.what();
  }
}

std::optional<Vrf::VrfIdMap::VrfId> VrfIds::idIs(const L3::VrfName& name) {
  auto id = std::optional<VrfId>();
  if (const auto at = ids_.find(name); at != ids_.end()) {
    id = at->second;
  } else {
    id = unused();
    if (!id) id = longestGone();
    if (!id) return std::nullopt;
    assign(name, *id);
  }
  present_.insert(*id);
  gone_.remove(*id);
  return id;
}

void VrfIds::idDel(const L3::VrfName& name) {
  const auto at = ids_.find(name);
  if (at == ids_.end() || present_.erase(at->second) == 0) return;
  setExists(name, false);
  gone_.push_back(at->second);
}

void VrfIds::setExists(const L3::VrfName& name, bool exists) {
  if (exists) {
    tree_.vrfNameStatus->vrfIdIs(name, ids_.at(name));
  } else {
    tree_.vrfNameStatus->vrfIdDel(name);
  }
}

std::optional<Vrf::VrfIdMap::VrfId> VrfIds::unused() const {
  std::uint32_t expected = 0;
  for (const auto& [id, name] : tree_.vrfIdStatus->vrfName()) {
    if (id.value() != expected) break;
    ++expected;
  }
  if (expected > max_) return std::nullopt;
  return VrfId(expected);
}

std::optional<Vrf::VrfIdMap::VrfId> VrfIds::longestGone() const {
  for (const auto& [id, name] : tree_.vrfIdStatus->vrfName()) {
    const bool isOfEarlierRun = !present_.contains(id) && std::find(gone_.begin(), gone_.end(), id) == gone_.end();
    if (isOfEarlierRun) return id;
  }
  if (gone_.empty()) return std::nullopt;
  return gone_.front();
}

void VrfIds::assign(const L3::VrfName& name, VrfId id) {
  if (const auto* previous = tree_.vrfIdStatus->vrfName(id)) {
    QTRACE(vrfIdsTrace, 1) << "VRF id " << id << " of " << Varnix::escapeBytes(previous->stringValue())
                           << ", which is gone, goes to " << Varnix::escapeBytes(name.stringValue());
    ids_.erase(*previous);
  }
  ids_.emplace(name, id);
  tree_.vrfIdStatus->vrfNameIs(id, name);
}

}  // namespace Mirror
