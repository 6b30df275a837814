#pragma once
// Keeps the IP-FORWARD-MIB cache of one VRF in step with the shared tables of routes and FECs.
//
// It builds no rows. It keeps what puts the rows in order (the prefixes, and the next hops of each FEC), and the
// number of rows. A notification only enters its key in a backlog; cooperative tasks look the keys up, so that a
// full table never blocks the agent:
//   route task, FEC task  work the backlogs off, with a bookmark where a pass that yields goes on
//   route count task      counts the rows, prefix by prefix; the number changes at the end of a pass only
//   route count timer     asks for a count, at most once an interval and only after something changed
// The first count does not wait for the timer: it is taken as soon as both backlogs are worked off for the first time.
//
// A table as a whole (at the start, and when it tells that anything may have changed) is entered in its backlog in
// pieces: the first one at once, which is all of a small table, and each further one when the task has worked off
// what there is. What the cache knows goes through the backlog in the same way, so that what is gone from the table
// goes, and what is still there never does.
//
// The backlogs are ordered: a bookmark is then a place that lasts while keys come and go, the tables are read in
// their own order, and no rehash of a million keys ever stalls the agent.
//
// Stopping or destroying the machine takes the tables, prefixes and FECs out of the cache again.

#include <absl/container/btree_set.h>

#include "brev/TimerTask.h"
#include "ipsnmp/IpForwardMib.h"
#include "quillo/tables/RouteScan.h"

namespace IpSnmp {

class IpRouteTableSm : public Kel::Entity {
  KEL_TYPE_BEGIN("IpSnmp::IpRouteTableSm", IpRouteTableSm, Kel::Entity)
 public:
  // With one forwarding table for all VRFs (`unifiedForwardingStatus` not null), VRF "default" needs
  // `vrfForwardingStatus` and no `allForwardingFecs`, and every other VRF the reverse; with one for each VRF none
  // has `allForwardingFecs`. Anything else is fatal. The scheduler and the cache may not be null; a table that is
  // null has no entries.
  KEL_CONSTRUCTOR(IpRouteTableSm,
                  ((Kel::Ptr<Brev::TaskScheduler>, taskScheduler))((Kel::Name, vrfName))((Kel::Ptr<IpForwardMib>,
                                                                                          ipForwardMib))(
                      (Kel::Ptr<const Quillo::Fib::RouteStatus>,
                       routeStatus))((Kel::Ptr<const Quillo::Fib::ForwardingStatus>, vrfForwardingStatus))(
                      (Kel::Ptr<const Quillo::Fib::ForwardingStatus>, unifiedForwardingStatus))(
                      (Kel::Ptr<const IpForwardFecs>, allForwardingFecs))((Kel::Ptr<const IntfSnmp::IfMib>, ifMib)))

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
  // Deleting one stops what it does.
  KEL_OWNED(KelRouteTask, routeTask, RouteTask)
  KEL_OWNED(KelFecTask, fecTask, FecTask)
  KEL_OWNED(KelRouteCountTask, routeCountTask, RouteCountTask)
  KEL_OWNED(KelRouteCountTimerTask, routeCountTimerTask, RouteCountTimerTask)

  KEL_STORED(bool, routeChanges, RouteChanges, false)               // rows may have changed since the last count
  KEL_STORED(double, routeCountInterval, RouteCountInterval, 60.0)  // seconds; at first the configured ones
  KEL_STORED(std::uint32_t, routeCountCurrentIter, RouteCountCurrentIter, 0)    // the pass that runs or last ran
  KEL_STORED(std::uint32_t, routeCountExpectedIter, RouteCountExpectedIter, 0)  // passes that were asked for
  // Where a count that yielded goes on; 0.0.0.0/0 when none is under way. It is never the first prefix of a pass,
  // so that a default route is not taken for the beginning.
  KEL_STORED(Vantu::IpAddrWithMask, routeCountBookmark, RouteCountBookmark)
  KEL_STORED(std::int32_t, routeCountTempValue, RouteCountTempValue, 0)  // of the pass under way

  // Prefixes and FECs that were notified and are yet to be looked up, and where a pass that yielded goes on. The
  // values are always true.
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

