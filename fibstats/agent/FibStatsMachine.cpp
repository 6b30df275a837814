#include "fibstats/agent/FibStatsMachine.h"

#include "fibstats/agent/FibStatsReactors.h"
#include "fibstats/agent/FibStatsReview.h"
#include "kel/Errors.h"
#include "vantu/MgmtIntfId.h"

namespace FibStatsSnmp {

Kel::TraceHandle fibStatsSmTrace("FibStatsSm");

template <class Family>
FibStatsMachine<Family>::FibStatsMachine(Kel::Ptr<const RouteStatus> routeStatus,
                                         Kel::Ptr<const Arp::Table::Status> arpQuillo, VrfId vrfId,
                                         Kel::Ptr<const Config> routingConfig, Kel::Ptr<FibStatsMib> fibStatsMib)
    : routeStatus_(std::move(routeStatus)),
      arpQuillo_(std::move(arpQuillo)),
      vrfId_(vrfId),
      routingConfig_(std::move(routingConfig)),
      fibStatsMib_(std::move(fibStatsMib)) {
}

template <class Family>
FibStatsMachine<Family>::~FibStatsMachine() {
  stop();
}

template <class Family>
void FibStatsMachine<Family>::kelStart() {
  fibStatsMib()->routeDelAll(Family::version);  // a machine that stood here before has left its counts
  kelRouteStatus_ = Kel::makePtr<KelRouteStatus>(this);
  kelRouteStatus_->notifierIs(routeStatus());
  kelArpQuillo_ = Kel::makePtr<KelArpQuillo>(this);
  kelArpQuillo_->notifierIs(arpQuillo());
  handleRoute();
  handleNeighbour();
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
  routeReview_ = {};
  neighbourReview_ = {};
  prefixRouteTypeDelAll();
}

template <class Family>
void FibStatsMachine<Family>::routeStatusIs(Kel::Ptr<const RouteStatus> routeStatus) {
  if (routeStatus_ == routeStatus) return;
  routeStatus_ = std::move(routeStatus);
  if (isStopped()) return;
  kelRouteStatus_->notifierIs(routeStatus_);
  handleRoute();
}

template <class Family>
void FibStatsMachine<Family>::vrfIdIs(VrfId vrfId) {
  if (vrfId_ == vrfId) return;
  vrfId_ = vrfId;
  handleNeighbour();
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

// Nothing when the route cannot be known.
template <class Family>
std::optional<typename FibStatsMachine<Family>::Route> FibStatsMachine<Family>::read(const Prefix& prefix) const {
  try {
    return routeStatus() ? routeStatus()->route(prefix) : Route();
  } catch (const Pesk::CorruptionDetectedException& damage) {
    routeStatus()->corruptionDetected(damage.what());
    return std::nullopt;
  }
}

template <class Family>
void FibStatsMachine<Family>::count(const Prefix& prefix, RouteType type) {
  prefixRouteTypeIs(prefix, type);
  fibStatsMib()->routeInc(Family::version, type, prefix.length());
}

template <class Family>
void FibStatsMachine<Family>::routeGone(const Prefix& prefix) {
  if (const auto type = prefixRouteTypeDel(prefix)) {
    fibStatsMib()->routeDec(Family::version, *type, prefix.length());
  }
}

// ---- routes ----

template <class Family>
void FibStatsMachine<Family>::handleRoute(const Prefix& givenPrefix) {
  QTRACE_ENTRY(fibStatsSmTrace, this);
  const Prefix prefix = givenPrefix;
  if (isStopped()) return;
  if (const auto route = read(prefix)) handleRoute(prefix, *route);
}

template <class Family>
void FibStatsMachine<Family>::handleRoute(const Prefix& prefix, const Route& route) {
  const bool isThere = route != Route();
  QTRACE(fibStatsSmTrace, 6) << "FibStatsMib: prefix=" << prefix << " vrf=" << fibStatsMib()->vrfName()
                             << " add=" << isThere;
  if (!isThere) return routeGone(prefix);
  if (fibRouteFilter(route)) return;
  if (prefixRouteType().find(prefix)) {
    QTRACE(fibStatsSmTrace, 6) << "FibStatsMib: " << prefix << " vrf=" << fibStatsMib()->vrfName()
                               << " is a duplicate";
    return;
  }
  count(prefix, mibRouteType(route));
}

// ---- neighbours ----

// Nothing when it cannot be known.
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
  if (isStopped() || key.vrfId != vrfId()) return;
  const Prefix host = Family::host(key.addr);
  Vantu::IntfId intfId;
  const auto isThere = isPresent(key, intfId);
  if (!isThere) return;
  QTRACE(fibStatsSmTrace, 6) << "FibStatsMib: host=" << key.addr << " vrf=" << fibStatsMib()->vrfName()
                             << " add=" << *isThere;
  if (!*isThere) {
    if (prefixRouteType().find(host) == routeTypeAttached) return routeGone(host);
    QTRACE(fibStatsSmTrace, 6) << "FibStatsMib: " << key.addr << " not tracked as an attached route";
    return;
  }
  if (Vantu::MgmtIntfId::isMgmtIntfId(intfId)) {
    QTRACE(fibStatsSmTrace, 6) << "FibStatsMib: routes using nexthop interface " << intfId
                               << " are intentionally not counted";
    return;
  }
  if (!Family::isCountedHost(key.addr)) {
    QTRACE(fibStatsSmTrace, 6) << "FibStatsMib: routes using nexthop link-local address " << key.addr
                               << " are intentionally not counted";
    return;
  }
  if (neighbourReview_.sweep.isOn()) neighbourReview_.hosts.insert(host);
  if (routeReview_.isOn && !prefixRouteType().find(host)) handleRoute(host);
  if (isStopped()) return;
  if (prefixRouteType().find(host)) {
    QTRACE(fibStatsSmTrace, 6) << "FibStatsMib: " << host << " vrf=" << fibStatsMib()->vrfName()
                               << " is a duplicate";
    return;
  }
  count(host, routeTypeAttached);
}

template class FibStatsMachine<Ip4Routes>;
template class FibStatsMachine<Ip6Routes>;

}  // namespace FibStatsSnmp
