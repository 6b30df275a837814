#pragma once
// Which VRF the shared table's entries of an id belong to. Each VRF is published under at most one id. Two VRFs under
// one id is something that a publisher does only in passing; meanwhile the id is the default VRF's if that claims it,
// else that of the lowest name.

#include <absl/container/btree_map.h>
#include <absl/container/btree_set.h>

#include <optional>
#include <tuple>
#include <vector>

#include "vantu/VrfId.h"
#include "varnix/Values.h"

namespace IpSnmp {

class ArpIdClaims {
 public:
  using VrfId = Vrf::VrfIdMap::VrfId;

  // Not known: the VRF has no id. Returns the ids whose holder may have changed.
  std::vector<VrfId> claimIs(const L3::VrfName& vrfName, VrfId id) {
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

  std::optional<L3::VrfName> holder(VrfId id) const {
    const auto at = claims_.lower_bound({id, false, L3::VrfName()});
    if (at == claims_.end() || std::get<0>(*at) != id) return std::nullopt;
    return std::get<2>(*at);
  }

 private:
  absl::btree_map<L3::VrfName, VrfId> idByName_;
  absl::btree_set<std::tuple<VrfId, bool, L3::VrfName>> claims_;
};

}  // namespace IpSnmp
