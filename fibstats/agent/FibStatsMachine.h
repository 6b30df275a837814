#pragma once
// Keeps the route counts of one VRF and IP version: what FibStatsSm (IPv4) and Fib6StatsSm (IPv6) do alike. `Family`
// is Ip4Routes or Ip6Routes.
//
// A prefix counts once, under the type that it had when it was first counted. A host counts as attached as long as the
// VRF has a neighbour of its address, on any interface. Each notification changes the counts by one route at most. Of
// a route and a neighbour of one host only the first one counts. The other one does not count when the first one goes, and
// the end of a route takes its host out of the counts even if it counts as attached (docs/decisions/0014).
//
// A review compares the counts with both tables: at the start, and when a table says that anything may have changed.
// - It reads the routes, then the neighbours, so that a host that has both counts under its route. What it meets is
//   marked in the counts. In the end it looks up each prefix without a mark, and takes it out of the counts unless it
//   stands after all.
// - It goes on in pieces of a thousand prefixes, in a task. Without a scheduler the first two pieces are done at once,
//   which is all of a small table, and the others wait for the scheduler.
// - After a review exactly the routes and neighbours of the tables are counted, whatever was notified during it:
//   meanwhile a neighbour counts only if there is no route to its host, and what is taken out of the counts gives its
//   place to the other one.
// - If a table announces during a review that anything may have changed, another review follows.
// It begins once the table of routes has its first state; until then no neighbour counts.
//
// Damage that is met while reading is reported to the table; what was not read stays as it is.

#include "brev/TimerTask.h"
#include "fibstats/FibStatsMib.h"
#include "fibstats/agent/CountedFamily.h"
#include "fibstats/agent/PrefixRouteTypes.h"

namespace FibStatsSnmp {

template <class Family>
class FibStatsMachine : public Kel::Entity {
 public:
  using Prefix = typename Family::Prefix;
  using RouteStatus = typename Family::RouteStatus;
  using Route = typename RouteStatus::Route;
  using Config = typename Family::Config;
  using ArpKey = Arp::Table::ArpKey;
  using VrfId = Vrf::VrfIdMap::VrfId;

  static constexpr std::size_t pieceSize = 1024;
  static constexpr int reviewPriority = 3;

  using KelCtorTypes = std::tuple<Kel::Ptr<const RouteStatus>, Kel::Ptr<const Arp::Table::Status>, VrfId,
                                  Kel::Ptr<const Config>, Kel::Ptr<FibStatsMib>>;
  static constexpr const char* kelCtorNames[] = {"routeStatus", "arpQuillo", "vrfId", "routingConfig",
                                                 "fibStatsMib"};
  // `vrfId` is that under which the table of neighbours has the VRF's; unknown: it has none. The tables may be null,
  // then they have no entries; without a configuration there are no kinds of static routes. What the counts object
  // says of this IP version is replaced.
  FibStatsMachine(Kel::Ptr<const RouteStatus> routeStatus, Kel::Ptr<const Arp::Table::Status> arpQuillo,
                  VrfId vrfId, Kel::Ptr<const Config> routingConfig, Kel::Ptr<FibStatsMib> fibStatsMib);
  auto kelCtorTie() const { return std::tie(routeStatus_, arpQuillo_, vrfId_, routingConfig_, fibStatsMib_); }
  ~FibStatsMachine() override;
  void kelStart() override;
  // Leaves the counts as they are.
  void kelStop() override;

  const Kel::Ptr<const RouteStatus>& routeStatus() const { return routeStatus_; }
  const Kel::Ptr<const Arp::Table::Status>& arpQuillo() const { return arpQuillo_; }
  const VrfId& vrfId() const { return vrfId_; }
  const Kel::Ptr<const Config>& routingConfig() const { return routingConfig_; }
  const Kel::Ptr<FibStatsMib>& fibStatsMib() const { return fibStatsMib_; }

  // Each replaces the present one. With another table of routes the counts begin anew; with another VRF id both tables
  // are reviewed; another configuration concerns routes yet to be counted.
  void routeStatusIs(Kel::Ptr<const RouteStatus> routeStatus);
  void vrfIdIs(VrfId vrfId);
  void routingConfigIs(Kel::Ptr<const Config> routingConfig) { routingConfig_ = std::move(routingConfig); }

