#include "ipsnmp/agent/route/PerVrfFecSm.h"

#include <utility>

#include "kel/Trace.h"

KEL_TYPE_DEFINE(IpSnmp::PerVrfFecSm)

namespace IpSnmp {
namespace {

Kel::TraceHandle perVrfFecSmTrace("PerVrfFecSm");

constexpr int taskPriority = 2;

}  // namespace

PerVrfFecSm::~PerVrfFecSm() {
  PerVrfFecSm::kelStop();
}

void PerVrfFecSm::kelStart() {
  const auto& routeSm = *ipRouteTableSm();
  task_ = Kel::makePtr<KelTask>(this, routeSm.taskScheduler(),
                                fmt::format("ipRouteTable v4 Fec route VRF:{}", routeSm.vrfName()), taskPriority);
  kelVrfForwardingStatus_ = Kel::makePtr<KelVrfForwardingStatus>(this);
  kelVrfForwardingStatus_->notifierIs(vrfForwardingStatus());
  handleInitialized();
}

void PerVrfFecSm::kelStop() {
  if (const auto reactor = std::exchange(kelVrfForwardingStatus_, nullptr)) reactor->notifierIs(nullptr);
  if (const auto task = std::exchange(task_, nullptr)) task->kelStop();
  const auto served = ipRouteTableSm()->fecsAndPrefixes();
  if (served && served->fecRouteList() == fecRouteList()) served->fecRouteListIs(nullptr);
  fecRouteListSmDel();
  fecRouteListDel();
}

void PerVrfFecSm::vrfForwardingStatusIs(Kel::Ptr<const Quillo::Fib::ForwardingStatus> vrfForwardingStatus) {
  if (vrfForwardingStatus_ == vrfForwardingStatus || !kelVrfForwardingStatus_) return;
  vrfForwardingStatus_ = std::move(vrfForwardingStatus);
  kelVrfForwardingStatus_->notifierIs(vrfForwardingStatus_);
  if (fecRouteListSmDel() && fecRouteList()) followRoutes();
  if (vrfForwardingStatus_) ipRouteTableSm()->handleRoute();
}

bool PerVrfFecSm::vrfForwardingStatusDel() {
  const bool was = vrfForwardingStatus_ != nullptr;
  vrfForwardingStatusIs(nullptr);
  return was;
}

void PerVrfFecSm::handleInitialized() {
  QTRACE(perVrfFecSmTrace, 2) << "void IpSnmp::PerVrfFecSm::handleInitialized()";
  fecRouteListIs();
  auto& routeSm = *ipRouteTableSm();
  fecRouteList()->setSoughtPredicate(
      [mib = routeSm.ipForwardMib()](const auto& route) { return mib->validRoute(route); });
  if (routeSm.fecsAndPrefixes()) routeSm.fecsAndPrefixes()->fecRouteListIs(fecRouteList());
  followRoutes();
}

void PerVrfFecSm::followRoutes() {
  const auto sm = fecRouteListSmIs(routeStatus(), vrfForwardingStatus(), fecRouteList());
  sm->setScanHandler([task = task_.get()] { task->scheduleTask(); });
  if (sm->isScanning()) task_->scheduleTask();
}

void PerVrfFecSm::handleFec(const Quillo::Fib::FecId& fecId) {
  QTRACE(perVrfFecSmTrace, 6) << "void IpSnmp::PerVrfFecSm::handleFec(const Quillo::Fib::FecId&)"
                              << " for " << fecId;
  notifyPrefixes(fecId, nullptr);
}

void PerVrfFecSm::notifyPrefixes(const Quillo::Fib::FecId& fecId, const Vantu::Prefix* after) {
  if (!fecRouteList()) return;
  std::vector<Vantu::Prefix> piece;
  fecRouteList()->forEachPrefix(fecId, after, [&](const Vantu::Prefix& prefix) {
    piece.push_back(prefix);
    return piece.size() < pieceSize;
  });
  for (const auto& prefix : piece) {
    QTRACE(perVrfFecSmTrace, 6) << "prefix " << prefix << ", fecId " << fecId;
    ipRouteTableSm()->handleRoute(prefix);
  }
  if (piece.size() == pieceSize) {
    begun_.insert_or_assign(fecId, piece.back());
    task_->scheduleTask();
  } else {
    begun_.erase(fecId);
  }
}

void PerVrfFecSm::doProcessBacklog() {
  const auto task = task_;
  const auto sm = fecRouteListSm();
  while ((sm && sm->isScanning()) || !begun_.empty()) {
    if (task->taskShouldYield()) return task->scheduleTask();
    if (sm && sm->isScanning()) {
      sm->scanPiece();
    } else {
      const auto [fecId, after] = *begun_.begin();
      notifyPrefixes(fecId, &after);
    }
  }
}

}  // namespace IpSnmp
