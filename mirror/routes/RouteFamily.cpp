#include "mirror/routes/RouteFamily.h"

#include <algorithm>
#include <boost/container_hash/hash.hpp>

#include "mirror/routes/RouteContents.h"
#include "quillo/tables/FecIds.h"
#include "quillo/tables/Records.h"

namespace Mirror {

namespace {

template <class PrefixType>
constexpr bool isIpv6 = std::is_same_v<PrefixType, Vantu::Ip6Prefix>;

bool isSameHop(const RouteHop& a, const RouteHop& b) {
  return a.gateway == b.gateway && a.ifIndex == b.ifIndex;
}

// Whether the two differ at most in which hops are dead.
bool isSameRoute(const RouteContent& a, const RouteContent& b) {
  return a.type == b.type && a.protocol == b.protocol && a.nexthopId == b.nexthopId && a.source == b.source &&
         std::equal(a.hops.begin(), a.hops.end(), b.hops.begin(), b.hops.end(), isSameHop);
}

// Equal for routes that are the same.
std::uint64_t routeHash(const RouteContent& content) {
  std::size_t hash = 0;
  boost::hash_combine(hash, content.type);
  boost::hash_combine(hash, content.protocol);
  boost::hash_combine(hash, content.nexthopId);
  for (const auto& hop : content.hops) {
    boost::hash_combine(hash, hop.ifIndex);
    boost::hash_combine(hash, hop.gateway.hash());
  }
  return hash;
}

bool hasHop(const RouteContent& content, const RouteHop& hop) {
  return std::any_of(content.hops.begin(), content.hops.end(),
                     [&](const RouteHop& other) { return isSameHop(hop, other); });
}

bool hasAllHops(const RouteContent& whole, const RouteContent& part) {
  return whole.type == part.type && !part.hops.empty() && part.hops.size() < whole.hops.size() &&
         std::all_of(part.hops.begin(), part.hops.end(), [&](const RouteHop& hop) { return hasHop(whole, hop); });
}

// Whether the kernel may merge this IPv6 route with others of its prefix into one multipath route.
bool mayBeMultipath(const RouteContent& content) {
  return content.hops.size() > 1 || (content.hops.size() == 1 && content.hops.front().gateway.isSet());
}

}  // namespace

template <class PrefixType>
auto RouteFamily<PrefixType>::placeOf(const RouteMessage& message) -> Place {
  if constexpr (isIpv6<PrefixType>) {
    return {PrefixType(message.address.v6(), message.length), message.metric, message.tos};
  } else {
    return {PrefixType(message.address.v4(), message.length), message.metric, message.tos};
  }
}

template <class PrefixType>
auto RouteFamily<PrefixType>::best(const PrefixType& prefix) const -> Best {
  Best found;
  aliases_.forEachOf(prefix, [&](std::uint32_t metric, const Alias& alias) {
    Fec* fec = contents_.fec(alias.content);
    if (fec) found = {metric, &contents_.content(alias.content), fec};
    return fec == nullptr;
  });
  const auto joined = joined_.find(prefix);
  if (found.fec != nullptr && joined != joined_.end()) found.fec = joined->second;
  return found;
}

// Sets the FEC of a link-local destination that has several routes. It is kept for those alone, and made when it is
// written: a start adds one route after another.
template <class PrefixType>
void RouteFamily<PrefixType>::joinHops(const PrefixType& prefix) {
  if constexpr (!isIpv6<PrefixType>) return;
  if (!prefix.address().isLinkLocal()) return;
  std::vector<Quillo::Fib::Via> vias;
  std::size_t routes = 0;
  aliases_.forEachOf(prefix, [&](std::uint32_t, const Alias& alias) {
    const Fec* const fec = contents_.fec(alias.content);
    if (fec == nullptr) return true;
    const bool isRefusal = fec->fec.via.front().intfId.empty();
    if (isRefusal) return routes > 0;
    ++routes;
    vias.insert(vias.end(), fec->fec.via.begin(), fec->fec.via.end());
    return vias.size() < Quillo::Fib::Fec::maxVias;
  });
  Quillo::sortVias(vias);
  if (vias.size() > Quillo::Fib::Fec::maxVias) vias.resize(Quillo::Fib::Fec::maxVias);
  const auto at = joined_.find(prefix);
  Fec* const before = at == joined_.end() ? nullptr : at->second;
  if (routes > 1) {
    joined_[prefix] = contents_.take(vias);
  } else if (before != nullptr) {
    joined_.erase(at);
  }
  if (before != nullptr) contents_.drop(*before);
}

// Call it before the prefix changes: the store has the current state of a prefix that is not pending.
template <class PrefixType>
void RouteFamily<PrefixType>::touch(const PrefixType& prefix) {
  if (isShown_ && !pending_.contains(prefix)) pending_.emplace(prefix, best(prefix).fec);
}

template <class PrefixType>
void RouteFamily<PrefixType>::change(const Place& place, const Group& before, Group after) {
  const auto isSame = [](const Alias& a, const Alias& b) { return a.content == b.content; };
  if (!std::equal(before.begin(), before.end(), after.begin(), after.end(), isSame)) touch(place.prefix);
  aliases_.setGroup(place, after);
  for (const auto slot : released_) contents_.release(slot);
  released_.clear();
}

template <class PrefixType>
auto RouteFamily<PrefixType>::find(Group& group, const RouteContent& content) const -> Position {
  return std::find_if(group.begin(), group.end(),
                      [&](const Alias& alias) { return isSameRoute(contents_.content(alias.content), content); });
}

template <class PrefixType>
void RouteFamily<PrefixType>::drop(Group& group, Position alias) {
  released_.push_back(alias->content);
  group.erase(alias);
}

template <class PrefixType>
void RouteFamily<PrefixType>::replace(Alias& alias, const RouteContent& content) {
  released_.push_back(alias.content);
  alias = aliasOf(content);
}

template <class PrefixType>
void RouteFamily<PrefixType>::notified(const RouteMessage& message) {
  const Place place = placeOf(message);
  if (isListing_) touched_.insert(place);
  const Group before = aliases_.group(place);
  Group after = before;
  // The dump has not reached this place; it may have other routes, which dumped() will now ignore.
  if (isListing_ && before.empty() && message.action != RouteMessage::Action::alone) isDoubtful_ = true;
  if (message.action == RouteMessage::Action::gone) {
    remove(message.content, after);
  } else {
    add(message, after);
  }
  for (Alias& alias : after) alias.stamp = stamp_;
  change(place, before, std::move(after));
}

template <class PrefixType>
void RouteFamily<PrefixType>::add(const RouteMessage& message, Group& group) {
  using Action = RouteMessage::Action;
  if (message.action == Action::alone) {
    // Other known routes of this place were deleted without a notification.
    const auto present = find(group, message.content);
    const std::size_t kept = present == group.end() ? 0 : 1;
    if (kept > 0) std::iter_swap(group.begin(), present);
    while (group.size() > kept) {
      isDoubtful_ = true;
      drop(group, std::prev(group.end()));
    }
  }
  auto place = find(group, message.content);
  if (place == group.end() && message.action == Action::replaced) place = replacedBy(message.content, group);
  if (place == group.end() && isIpv6<PrefixType>) place = extendedBy(message.content, group);
  if (place != group.end()) {
    replace(*place, message.content);
    return;
  }
  if (message.action == Action::replaced) isDoubtful_ = true;
  // The kernel appends an IPv6 route that it cannot merge with another one.
  const bool isFirst = message.action == Action::first && !isIpv6<PrefixType>;
  group.insert(isFirst ? group.begin() : group.end(), aliasOf(message.content));
}

template <class PrefixType>
auto RouteFamily<PrefixType>::replacedBy(const RouteContent& content, Group& group) const -> Position {
  if (!isIpv6<PrefixType>) return group.begin();
  const auto alike = std::find_if(group.begin(), group.end(), [&](const Alias& alias) {
    return mayBeMultipath(contents_.content(alias.content)) == mayBeMultipath(content);
  });
  return alike == group.end() ? group.begin() : alike;
}

template <class PrefixType>
auto RouteFamily<PrefixType>::extendedBy(const RouteContent& content, Group& group) const -> Position {
  return std::find_if(group.begin(), group.end(),
                      [&](const Alias& alias) { return hasAllHops(content, contents_.content(alias.content)); });
}

template <class PrefixType>
void RouteFamily<PrefixType>::remove(const RouteContent& content, Group& group) {
  if (const auto present = find(group, content); present != group.end()) return drop(group, present);
  // Some hops of a multipath route.
  for (Alias& alias : group) {
    RouteContent rest = contents_.content(alias.content);
    if (!isIpv6<PrefixType> || !hasAllHops(rest, content)) continue;
    std::erase_if(rest.hops, [&](const RouteHop& hop) { return hasHop(content, hop); });
    return replace(alias, rest);
  }
  if (group.empty()) return;
  isDoubtful_ = true;
  if (group.size() == 1) drop(group, group.begin());
}

template <class PrefixType>
void RouteFamily<PrefixType>::beginDump(DumpStamp stamp) {
  stamp_ = stamp;
  isListing_ = true;
  touched_.clear();
  sweptTo_.reset();
  inOrder_ = {};
}

template <class PrefixType>
void RouteFamily<PrefixType>::endDump() {
  isListing_ = false;
  touched_.clear();
  inOrder_ = {};
}

// Takes the next route of a dump if it is the next one of its place, or a new one behind all others, without a search
// among the others: the kernel lists the routes of a place in succession.
template <class PrefixType>
bool RouteFamily<PrefixType>::dumpedInOrder(const Place& place, const RouteContent& content) {
  auto& [at, routes, hashes] = inOrder_;
  if (at != place) {
    at = place;
    routes = 0;
    hashes.clear();
  }
  if (routes == 1) hashes.insert(routeHash(contents_.content(aliases_.find(place, 0)->content)));
  Alias* const known = aliases_.find(place, routes);
  const bool isSame = known != nullptr && isSameRoute(contents_.content(known->content), content);
  if (known != nullptr && (!isSame || known->stamp == stamp_)) return false;
  if (routes > 0 && !hashes.insert(routeHash(content)).second) return false;
  ++routes;
  if (isSame && contents_.content(known->content) == content) {
    known->stamp = stamp_;
    return true;
  }
  hasFound_ = true;
  touch(place.prefix);
  if (isSame) {
    const auto slot = known->content;
    *known = aliasOf(content);
    contents_.release(slot);
  } else {
    aliases_.append(place, routes - 1, aliasOf(content));
  }
  return true;
}

// Routes that this dump has had are at the front of their group, in the order of the dump.
template <class PrefixType>
void RouteFamily<PrefixType>::dumped(const RouteMessage& message) {
  const Place place = placeOf(message);
  if (touched_.contains(place) || dumpedInOrder(place, message.content)) return;
  const Group before = aliases_.group(place);
  Group after = before;
  std::size_t listed = 0;
  while (listed < after.size() && after[listed].stamp == stamp_) ++listed;
  auto present = find(after, message.content);
  if (present != after.end() && present->stamp == stamp_) return;
  const auto wanted = after.begin() + static_cast<std::ptrdiff_t>(listed);
  if (present == after.end()) {
    after.insert(wanted, aliasOf(message.content));
    hasFound_ = true;
  } else {
    present->stamp = stamp_;
    if (contents_.content(present->content) != message.content) {
      replace(*present, message.content);
      hasFound_ = true;
    }
    std::rotate(wanted, present, std::next(present));
  }
  change(place, before, std::move(after));
  if (inOrder_.routes == listed) {
    ++inOrder_.routes;
    inOrder_.hashes.insert(routeHash(message.content));
  }
}

template <class PrefixType>
bool RouteFamily<PrefixType>::sweep(std::size_t limit) {
  std::vector<Place> unlisted;
  std::optional<Place> last;
  bool isThrough = true;
  aliases_.forEach(sweptTo_.value_or(Place()), [&](const Place& place, const Alias& alias) {
    const bool isAnother = last != place;
    if (limit == 0 && isAnother) {
      sweptTo_ = place;
      isThrough = false;
      return false;
    }
    if (limit > 0) --limit;
    if (alias.stamp != stamp_ && (unlisted.empty() || unlisted.back() != place)) unlisted.push_back(place);
    last = place;
    return true;
  });
  for (const Place& place : unlisted) {
    const Group before = aliases_.group(place);
    Group after;
    for (const Alias& alias : before) {
      if (alias.stamp == stamp_) {
        after.push_back(alias);
      } else {
        released_.push_back(alias.content);
      }
    }
    hasFound_ = true;
    change(place, before, std::move(after));
  }
  return isThrough;
}

template <class PrefixType>
void RouteFamily<PrefixType>::touchContents(const std::unordered_set<RouteContents::Slot>& slots) {
  aliases_.forEach(Place(), [&](const Place& place, const Alias& alias) {
    if (slots.contains(alias.content)) touch(place.prefix);
    return true;
  });
}

template <class PrefixType>
void RouteFamily<PrefixType>::allPending() {
  isShown_ = true;
  plan_.clear();
  for (auto& [prefix, fec] : pending_) fec = nullptr;
  aliases_.forEach(Place(), [&](const Place& place, const Alias&) {
    pending_.emplace_hint(pending_.end(), place.prefix, nullptr);
    return true;
  });
}

template <class PrefixType>
std::vector<PrefixType> RouteFamily<PrefixType>::hide() {
  allPending();
  std::vector<PrefixType> prefixes;
  prefixes.reserve(pending_.size());
  for (const auto& [prefix, fec] : pending_) prefixes.push_back(prefix);
  pending_.clear();
  for (const auto& [prefix, fec] : joined_) contents_.drop(*fec);
  joined_.clear();
  isShown_ = false;
  return prefixes;
}

template <class PrefixType>
void RouteFamily<PrefixType>::plan(std::size_t limit, std::vector<Fec*>& fecs) {
  plan_.clear();
  for (const auto& [prefix, before] : pending_) {
    if (plan_.size() == limit) break;
    joinHops(prefix);
    plan_.push_back({prefix, before, best(prefix)});
    Fec* now = plan_.back().now.fec;
    if (now == before) continue;
    if (now) {
      ++now->planned;
      fecs.push_back(now);
    }
    if (before) {
      --before->planned;
      fecs.push_back(before);
    }
  }
}

template <class PrefixType>
void RouteFamily<PrefixType>::addTo(Quillo::Batch& batch, const Vrf::VrfIdMap::VrfId& vrfId) const {
  for (const auto& [prefix, before, now] : plan_) {
    if (!now.fec) {
      Quillo::routeDel(batch, vrfId, prefix);
      continue;
    }
    Quillo::BasicRoute<PrefixType> route;
    route.prefix = prefix;
    route.routeType = routeTypeOf(*now.content);
    route.metric = Routing::RouteMetric(now.metric);
    route.routePreference = preferenceOf(*now.content);
    route.fecId = now.fec->fec.fecId;
    route.isPersistent = !isNotPersistent(*now.content);
    route.isNexthopGroup = isNexthopGroup(*now.content);
    route.action = actionOf(*now.content, now.fec->fec.via);
    Quillo::routeIs(batch, vrfId, route);
  }
}

template <class PrefixType>
void RouteFamily<PrefixType>::written() {
  for (const auto& planned : plan_) pending_.erase(planned.prefix);
  plan_.clear();
}

template <class PrefixType>
void RouteFamily<PrefixType>::addGateways(std::vector<Quillo::Fib::Via>& gateways) const {
  aliases_.forEachOf(PrefixType(), [&](std::uint32_t, const Alias& alias) {
    const Fec* const fec = contents_.fec(alias.content);
    if (fec == nullptr) return true;
    std::ranges::copy_if(fec->fec.via, std::back_inserter(gateways),
                         [](const auto& via) { return via.intfId.isValid() && !via.hop.isZero(); });
    return true;
  });
}

template class RouteFamily<Vantu::Prefix>;
template class RouteFamily<Vantu::Ip6Prefix>;

}  // namespace Mirror
