#include "ipsnmp/agent/route/IpRouteTableSm.h"

#include <utility>

#include "ipsnmp/ProtocolMap.h"
#include "ipsnmp/agent/route/IpRouteTrace.h"
#include "snmp/SnmpUtil.h"

KEL_TYPE_DEFINE(IpSnmp::IpRouteTableSm)

namespace IpSnmp {

Kel::TraceHandle ipRouteTableSmTrace("IpRouteTableSm");

namespace {

constexpr int backlogPriority = 2, countPriority = 3;

// A table that cannot be read now must not undo what its machine stands in: it tells when it can be read again, and
// the scan begins anew. The task says why, when it fails in the same way.
template <class Scan>
void scanIfReadable(Scan scan) {
  try {
    scan();
  } catch (const Quillo::StoreException&) {
  }
}

double configuredInterval() {
  return SnmpUtil::getSnmpConfig()->routeCountInterval();
}

}  // namespace

IpRouteTableSm::~IpRouteTableSm() {
  stop();
}

void IpRouteTableSm::kelStart() {
  doInstantiate();
}

void IpRouteTableSm::kelStop() {
  stop();
}

void IpRouteTableSm::doInstantiate() {
  QTRACE_ENTRY(ipRouteTableSmTrace, this);
  const auto taskName = [this](const char* what) {
    return fmt::format("ipRouteTable v4 {} VRF:{}", what, vrfName());
  };
  fecsAndPrefixesIs();
  instantiateFecs();
  ipForwardMib()->routeStatusIs(routeStatus());
  ipForwardMib()->fecsAndPrefixesIs(fecsAndPrefixes());
  ipForwardMib()->ifMibIs(ifMib());
  fillProtocolMap(protocolMap());
  routeTaskIs(Kel::makePtr<KelRouteTask>(this, taskScheduler(), taskName("Route"), backlogPriority));
  routeCountTaskIs(Kel::makePtr<KelRouteCountTask>(this, taskScheduler(), taskName("Route count"), countPriority));
  routeCountTimerTaskIs(
      Kel::makePtr<KelRouteCountTimerTask>(this, taskScheduler(), taskName("Route count timer"), countPriority));
  routeChangesIs(true);
  routeCountIntervalIs(configuredInterval());
  routeCountTimerTask()->scheduleTaskDelay(routeCountInterval());
  kelIfMib_ = Kel::makePtr<KelIfMib>(this);
  kelIfMib_->notifierIs(ifMib());
  watchRoutes();
  watchFecs();
}

void IpRouteTableSm::instantiateFecs() {
  if (!unifiedForwardingStatus()) {
    KEL_ASSERT(!allForwardingFecs());
    localForwardingFecsAreUsed();
    ipForwardMib()->vrfForwardingStatusIs(vrfForwardingStatus());
    return;
  }
  if (vrfName() == "default") {
    KEL_ASSERT(vrfForwardingStatus());
    KEL_ASSERT(!allForwardingFecs());
    localForwardingFecsAreUsed();
  } else {
    KEL_ASSERT(!vrfForwardingStatus());
    KEL_ASSERT(allForwardingFecs());
    fecsAndPrefixes()->forwardFecsIs(allForwardingFecs());
  }
  ipForwardMib()->vrfForwardingStatusIs(unifiedForwardingStatus());
}

void IpRouteTableSm::localForwardingFecsAreUsed() {
  fecTaskIs(Kel::makePtr<KelFecTask>(this, taskScheduler(), fmt::format("ipRouteTable v4 Fec VRF:{}", vrfName()),
                                     backlogPriority));
  fecsAndPrefixes()->forwardFecsIs(localForwardingFecsIs());
}

void IpRouteTableSm::stop() {
  if (const auto reactor = std::exchange(kelRouteStatus_, nullptr)) reactor->notifierIs(nullptr);
  if (const auto reactor = std::exchange(kelVrfForwardingStatus_, nullptr)) reactor->notifierIs(nullptr);
  if (const auto reactor = std::exchange(kelIfMib_, nullptr)) reactor->notifierIs(nullptr);
  routeCountTimerTaskDel();
  routeCountTaskDel();
  routeTaskDel();
  fecTaskDel();
  // Unless another machine's are there already.
  if (fecsAndPrefixes() && ipForwardMib()->fecsAndPrefixes() == fecsAndPrefixes()) {
    ipForwardMib()->routeStatusIs(nullptr);
    ipForwardMib()->vrfForwardingStatusIs(nullptr);
    ipForwardMib()->fecsAndPrefixesIs(nullptr);
    ipForwardMib()->ifMibIs(nullptr);
    ipForwardMib()->numRoutesIs(0);
  }
  fecsAndPrefixesDel();
  localForwardingFecsDel();
  isFirstCountRequested_ = false;
  knownFecs_.clear();
  fecScan_ = FecScan::none;
}

void IpRouteTableSm::reconfigure() {
  if (isStopped() || routeCountInterval() == configuredInterval()) return;
  routeCountIntervalIs(configuredInterval());
  if (routeCountTimerTask()) routeCountTimerTask()->scheduleTaskDelay(routeCountInterval());
}

void IpRouteTableSm::routeStatusIs(Kel::Ptr<const Quillo::Fib::RouteStatus> routeStatus) {
  if (routeStatus_ == routeStatus || isStopped()) return;
  routeStatus_ = std::move(routeStatus);
  ipForwardMib()->routeStatusIs(routeStatus_);
  watchRoutes();
}

void IpRouteTableSm::vrfForwardingStatusIs(Kel::Ptr<const Quillo::Fib::ForwardingStatus> vrfForwardingStatus) {
  if (vrfForwardingStatus_ == vrfForwardingStatus || isStopped()) return;
  vrfForwardingStatus_ = std::move(vrfForwardingStatus);
  if (!unifiedForwardingStatus()) ipForwardMib()->vrfForwardingStatusIs(vrfForwardingStatus_);
  watchFecs();
}

void IpRouteTableSm::watchRoutes() {
  if (!kelRouteStatus_) kelRouteStatus_ = Kel::makePtr<KelRouteStatus>(this);
  kelRouteStatus_->notifierIs(routeStatus());
  // A table whose first state is still to come tells when it has come.
  if (!routeStatus() || routeStatus()->initialized()) handleRoute();
}

void IpRouteTableSm::watchFecs() {
  if (!kelVrfForwardingStatus_) kelVrfForwardingStatus_ = Kel::makePtr<KelVrfForwardingStatus>(this);
  kelVrfForwardingStatus_->notifierIs(vrfForwardingStatus());
  if (!vrfForwardingStatus() || vrfForwardingStatus()->initialized()) handleFec();
}

void IpRouteTableSm::handleRoute(const Vantu::Prefix& prefix) {
  if (isStopped()) return;
  routeBacklogIs(prefix);
  doSetupRouteBacklogTimer();
}

void IpRouteTableSm::handleFec(const Quillo::Fib::FecId& fecId) {
  if (!localForwardingFecs()) return;
  fecBacklogIs(fecId);
  doSetupFecBacklogTimer();
}

void IpRouteTableSm::handleRoute() {
  if (isStopped()) return;
  QTRACE(ipRouteTableSmTrace, 2) << "void IpSnmp::IpRouteTableSm::handleRoute()"
                                 << " initially";
  routeScan_.begin();
  scanIfReadable([this] { scanRoutes(); });
  doSetupRouteBacklogTimer();
}

void IpRouteTableSm::rescanRoutes() {
  if (isStopped()) return;
  routeScan_.begin();
  doSetupRouteBacklogTimer();
}

void IpRouteTableSm::handleFec() {
  if (!localForwardingFecs()) return;
  QTRACE(ipRouteTableSmTrace, 2) << "void IpSnmp::IpRouteTableSm::handleFec()"
                                 << " initially";
  rescanFecs();
  scanIfReadable([this] { scanFecs(); });
}

void IpRouteTableSm::rescanFecs() {
  if (!localForwardingFecs()) return;
  fecScan_ = FecScan::known;
  fecScanAfter_ = Quillo::Fib::FecId();
  doSetupFecBacklogTimer();
}

void IpRouteTableSm::doSetupRouteBacklogTimer() {
  if (routeTask()) routeTask()->scheduleTask();
}

void IpRouteTableSm::doSetupFecBacklogTimer() {
  if (fecTask()) fecTask()->scheduleTask();
}

}  // namespace IpSnmp
