#include "mirror/routes/NamespaceRoutes.h"

#include <linux/rtnetlink.h>

#include <algorithm>
#include <cmath>

#include "kel/Trace.h"
#include "quillo/tables/FecIds.h"

namespace Mirror {

namespace {

Kel::TraceHandle namespaceRoutesTrace("MirrorRoutes");

// The kernel notifies of a link before it changes the routes, which takes milliseconds for very many.
constexpr Kel::Seconds shortly = 0.02;
constexpr Kel::Seconds muchLater = 1;
// The pause after a dump, as a multiple of its duration: pauseFactor, but at most longPause or leastPauseFactor,
// whichever is longer. A dump of a million routes takes seconds; a third of the time then remains for other work.
constexpr double pauseFactor = 2;
constexpr Kel::Seconds longPause = 2;
constexpr double leastPauseFactor = 0.5;
constexpr Kel::Seconds longestInterval = 64;
// Between dumps for the lifetimes of advertised routers; and after a new one, of which the kernel notifies before it
// sets the lifetime.
constexpr Kel::Seconds lifetimeInterval = 60;
constexpr Kel::Seconds lifetimeDelay = 1;
// The kernel's lifetimes are rounded, and take a moment to arrive.
constexpr Kel::Seconds lifetimeNoise = 2;
// Routes that one piece of a sweep visits.
constexpr std::size_t sweepPiece = 50'000;

Kel::Seconds pauseAfter(Kel::Seconds listing) {
  return std::min(listing * pauseFactor, std::max(longPause, listing * leastPauseFactor));
}

Vantu::IpGenAddr onLink(Vantu::Af af) {
  return af == Vantu::ipv6_ ? Vantu::IpGenAddr(Vantu::Ip6Addr()) : Vantu::IpGenAddr(Vantu::IpAddr());
}

}  // namespace

NamespaceRoutes::NamespaceRoutes(PublishedRoutes& published, IntfIdOf intfIdOf)
    : published_(published), intfIdOf_(std::move(intfIdOf)) {
}

void NamespaceRoutes::updateTables(const Tables& tables) {
  // Removals first, since VRF ids may have been reassigned.
  for (auto at = tables_.begin(); at != tables_.end();) {
    const auto wanted = tables.find(at->first);
    if (wanted != tables.end() && wanted->second != at->second->vrfId()) at->second->vrfIdIs({});
    at = wanted == tables.end() ? tables_.erase(at) : std::next(at);
  }
  for (const auto& [use, vrfId] : tables) {
    auto& table = tables_[use];
    if (!table) {
      table =
          std::make_unique<VrfRoutes>(published_, [this](const RouteContent& content) { return resolve(content); });
      table->beginDump(stamp_);
      if (listings_ > 0) requestDump();
    }
    table->vrfIdIs(vrfId);
  }
  mayDefaultsDiffer_ = true;
}

void NamespaceRoutes::notified(const RouteMessage& message) {
  for (auto at = firstUse(message.table); at != tables_.end() && at->first.table == message.table; ++at) {
    if (message.address.af() == Vantu::ipv6_) areIpv6RoutesMoving_ = true;
    if (message.length == 0) noteDefaultRoute(message);
    at->second->notified(message);
    // During a dump, endDump() asks.
    if (steps_.empty() && at->second->takeDoubt()) requestDump();
  }
}

void NamespaceRoutes::notified(const NexthopMessage& message) {
  if (nexthops_.notified(message)) events_.nexthops.insert(message.id);
  if (message.isDeleted) events_.goneNexthops.insert(message.id);
}

RouteContents::Condition NamespaceRoutes::forwardsOn(const std::set<std::uint32_t>& ifIndexes) const {
  return [ifIndexes, ids = nexthops_.on(ifIndexes)](const RouteContent& content) {
    if (content.nexthopId != 0) return ids.contains(content.nexthopId);
    return std::any_of(content.hops.begin(), content.hops.end(),
                       [&](const RouteHop& hop) { return ifIndexes.contains(hop.ifIndex); });
  };
}

RouteContents::Condition NamespaceRoutes::prefersOneOf(const std::set<Vantu::IpGenAddr>& addresses) {
  return [&addresses](const RouteContent& content) {
    return content.source.isSet() && addresses.contains(content.source);
  };
}

void NamespaceRoutes::settle() {
  const auto events = std::exchange(events_, {});
  if (!events.goneNexthops.empty() && any(nexthops_.withGroups(events.goneNexthops))) requestDump();
  // The kernel deletes next-hop objects with their link, without a notification.
  const auto& links = events.links;
  if (!links.empty() && (!nexthops_.on(links).empty() || any(forwardsOn(links)))) requestDump();
  if (!events.addresses.empty()) addressesGone(events.addresses);
  if (!events.nexthops.empty()) reassess(nexthops_.withGroups(events.nexthops));
}

// Most addresses are preferred only by their connected route, whose deletion the kernel notifies shortly; then
// confirmDump() cancels the dump.
void NamespaceRoutes::addressesGone(const std::set<Vantu::IpGenAddr>& addresses) {
  if (!any(prefersOneOf(addresses))) return;
  if (!due()) isOnlyForAddresses_ = true;
  goneAddresses_.insert(addresses.begin(), addresses.end());
  if (!soon_) soon_ = Kel::System::currentTime() + shortly;
}

bool NamespaceRoutes::confirmDump() {
  const bool isForAddresses = !goneAddresses_.empty() && any(prefersOneOf(goneAddresses_));
  const bool isNeeded = !isOnlyForAddresses_ || isForAddresses;
  if (isForAddresses) requestDump();
  if (!isNeeded) soon_.reset();
  goneAddresses_.clear();
  isOnlyForAddresses_ = false;
  return isNeeded;
}

void NamespaceRoutes::renamed(const std::set<std::uint32_t>& ifIndexes) {
  reassess(forwardsOn(ifIndexes));
}

void NamespaceRoutes::resolveAll() {
  reassess([](const RouteContent&) { return true; });
}

template <class Which>
bool NamespaceRoutes::any(const Which& which) const {
  return std::any_of(tables_.begin(), tables_.end(),
                     [&](const auto& entry) { return entry.second->contents().any(which); });
}

template <class Which>
void NamespaceRoutes::reassess(const Which& which) {
  mayDefaultsDiffer_ = true;
  for (const auto& [use, table] : tables_) table->reassess(which);
}

// An on-link hop has the zero address; a route that refuses packets has such a hop without an interface.
std::vector<Quillo::Fib::Via> NamespaceRoutes::resolve(const RouteContent& content) {
  const std::vector<Quillo::Fib::Via> refusal{{onLink(content.af), Vantu::IntfId()}};
  if (!content.isUnicast()) return refusal;
  Nexthops::Forwarding forwarding{false, content.hops};
  if (content.nexthopId != 0) {
    const auto found = nexthops_.forwarding(content.nexthopId);
    if (!found) return {};
    if (found->isBlackhole) return refusal;
    forwarding = *found;
  }
  std::vector<Quillo::Fib::Via> vias;
  for (const auto& hop : forwarding.hops) {
    const Vantu::IntfId intfId = hop.ifIndex == 0 ? Vantu::IntfId() : intfIdOf_(hop.ifIndex);
    if (hop.isDead || (hop.ifIndex != 0 && !intfId.isValid())) continue;
    vias.push_back({hop.gateway.isSet() ? hop.gateway : onLink(content.af), intfId});
  }
  Quillo::sortVias(vias);
  if (vias.size() > Quillo::Fib::Fec::maxVias) {
    if (!std::exchange(isCutTold_, true)) {
      QTRACE(namespaceRoutesTrace, 0) << "a route with " << vias.size() << " next hops is published with the first "
                                      << Quillo::Fib::Fec::maxVias << " of them, like all such routes";
    }
    vias.resize(Quillo::Fib::Fec::maxVias);
  }
  return vias;
}

void NamespaceRoutes::requestDump() {
  const Kel::Seconds now = Kel::System::currentTime();
  if (!soon_) soon_ = now + shortly;
  later_ = now + muchLater;
  isOnlyForAddresses_ = false;
}

std::optional<Kel::Seconds> NamespaceRoutes::due() const {
  if (!soon_ && !later_ && !refresh_) return std::nullopt;
  std::optional<Kel::Seconds> wanted = soon_;
  for (const auto& other : {later_, refresh_}) {
    if (other && (!wanted || *other < *wanted)) wanted = other;
  }
  return std::max(*wanted, notBefore_);
}

void NamespaceRoutes::beginDump() {
  begun_ = Kel::System::currentTime();
  soon_.reset();
  refresh_.reset();
  if (later_ && *later_ <= begun_) later_.reset();
  mayLack_ = areIpv6RoutesMoving_ = isSweeping_ = false;
  ++stamp_;
  next_ = 0;
  steps_ = {{RtDump::nexthops}};
  nexthops_.beginDump();
  for (const auto& [use, table] : tables_) {
    table->beginDump(stamp_);
    steps_.push_back({RtDump::ipv4Routes, use.table, use.device});
    steps_.push_back({RtDump::ipv6Routes, use.table, use.device});
  }
}

// Old kernels ignore the requested table and send all of them in each step.
void NamespaceRoutes::dumped(const RouteMessage& message) {
  if (next_ >= steps_.size()) return;
  const Step& step = steps_[next_];
  if (message.table != step.table) return;
  if (message.length == 0) noteDefaultRoute(message);
  const auto at = tables_.find({step.table, step.device});
  if (at != tables_.end()) at->second->dumped(message);
}

// When the IPv6 tree changes between two datagrams, the kernel restarts at its root and skips as many routes as it has
// sent, which may be others.
void NamespaceRoutes::endStep(bool mayLack, unsigned pieces) {
  const Step& step = steps_[next_];
  mayLack |= step.what == RtDump::ipv6Routes && areIpv6RoutesMoving_ && pieces > 1;
  areIpv6RoutesMoving_ = false;
  mayLack_ |= mayLack;
  isSweeping_ = !mayLack;
  if (!isSweeping_) ++next_;
}

bool NamespaceRoutes::work() {
  if (!isSweeping_) return true;
  const Step& step = steps_[next_];
  if (step.what == RtDump::nexthops) {
    isSweeping_ = false;
    if (nexthops_.endDump()) reassess([](const RouteContent& content) { return content.nexthopId != 0; });
  } else if (const auto at = tables_.find({step.table, step.device}); at != tables_.end()) {
    isSweeping_ = !at->second->sweep(step.what == RtDump::ipv4Routes ? Vantu::ipv4_ : Vantu::ipv6_, sweepPiece);
  } else {
    isSweeping_ = false;
  }
  if (isSweeping_) return false;
  ++next_;
  return true;
}

void NamespaceRoutes::endDump() {
  const Kel::Seconds now = Kel::System::currentTime();
  bool hasFound = false;
  for (const auto& [use, table] : tables_) {
    table->endDump();
    const bool found = table->takeFound();
    hasFound |= table->takeDoubt() || (found && listings_ > 0);
  }
  steps_.clear();
  next_ = 0;
  mayDefaultsDiffer_ = true;  // the sweep may have deleted some
  std::erase_if(advertised_,
                [now](const auto& entry) { return entry.second.expires != 0 && entry.second.expires < now; });
  if (!advertised_.empty()) refresh_ = now + lifetimeInterval;
  ++listings_;
  // Back-pressure made the first dump longer.
  notBefore_ = listings_ == 1 ? now : now + pauseAfter(now - begun_);
  interval_ = mayLack_ ? std::clamp(interval_ * 2, muchLater, longestInterval) : muchLater;
  if (mayLack_ || hasFound) {
    const Kel::Seconds wanted = now + (mayLack_ ? interval_ : muchLater);
    later_ = later_ ? std::min(*later_, wanted) : wanted;
  }
  if (!mayLack_) interval_ = 0;
  QTRACE(namespaceRoutesTrace, 2) << "listed " << routes() << " routes in " << now - begun_ << " s";
}

void NamespaceRoutes::noteDefaultRoute(const RouteMessage& message) {
  mayDefaultsDiffer_ = true;
  if (message.content.protocol != RTPROT_RA) return;
  const Kel::Seconds now = Kel::System::currentTime();
  for (const RouteHop& hop : message.content.hops) {
    if (message.action == RouteMessage::Action::gone) {
      advertised_.erase({hop.gateway, hop.ifIndex});
      continue;
    }
    auto& router = advertised_[{hop.gateway, hop.ifIndex}];
    const Kel::Seconds expires = message.expires ? now + *message.expires : 0;
    if (std::abs(expires - router.expires) > lifetimeNoise) router.expires = expires;
    router.preference = message.preference;
    if (steps_.empty() && !refresh_) refresh_ = now + lifetimeDelay;
  }
}

NamespaceRoutes::DefaultRouters NamespaceRoutes::advertisedRouters() const {
  DefaultRouters routers;
  for (const auto& [hop, router] : advertised_) {
    const double offset = router.expires == 0 ? 0 : Kel::System::utcOffset();
    routers[{hop.first, intfIdOf_(hop.second)}] =
        Routing::DefaultRouterFacts(router.expires, offset, router.preference);
  }
  return routers;
}

void NamespaceRoutes::takeDefaultRouters(const std::function<void(const VrfId&, const DefaultRouters&)>& use) {
  if (!std::exchange(mayDefaultsDiffer_, false)) return;
  const auto advertised = advertisedRouters();
  for (const auto& [tableUse, table] : tables_) {
    if (!table->vrfId()) continue;
    DefaultRouters routers;
    for (const auto& via : table->gateways()) {
      const Routing::DefaultRouterKey key(via.hop, via.intfId);
      const auto known = advertised.find(key);
      routers[key] = known == advertised.end() ? Routing::DefaultRouterFacts() : known->second;
    }
    use(*table->vrfId(), routers);
  }
}

std::size_t NamespaceRoutes::routes() const {
  std::size_t count = 0;
  for (const auto& [use, table] : tables_) count += table->size();
  return count;
}

const VrfRoutes* NamespaceRoutes::table(std::uint32_t number) const {
  const auto at = tables_.lower_bound({number, 0});
  return at == tables_.end() || at->first.table != number ? nullptr : at->second.get();
}

}  // namespace Mirror
