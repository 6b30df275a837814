#pragma once
// The two machines of the FEC mode: whether each VRF has its own forwarding equivalence classes, or all share one table
// (unified).
//
//   L3::Config -> FecModeSm -> FecModeStatus -> FecModeRestartSm -> owner of the route machines

#include "ipsnmp/agent/address/Reactors.h"
#include "varnix/AgentStatus.h"
#include "varnix/L3.h"

namespace IpSnmp {

// Keeps the status equal to the configuration. Without a configured mode, each VRF has its own FECs.
class FecModeSm : public Kel::Entity {
  KEL_TYPE_BEGIN("IpSnmp::FecModeSm", FecModeSm, Kel::Entity)
 public:
  // Requires: no handle is null.
  // clang-format off
  KEL_CONSTRUCTOR(FecModeSm,
    ((Kel::Ptr<const L3::Config>, l3Config))
    ((Kel::Ptr<Quillo::Fib::FecModeStatus>, fecModeStatus)))
  // clang-format on
  KEL_TYPE_END_DECLARE

  ~FecModeSm() override;
  void kelStart() override;
  void kelStop() override;

 private:
  struct KelL3Config : OwnedReactor<FecModeSm, L3::Config> {
    using OwnedReactor::OwnedReactor;
    void handleFecMode() override { owner_->handleFecMode(); }
  };

  void handleFecMode();

  Kel::Ptr<KelL3Config> kelL3Config_;
};

// Publishes in `fecMode` the mode that the route machines must be created for. Each of them supports one mode, so a
// reactor on `fecMode` creates them again when it changes.
class FecModeRestartSm : public Kel::Entity {
  KEL_TYPE_BEGIN("IpSnmp::FecModeRestartSm", FecModeRestartSm, Kel::Entity)
 public:
  // Requires: the handle is not null.
  KEL_CONSTRUCTOR(FecModeRestartSm, ((Kel::Ptr<const Quillo::Fib::FecModeStatus>, fecModeStatus)))
  KEL_STORED(Quillo::Fib::FecMode, fecMode, FecMode, Quillo::Fib::fecModeUnknown)
  KEL_TYPE_END_DECLARE

  ~FecModeRestartSm() override;
  void kelStart() override;
  void kelStop() override;

 private:
  struct KelFecModeStatus : OwnedReactor<FecModeRestartSm, Quillo::Fib::FecModeStatus> {
    using OwnedReactor::OwnedReactor;
    void handleFecMode() override { owner_->fecModeIs(notifier()->fecMode()); }
  };

  Kel::Ptr<KelFecModeStatus> kelFecModeStatus_;
};

}  // namespace IpSnmp
