#include "ipsnmp/agent/route/FecModeSm.h"

#include <utility>

KEL_TYPE_DEFINE(IpSnmp::FecModeSm)
KEL_TYPE_DEFINE(IpSnmp::FecModeRestartSm)

namespace IpSnmp {

using namespace Quillo::Fib;

FecModeSm::~FecModeSm() {
  FecModeSm::kelStop();
}

void FecModeSm::kelStart() {
  kelL3Config_ = Kel::makePtr<KelL3Config>(this);
  kelL3Config_->notifierIs(l3Config());
  handleFecMode();
}

void FecModeSm::kelStop() {
  if (const auto reactor = std::exchange(kelL3Config_, nullptr)) reactor->notifierIs(nullptr);
}

void FecModeSm::handleFecMode() {
  fecModeStatus()->fecModeIs(l3Config()->fecMode() == fecModeUnified ? fecModeUnified : fecModePerVrf);
}

FecModeRestartSm::~FecModeRestartSm() {
  FecModeRestartSm::kelStop();
}

void FecModeRestartSm::kelStart() {
  kelFecModeStatus_ = Kel::makePtr<KelFecModeStatus>(this);
  kelFecModeStatus_->notifierIs(fecModeStatus());
  fecModeIs(fecModeStatus()->fecMode());
}

void FecModeRestartSm::kelStop() {
  if (const auto reactor = std::exchange(kelFecModeStatus_, nullptr)) reactor->notifierIs(nullptr);
}

}  // namespace IpSnmp
