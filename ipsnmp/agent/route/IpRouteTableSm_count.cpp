// The state machine of the route table: the number of rows.

#include "ipsnmp/agent/route/IpRouteTableSm.h"
#include "ipsnmp/agent/route/IpRouteTrace.h"

namespace IpSnmp {

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
      routeBacklog().empty() && !routeScan_.isOn() && fecBacklog().empty() && fecScan_ == FecScan::none;
  if (isFirstCountRequested_ || !areRead || !areWorkedOff || !routeCountTask()) return;
  isFirstCountRequested_ = true;
  routeCountExpectedIterInc();
  routeCountTask()->scheduleTask();
  // FECs that all VRFs share are another machine's, which may have some of them still to read.
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
    } catch (const Kel::Exception&) {
      // A prefix that is none, or tables that cannot be read now: the next pass begins anew.
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
}

// The rows of one prefix: what the iterator over the rows finds there.
std::int32_t IpRouteTableSm::rowCount(const Vantu::Prefix& prefix) {
  if (const char* missing = ipForwardMib()->resolve(prefix, countScratch_)) {
    QTRACE(ipRouteTableSmTrace, 8) << prefix << missing;
    return 0;
  }
  std::int32_t count = 0;
  for (const auto& [nextHop, via] : countScratch_.forwardFec->nextHop()) {
    const auto* intfId = countScratch_.intfId(via);
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
