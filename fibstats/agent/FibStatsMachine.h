#pragma once
// Keeps the route counts of one VRF and IP version: what FibStatsSm (IPv4) and Fib6StatsSm (IPv6) do alike. `Family`
// is Ip4Routes or Ip6Routes.
//
// A prefix counts once, under the type that it had when it was first counted; a neighbour of the VRF counts as an
// attached route to its host. Each notification changes the counts by one route at most: of a route and a neighbour
// that stand for one prefix, the one that came first counts, and the other one is not taken up when it goes.
//
// A review compares what is counted with a whole table: at the start, and when a table tells that anything may have
// changed. It goes on in pieces of a thousand routes. The first two are done at once, which is all of a small table;
// the others in a task, as soon as there is a scheduler. Routes are reviewed before neighbours; a neighbour that is
// notified before its route was reviewed has the route looked up first. So the outcome is that of one pass.
//
// Damage that is met while reading is reported to the table; what was not read stays as it is.

#include <boost/unordered/unordered_flat_set.hpp>

#include "brev/OwnedTask.h"
#include "fibstats/FibStatsMib.h"
#include "fibstats/agent/PrefixRouteTypes.h"
#include "fibstats/agent/RouteFamily.h"

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

  // In the place of the present one. A table is reviewed; another configuration concerns routes yet to be counted.
  void routeStatusIs(Kel::Ptr<const RouteStatus> routeStatus);
  void vrfIdIs(VrfId vrfId);
  void routingConfigIs(Kel::Ptr<const Config> routingConfig) { routingConfig_ = std::move(routingConfig); }

  // Reviews go on in a task of this scheduler. Without one, what the first pieces leave waits for it.
  void taskSchedulerIs(const Kel::Ptr<Brev::TaskScheduler>& scheduler);
  bool isReviewing() const { return routeReview_.isOn || neighbourReview_.isOn; }
  void reviewPiece();
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
  // Any of them may have.
  void handleRoute();

 protected:
  // The same of neighbours. Throws Kel::RangeException for an address of the other IP version.
  void handleNeighbour(const ArpKey& key);
  void handleNeighbour();

  template <class Self>
  static void describeConstructor(Kel::TypeInfo& type);

 private:
  class KelRouteStatus;
  class KelArpQuillo;
  using KelTask = Brev::OwnedTask<Brev::Task, FibStatsMachine, &FibStatsMachine::doReview>;

  // What was counted when a review began, shard by shard, to find what does not stand any more.
  struct Sweep {
    std::size_t shard = PrefixRouteTypes<Prefix>::shardCount;  // the next one
    std::vector<std::pair<Prefix, RouteType>> taken;           // of the shards before
    bool isOn() const { return shard < PrefixRouteTypes<Prefix>::shardCount || !taken.empty(); }
  };
  struct RouteReview {
    bool isOn = false;
    bool isRead = false;          // the table is; otherwise
    std::optional<Prefix> after;  // up to this one
    Sweep sweep;
  };
  struct NeighbourReview {
    bool isOn = false;
    bool isWalked = false;
    std::vector<ArpKey> keys;                 // that the walk met, and
    std::size_t done = 0;                     // how many of them were looked up
    boost::unordered_flat_set<Prefix> hosts;  // that stand; kept for the sweep
    Sweep sweep;
  };

  bool isStopped() const { return !kelRouteStatus_; }
  void stop();
  void reviewAtOnce();
  Sweep sweepIs() const;
  std::vector<std::pair<Prefix, RouteType>> take(Sweep& sweep) const;
  void routePiece();
  std::vector<Route> readRoutes();
  void neighbourPiece();
  void walkNeighbours();

  // An entry that cannot be understood is traced and left out: what else changed is still to be counted.
  void onNeighbour(const ArpKey& key);
  std::optional<Route> read(const Prefix& prefix) const;
  std::optional<bool> isPresent(const ArpKey& key, Vantu::IntfId& intfId) const;
  void handleRoute(const Prefix& prefix, const Route& route);
  void routeGone(const Prefix& prefix);
  void count(const Prefix& prefix, RouteType type);

  Kel::Ptr<const RouteStatus> routeStatus_;
  const Kel::Ptr<const Arp::Table::Status> arpQuillo_;
  VrfId vrfId_;
  Kel::Ptr<const Config> routingConfig_;
  const Kel::Ptr<FibStatsMib> fibStatsMib_;

  PrefixRouteTypes<Prefix> prefixRouteType_;
  RouteReview routeReview_;
  NeighbourReview neighbourReview_;
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
