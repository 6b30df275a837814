#pragma once
// The reviews of FibStatsMachine: the definitions that FibStatsMachine.cpp takes in. Not for its users.

#include <fmt/format.h>

#include <algorithm>

#include "fibstats/agent/FibStatsMachine.h"
#include "fibstats/agent/FibStatsTrace.h"

namespace FibStatsSnmp {

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
void FibStatsMachine<Family>::handleRoute() {
  QTRACE_ENTRY(fibStatsSmTrace, this);
  if (isStopped()) return;
  QTRACE(fibStatsSmTrace, 2) << "FibStatsMib: reviewing " << Family::text << " FIB quillo";
  // A table whose first state is still to come tells when it has come.
  if (routeStatus() && !routeStatus()->initialized()) return;
  routeReview_ = {};
  routeReview_.isOn = true;
  routeReview_.sweep = sweepIs();
  reviewAtOnce();
}

template <class Family>
void FibStatsMachine<Family>::handleNeighbour() {
  QTRACE_ENTRY(fibStatsSmTrace, this);
  if (isStopped()) return;
  QTRACE(fibStatsSmTrace, 2) << "FibStatsMib: reviewing " << Family::text << " ARP quillo";
  if (arpQuillo() && !arpQuillo()->initialized()) return;
  neighbourReview_ = {};
  neighbourReview_.isOn = true;
  neighbourReview_.sweep = sweepIs();
  reviewAtOnce();
}

// Reactors of the counts may do anything meanwhile.
template <class Family>
void FibStatsMachine<Family>::reviewAtOnce() {
  const Kel::Ptr<FibStatsMachine> self(this);
  try {
    for (int pieces = 0; pieces < 2 && isReviewing(); ++pieces) reviewPiece();
  } catch (const Quillo::StoreException&) {
    // The table tells when it can be read again, and is then reviewed anew.
  }
  if (task_ && isReviewing()) task_->scheduleTask();
}

template <class Family>
void FibStatsMachine<Family>::doReview() {
  QTRACE_ENTRY(fibStatsSmTrace, this);
  const auto task = task_;
  while (isReviewing()) {
    if (task->taskShouldYield()) {
      task->scheduleTask();
      break;
    }
    reviewPiece();
    task->taskWorkCountInc();
  }
  task->taskWorkPendingIs(isReviewing() ? 1 : 0);
}

template <class Family>
void FibStatsMachine<Family>::reviewPiece() {
  const Kel::Ptr<FibStatsMachine> self(this);
  if (routeReview_.isOn) {
    routePiece();
  } else if (neighbourReview_.isOn) {
    neighbourPiece();
  }
}

// What counts nothing yet needs none.
template <class Family>
typename FibStatsMachine<Family>::Sweep FibStatsMachine<Family>::sweepIs() const {
  Sweep sweep;
  if (!prefixRouteType().empty()) sweep.shard = 0;
  return sweep;
}

// The next piece of what is counted; empty at the end.
template <class Family>
auto FibStatsMachine<Family>::take(Sweep& sweep) const -> std::vector<std::pair<Prefix, RouteType>> {
  auto& taken = sweep.taken;
  while (taken.size() < pieceSize && sweep.shard < PrefixRouteTypes<Prefix>::shardCount) {
    const auto shard = prefixRouteType().shard(sweep.shard++);
    taken.insert(taken.end(), shard.begin(), shard.end());
  }
  const auto from = taken.end() - static_cast<std::ptrdiff_t>(std::min(pieceSize, taken.size()));
  std::vector<std::pair<Prefix, RouteType>> piece(from, taken.end());
  taken.erase(from, taken.end());
  return piece;
}

// ---- routes ----

template <class Family>
void FibStatsMachine<Family>::routePiece() {
  if (!routeReview_.isRead) {
    for (const auto& route : readRoutes()) {
      if (isStopped()) return;
      handleRoute(route.prefix, route);
    }
    return;
  }
  const auto piece = take(routeReview_.sweep);
  routeReview_.isOn = routeReview_.sweep.isOn();
  for (const auto& [prefix, type] : piece) {
    if (isStopped()) return;
    if (type == routeTypeAttached) continue;
    const auto route = read(prefix);
    if (!route || *route != Route()) continue;
    handleRoute(prefix, *route);
    // Its place is free for a neighbour's.
    if (prefix.length() == Family::hostLength && !neighbourReview_.isOn) handleNeighbour();
  }
}

// The next piece of the table.
template <class Family>
auto FibStatsMachine<Family>::readRoutes() -> std::vector<Route> {
  std::vector<Route> routes;
  routes.reserve(pieceSize);
  const auto after = routeReview_.after;
  try {
    if (routeStatus()) {
      routeStatus()->forEachRoute(after.value_or(Prefix()), [&](const Route& route) {
        if (after != route.prefix) routes.push_back(route);
        return routes.size() < pieceSize;
      });
    }
  } catch (const Pesk::CorruptionDetectedException& damage) {
    routeStatus()->corruptionDetected(damage.what());
  }
  routeReview_.isRead = routes.size() < pieceSize;
  if (!routeReview_.isRead) routeReview_.after = routes.back().prefix;
  routeReview_.isOn = !routeReview_.isRead || routeReview_.sweep.isOn();
  return routes;
}

// ---- neighbours ----

template <class Family>
void FibStatsMachine<Family>::neighbourPiece() {
  auto& review = neighbourReview_;
  if (!review.isWalked) walkNeighbours();
  if (review.done < review.keys.size()) {
    const auto from = review.keys.begin() + static_cast<std::ptrdiff_t>(review.done);
    const auto count = std::min(pieceSize, review.keys.size() - review.done);
    const std::vector<ArpKey> piece(from, from + static_cast<std::ptrdiff_t>(count));
    review.done += count;
    for (const auto& key : piece) onNeighbour(key);
    if (review.done < review.keys.size() || review.sweep.isOn()) return;
  }
  std::vector<Prefix> gone;
  for (const auto& [host, type] : take(review.sweep)) {
    if (type == routeTypeAttached && !review.hosts.contains(host)) gone.push_back(host);
  }
  if (!review.sweep.isOn()) review = {};
  for (const auto& host : gone) {
    if (isStopped()) return;
    if (prefixRouteType().find(host) != routeTypeAttached) continue;
    routeGone(host);
    handleRoute(host);  // its place is free for a route's
  }
}

// Takes the keys of the VRF's neighbours, in one go: there are far fewer than routes.
template <class Family>
void FibStatsMachine<Family>::walkNeighbours() {
  neighbourReview_.isWalked = true;
  if (!arpQuillo() || !vrfId().isKnown()) return;
  auto& keys = neighbourReview_.keys;
  try {
    Family::forEachNeighbour(*arpQuillo(), vrfId(),
                             [&keys](const Arp::Table::ArpEntry& entry) { keys.push_back(entry.key); });
  } catch (const Pesk::CorruptionDetectedException& damage) {
    neighbourReview_.sweep = {};  // what was not met may stand where the damage is
    arpQuillo()->corruptionDetected(damage);
  }
}

}  // namespace FibStatsSnmp
