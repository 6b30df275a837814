#include "quillo/FecRouteListSm.h"

#include <utility>

namespace FibUtils {

using Quillo::Fib::FecRouteList;
using Quillo::Fib::ForwardingStatus;
using Quillo::Fib::RouteStatus;

class FecRouteListSm::KelRouteStatus : public RouteStatus::Notifiee {
 public:
  explicit KelRouteStatus(FecRouteListSm* owner) : owner_(owner) {}
  void handleInitialized() override { owner_->handleRoute(); }
  void onRoute(const Vantu::Prefix& prefix) override { owner_->handleRoute(prefix); }
  void onTable() override { owner_->rescan(); }

 private:
  FecRouteListSm* const owner_;
};

FecRouteListSm::FecRouteListSm(Kel::Ptr<const RouteStatus> routeStatus,
                               Kel::Ptr<const ForwardingStatus> forwardingStatus,
                               Kel::Ptr<FecRouteList> fecRouteList)
    : routeStatus_(std::move(routeStatus)),
      forwardingStatus_(std::move(forwardingStatus)),
      fecRouteList_(std::move(fecRouteList)) {
}

FecRouteListSm::~FecRouteListSm() {
  kelStop();
}

void FecRouteListSm::kelStart() {
  kelRouteStatus_ = Kel::makePtr<KelRouteStatus>(this);
  kelRouteStatus_->notifierIs(routeStatus_);
  if (routeStatus_ && routeStatus_->initialized()) handleRoute();
}

void FecRouteListSm::kelStop() {
  if (const auto reactor = std::exchange(kelRouteStatus_, nullptr)) reactor->notifierIs(nullptr);
  scan_.end();
}

void FecRouteListSm::handleRoute(const Vantu::Prefix& prefix) {
  Quillo::Fib::Route route;
  try {
    route = routeStatus_->route(prefix);
  } catch (const Pesk::CorruptionDetectedException& damage) {
    routeStatus_->corruptionDetected(damage.what());
  }
  fecRouteList_->fecIdIs(prefix, route.fecId);
}

void FecRouteListSm::handleRoute() {
  scan_.begin();
  try {
    scanPiece();
  } catch (const Quillo::StoreException&) {
    // The table tells when it can be read again, and the scan begins anew.
  }
  if (isScanning() && scanBegins_) scanBegins_();
}

void FecRouteListSm::rescan() {
  if (!scanBegins_) return handleRoute();
  scan_.begin();
  scanBegins_();
}

void FecRouteListSm::scanPiece() {
  const auto known = [this](const Vantu::Prefix* after, const FecRouteList::Visit& visit) {
    fecRouteList_->forEachPrefix(after, visit);
  };
  for (const auto& prefix : scan_.piece(routeStatus_.get(), known)) handleRoute(prefix);
}

}  // namespace FibUtils