  void taskSchedulerIs(const Kel::Ptr<Brev::TaskScheduler>& scheduler);
  bool isReviewing() const { return review_.phase != Phase::none; }
  void doReview();  // one run of the task

  // What counts, with the type under which it does.
  const PrefixRouteTypes<Prefix>& prefixRouteType() const { return prefixRouteType_; }
  void prefixRouteTypeIs(const Prefix& prefix, RouteType type) { prefixRouteType_.insert(prefix, type); }
  // The type that was kept; nothing when the prefix did not count.
  std::optional<RouteType> prefixRouteTypeDel(const Prefix& prefix) { return prefixRouteType_.take(prefix); }
  void prefixRouteTypeDelAll() { prefixRouteType_.clear(); }

  // The route is not to be counted.
  bool fibRouteFilter(const Route& route) const;
  // Of a static route the configuration says the kind, all of it, and if it does not know the route, the route itself.
  RouteType mibRouteType(const Route& route) const;

  // The route of this prefix came, went, or says something else.
  void handleRoute(const Prefix& prefix);
  // Any of them may have: begins a review.
  void handleRoute() { review(); }

 protected:
  // The same of neighbours. Throws Kel::RangeException for an address of the other IP version.
  void handleNeighbour(const ArpKey& key);
  void handleNeighbour() { review(); }

  template <class Self>
  static void describeConstructor(Kel::TypeInfo& type);

 private:
  class KelRouteStatus;
  class KelArpQuillo;
  using KelTask = Brev::OwnedTask<Brev::Task, FibStatsMachine, &FibStatsMachine::doReview>;

  enum class Phase { none, routes, neighbours, sweep };
  struct Review {
    Phase phase = Phase::none;
    std::optional<Prefix> lastRoute;  // routes were read up to this one
    Vantu::IpGenAddr nextNeighbour;   // the address to go on with
    std::size_t shard = 0;            // of the counted prefixes: to be swept next
    bool isDueAgain = false;
  };

  bool isStopped() const { return !kelRouteStatus_; }
  void stop();

  void review();
  void beginReview();
  bool hasReviewJustBegun() const;
  void reviewAtOnce();
  std::size_t reviewPiece();  // how many prefixes were looked at
  std::size_t routePiece();
  std::size_t neighbourPiece();
  std::size_t sweepPiece();
  void sweep(const Prefix& prefix);

  // An entry that cannot be understood is traced and left out: what else changed is still to be counted.
  void onNeighbour(const ArpKey& key);
  std::optional<Route> read(const Prefix& prefix) const;
  std::optional<bool> isPresent(const ArpKey& key, Vantu::IntfId& intfId) const;
  std::optional<bool> hasNeighbour(const Prefix& host) const;
  void handleRoute(const Prefix& prefix, const Route& route);
  void count(const Prefix& prefix, RouteType type);
  void countNeighbour(const Prefix& prefix);
  bool uncount(const Prefix& prefix);
  void markMet(const Prefix& prefix, bool isNeighbour);

  Kel::Ptr<const RouteStatus> routeStatus_;
  const Kel::Ptr<const Arp::Table::Status> arpQuillo_;
  VrfId vrfId_;
  Kel::Ptr<const Config> routingConfig_;
  const Kel::Ptr<FibStatsMib> fibStatsMib_;

  PrefixRouteTypes<Prefix> prefixRouteType_;
  Review review_;
  Kel::Ptr<KelRouteStatus> kelRouteStatus_;  // null: not started, or stopped
  Kel::Ptr<KelArpQuillo> kelArpQuillo_;
  Kel::Ptr<KelTask> task_;
};

template <class Family>
template <class Self>
void FibStatsMachine<Family>::describeConstructor(Kel::TypeInfo& type) {
  const auto add = [&type](const char* name, auto read) { type.add(Kel::constructorInfo<Self>(name, read)); };
  add(kelCtorNames[0], [](const Self& self) { return self.routeStatus(); });
  add(kelCtorNames[1], [](const Self& self) { return self.arpQuillo(); });
  add(kelCtorNames[2], [](const Self& self) { return self.vrfId(); });
  add(kelCtorNames[3], [](const Self& self) { return self.routingConfig(); });
  add(kelCtorNames[4], [](const Self& self) { return self.fibStatsMib(); });
}

extern template class FibStatsMachine<Ip4Routes>;
extern template class FibStatsMachine<Ip6Routes>;

}  // namespace FibStatsSnmp
