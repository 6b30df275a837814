#include "fibstats/agent/FibStatsMachine.h"

#include <fmt/format.h>

#include "kel/Errors.h"
#include "kel/Trace.h"
#include "vantu/IntfId.h"

namespace FibStatsSnmp {
namespace {

Kel::TraceHandle fibStatsSmTrace("FibStatsSm");

bool isOnManagementInterface(const Vantu::IntfId& intfId) {
  return Vantu::MgmtIntfId::isMgmtIntfId(intfId);
}

// Whether the table can be read; a null table has no entries.
template <class Table>
bool isReady(const Kel::Ptr<const Table>& table) {
  return !table || table->initialized();
}

}  // namespace

template <class Family>
FibStatsMachine<Family>::~FibStatsMachine() {
  stop();
}

template <class Family>
void FibStatsMachine<Family>::kelStart() {
  fibStatsMib()->routeDelAll(Family::version);  // removes the counts of an earlier machine
  kelRouteStatus_ = Kel::makePtr<KelRouteStatus>(this);
  kelRouteStatus_->notifierIs(routeStatus());
  kelArpQuillo_ = Kel::makePtr<KelArpQuillo>(this);
  kelArpQuillo_->notifierIs(arpQuillo());
  review();
}

template <class Family>
void FibStatsMachine<Family>::kelStop() {
  stop();
}

template <class Family>
void FibStatsMachine<Family>::stop() {
  if (const auto reactor = std::exchange(kelRouteStatus_, nullptr)) reactor->notifierIs(nullptr);
  if (const auto reactor = std::exchange(kelArpQuillo_, nullptr)) reactor->notifierIs(nullptr);
  if (const auto task = std::exchange(task_, nullptr)) task->kelStop();
  review_ = {};
  prefixRouteTypeDelAll();
}

template <class Family>
void FibStatsMachine<Family>::routeStatusIs(Kel::Ptr<const RouteStatus> routeStatus) {
  if (routeStatus_ == routeStatus) return;
  routeStatus_ = std::move(routeStatus);
  if (isStopped()) return;
  kelRouteStatus_->notifierIs(routeStatus_);
  // A host that counted as attached may have a route in this table.
  review_ = {};
  prefixRouteTypeDelAll();
  fibStatsMib()->routeDelAll(Family::version);
  review();
}

template <class Family>
void FibStatsMachine<Family>::vrfIdIs(VrfId vrfId) {
  if (vrfId_ == vrfId) return;
  vrfId_ = vrfId;
  review();
}

template <class Family>
bool FibStatsMachine<Family>::fibRouteFilter(const Route& route) const {
  if (!Family::isSkipped(route.routeType.value())) return false;
  QTRACE(fibStatsSmTrace, 6) << "FibStatsMib: skip " << route.prefix << " type " << int{route.routeType.value()};
  return true;
}

template <class Family>
RouteType FibStatsMachine<Family>::mibRouteType(const Route& route) const {
  if (const auto type = Family::typeOf(route.routeType.value())) return *type;
  if (!routingConfig()) return routeTypeStatic;
  const auto* facts = routingConfig()->staticRoute({route.prefix, route.preference()});
  const bool isNexthopGroup = facts ? facts->nexthopGroup() : route.isNexthopGroup;
  const bool isPersistent = facts ? facts->persistent() : route.isPersistent;
  if (isNexthopGroup) return routeTypeStaticNexthopGroup;
  return isPersistent ? routeTypeStatic : routeTypeStaticNonPersistent;
}

// None if the route cannot be read.
template <class Family>
std::optional<typename FibStatsMachine<Family>::Route> FibStatsMachine<Family>::read(const Prefix& prefix) const {
  try {
    return routeStatus() ? routeStatus()->route(prefix) : Route();
  } catch (const Pesk::CorruptionDetectedException& damage) {
    routeStatus()->corruptionDetected(damage.what());
    return std::nullopt;
  }
}

// Reactors to the counts may stop the machine meanwhile.
template <class Family>
void FibStatsMachine<Family>::count(const Prefix& prefix, RouteType type) {
  if (isStopped()) return;
  prefixRouteTypeIs(prefix, type);
  fibStatsMib()->routeInc(Family::version, type, prefix.length());
}

// Returns whether it was counted.
template <class Family>
bool FibStatsMachine<Family>::uncount(const Prefix& prefix) {
  const auto type = prefixRouteTypeDel(prefix);
  if (type) fibStatsMib()->routeDec(Family::version, *type, prefix.length());
  return type.has_value();
}

// Call it when a review meets a route or a neighbour of this prefix.
template <class Family>
void FibStatsMachine<Family>::markMet(const Prefix& prefix, bool isNeighbour) {
  if (!isReviewing()) return;
  const auto type = prefixRouteType().find(prefix);
  if (type && (*type == routeTypeAttached) == isNeighbour) prefixRouteType_.mark(prefix);
}

// ---- routes ----

template <class Family>
void FibStatsMachine<Family>::handleRoute(const Prefix& givenPrefix) {
  QTRACE_ENTRY(fibStatsSmTrace, this);
  const Prefix prefix = givenPrefix;
  const Kel::Ptr<FibStatsMachine> self(this);
  if (isStopped()) return;
  if (const auto route = read(prefix)) handleRoute(prefix, *route);
}

template <class Family>
void FibStatsMachine<Family>::handleRoute(const Prefix& prefix, const Route& route) {
  const bool isThere = route != Route();
  QTRACE(fibStatsSmTrace, 6) << "FibStatsMib: prefix=" << prefix << " vrf=" << fibStatsMib()->vrfName()
                             << " add=" << isThere;
  if (!isThere) {
    if (uncount(prefix) && isReviewing()) countNeighbour(prefix);
    return;
  }
  markMet(prefix, false);
  if (fibRouteFilter(route)) return;
  if (prefixRouteType().find(prefix)) {
    QTRACE(fibStatsSmTrace, 6) << "FibStatsMib: " << prefix << " vrf=" << fibStatsMib()->vrfName()
                               << " is a duplicate";
    return;
  }
  count(prefix, mibRouteType(route));
}

// ---- neighbours ----

// None if the entry cannot be read.
template <class Family>
std::optional<bool> FibStatsMachine<Family>::isPresent(const ArpKey& key, Vantu::IntfId& intfId) const {
  if (!arpQuillo()) return false;
  try {
    const auto entry = Family::neighbour(*arpQuillo(), key);
    intfId = entry.intfId();
    return entry.exists();
  } catch (const Pesk::CorruptionDetectedException& damage) {
    arpQuillo()->corruptionDetected(damage);
    return std::nullopt;
  }
}

// Whether the VRF has a neighbour of this address that counts, on any interface. None if that cannot be read.
template <class Family>
std::optional<bool> FibStatsMachine<Family>::hasNeighbour(const Prefix& host) const {
  if (!arpQuillo() || !vrfId().isKnown() || host.length() != Family::hostLength) return false;
  const Vantu::IpGenAddr address(host.address());
  if (!Family::isCountedHost(address)) return false;
  bool isFound = false;
  try {
    Family::forEachNeighbour(*arpQuillo(), vrfId(), address, [&](const Arp::Table::ArpEntry& entry) {
      if (entry.addr() != address) return false;
      isFound = !isOnManagementInterface(entry.intfId());
      return !isFound;
    });
  } catch (const Pesk::CorruptionDetectedException& damage) {
    arpQuillo()->corruptionDetected(damage);
    if (!isFound) return std::nullopt;
  }
  return isFound;
}

// Counts the host if it has a neighbour and is not counted yet.
template <class Family>
void FibStatsMachine<Family>::countNeighbour(const Prefix& host) {
  if (!prefixRouteType().find(host) && hasNeighbour(host) == true) count(host, routeTypeAttached);
}

template <class Family>
void FibStatsMachine<Family>::onNeighbour(const ArpKey& key) {
  try {
    handleNeighbour(key);
  } catch (const Kel::RangeException& error) {
    QTRACE(fibStatsSmTrace, 0) << "FibStatsMib: neighbour " << key << " is not counted: " << error.what();
  }
}

template <class Family>
void FibStatsMachine<Family>::handleNeighbour(const ArpKey& givenKey) {
  QTRACE_ENTRY(fibStatsSmTrace, this);
  const ArpKey key = givenKey;
  const Kel::Ptr<FibStatsMachine> self(this);
  if (isStopped() || key.vrfId != vrfId() || !isReady(routeStatus())) return;
  const Prefix host = Family::host(key.addr);
  Vantu::IntfId intfId;
  const auto isThere = isPresent(key, intfId);
  if (!isThere) return;
  QTRACE(fibStatsSmTrace, 6) << "FibStatsMib: host=" << key.addr << " vrf=" << fibStatsMib()->vrfName()
                             << " add=" << *isThere;
  if (!*isThere) {
    if (prefixRouteType().find(host) != routeTypeAttached) {
      QTRACE(fibStatsSmTrace, 6) << "FibStatsMib: " << key.addr << " not tracked as an attached route";
      return;
    }
    if (hasNeighbour(host).value_or(true)) return;  // also on another interface
    uncount(host);
    if (isReviewing()) handleRoute(host);
    return;
  }
  if (isOnManagementInterface(intfId)) {
    QTRACE(fibStatsSmTrace, 6) << "FibStatsMib: routes using nexthop interface " << intfId
                               << " are intentionally not counted";
    return;
  }
  if (!Family::isCountedHost(key.addr)) {
    QTRACE(fibStatsSmTrace, 6) << "FibStatsMib: routes using nexthop link-local address " << key.addr
                               << " are intentionally not counted";
    return;
  }
  markMet(host, true);
  if (isReviewing() && !prefixRouteType().find(host))
    handleRoute(host);  // the review may not have met the route yet
  if (prefixRouteType().find(host)) {
    QTRACE(fibStatsSmTrace, 6) << "FibStatsMib: " << host << " vrf=" << fibStatsMib()->vrfName()
                               << " is a duplicate";
    return;
  }
  count(host, routeTypeAttached);
}

// ---- reviews ----

template <class Family>
void FibStatsMachine<Family>::taskSchedulerIs(const Kel::Ptr<Brev::TaskScheduler>& scheduler) {
  if (isStopped()) return;
  if (const auto task = std::exchange(task_, nullptr)) task->kelStop();
  if (!scheduler) return;
  const auto name = fmt::format("fibStats {} review VRF:{}", Family::text, fibStatsMib()->vrfName());
  task_ = Kel::makePtr<KelTask>(this, scheduler, name, reviewPriority);
  if (isReviewing()) task_->scheduleTask();
}

template <class Family>
void FibStatsMachine<Family>::review() {
  QTRACE_ENTRY(fibStatsSmTrace, this);
  if (isStopped()) return;
  if (!isReviewing()) {
    if (!isReady(routeStatus())) return;  // the table notifies when it is
    beginReview();
  } else if (!hasReviewJustBegun()) {
    review_.isDueAgain = true;
  }
  if (task_) {
    task_->scheduleTask();
  } else {
    reviewAtOnce();
  }
}

// Whether the review has read and marked nothing yet, so it will find every change up to now.
template <class Family>
bool FibStatsMachine<Family>::hasReviewJustBegun() const {
  return review_.phase == Phase::routes && !review_.lastRoute &&
         prefixRouteType().unmarkedCount() == prefixRouteType().size();
}

template <class Family>
void FibStatsMachine<Family>::beginReview() {
  QTRACE(fibStatsSmTrace, 2) << "FibStatsMib: reviewing " << Family::text << " FIB quillo";
  review_ = {};
  review_.phase = Phase::routes;
  prefixRouteType_.unmarkAll();
}

// Reactors to the counts may do anything meanwhile.
template <class Family>
void FibStatsMachine<Family>::reviewAtOnce() {
  const Kel::Ptr<FibStatsMachine> self(this);
  try {
    for (std::size_t done = 0; isReviewing() && done < 2 * pieceSize;) done += reviewPiece();
  } catch (const Quillo::StoreException&) {
    // The review continues when the table notifies that it is readable again.
  }
}

template <class Family>
void FibStatsMachine<Family>::doReview() {
  QTRACE_ENTRY(fibStatsSmTrace, this);
  const auto task = task_;
  while (isReviewing()) {
    reviewPiece();
    task->taskWorkCountInc();
    if (task->taskShouldYield()) break;
  }
  task->taskWorkPendingIs(isReviewing() ? 1 : 0);
  if (isReviewing()) task->scheduleTask();
}

template <class Family>
std::size_t FibStatsMachine<Family>::reviewPiece() {
  switch (review_.phase) {
    case Phase::routes:
      return routePiece();
    case Phase::neighbours:
      return neighbourPiece();
    case Phase::sweep:
      return sweepPiece();
    case Phase::none:
      break;
  }
  return 0;
}

template <class Family>
std::size_t FibStatsMachine<Family>::routePiece() {
  std::vector<Route> routes;
  routes.reserve(pieceSize);
  const auto last = review_.lastRoute;
  try {
    if (routeStatus()) {
      routeStatus()->forEachRoute(last.value_or(Prefix()), [&](const Route& route) {
        if (last != route.prefix) routes.push_back(route);
        return routes.size() < pieceSize;
      });
    }
  } catch (const Pesk::CorruptionDetectedException& damage) {
    routeStatus()->corruptionDetected(damage.what());
  }
  if (routes.size() < pieceSize) {
    review_.phase = Phase::neighbours;
  } else {
    review_.lastRoute = routes.back().prefix;
  }
  const auto table = routeStatus_;
  for (const auto& route : routes) {
    if (routeStatus_ != table) break;  // a reactor to the counts has replaced the table
    handleRoute(route.prefix, route);
  }
  return routes.size();
}

template <class Family>
std::size_t FibStatsMachine<Family>::neighbourPiece() {
  const auto from = review_.nextNeighbour;
  if (!from.isSet()) {
    QTRACE(fibStatsSmTrace, 2) << "FibStatsMib: reviewing " << Family::text << " ARP quillo";
  }
  std::vector<ArpKey> keys;
  std::optional<Vantu::IpGenAddr> next;
  try {
    if (arpQuillo() && vrfId().isKnown() && isReady(arpQuillo())) {
      Family::forEachNeighbour(*arpQuillo(), vrfId(), from, [&](const Arp::Table::ArpEntry& entry) {
        if (keys.size() >= pieceSize && keys.back().addr != entry.addr()) {
          next = entry.addr();
          return false;
        }
        keys.push_back(entry.key);
        return true;
      });
    }
  } catch (const Pesk::CorruptionDetectedException& damage) {
    arpQuillo()->corruptionDetected(damage);
  }
  if (next) {
    review_.nextNeighbour = *next;
  } else {
    review_.phase = Phase::sweep;
  }
  for (const auto& key : keys) onNeighbour(key);
  return keys.size();
}

// Visits the shards until every prefix has a mark.
template <class Family>
std::size_t FibStatsMachine<Family>::sweepPiece() {
  if (prefixRouteType().unmarkedCount() == 0) {
    const bool isDueAgain = review_.isDueAgain;
    review_ = {};
    if (isDueAgain) beginReview();
    return 0;
  }
  const auto prefixes = prefixRouteType().unmarked(review_.shard, pieceSize);
  if (prefixes.size() < pieceSize) review_.shard = (review_.shard + 1) % PrefixRouteTypes<Prefix>::shardCount;
  for (const auto& prefix : prefixes) sweep(prefix);
  return prefixes.size();
}

// Throws StoreException, before it changes anything.
template <class Family>
void FibStatsMachine<Family>::sweep(const Prefix& prefix) {
  const auto type = prefixRouteType().find(prefix);
  if (!type) return;
  const auto route = read(prefix);
  std::optional<bool> stands;
  if (*type == routeTypeAttached) {
    stands = hasNeighbour(prefix);
  } else if (route) {
    stands = *route != Route();
  }
  if (stands.value_or(true)) return prefixRouteType_.mark(prefix);
  uncount(prefix);
  handleRoute(prefix);
  countNeighbour(prefix);
}

template class FibStatsMachine<Ip4Routes>;
template class FibStatsMachine<Ip6Routes>;

}  // namespace FibStatsSnmp
