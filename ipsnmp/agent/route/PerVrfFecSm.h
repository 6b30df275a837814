#pragma once
// Brings changes of FECs to the routes that use them: when a FEC changes, every prefix of the VRF whose route resolves
// through it is notified to the route table's state machine, as if the route itself had changed.
//
// The cache refers to this machine's list of prefixes, so that walks pass over the prefixes without a row.
//
// Large work is cut into pieces. Of a FEC that many routes use, the first piece is notified at once and the others in a
// task. The task also reads the table of routes, which says which prefixes a FEC has.

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
  // For each FEC the prefixes of this VRF whose route uses it, and the machine that updates this list. Deleting that
  // machine leaves the list as it is.
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
  // Changes of FECs are no longer followed. False when they were not.
  bool vrfForwardingStatusDel();

  // Builds the list of prefixes.
  void handleInitialized();
  // This FEC was added, removed or changed.
  void handleFec(const Quillo::Fib::FecId& fecId);
  // One run of the task: the rest of the table of routes, and of the FECs that were begun.
  void doProcessBacklog();

 private:
  struct KelVrfForwardingStatus : OwnedReactor<PerVrfFecSm, Quillo::Fib::ForwardingStatus> {
    using OwnedReactor::OwnedReactor;
    void onFec(const Quillo::Fib::FecId& fecId) override { owner_->handleFec(fecId); }
    // Any FEC, so any route.
    void handleInitialized() override { owner_->ipRouteTableSm()->handleRoute(); }
    void onTable() override { owner_->ipRouteTableSm()->rescanRoutes(); }
  };
  using KelTask = Brev::OwnedTask<Brev::Task, PerVrfFecSm, &PerVrfFecSm::doProcessBacklog>;

  void followRoutes();
  // Notifies the next piece of a FEC's prefixes, from the first one above `*after` on; null: from the first of all.
  void notifyPrefixes(const Quillo::Fib::FecId& fecId, const Vantu::Prefix* after);

  Kel::Ptr<KelVrfForwardingStatus> kelVrfForwardingStatus_;
  Kel::Ptr<KelTask> task_;
  std::map<Quillo::Fib::FecId, Vantu::Prefix> begun_;  // FECs whose prefixes are notified up to this one
};

}  // namespace IpSnmp
