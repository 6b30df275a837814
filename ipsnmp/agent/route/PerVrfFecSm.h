#pragma once
// Passes changes of FECs to the routes that use them. When a FEC changes, the route table's machine is notified of
// every prefix of the VRF whose route resolves through it, as if the route itself had changed.
//
// The cache refers to this machine's list of prefixes, which lets walks skip prefixes without a row. Stopping or
// destroying the machine ends that.
//
// For a FEC with many routes, the first piece of prefixes is notified at once, and the others in a task. The task also
// scans the table of routes to build the list.

#include <map>

#include "ipsnmp/agent/route/IpRouteTableSm.h"
#include "quillo/fecs/FecRouteListSm.h"

namespace IpSnmp {

class PerVrfFecSm : public Kel::Entity {
  KEL_TYPE_BEGIN("IpSnmp::PerVrfFecSm", PerVrfFecSm, Kel::Entity)
 public:
  // `vrfForwardingStatus` is the table that the VRF's routes resolve in. The tables may be null.
  // clang-format off
  KEL_CONSTRUCTOR(PerVrfFecSm,
    ((Kel::Ptr<IpRouteTableSm>, ipRouteTableSm))
    ((Kel::Ptr<const Quillo::Fib::RouteStatus>, routeStatus))
    ((Kel::Ptr<const Quillo::Fib::ForwardingStatus>, vrfForwardingStatus)))
  // clang-format on
  // The prefixes of this VRF by the FEC that their route uses, and the machine that keeps this list. Deleting that
  // machine leaves the list unchanged.
  KEL_CHILD(Quillo::Fib::FecRouteList, fecRouteList, FecRouteList)
  KEL_CHILD(FibUtils::FecRouteListSm, fecRouteListSm, FecRouteListSm)
  KEL_TYPE_END_DECLARE

 public:
  // Prefixes of a FEC that are notified at once.
  static constexpr std::size_t pieceSize = 1024;

  ~PerVrfFecSm() override;
  void kelStart() override;
  void kelStop() override;

  // Replaces the present table.
  void vrfForwardingStatusIs(Kel::Ptr<const Quillo::Fib::ForwardingStatus> vrfForwardingStatus);
  // Stops following changes of FECs. Returns whether they were followed.
  bool vrfForwardingStatusDel();

  // Builds the list of prefixes.
  void handleInitialized();
  // Call it when this FEC was added, removed or changed.
  void handleFec(const Quillo::Fib::FecId& fecId);
  // Runs the task: scans routes, and notifies the remaining prefixes of FECs, until it must yield.
  void doProcessBacklog();

 private:
  struct KelVrfForwardingStatus : OwnedReactor<PerVrfFecSm, Quillo::Fib::ForwardingStatus> {
    using OwnedReactor::OwnedReactor;
    void onFec(const Quillo::Fib::FecId& fecId) override { owner_->handleFec(fecId); }
    // Any FEC may have changed, so any route may have.
    void handleInitialized() override { owner_->ipRouteTableSm()->handleRoute(); }
    void onTable() override { owner_->ipRouteTableSm()->rescanRoutes(); }
  };
  using KelTask = Brev::OwnedTask<Brev::Task, PerVrfFecSm, &PerVrfFecSm::doProcessBacklog>;

  void followRoutes();
  // Notifies the next piece of a FEC's prefixes, from upper_bound(*after) on; null: from the first prefix.
  void notifyPrefixes(const Quillo::Fib::FecId& fecId, const Vantu::Prefix* after);

  Kel::Ptr<KelVrfForwardingStatus> kelVrfForwardingStatus_;
  Kel::Ptr<KelTask> task_;
  std::map<Quillo::Fib::FecId, Vantu::Prefix> begun_;  // FECs that are notified up to this prefix
};

}  // namespace IpSnmp
