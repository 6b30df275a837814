#include "mirror/Nexthops.h"

#include <algorithm>

namespace Mirror {

bool Nexthops::apply(const NexthopMessage& message) {
  if (message.isDeleted) return nexthops_.erase(message.id) > 0;
  Nexthop& nexthop = nexthops_[message.id];
  const bool isSame = nexthop.isBlackhole == message.isBlackhole && nexthop.hop == message.hop &&
                      nexthop.members == message.members;
  nexthop = {message.isBlackhole, message.hop, message.members};
  return !isSame;
}

void Nexthops::notified(const NexthopMessage& message) {
  apply(message);
}

void Nexthops::listingIs() {
  hasListingChanged_ = false;
  for (auto& [id, nexthop] : nexthops_) nexthop.isListed = false;
}

void Nexthops::dumped(const NexthopMessage& message) {
  hasListingChanged_ |= apply(message);
}

bool Nexthops::listingEnds() {
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
  // The members of a group are no groups.
  for (const std::uint32_t member : at->second.members) {
    const auto single = nexthops_.find(member);
    if (single == nexthops_.end()) continue;
    found.isBlackhole |= single->second.isBlackhole;
    if (!single->second.isBlackhole) found.hops.push_back(single->second.hop);
  }
  return found;
}

bool Nexthops::has(std::uint32_t id, std::uint32_t other) const {
  if (id == other) return true;
  const auto at = nexthops_.find(id);
  return at != nexthops_.end() && std::count(at->second.members.begin(), at->second.members.end(), other) > 0;
}

bool Nexthops::usesInterface(std::uint32_t ifIndex) const {
  return std::any_of(nexthops_.begin(), nexthops_.end(),
                     [&](const auto& entry) { return entry.second.hop.ifIndex == ifIndex; });
}

}  // namespace Mirror
