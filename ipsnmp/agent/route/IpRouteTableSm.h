#pragma once
// Keeps the IP-FORWARD-MIB cache of one VRF equal to the shared tables of routes and FECs.
//
// It builds no rows. It keeps the order of the rows (the prefixes, and the next hops of each FEC) and their number. A
// notification only enters its key in a backlog; cooperative tasks look the keys up, so that a full table never
// blocks the agent:
//   route task, FEC task  work off the backlogs; a bookmark says where a pass that yielded continues
//   route count task      counts the rows, prefix by prefix; the number changes only at the end of a pass
//   route count timer     requests a count, at most once an interval and only after a change
// The first count does not wait for the timer: it starts when both backlogs are worked off for the first time.
//
// A whole table (at the start, and after a notification that anything may have changed) enters its backlog in pieces:
// the first one at once, each further one when the task has worked off the backlog. The keys that the cache holds enter
// the backlog in the same way. So keys that are gone from the table are removed, and the others are never missing.
//
// The backlogs are ordered: a bookmark stays valid while keys are added and removed, the tables are read in their own
// order, and no rehash of a million keys stalls the agent.
//
// Lifetime: stopping or destroying the machine takes the tables, prefixes and FECs out of the cache.

#include <absl/container/btree_set.h>

#include "brev/TimerTask.h"
#include "ipsnmp/IpForwardMib.h"
#include "ipsnmp/agent/address/Reactors.h"
#include "quillo/tables/RouteScan.h"

namespace IpSnmp {

class IpRouteTableSm : public Kel::Entity {
  KEL_TYPE_BEGIN("IpSnmp::IpRouteTableSm", IpRouteTableSm, Kel::Entity)
 public:
  // With one forwarding table for all VRFs (`unifiedForwardingStatus` not null), VRF "default" needs
  // `vrfForwardingStatus` and no `allForwardingFecs`, and every other VRF the reverse; with one for each VRF none
  // has `allForwardingFecs`. Anything else is fatal. The scheduler and the cache may not be null; a table that is
  // null has no entries.
  // clang-format off
  KEL_CONSTRUCTOR(IpRouteTableSm,
    ((Kel::Ptr<Brev::TaskScheduler>, taskScheduler))
    ((Kel::Name, vrfName))
    ((Kel::Ptr<IpForwardMib>, ipForwardMib))
    ((Kel::Ptr<const Quillo::Fib::RouteStatus>, routeStatus))
    ((Kel::Ptr<const Quillo::Fib::ForwardingStatus>, vrfForwardingStatus))
    ((Kel::Ptr<const Quillo::Fib::ForwardingStatus>, unifiedForwardingStatus))
    ((Kel::Ptr<const IpForwardFecs>, allForwardingFecs))
    ((Kel::Ptr<const IntfSnmp::IfMib>, ifMib)))
  // clang-format on

  KEL_CHILD(IpSnmp::FecsAndPrefixes, fecsAndPrefixes, FecsAndPrefixes)
  // Null when the VRF uses `allForwardingFecs`.
  KEL_CHILD(IpForwardFecs, localForwardingFecs, LocalForwardingFecs)

  void doProcessRouteBacklog();
  void doProcessFecBacklog();
  void doCountRoutes();
  void handleRouteCountTimer();
  using KelRouteTask = Brev::OwnedTask<Brev::Task, IpRouteTableSm, &IpRouteTableSm::doProcessRouteBacklog>;
  using KelFecTask = Brev::OwnedTask<Brev::Task, IpRouteTableSm, &IpRouteTableSm::doProcessFecBacklog>;
  using KelRouteCountTask = Brev::OwnedTask<Brev::Task, IpRouteTableSm, &IpRouteTableSm::doCountRoutes>;
  using KelRouteCountTimerTask =
      Brev::OwnedTask<Brev::TimerTask, IpRouteTableSm, &IpRouteTableSm::handleRouteCountTimer>;
  // Deleting a task stops its work.
  KEL_OWNED(KelRouteTask, routeTask, RouteTask)
  KEL_OWNED(KelFecTask, fecTask, FecTask)
  KEL_OWNED(KelRouteCountTask, routeCountTask, RouteCountTask)
  KEL_OWNED(KelRouteCountTimerTask, routeCountTimerTask, RouteCountTimerTask)

  KEL_STORED(bool, routeChanges, RouteChanges, false)               // rows may have changed since the last count
  KEL_STORED(double, routeCountInterval, RouteCountInterval, 60.0)  // seconds; initially as configured
  KEL_STORED(std::uint32_t, routeCountCurrentIter, RouteCountCurrentIter, 0)  // number of the current or last pass
  KEL_STORED(std::uint32_t, routeCountExpectedIter, RouteCountExpectedIter, 0)  // passes requested
  // Where a count that yielded continues; 0.0.0.0/0 when no pass is under way. A pass yields only after its first
  // prefix, so the default route is never the bookmark.
  KEL_STORED(Vantu::IpAddrWithMask, routeCountBookmark, RouteCountBookmark)
  KEL_STORED(std::int32_t, routeCountTempValue, RouteCountTempValue, 0)  // of the pass under way

