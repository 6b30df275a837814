#include "quillo/fecs/FecRouteListSm.h"

#include <fmt/format.h>

#include <algorithm>
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

class FecRouteListSm::KelForwardingStatus : public ForwardingStatus::Notifiee {
 public:
  explicit KelForwardingStatus(FecRouteListSm* owner) : owner_(owner) {}
  void handleInitialized() override { owner_->rescanFecs(); }
  void onFec(const Quillo::Fib::FecId& fecId) override { owner_->handleFec(fecId); }
  void onTable() override { owner_->rescanFecs(); }

 private:
  FecRouteListSm* const owner_;
};

Kel::OrderedMap<Vantu::IpAddr, Quillo::Fib::ViaIndex> ipv4NextHops(const Quillo::Fib::Fec& fec) {
  if (fec.via.size() > Quillo::Fib::Fec::maxVias) {
    throw Kel::RangeException(fmt::format("PodArray::set expected size <= {}", Quillo::Fib::Fec::maxVias));
  }
  Kel::OrderedMap<Vantu::IpAddr, Quillo::Fib::ViaIndex> nextHops;
  for (unsigned i = 0; i < fec.via.size(); ++i) {
    const auto& hop = fec.via[i].hop;
    if (hop.af() == Vantu::ipv4_) nextHops.insert_or_assign(hop.v4(), Quillo::Fib::ViaIndex(i));
  }
  return nextHops;
}

namespace {

FecRouteList::Intfs intfsOf(const Quillo::Fib::Fec& fec) {
  FecRouteList::Intfs intfs;
  try {
    for (const auto& [hop, via] : ipv4NextHops(fec)) intfs.push_back(fec.via[via.value()].intfId);
  } catch (const Kel::RangeException&) {
    return {};  // the FEC is not served; the machine that keeps its next hops reports that
  }
  std::sort(intfs.begin(), intfs.end());
  intfs.erase(std::unique(intfs.begin(), intfs.end()), intfs.end());
  return intfs;
}

}  // namespace

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
  kelForwardingStatus_ = Kel::makePtr<KelForwardingStatus>(this);
  kelForwardingStatus_->notifierIs(forwardingStatus_);
  fecRouteList_->expireFecInterfaces();
  if (routeStatus_ && routeStatus_->initialized()) handleRoute();
}

void FecRouteListSm::kelStop() {
  if (const auto reactor = std::exchange(kelRouteStatus_, nullptr)) reactor->notifierIs(nullptr);
  if (const auto reactor = std::exchange(kelForwardingStatus_, nullptr)) reactor->notifierIs(nullptr);
  scan_.end();
  if (fecRouteList_) fecRouteList_->setCompleteTo(nullptr);
}

void FecRouteListSm::handleRoute(const Vantu::Prefix& prefix) {
  Quillo::Fib::Route route;
  try {
    route = routeStatus_->route(prefix);
  } catch (const Pesk::CorruptionDetectedException& damage) {
    routeStatus_->corruptionDetected(damage.what());
  }
  fecRouteList_->routeIs(prefix, route);
  if (fecRouteList_->needsIntfs(route.fecId)) handleFec(route.fecId);
}

void FecRouteListSm::handleFec(const Quillo::Fib::FecId& fecId) {
  if (!fecRouteList_->hasSought(fecId)) return;
  fecScratch_.clear();
  try {
    if (forwardingStatus_) forwardingStatus_->readFec(fecId, fecScratch_);
  } catch (const Pesk::CorruptionDetectedException& damage) {
    fecScratch_.clear();
    forwardingStatus_->corruptionDetected(damage.what());
  } catch (const Quillo::StoreException&) {
    return;  // the table notifies when it can be read again
  }
  fecRouteList_->setFecInterfaces(fecId, intfsOf(fecScratch_));
}

void FecRouteListSm::beginScan() {
  scan_.begin();
  fecRouteList_->setCompleteTo(nullptr);
}

void FecRouteListSm::handleRoute() {
  beginScan();
  try {
    scanPiece();
  } catch (const Quillo::StoreException&) {
    // The table notifies when it can be read again, and the scan restarts.
  }
  if (isScanning() && scanBegins_) scanBegins_();
}

void FecRouteListSm::rescan() {
  if (!scanBegins_) return handleRoute();
  beginScan();
  scanBegins_();
}

void FecRouteListSm::rescanFecs() {
  fecRouteList_->expireFecInterfaces();
  if (!routeStatus_ || routeStatus_->initialized()) rescan();
}

void FecRouteListSm::scanPiece() {
  const auto known = [this](const Vantu::Prefix* after, const FecRouteList::Visit& visit) {
    fecRouteList_->forEachPrefix(after, visit);
  };
  for (const auto& prefix : scan_.piece(routeStatus_.get(), known)) handleRoute(prefix);
  static const Vantu::Prefix lastOfAll(Vantu::IpAddr(~std::uint32_t{0}), 32);
  if (forwardingStatus_) fecRouteList_->setCompleteTo(scan_.isOn() ? scan_.last() : &lastOfAll);
}

}  // namespace FibUtils
