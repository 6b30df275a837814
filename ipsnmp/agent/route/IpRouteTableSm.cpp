#include "ipsnmp/agent/route/IpRouteTableSm.h"

#include <utility>

#include "ipsnmp/ProtocolMap.h"
#include "kel/Trace.h"
#include "quillo/StoreException.h"
#include "snmp/SnmpUtil.h"

KEL_TYPE_DEFINE(IpSnmp::IpRouteTableSm)

namespace IpSnmp {
namespace {

Kel::TraceHandle ipRouteTableSmTrace("IpRouteTableSm");

constexpr int backlogPriority = 2, countPriority = 3;

// Scans a table whose unreadability must not fail the creation of its machine. The table notifies when it becomes
// readable, and the scan begins again. If the task fails for the same reason, it traces that.
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
  IpRouteTableSm::kelStop();
}

void IpRouteTableSm::kelStart() {
  doInstantiate();
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
  inetCountTask_ =
      Kel::makePtr<KelInetCountTask>(this, taskScheduler(), taskName("inet route count"), countPriority);
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
    useLocalForwardingFecs();
    ipForwardMib()->vrfForwardingStatusIs(vrfForwardingStatus());
    return;
  }
  if (vrfName() == "default") {
    KEL_ASSERT(vrfForwardingStatus());
    KEL_ASSERT(!allForwardingFecs());
    useLocalForwardingFecs();
  } else {
    KEL_ASSERT(!vrfForwardingStatus());
    KEL_ASSERT(allForwardingFecs());
    fecsAndPrefixes()->forwardFecsIs(allForwardingFecs());
  }
  ipForwardMib()->vrfForwardingStatusIs(unifiedForwardingStatus());
}

void IpRouteTableSm::useLocalForwardingFecs() {
  fecTaskIs(Kel::makePtr<KelFecTask>(this, taskScheduler(), fmt::format("ipRouteTable v4 Fec VRF:{}", vrfName()),
                                     backlogPriority));
  fecsAndPrefixes()->forwardFecsIs(localForwardingFecsIs());
}