  // Prefixes and FECs that were notified and not yet looked up, and where a pass that yielded continues. The values are
  // always true.
  using KelRouteBacklog = Kel::Ordered<Vantu::Prefix, bool>;
  using KelFecBacklog = Kel::Ordered<Quillo::Fib::FecId, bool>;
  KEL_VALUES(Ordered, Vantu::Prefix, bool, routeBacklog, RouteBacklog)
  KEL_STORED(Vantu::Prefix, routeBookmark, RouteBookmark)
  KEL_VALUES(Ordered, Quillo::Fib::FecId, bool, fecBacklog, FecBacklog)
  KEL_STORED(Quillo::Fib::FecId, fecBookmark, FecBookmark)
  KEL_TYPE_END_DECLARE

 public:
  ~IpRouteTableSm() override;
  void kelStart() override;
  void kelStop() override;

  // Replace the present tables: the cache is compared with the new ones.
  void routeStatusIs(Kel::Ptr<const Quillo::Fib::RouteStatus> routeStatus);
  void vrfForwardingStatusIs(Kel::Ptr<const Quillo::Fib::ForwardingStatus> vrfForwardingStatus);

  // The configuration was read again: restarts the timer if the interval changed.
  void reconfigure();

  void routeBacklogIs(const Vantu::Prefix& prefix) { routeBacklogIs(prefix, true); }
  void fecBacklogIs(const Quillo::Fib::FecId& fecId) { fecBacklogIs(fecId, true); }
  void routeCountExpectedIterInc() { routeCountExpectedIterIs(routeCountExpectedIter() + 1); }
  void routeCountTempValueInc(std::int32_t count = 1) { routeCountTempValueIs(routeCountTempValue() + count); }

  // This route or FEC was added, removed or changed. No-op for FECs when the VRF has none of its own.
  void handleRoute(const Vantu::Prefix& prefix);
  void handleFec(const Quillo::Fib::FecId& fecId);
  // Any of them may have changed.
  void handleRoute();
  void handleFec();
  // The same, but reads nothing before the tasks run: all VRFs may be notified at once.
  void rescanRoutes();
  void rescanFecs();

 private:
  struct KelRouteStatus : OwnedReactor<IpRouteTableSm, Quillo::Fib::RouteStatus> {
    using OwnedReactor::OwnedReactor;
    void handleInitialized() override { owner_->handleRoute(); }
    void onRoute(const Vantu::Prefix& prefix) override { owner_->handleRoute(prefix); }
    void onTable() override { owner_->rescanRoutes(); }
  };
  struct KelVrfForwardingStatus : OwnedReactor<IpRouteTableSm, Quillo::Fib::ForwardingStatus> {
    using OwnedReactor::OwnedReactor;
    void handleInitialized() override { owner_->handleFec(); }
    void onFec(const Quillo::Fib::FecId& fecId) override { owner_->handleFec(fecId); }
    void onTable() override { owner_->rescanFecs(); }
  };
  // An interface whose ifIndex changes adds or removes rows, without a change of a route or FEC.
  struct KelIfMib : OwnedReactor<IpRouteTableSm, IntfSnmp::IfMib> {
    using OwnedReactor::OwnedReactor;
    void handleIfIndexByIntfId(const Vantu::IntfId&) override { owner_->routeChangesIs(true); }
  };

  void doInstantiate();
  void instantiateFecs();
  void useLocalForwardingFecs();
  bool isStopped() const { return !fecsAndPrefixes(); }
  void watchRoutes();
  void watchFecs();
  void doSetupRouteBacklogTimer();
  void doSetupFecBacklogTimer();

  // Enters the next piece of a table in the backlog.
  void scanRoutes();
  void scanFecs();
  void processRoute(const Vantu::Prefix& prefix);
  void processFec(const Quillo::Fib::FecId& fecId);
  // Makes the next hops of the FEC equal to its vias'.
  void forwardFecIs(const Quillo::Fib::Fec& fec);
  void forwardFecDel(const Quillo::Fib::FecId& fecId);
  void requestFirstCount();
  // The rows of one prefix: as many as the iterator over the rows finds.
  std::int32_t rowCount(const Vantu::Prefix& prefix);

  Kel::Ptr<KelRouteStatus> kelRouteStatus_;
  Kel::Ptr<KelVrfForwardingStatus> kelVrfForwardingStatus_;
  Kel::Ptr<KelIfMib> kelIfMib_;

  Quillo::RouteScan<Vantu::Prefix> routeScan_;
  // The scan of the FECs: first those that the cache holds, then the table.
  enum class FecScan { none, known, table };
  FecScan fecScan_ = FecScan::none;
  Quillo::Fib::FecId fecScanAfter_;                // entered up to this one
  absl::btree_set<Quillo::Fib::FecId> knownFecs_;  // those of the cache, in order

  Quillo::Fib::Fec fecScratch_;
  IpForwardMib::Resolved countScratch_;
  bool isFirstCountRequested_ = false;
};

}  // namespace IpSnmp
