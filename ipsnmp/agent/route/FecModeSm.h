#pragma once
// The two machines of the mode in which the switch keeps its forwarding equivalence classes (FECs).
//
//   L3::Config -> FecModeSm -> FecModeStatus -> FecModeRestartSm -> owner of the route machines

#include "ipsnmp/agent/address/Reactors.h"
#include "varnix/AgentStatus.h"
#include "varnix/L3.h"

namespace IpSnmp {

// Keeps the status equal to the configuration. While this names no mode, each VRF has its own FECs.
class FecModeSm : public Kel::Entity {
  KEL_TYPE_BEGIN("IpSnmp::FecModeSm", FecModeSm, Kel::Entity)
 public:
  // Neither may be null.
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

// Says for which mode the machines of the routes, each of which is made for one mode, have to be made: `fecMode`. A
// reactor on it makes them anew when it changes.
class FecModeRestartSm : public Kel::Entity {
  KEL_TYPE_BEGIN("IpSnmp::FecModeRestartSm", FecModeRestartSm, Kel::Entity)
 public:
  // May not be null.
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
