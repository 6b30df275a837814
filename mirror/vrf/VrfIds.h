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

// What the interfaces of one network namespace are called outside of it: in the default VRF's as the kernel calls
// them, in another VRF's "<VRF>/<name>", with an index of their own. Every index is a positive 31-bit number.
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

// Gives VRFs their numbers. A VRF keeps its number for as long as the store lives, so that its interfaces keep their
// ifIndex when it goes and comes back, and when the publisher is started again.
class VrfIds {
 public:
  // The numbers are recorded in `tree.vrfIdStatus`, and those of the VRFs that exist in `tree.vrfNameStatus`, which
  // belong to this object alone. 0 is the default VRF's from the start. Numbers go from 1 to `max`.
  explicit VrfIds(const Varnix::Tree& tree, std::uint32_t max);

  // Takes over the assignment of an earlier publisher from the document of `vrfIdStatus`: to be called before any
  // VRF is there. What is wrong with it is traced and left out.
  void load(std::string_view document);

  // The number of a VRF that is there from now on: the one that it had; the lowest that nobody ever had; when all
  // are taken, that of the VRF that went longest ago (of those that went before this program started, the lowest).
  // None when every number belongs to a VRF that is there.
  std::optional<Vrf::VrfIdMap::VrfId> idIs(const L3::VrfName& name);
  // The VRF is gone. Its number stays its own until no other one is free.
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