  // In the place of the present tables: the cache is compared with them, and they are watched.
  void routeStatusIs(Kel::Ptr<const Quillo::Fib::RouteStatus> routeStatus);
  void vrfForwardingStatusIs(Kel::Ptr<const Quillo::Fib::ForwardingStatus> vrfForwardingStatus);

  // The configuration was read again: the timer begins anew if the interval is another one.
  void reconfigure();

  void routeBacklogIs(const Vantu::Prefix& prefix) { routeBacklogIs(prefix, true); }
  void fecBacklogIs(const Quillo::Fib::FecId& fecId) { fecBacklogIs(fecId, true); }
  void routeCountExpectedIterInc() { routeCountExpectedIterIs(routeCountExpectedIter() + 1); }
  void routeCountTempValueInc(std::int32_t count = 1) { routeCountTempValueIs(routeCountTempValue() + count); }

  // This route or FEC came, went, or says something else. FECs do not matter to a VRF that has none of its own.
  void handleRoute(const Vantu::Prefix& prefix);
  void handleFec(const Quillo::Fib::FecId& fecId);
  // Any of them may have.
  void handleRoute();
  void handleFec();
  // The same, but nothing is read before the tasks run: all VRFs may be told at once.
  void rescanRoutes();
  void rescanFecs();

 private:
  class KelRouteStatus : public Quillo::Fib::RouteStatus::Notifiee {
   public:
    explicit KelRouteStatus(IpRouteTableSm* owner) : owner_(owner) {}
    void handleInitialized() override { owner_->handleRoute(); }
    void onRoute(const Vantu::Prefix& prefix) override { owner_->handleRoute(prefix); }
    void onTable() override { owner_->rescanRoutes(); }

   private:
    IpRouteTableSm* const owner_;
  };
  class KelVrfForwardingStatus : public Quillo::Fib::ForwardingStatus::Notifiee {
   public:
    explicit KelVrfForwardingStatus(IpRouteTableSm* owner) : owner_(owner) {}
    void handleInitialized() override { owner_->handleFec(); }
    void onFec(const Quillo::Fib::FecId& fecId) override { owner_->handleFec(fecId); }
    void onTable() override { owner_->rescanFecs(); }

   private:
    IpRouteTableSm* const owner_;
  };

  // An interface that gets or loses its ifIndex brings rows or takes them, without any route or FEC changing.
  class KelIfMib : public IntfSnmp::IfMib::Notifiee {
   public:
    explicit KelIfMib(IpRouteTableSm* owner) : owner_(owner) {}
    void handleIfIndexByIntfId(const Vantu::IntfId&) override { owner_->routeChangesIs(true); }

   private:
    IpRouteTableSm* const owner_;
  };

  void doInstantiate();
  void instantiateFecs();
  void localForwardingFecsAreUsed();
  void stop();
  bool isStopped() const { return !fecsAndPrefixes(); }
  void watchRoutes();
  void watchFecs();
  void doSetupRouteBacklogTimer();
  void doSetupFecBacklogTimer();

  // One piece of a table into the backlog.
  void scanRoutes();
  void scanFecs();
  void processRoute(const Vantu::Prefix& prefix);
  void processFec(const Quillo::Fib::FecId& fecId);
  void forwardFecIs(const Quillo::Fib::Fec& fec);
  void forwardFecDel(const Quillo::Fib::FecId& fecId);
  void requestFirstCount();
  std::int32_t rowCount(const Vantu::Prefix& prefix);

  Kel::Ptr<KelRouteStatus> kelRouteStatus_;
  Kel::Ptr<KelVrfForwardingStatus> kelVrfForwardingStatus_;
  Kel::Ptr<KelIfMib> kelIfMib_;

  Quillo::RouteScan<Vantu::Prefix> routeScan_;
  // The scan of the FECs: first what the cache knows, then the table.
  enum class FecScan { none, known, table };
  FecScan fecScan_ = FecScan::none;
  Quillo::Fib::FecId fecScanAfter_;                // they were entered up to this one
  absl::btree_set<Quillo::Fib::FecId> knownFecs_;  // of the cache, in order: a scan of many goes on where it was

  Quillo::Fib::Fec fecScratch_;
  IpForwardMib::Resolved countScratch_;
  bool isFirstCountRequested_ = false;
};

}  // namespace IpSnmp
