#include "mirror/kernel/Nexthops.h"

#include <algorithm>

namespace Mirror {

bool Nexthops::notified(const NexthopMessage& message) {
  if (message.isDeleted) return nexthops_.erase(message.id) > 0;
  Nexthop& nexthop = nexthops_[message.id];
  const bool isSame = nexthop.isBlackhole == message.isBlackhole && nexthop.hop == message.hop &&
                      nexthop.members == message.members;
  nexthop = {message.isBlackhole, message.hop, message.members};
  return !isSame;
}

void Nexthops::beginDump() {
  hasListingChanged_ = false;
  for (auto& [id, nexthop] : nexthops_) nexthop.isListed = false;
}

void Nexthops::dumped(const NexthopMessage& message) {
  hasListingChanged_ |= notified(message);
}

bool Nexthops::endDump() {
  return std::erase_if(nexthops_, [](const auto& entry) { return !entry.second.isListed; }) > 0 ||
         hasListingChanged_;
}

std::optional<Nexthops::Forwarding> Nexthops::forwarding(std::uint32_t id) const {
  const auto at = nexthops_.find(id);
  if (at == nexthops_.end()) return std::nullopt;
  Forwarding found{at->second.isBlackhole, {}};
  if (at->second.members.empty()) {
    if (!found.isBlackhole) found.hops.push_back(at->second.hop);
    return found;
  }
  for (const std::uint32_t member : at->second.members) {
    const auto single = nexthops_.find(member);
    if (single == nexthops_.end()) continue;
    found.isBlackhole |= single->second.isBlackhole;
    if (!single->second.isBlackhole) found.hops.push_back(single->second.hop);
  }
  return found;
}

// Groups contain no groups, so one pass finds all.
std::set<std::uint32_t> Nexthops::withGroups(std::set<std::uint32_t> ids) const {
  if (ids.empty()) return ids;
  for (const auto& [id, nexthop] : nexthops_) {
    const auto& members = nexthop.members;
    if (std::any_of(members.begin(), members.end(), [&](std::uint32_t member) { return ids.contains(member); })) {
      ids.insert(id);
    }
  }
  return ids;
}

std::set<std::uint32_t> Nexthops::on(const std::set<std::uint32_t>& ifIndexes) const {
  std::set<std::uint32_t> ids;
  for (const auto& [id, nexthop] : nexthops_) {
    if (ifIndexes.contains(nexthop.hop.ifIndex)) ids.insert(id);
  }
  return withGroups(std::move(ids));
}

}  // namespace Mirror
