#pragma once
// The numbers of VRFs, and the names and numbers of interfaces that follow from them.

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

// Names and indexes of the interfaces of one network namespace, unique in the store. In the default VRF they are the
// kernel's; in another VRF the name is "<VRF>/<name>", and the index contains the VRF id. An index has 31 bits.
class NamespaceScope {
 public:
  // Kernel indexes below 2^20 are told apart by VRF; in practice the kernel counts from 1 in each namespace.
  static constexpr unsigned ifIndexBits = 20;
  static constexpr std::uint32_t maxVrfId = (1U << (31 - ifIndexBits)) - 1;  // 2047

  // Of the default VRF.
  NamespaceScope() : vrfId_(0) {}
  // `vrfId` is at most maxVrfId.
  NamespaceScope(L3::VrfName vrf, Vrf::VrfIdMap::VrfId vrfId) : vrf_(std::move(vrf)), vrfId_(vrfId) {}

  const L3::VrfName& vrf() const { return vrf_; }
  Vrf::VrfIdMap::VrfId vrfId() const { return vrfId_; }
  bool isDefault() const { return vrf_.isDefault(); }

  Vantu::IntfId intfId(const std::string& kernelName) const {
    return Vantu::IntfId(isDefault() ? kernelName : vrf_.stringValue() + "/" + kernelName);
  }
  // None for a kernel index that does not fit.
  std::optional<std::uint32_t> ifIndex(std::uint32_t kernelIndex) const {
    if (isDefault()) return kernelIndex;
    if (kernelIndex >> ifIndexBits) return std::nullopt;
    return vrfId_.value() << ifIndexBits | kernelIndex;
  }

 private:
  L3::VrfName vrf_;
  Vrf::VrfIdMap::VrfId vrfId_;
};

// Allocates VRF ids. A VRF keeps its id for as long as the store exists, so that its interfaces keep their ifIndex when
// the VRF is deleted and created again, and when the publisher restarts.
class VrfIds {
 public:
  // The numbers are recorded in `tree.vrfIdStatus`, and those of the VRFs that exist in `tree.vrfNameStatus`, which
  // belong to this object alone. 0 is the default VRF's from the start. Numbers go from 1 to `max`.
  explicit VrfIds(const Varnix::Tree& tree, std::uint32_t max);

  // Takes over the assignment of an earlier publisher from the document of `vrfIdStatus`: to be called before any
  // VRF is there. What is wrong with it is traced and left out.
  void load(std::string_view document);

  // Allocates the id of a VRF that exists from now on: its earlier id; else the lowest unused one; else the id of the
  // VRF that was deleted longest ago (of those deleted before this program started, the lowest id).
  // None when every id belongs to a VRF that exists.
  std::optional<Vrf::VrfIdMap::VrfId> idIs(const L3::VrfName& name);
  // The VRF was deleted. Its id stays reserved for it until no unused id is left.
  void idDel(const L3::VrfName& name);

  bool has(const L3::VrfName& name) const { return ids_.contains(name); }

  // Whether readers are told that the VRF exists. It must have a number.
  void existsIs(const L3::VrfName& name, bool exists);

 private:
  using VrfId = Vrf::VrfIdMap::VrfId;
  std::optional<VrfId> unused() const;
  std::optional<VrfId> longestGone() const;
  void assign(const L3::VrfName& name, VrfId id);

  Varnix::Tree tree_;
  std::uint32_t max_;
  std::map<L3::VrfName, VrfId> ids_;  // as in vrfIdStatus
  std::set<VrfId> present_;
  std::list<VrfId> gone_;  // in this program's time, the first one first
};

}  // namespace Mirror