void IpRouteTableSm::kelStop() {
  if (const auto reactor = std::exchange(kelRouteStatus_, nullptr)) reactor->notifierIs(nullptr);
  if (const auto reactor = std::exchange(kelRoute6Status_, nullptr)) reactor->notifierIs(nullptr);
  if (const auto reactor = std::exchange(kelVrfForwardingStatus_, nullptr)) reactor->notifierIs(nullptr);
  if (const auto reactor = std::exchange(kelIfMib_, nullptr)) reactor->notifierIs(nullptr);
  routeCountTimerTaskDel();
  routeCountTaskDel();
  routeTaskDel();
  fecTaskDel();
  inetCountTask_ = nullptr;
  inetCountBookmark_.reset();
  // The cache may already refer to another machine's.
  if (fecsAndPrefixes() && ipForwardMib()->fecsAndPrefixes() == fecsAndPrefixes()) {
    ipForwardMib()->routeStatusIs(nullptr);
    ipForwardMib()->vrfForwardingStatusIs(nullptr);
    ipForwardMib()->fecsAndPrefixesIs(nullptr);
    ipForwardMib()->ifMibIs(nullptr);
    ipForwardMib()->numRoutesIs(0);
    ipForwardMib()->route6StatusIs(nullptr);
    ipForwardMib()->inetNumRoutesIs(0);
  }
  fecsAndPrefixesDel();
  localForwardingFecsDel();
  isFirstCountRequested_ = false;
  knownFecs_.clear();
  fecScan_.end();
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

void IpRouteTableSm::route6StatusIs(Kel::Ptr<const Quillo::Fib6::RouteStatus> route6Status) {
  if (ipForwardMib()->route6Status() == route6Status || isStopped()) return;
  if (!kelRoute6Status_) kelRoute6Status_ = Kel::makePtr<KelRoute6Status>(this);
  kelRoute6Status_->notifierIs(route6Status);
  ipForwardMib()->route6StatusIs(std::move(route6Status));
  routeChangesIs(true);
}

void IpRouteTableSm::watchRoutes() {
  if (!kelRouteStatus_) kelRouteStatus_ = Kel::makePtr<KelRouteStatus>(this);
  kelRouteStatus_->notifierIs(routeStatus());
  // An uninitialized table notifies when it is initialized.
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
  fecScan_.begin();
  doSetupFecBacklogTimer();
}

void IpRouteTableSm::doSetupRouteBacklogTimer() {
  if (routeTask()) routeTask()->scheduleTask();
}

void IpRouteTableSm::doSetupFecBacklogTimer() {
  if (fecTask()) fecTask()->scheduleTask();
}

// ---- the number of rows ----

void IpRouteTableSm::handleRouteCountTimer() {
  QTRACE_ENTRY(ipRouteTableSmTrace, this);
  const auto timer = routeCountTimerTask();
  if (!timer || !timer->taskCurrentlyRunning()) return;
  if (routeChanges() || routeCountCurrentIter() != routeCountExpectedIter()) {
    routeCountExpectedIterInc();
    if (routeCountTask()) routeCountTask()->scheduleTask();
    routeChangesIs(false);
  }
  timer->scheduleTaskDelay(routeCountInterval());
}

void IpRouteTableSm::requestFirstCount() {
  const auto isRead = [](const auto& table) { return table && table->initialized(); };
  const bool areRead = isRead(routeStatus()) && (!vrfForwardingStatus() || isRead(vrfForwardingStatus()));
  const bool areWorkedOff =
      routeBacklog().empty() && !routeScan_.isOn() && fecBacklog().empty() && !fecScan_.isOn();
  if (isFirstCountRequested_ || !areRead || !areWorkedOff || !routeCountTask()) return;
  isFirstCountRequested_ = true;
  routeCountExpectedIterInc();
  routeCountTask()->scheduleTask();
  // FECs that all VRFs share belong to another machine, which may not have read all of them yet.
  routeChangesIs(!localForwardingFecs());
}

void IpRouteTableSm::doCountRoutes() {
  QTRACE_ENTRY(ipRouteTableSmTrace, this);
  const auto task = routeCountTask();
  if (!task || !task->taskCurrentlyRunning()) return;
  if (routeCountBookmark() == Vantu::IpAddrWithMask()) {
    routeCountCurrentIterIs(routeCountExpectedIter());
    routeCountTempValueIs(0);
  }
  const auto& prefixes = fecsAndPrefixes()->orderedPrefix();
  auto at = prefixes.lowerBound(routeCountBookmark());
  while (at != prefixes.end()) {
    const auto prefix = at->first;
    try {
      routeCountTempValueInc(rowCount(Vantu::Prefix(prefix)));
    } catch (const Quillo::StoreException& error) {
      routeCountBookmarkIs(Vantu::IpAddrWithMask());
      routeChangesIs(true);  // the timer asks again
      QTRACE(ipRouteTableSmTrace, 2) << "Counting of routes stopped: " << error.what();
      return;
    } catch (const Kel::Exception&) {
      // An invalid prefix: the next pass begins again.
      routeCountBookmarkIs(Vantu::IpAddrWithMask());
      throw;
    }
    at = prefixes.upperBound(prefix);
    if (at != prefixes.end() && task->taskShouldYield()) {
      routeCountBookmarkIs(at->first);
      QTRACE(ipRouteTableSmTrace, 8) << "Yielding bookmark: " << at->first;
      task->scheduleTask();
      return;
    }
  }
  ipForwardMib()->numRoutesIs(routeCountTempValue());
  routeCountTempValueIs(0);
  routeCountBookmarkIs(Vantu::IpAddrWithMask());
  QTRACE(ipRouteTableSmTrace, 8) << "Finished counting routes";
  inetCountBookmark_.reset();
  if (inetCountTask_) inetCountTask_->scheduleTask();
}

void IpRouteTableSm::doCountInetRoutes() {
  const auto task = inetCountTask_;
  if (!task || !task->taskCurrentlyRunning()) return;
  const auto from = std::exchange(inetCountBookmark_, std::nullopt);
  if (!from) inetCount_ = 0;
  try {
    InetCidrRouteIterator at(ipForwardMib(), from.value_or(InetCidrRouteIndex()));
    while (!at.isAtEnd()) {
      ++inetCount_;
      at.advance();
      if (at.isAtEnd() || !task->taskShouldYield()) continue;
      inetCountBookmark_ = at.row().index;
      task->scheduleTask();
      return;
    }
  } catch (const Quillo::StoreException& error) {
    routeChangesIs(true);
    QTRACE(ipRouteTableSmTrace, 2) << "Counting of rows of inetCidrRouteTable stopped: " << error.what();
    return;
  }
  ipForwardMib()->inetNumRoutesIs(inetCount_);
}

std::int32_t IpRouteTableSm::rowCount(const Vantu::Prefix& prefix) {
  const auto found = ipForwardMib()->resolve(prefix);
  if (found.missing != nullptr) {
    QTRACE(ipRouteTableSmTrace, 8) << prefix << found.missing;
    return 0;
  }
  std::int32_t count = 0;
  for (const auto& [nextHop, via] : found.forwardFec->nextHop()) {
    const auto* intfId = found.intfId(via);
    if (intfId != nullptr && ipForwardMib()->validIntf(*intfId)) {
      ++count;
    } else {
      QTRACE(ipRouteTableSmTrace, 8) << prefix << " has invalid intf "
                                     << (intfId != nullptr ? *intfId : Vantu::IntfId());
    }
  }
  return count;
}

}  // namespace IpSnmp
