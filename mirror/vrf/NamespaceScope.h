#pragma once
// What the interfaces of one network namespace are called outside of it: in the default VRF's as the kernel calls
// them, in another VRF's "<VRF>/<name>", with an index of their own. Every index is a positive 31-bit number.

#include <optional>

#include "vantu/IntfId.h"
#include "vantu/VrfId.h"
#include "varnix/Values.h"

namespace Mirror {

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

}  // namespace Mirror
