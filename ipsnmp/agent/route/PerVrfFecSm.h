#pragma once
// Brings changes of FECs to the routes that use them: whenever a FEC changes, every prefix of the VRF whose route
// resolves through it goes to the route table's state machine, as if the route itself had changed.
//
// The cache refers to its list of prefixes, so that walks pass over the prefixes that have no row.
//
// A FEC that a great many routes use is worked off in pieces, the first one at once, the others in a task; so is the
// table of routes, which tells which prefixes a FEC has.

#include <map>

#include "ipsnmp/agent/route/IpRouteTableSm.h"
#include "quillo/fecs/FecRouteListSm.h"

namespace IpSnmp {

class PerVrfFecSm : public Kel::Entity {
  KEL_TYPE_BEGIN("IpSnmp::PerVrfFecSm", PerVrfFecSm, Kel::Entity)
 public:
  // `vrfForwardingStatus` is the table that the VRF's routes resolve in. The tables may be null.
  KEL_CONSTRUCTOR(PerVrfFecSm, ((Kel::Ptr<IpRouteTableSm>,
                                 ipRouteTableSm))((Kel::Ptr<const Quillo::Fib::RouteStatus>, routeStatus))(
                                   (Kel::Ptr<const Quillo::Fib::ForwardingStatus>, vrfForwardingStatus)))
  // For each FEC the prefixes of this VRF whose route uses it, and what keeps it so. Deleting the latter leaves the
  // list as it is.
  KEL_CHILD(Quillo::Fib::FecRouteList, fecRouteList, FecRouteList)
  KEL_CHILD(FibUtils::FecRouteListSm, fecRouteListSm, FecRouteListSm)
  KEL_TYPE_END_DECLARE

 public:
  // Prefixes of a FEC that are handed on at once.
  static constexpr std::size_t pieceSize = 1024;

  ~PerVrfFecSm() override;
  void kelStart() override;
  void kelStop() override;

  // In the place of the present table.
  void vrfForwardingStatusIs(Kel::Ptr<const Quillo::Fib::ForwardingStatus> vrfForwardingStatus);
  // Changes of FECs are heard of no more.
  bool vrfForwardingStatusDel();

  // Builds the list of prefixes.
  void handleInitialized();
  // This FEC came, went, or says something else.
  void handleFec(const Quillo::Fib::FecId& fecId);
  // One run of the task: what is left of the table of routes, and of FECs that were begun.
  void doProcessBacklog();

 private:
  class KelVrfForwardingStatus : public Quillo::Fib::ForwardingStatus::Notifiee {
   public:
    explicit KelVrfForwardingStatus(PerVrfFecSm* owner) : owner_(owner) {}
    void onFec(const Quillo::Fib::FecId& fecId) override { owner_->handleFec(fecId); }
    // Any FEC, so any route.
    void handleInitialized() override { owner_->ipRouteTableSm()->handleRoute(); }
    void onTable() override { owner_->ipRouteTableSm()->rescanRoutes(); }

   private:
    PerVrfFecSm* const owner_;
  };
  using KelTask = Brev::OwnedTask<Brev::Task, PerVrfFecSm, &PerVrfFecSm::doProcessBacklog>;

  void stop();
  void followRoutes();
  // Hands on the next piece of a FEC's prefixes, from the first one above `*after` on.
  void handOn(const Quillo::Fib::FecId& fecId, const Vantu::Prefix* after);

  Kel::Ptr<KelVrfForwardingStatus> kelVrfForwardingStatus_;
  Kel::Ptr<KelTask> task_;
  std::map<Quillo::Fib::FecId, Vantu::Prefix> begun_;  // FECs whose prefixes are handed on up to this one
};

}  // namespace IpSnmp
