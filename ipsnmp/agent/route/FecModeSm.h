#pragma once
// The two machines of the mode in which the switch keeps its forwarding equivalence classes (FECs).
//
//   L3::Config -> FecModeSm -> FecModeStatus -> FecModeRestartSm -> whoever made the machines of the routes

#include "varnix/AgentStatus.h"
#include "varnix/L3.h"

namespace IpSnmp {

// Keeps the status as the configuration has it: until this names a mode, each VRF has its own FECs.
class FecModeSm : public Kel::Entity {
  KEL_TYPE_BEGIN("IpSnmp::FecModeSm", FecModeSm, Kel::Entity)
 public:
  // Neither may be null.
  KEL_CONSTRUCTOR(FecModeSm,
                  ((Kel::Ptr<const L3::Config>, l3Config))((Kel::Ptr<Quillo::Fib::FecModeStatus>, fecModeStatus)))
  KEL_TYPE_END_DECLARE

  ~FecModeSm() override;
  void kelStart() override;
  void kelStop() override;

 private:
  class KelL3Config : public L3::Config::Notifiee {
   public:
    explicit KelL3Config(FecModeSm* owner) : owner_(owner) {}
    void handleFecMode() override { owner_->handleFecMode(); }

   private:
    FecModeSm* const owner_;
  };

  void handleFecMode();
  void stop();

  Kel::Ptr<KelL3Config> kelL3Config_;
};

// Tells that the machines of the routes, which are made for one mode, have to be made anew: its `fecMode` is the mode
// that they are to be made for, and a reactor on it hears when that is another one.
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
  class KelFecModeStatus : public Quillo::Fib::FecModeStatus::Notifiee {
   public:
    explicit KelFecModeStatus(FecModeRestartSm* owner) : owner_(owner) {}
    void handleFecMode() override { owner_->fecModeIs(notifier()->fecMode()); }

   private:
    FecModeRestartSm* const owner_;
  };

  void stop();

  Kel::Ptr<KelFecModeStatus> kelFecModeStatus_;
};

}  // namespace IpSnmp
