#pragma once
// Keeps the route counts of one VRF and IP version: the common part of FibStatsSm (IPv4) and Fib6StatsSm (IPv6).
// `Family` is Ip4Routes or Ip6Routes.
//
// Counting. A prefix counts once, under the type that it had when it was first counted. A host counts as attached while
// the VRF has a neighbour of its address, on any interface. A notification changes the counts by at most one route. If
// a host has both a route and a neighbour, the first one counts; when it is deleted, the other does not count in its
// place. Deleting a route uncounts its host, even one that counts as attached (docs/decisions/0014). Neighbours on
// management interfaces (Vantu::MgmtIntfId) and link-local ones of IPv6 do not count.
//
// Reviews. A review compares the counts with both tables: at the start, and when a table announces that any entry may
// have changed. It begins once the table of routes is initialized; until then no neighbour counts.
// - It reads the routes before the neighbours, so a host that has both counts as a route. It marks each counted prefix
//   that it meets. Finally it looks up each unmarked prefix, and uncounts it if the tables lack it.
// - A task does it in pieces of a thousand prefixes. Without a scheduler, the first 2,048 prefixes are processed at
//   once; the rest waits for taskSchedulerIs().
// - Afterwards exactly the routes and neighbours of the tables are counted, including those notified during the review.
//   Two rules hold during a review only: a notified neighbour counts only if its host has no route, and if one entry of
//   a host is deleted, the host's other entry counts in its place.
// - An announcement during a review leads to another review.
//
// Damage found while reading is reported to the table; counts of unreadable entries stay.

#include "brev/TimerTask.h"
#include "fibstats/FibStatsMib.h"
#include "fibstats/agent/CountedFamily.h"
#include "fibstats/agent/PrefixRouteTypes.h"

namespace FibStatsSnmp {

template <class Family>
class FibStatsMachine : public Kel::Entity {
  KEL_TYPE_BEGIN("FibStatsSnmp::FibStatsMachine", FibStatsMachine, Kel::Entity)
 public:
  using Prefix = typename Family::Prefix;
  using RouteStatus = typename Family::RouteStatus;
  using Route = typename RouteStatus::Route;
  using Config = typename Family::Config;
  using ArpKey = Arp::Table::ArpKey;
  using VrfId = Vrf::VrfIdMap::VrfId;

  static constexpr std::size_t pieceSize = 1024;
  static constexpr int reviewPriority = 3;

  // A null table has no entries. `vrfId` is the VRF's id in the neighbour table; with an unknown id the VRF has no
  // neighbours. Without a configuration all static routes count as one kind. The machine replaces the counts of this
  // IP version in `fibStatsMib`.
  KEL_CONSTRUCTOR(FibStatsMachine,
                  ((Kel::Ptr<const RouteStatus>, routeStatus))((Kel::Ptr<const Arp::Table::Status>, arpQuillo))((
                      VrfId, vrfId))((Kel::Ptr<const Config>, routingConfig))((Kel::Ptr<FibStatsMib>, fibStatsMib)))
  KEL_TYPE_END

 public:
  ~FibStatsMachine() override;
  void kelStart() override;
  // Detaches from the tables and forgets the counted prefixes. The counts in fibStatsMib stay.
  void kelStop() override;

  // Each replaces the current one. Another table of routes resets the counts, another VRF id begins a review, another
  // configuration applies to routes that are counted later.
  void routeStatusIs(Kel::Ptr<const RouteStatus> routeStatus);
  void vrfIdIs(VrfId vrfId);
  void routingConfigIs(Kel::Ptr<const Config> routingConfig) { routingConfig_ = std::move(routingConfig); }

  // Runs reviews in a task of this scheduler; null: without one. No-op before kelStart() and after kelStop().
  void taskSchedulerIs(const Kel::Ptr<Brev::TaskScheduler>& scheduler);
  bool isReviewing() const { return review_.phase != Phase::none; }
  // One run of the task: reviews pieces until the task should yield. Throws Quillo::StoreException if the store cannot
  // be read; the review then continues at the same place.
  void doReview();

