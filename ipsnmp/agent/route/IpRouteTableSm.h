#pragma once
// Keeps the IP-FORWARD-MIB cache of one VRF equal to the shared tables of routes and FECs.
//
// It keeps the order of the rows (the prefixes, and the next hops of each FEC) and their number; the rows themselves
// are computed on request. A notification only adds its key to a backlog. Cooperative tasks look the keys up, so that
// a full table never blocks the agent:
//   route task, FEC task  process the backlogs; a bookmark records where a pass that yielded continues
//   route count task      counts the rows, prefix by prefix; the published number changes at the end of a pass
//   inet count task       then counts the rows of inetCidrRouteTable, of both IP versions
//   route count timer     requests a count, at most once an interval and only after a change
// The first count starts without the timer, once both backlogs are empty for the first time.
//
// A whole table (at the start, and when any entry may have changed) is added to its backlog in pieces. The first piece
// is added at once, each further one when the task has emptied the backlog. The keys of the cache are added in the same
// way, so keys that the table no longer has are removed.
//
// The backlogs are ordered: bookmarks stay valid while keys are added and removed, tables are read in their own order,
// and no rehash of a million keys stalls the agent.
//
// Lifetime: stopping or destroying the machine removes the tables, prefixes and FECs from the cache.

#include <absl/container/btree_set.h>

#include "brev/TimerTask.h"
#include "ipsnmp/InetCidrRoutes.h"
#include "ipsnmp/agent/address/Reactors.h"
#include "quillo/tables/TableScan.h"

namespace IpSnmp {

class IpRouteTableSm : public Kel::Entity {
  KEL_TYPE_BEGIN("IpSnmp::IpRouteTableSm", IpRouteTableSm, Kel::Entity)
 public:
  // Requires (aborts): with one forwarding table for all VRFs (`unifiedForwardingStatus` is not null), VRF "default"
  // has `vrfForwardingStatus` and no `allForwardingFecs`; the other VRFs have the reverse. With one table for each VRF,
  // no VRF has `allForwardingFecs`. The scheduler and the cache are not null; a null table has no entries.
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
  // Null if the VRF uses `allForwardingFecs`.
  KEL_CHILD(IpForwardFecs, localForwardingFecs, LocalForwardingFecs)

  // One run of each task and of the timer: works until it is done or should yield. The counts and the timer are no-ops
  // outside their task.
  void doProcessRouteBacklog();
  void doProcessFecBacklog();
  void doCountRoutes();
  void doCountInetRoutes();
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
  // Where a count that yielded continues; 0.0.0.0/0: no pass is under way. A pass yields only after its first prefix,
  // so the bookmark is never the default route.
  KEL_STORED(Vantu::IpAddrWithMask, routeCountBookmark, RouteCountBookmark)
  KEL_STORED(std::int32_t, routeCountTempValue, RouteCountTempValue, 0)  // of the pass under way

  // Notified prefixes and FECs that are not yet looked up, and where a pass that yielded continues. The values are
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

  // Replaces a table: the cache is compared with the new one.
  void routeStatusIs(Kel::Ptr<const Quillo::Fib::RouteStatus> routeStatus);
  void vrfForwardingStatusIs(Kel::Ptr<const Quillo::Fib::ForwardingStatus> vrfForwardingStatus);
  // The IPv6 routes, for inetCidrRouteTable: the machine passes them to the cache, and counts their rows.
  void route6StatusIs(Kel::Ptr<const Quillo::Fib6::RouteStatus> route6Status);

  // Call it when the configuration was read again: restarts the timer if the interval changed.
  void reconfigure();

  void routeBacklogIs(const Vantu::Prefix& prefix) { routeBacklogIs(prefix, true); }
  void fecBacklogIs(const Quillo::Fib::FecId& fecId) { fecBacklogIs(fecId, true); }
  void routeCountExpectedIterInc() { routeCountExpectedIterIs(routeCountExpectedIter() + 1); }
  void routeCountTempValueInc(std::int32_t count = 1) { routeCountTempValueIs(routeCountTempValue() + count); }

  // Call it when this route or FEC was added, removed or changed. No-op for FECs if the VRF has none of its own.
  void handleRoute(const Vantu::Prefix& prefix);
  void handleFec(const Quillo::Fib::FecId& fecId);
  // Call it when any route or FEC may have changed.
  void handleRoute();
  void handleFec();
  // The same, but leave all reading to the tasks, since all VRFs may be notified at once.
  void rescanRoutes();
  void rescanFecs();

 private:
  struct KelRouteStatus : OwnedReactor<IpRouteTableSm, Quillo::Fib::RouteStatus> {
    using OwnedReactor::OwnedReactor;
    void handleInitialized() override { owner_->handleRoute(); }
    void onRoute(const Vantu::Prefix& prefix) override { owner_->handleRoute(prefix); }
    void onTable() override { owner_->rescanRoutes(); }
  };
  struct KelRoute6Status : OwnedReactor<IpRouteTableSm, Quillo::Fib6::RouteStatus> {
    using OwnedReactor::OwnedReactor;
    void handleInitialized() override { onTable(); }
    void onRoute(const Vantu::Ip6Prefix&) override { onTable(); }
    void onTable() override { owner_->routeChangesIs(true); }
  };
  struct KelVrfForwardingStatus : OwnedReactor<IpRouteTableSm, Quillo::Fib::ForwardingStatus> {
    using OwnedReactor::OwnedReactor;
    void handleInitialized() override { owner_->handleFec(); }
    void onFec(const Quillo::Fib::FecId& fecId) override { owner_->handleFec(fecId); }
    void onTable() override { owner_->rescanFecs(); }
  };
  // A changed ifIndex adds or removes rows without a change of a route or FEC.
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

  // Adds the next piece of a table to the backlog.
  void scanRoutes();
  void scanFecs();
  void processRoute(const Vantu::Prefix& prefix);
  void processFec(const Quillo::Fib::FecId& fecId);
  // Sets the next hops of the FEC from its vias.
  void forwardFecIs(const Quillo::Fib::Fec& fec);
  void forwardFecDel(const Quillo::Fib::FecId& fecId);
  void requestFirstCount();
  // The number of rows of ipCidrRouteTable for the prefix.
  std::int32_t rowCount(const Vantu::Prefix& prefix);

  using KelInetCountTask = Brev::OwnedTask<Brev::Task, IpRouteTableSm, &IpRouteTableSm::doCountInetRoutes>;

  Kel::Ptr<KelRouteStatus> kelRouteStatus_;
  Kel::Ptr<KelRoute6Status> kelRoute6Status_;
  Kel::Ptr<KelVrfForwardingStatus> kelVrfForwardingStatus_;
  Kel::Ptr<KelIfMib> kelIfMib_;

  Quillo::TableScan<Quillo::Fib::RouteStatus> routeScan_;
  Quillo::TableScan<Quillo::Fib::ForwardingStatus> fecScan_;
  absl::btree_set<Quillo::Fib::FecId> knownFecs_;  // the FECs in the cache, in order

  Quillo::Fib::Fec fecScratch_;
  bool isFirstCountRequested_ = false;

  Kel::Ptr<KelInetCountTask> inetCountTask_;
  std::optional<InetCidrRouteIndex> inetCountBookmark_;  // the row at which a count that yielded continues
  std::uint32_t inetCount_ = 0;                          // of the pass under way
};

}  // namespace IpSnmp
