#pragma once
// VRF ids, and the names and indexes of interfaces that follow from them.

#include <list>
#include <map>
#include <optional>
#include <set>
#include <string>

#include "vantu/IntfId.h"
#include "vantu/VrfId.h"
#include "varnix/Tree.h"
#include "varnix/Values.h"

namespace Mirror {

// Converts a namespace's interface names and indexes to those in the store, where they are unique. In the default VRF
// they are the kernel's. In another VRF the name is "<VRF>/<name>", and the index contains the VRF id. An index has 31
// bits.
class NamespaceScope {
 public:
  // Kernel indexes below 2^20 fit beside the VRF id; in practice the kernel counts from 1 in each namespace.
  static constexpr unsigned ifIndexBits = 20;
  static constexpr std::uint32_t maxVrfId = (1U << (31 - ifIndexBits)) - 1;  // 2047

  // The default VRF.
  NamespaceScope() : vrfId_(0) {}
  // Requires: vrfId <= maxVrfId.
  NamespaceScope(L3::VrfName vrf, Vrf::VrfIdMap::VrfId vrfId) : vrf_(std::move(vrf)), vrfId_(vrfId) {}

  const L3::VrfName& vrf() const { return vrf_; }
  Vrf::VrfIdMap::VrfId vrfId() const { return vrfId_; }
  bool isDefault() const { return vrf_.isDefault(); }

  Vantu::IntfId intfId(const std::string& kernelName) const {
    return Vantu::IntfId(isDefault() ? kernelName : vrf_.stringValue() + "/" + kernelName);
  }
  // None for a kernel index that is too large.
  std::optional<std::uint32_t> ifIndex(std::uint32_t kernelIndex) const {
    if (isDefault()) return kernelIndex;
    if (kernelIndex >> ifIndexBits) return std::nullopt;
    return vrfId_.value() << ifIndexBits | kernelIndex;
  }

 private:
  L3::VrfName vrf_;
  Vrf::VrfIdMap::VrfId vrfId_;
};

// Allocates VRF ids. A VRF keeps its id as long as the store exists, even if the VRF is deleted and created again or
// the publisher restarts. So its interfaces keep their ifIndex.
class VrfIds {
 public:
  // Records all assigned ids in `tree.vrfIdStatus`, and those of existing VRFs in `tree.vrfNameStatus`; owns both.
  // The default VRF has id 0. Others get 1 to `max`.
  explicit VrfIds(const Varnix::Tree& tree, std::uint32_t max);

  // Restores the ids of an earlier publisher from the document of `vrfIdStatus`. Traces and skips what is wrong with
  // it. Requires: no other VRF has an id yet.
  void load(std::string_view document);

  // Returns the id of a VRF that exists from now on: its earlier id, else the lowest unused one. If all are used, takes
  // the id of the VRF that was deleted longest ago (of those deleted before this program started, the lowest id). None
  // if every id belongs to an existing VRF.
  std::optional<Vrf::VrfIdMap::VrfId> idIs(const L3::VrfName& name);
  // The VRF was deleted. Its id stays reserved for it until no unused id is left.
  void idDel(const L3::VrfName& name);

  bool has(const L3::VrfName& name) const { return ids_.contains(name); }

  // Publishes or withdraws the existence of the VRF. Requires: has(name).
  void setExists(const L3::VrfName& name, bool exists);

 private:
  using VrfId = Vrf::VrfIdMap::VrfId;
  std::optional<VrfId> unused() const;
  std::optional<VrfId> longestGone() const;
  void assign(const L3::VrfName& name, VrfId id);

  Varnix::Tree tree_;
  std::uint32_t max_;
  std::map<L3::VrfName, VrfId> ids_;  // as in vrfIdStatus
  std::set<VrfId> present_;
  std::list<VrfId> gone_;  // of VRFs that this program saw deleted, in that order
};

}  // namespace Mirror