  // The counted prefixes, each with the type under which it counts.
  const PrefixRouteTypes<Prefix>& prefixRouteType() const { return prefixRouteType_; }
  // These change the map only, not the counts.
  void prefixRouteTypeIs(const Prefix& prefix, RouteType type) { prefixRouteType_.insert(prefix, type); }
  // Returns the stored type; none if the map does not have the prefix.
  std::optional<RouteType> prefixRouteTypeDel(const Prefix& prefix) { return prefixRouteType_.take(prefix); }
  void prefixRouteTypeDelAll() { prefixRouteType_.clear(); }

  // Whether the route does not count.
  bool fibRouteFilter(const Route& route) const;
  // The type under which the route counts. A static route has its configured kind; without a configuration of the
  // route, the kind in the route itself.
  RouteType mibRouteType(const Route& route) const;

  // Call it when the route of this prefix was created, deleted or changed. Throws Quillo::StoreException if the store
  // cannot be read.
  void handleRoute(const Prefix& prefix);
  // Call it when any route may have changed: begins a review.
  void handleRoute() { review(); }

 protected:
  // The same for neighbours. Throws also Kel::RangeException for an address of the other IP version.
  void handleNeighbour(const ArpKey& key);
  void handleNeighbour() { review(); }

 private:
  // The machine owns its reactors, and detaches them before it is destroyed.
  struct KelRouteStatus : RouteStatus::Notifiee {
    explicit KelRouteStatus(FibStatsMachine* machine) : owner(machine) {}
    void handleInitialized() override { owner->handleRoute(); }
    void onRoute(const Prefix& prefix) override { owner->handleRoute(prefix); }
    void onTable() override { owner->handleRoute(); }
    FibStatsMachine* const owner;
  };
  struct KelArpQuillo : Arp::Table::Status::Notifiee {
    explicit KelArpQuillo(FibStatsMachine* machine) : owner(machine) {}
    void handleInitialized() override { owner->handleNeighbour(); }
    void onArpEntry(const ArpKey& key) override {
      if (Family::version == Ip::ipVersion4) owner->onNeighbour(key);
    }
    void onNeighborEntry(const ArpKey& key) override {
      if (Family::version == Ip::ipVersion6) owner->onNeighbour(key);
    }
    void handleTable() override { owner->handleNeighbour(); }
    FibStatsMachine* const owner;
  };
  using KelTask = Brev::OwnedTask<Brev::Task, FibStatsMachine, &FibStatsMachine::doReview>;

  enum class Phase { none, routes, neighbours, sweep };
  struct Review {
    Phase phase = Phase::none;
    std::optional<Prefix> lastRoute;  // the last route that was read
    Vantu::IpGenAddr nextNeighbour;   // the next address to read
    std::size_t shard = 0;            // the next shard of counted prefixes to sweep
    bool isDueAgain = false;
  };

  bool isStopped() const { return !kelRouteStatus_; }
  void stop();

  void review();
  void beginReview();
  bool hasReviewJustBegun() const;
  void reviewAtOnce();
  std::size_t reviewPiece();  // returns the number of prefixes that it looked at
  std::size_t routePiece();
  std::size_t neighbourPiece();
  std::size_t sweepPiece();
  void sweep(const Prefix& prefix);

  // Traces and skips an invalid entry, so that the other changes are counted.
  void onNeighbour(const ArpKey& key);
  std::optional<Route> read(const Prefix& prefix) const;
  std::optional<bool> isPresent(const ArpKey& key, Vantu::IntfId& intfId) const;
  std::optional<bool> hasNeighbour(const Prefix& host) const;
  void handleRoute(const Prefix& prefix, const Route& route);
  void count(const Prefix& prefix, RouteType type);
  void countNeighbour(const Prefix& prefix);
  bool uncount(const Prefix& prefix);
  void markMet(const Prefix& prefix, bool isNeighbour);

  PrefixRouteTypes<Prefix> prefixRouteType_;
  Review review_;
  Kel::Ptr<KelRouteStatus> kelRouteStatus_;  // null: not started, or stopped
  Kel::Ptr<KelArpQuillo> kelArpQuillo_;
  Kel::Ptr<KelTask> task_;
};

extern template class FibStatsMachine<Ip4Routes>;
extern template class FibStatsMachine<Ip6Routes>;

}  // namespace FibStatsSnmp
