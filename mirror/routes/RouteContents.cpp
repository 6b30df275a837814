#include "mirror/routes/RouteContents.h"

#include <linux/rtnetlink.h>

#include <array>

#include "quillo/tables/FecIds.h"
#include "quillo/tables/Records.h"
#include "quillo/tables/RouteOrigin.h"

namespace Mirror {

namespace {

// Protocol numbers of routing daemons. The kernel does not interpret them, so its headers lack some; those from 190 on
// are FRR's (zebra/rt_netlink.h).
constexpr std::uint8_t protocolBgp = 186;
constexpr std::uint8_t protocolIsis = 187;
constexpr std::uint8_t protocolOspf = 188;
constexpr std::uint8_t protocolRip = 189;
constexpr std::uint8_t protocolRipng = 190;
constexpr std::uint8_t protocolNhrp = 191;
constexpr std::uint8_t protocolEigrp = 192;
constexpr std::uint8_t protocolLdp = 193;
constexpr std::uint8_t protocolSharp = 194;
constexpr std::uint8_t protocolPbr = 195;
constexpr std::uint8_t protocolFrrStatic = 196;
constexpr std::uint8_t protocolOpenFabric = 197;  // IS-IS for data centres

struct Origin {
  std::uint8_t protocol;
  Quillo::RouteOrigin origin;
  std::uint8_t preference = origin.preference;
};
constexpr std::array<Origin, 16> origins{{{RTPROT_KERNEL, Quillo::connectedRoute},
                                          {RTPROT_BOOT, Quillo::staticRoute},
                                          {RTPROT_STATIC, Quillo::staticRoute},
                                          {RTPROT_BABEL, Quillo::otherRoute, 100},
                                          {protocolBgp, Quillo::bgpRoute},
                                          {protocolIsis, Quillo::isisRoute},
                                          {protocolOspf, Quillo::ospfRoute},
                                          {protocolRip, Quillo::ripRoute},
                                          {protocolRipng, Quillo::ripRoute},
                                          {protocolNhrp, Quillo::otherRoute, 10},
                                          {protocolEigrp, Quillo::otherRoute, 90},
                                          {protocolLdp, Quillo::otherRoute, 150},
                                          {protocolSharp, Quillo::otherRoute, 150},
                                          {protocolPbr, Quillo::otherRoute, 200},
                                          {protocolFrrStatic, Quillo::staticRoute},
                                          {protocolOpenFabric, Quillo::isisRoute}}};
constexpr Origin unknownOrigin{0, Quillo::otherRoute};

const Origin& originOf(const RouteContent& content) {
  for (const Origin& origin : origins) {
    if (origin.protocol == content.protocol) return origin;
  }
  return unknownOrigin;
}

}  // namespace

std::size_t RouteContents::Hash::operator()(const RouteContent& content) const {
  std::size_t seed = content.protocol;
  boost::hash_combine(seed, content.type | content.af << 8);
  boost::hash_combine(seed, content.nexthopId);
  boost::hash_combine(seed, content.source.hash());
  for (const auto& hop : content.hops) {
    boost::hash_combine(seed, hop.gateway.hash());
    boost::hash_combine(seed, hop.ifIndex * 2 + hop.isDead);
  }
  return seed;
}

RouteContents::Slot RouteContents::refer(const RouteContent& content) {
  const auto [at, isNew] = slots_.try_emplace(content, 0);
  if (isNew) {
    if (free_.empty()) {
      at->second = static_cast<Slot>(nodes_.size());
      nodes_.emplace_back();
    } else {
      at->second = free_.back();
      free_.pop_back();
    }
    nodes_[at->second] = {&at->first, 0, take(resolve_(content))};
    if (content.nexthopId != 0) byNexthop_.emplace(content.nexthopId, at->second);
  }
  ++nodes_[at->second].references;
  return at->second;
}

void RouteContents::release(Slot slot) {
  Node& node = nodes_[slot];
  if (--node.references > 0) return;
  fecDetached(node);
  byNexthop_.erase({node.content->nexthopId, slot});
  slots_.erase(slots_.find(*node.content));
  node = {};
  free_.push_back(slot);
}

RouteContents::Fec* RouteContents::take(const std::vector<Quillo::Fib::Via>& vias) {
  if (vias.empty()) return nullptr;
  // If two sets of vias have the same hash, the later one takes the next number.
  for (auto id = Quillo::fecIdOf(vias);; id = Quillo::Fib::FecId(id.value() + 1)) {
    if (id.value() == 0) continue;  // reserved for "none"
    const auto [at, isNew] = fecs_.try_emplace(id.value());
    Fec& found = at->second;
    if (isNew) {
      found.fec = {id, vias};
    } else if (found.fec.via != vias) {
      continue;
    }
    ++found.contents;
    return &found;
  }
}

void RouteContents::fecDetached(Node& node) {
  if (!node.fec) return;
  drop(*std::exchange(node.fec, nullptr));
}

void RouteContents::drop(Fec& fec) {
  --fec.contents;
  dropIfUnused(fec);
}

void RouteContents::dropIfUnused(Fec& fec) {
  if (fec.contents == 0 && fec.stored == 0 && fec.planned == 0) fecs_.erase(fec.fec.fecId.value());
}

std::vector<Quillo::Fib::FecId> RouteContents::storedIds() const {
  std::vector<Quillo::Fib::FecId> ids;
  for (const auto& [id, fec] : fecs_) {
    if (fec.stored > 0) ids.push_back(fec.fec.fecId);
  }
  return ids;
}

void RouteContents::forgetStored() {
  for (auto at = fecs_.begin(); at != fecs_.end();) {
    at->second.stored = 0;
    at->second.planned = 0;
    at = at->second.contents == 0 ? fecs_.erase(at) : std::next(at);
  }
}

bool RouteContents::any(const Condition& condition) const {
  for (const auto& [content, slot] : slots_) {
    if (condition(content)) return true;
  }
  return false;
}

std::vector<RouteContents::Slot> RouteContents::having(const NexthopIds& ids) const {
  std::vector<Slot> slots;
  for (const auto id : ids) {
    for (auto at = byNexthop_.lower_bound({id, 0}); at != byNexthop_.end() && at->first == id; ++at) {
      slots.push_back(at->second);
    }
  }
  return slots;
}

bool RouteContents::isOutdated(Slot slot) const {
  static const std::vector<Quillo::Fib::Via> none;
  const Node& node = nodes_[slot];
  return resolve_(*node.content) != (node.fec ? node.fec->fec.via : none);
}

std::unordered_set<RouteContents::Slot> RouteContents::outdated(const Condition& condition) const {
  std::unordered_set<Slot> slots;
  for (const auto& [content, slot] : slots_) {
    if (condition(content) && isOutdated(slot)) slots.insert(slot);
  }
  return slots;
}

std::unordered_set<RouteContents::Slot> RouteContents::outdated(const NexthopIds& ids) const {
  std::unordered_set<Slot> slots;
  for (const Slot slot : having(ids)) {
    if (isOutdated(slot)) slots.insert(slot);
  }
  return slots;
}

void RouteContents::resolveAgain(const std::unordered_set<Slot>& slots) {
  for (const Slot slot : slots) {
    Node& node = nodes_[slot];
    fecDetached(node);
    node.fec = take(resolve_(*node.content));
  }
}

Routing::Fib::RouteType routeTypeOf(const RouteContent& content) {
  const Origin& origin = originOf(content);
  return Routing::Fib::RouteType(content.af == Vantu::ipv6_ ? origin.origin.type6 : origin.origin.type);
}

Routing::RoutePreference preferenceOf(const RouteContent& content) {
  return Routing::RoutePreference(originOf(content).preference);
}

bool isNotPersistent(const RouteContent& content) {
  return content.protocol == RTPROT_BOOT;
}

bool isNexthopGroup(const RouteContent& content) {
  const bool isStatic = content.protocol == RTPROT_BOOT || content.protocol == RTPROT_STATIC;
  return isStatic && content.nexthopId != 0;
}

Routing::Fib::RouteAction actionOf(const RouteContent& content, const std::vector<Quillo::Fib::Via>& vias) {
  using Action = Routing::Fib::RouteAction;
  if (content.type == RTN_BLACKHOLE) return Action::blackhole;
  if (content.type == RTN_UNREACHABLE) return Action::unreachable;
  if (content.type == RTN_PROHIBIT) return Action::prohibit;
  // A next-hop object may be a blackhole: its via has neither interface nor address.
  const bool leadsNowhere = vias.size() == 1 && vias.front().intfId.empty() && vias.front().hop.isZero();
  return leadsNowhere ? Action::blackhole : Action::forward;
}

}  // namespace Mirror
