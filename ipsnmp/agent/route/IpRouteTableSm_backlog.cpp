// The route table's state machine: passes over the backlogs, and scans of whole tables into them.

#include <algorithm>

#include "ipsnmp/agent/route/IpRouteTableSm.h"
#include "kel/Trace.h"
#include "quillo/StoreException.h"
#include "quillo/fecs/FecRouteListSm.h"

namespace IpSnmp {
namespace {

Kel::TraceHandle routeBacklogTrace("IpRouteTableSm");

// The words that differ between the trace lines of the two passes.
struct BacklogWords {
  const char* starting;
  const char* processed;
  const char* rescheduled;
};
constexpr BacklogWords routeWords{" IP route backlog processing", " prefixes",
                                  " IPv4 route processing rescheduled"};
constexpr BacklogWords fecWords{" IP fec backlog processing", " fecs", " IPv4 fec processing rescheduled"};

// Runs a task over its backlog. `scanNext` adds the next piece of the table, and returns false without one. `process`
// looks a key up and removes it from the backlog. Returns the bookmark: the key at which the run yielded, or none.
//
// `process` may change the backlog, so each step searches for its position. If the store is unreadable, the run ends
// without a rescheduled task; the table notifies when it becomes readable.
template <class Backlog>
typename Backlog::Key processBacklog(const BacklogWords& words, Brev::Task& task, const Kel::Name& vrfName,
                                     const Backlog& backlog, const typename Backlog::Key& bookmark, auto scanNext,
                                     auto process) {
  QTRACE(routeBacklogTrace, 2) << "Starting VRF " << vrfName << words.starting;
  typename Backlog::Key resumeAt{};
  std::uint64_t n = 0;
  bool isReadable = true;
  try {
    auto at = backlog.lowerBound(bookmark);
    for (;;) {
      if (at == backlog.end()) {
        if (scanNext()) {
          at = backlog.begin();
          continue;
        }
        QTRACE(routeBacklogTrace, 2) << "VRF " << vrfName << " backlog processing done"
                                     << " after processing " << n << words.processed;
        break;
      }
      const auto key = at->first;
      if (task.taskShouldYield()) {
        resumeAt = key;
        QTRACE(routeBacklogTrace, 2) << "VRF " << vrfName << " backlog processing yielding"
                                     << " after processing " << n << words.processed;
        break;
      }
      process(key);
      ++n;
      at = backlog.upperBound(key);
    }
  } catch (const Quillo::StoreException& error) {
    isReadable = false;
    QTRACE(routeBacklogTrace, 2) << "VRF " << vrfName << " backlog processing stopped: " << error.what();
  }
  task.taskWorkCountInc(n);
  task.taskWorkPendingIs(backlog.size());
  if (!backlog.empty() && isReadable) {
    QTRACE(routeBacklogTrace, 2) << "VRF " << vrfName << words.rescheduled << " due to " << backlog.size()
                                 << " entries in backlog";
    task.scheduleTask();
  }
  return resumeAt;
}

}  // namespace

void IpRouteTableSm::doProcessRouteBacklog() {
  QTRACE_ENTRY(routeBacklogTrace, this);
  const auto task = routeTask();
  if (!task) return;
  const auto scanNext = [this] {
    if (!routeScan_.isOn()) return false;
    scanRoutes();
    return true;
  };
  routeBookmarkIs(processBacklog(routeWords, *task, vrfName(), routeBacklog(), routeBookmark(), scanNext,
                                 [this](const Vantu::Prefix& prefix) { processRoute(prefix); }));
  routeChangesIs(true);
  requestFirstCount();
}

void IpRouteTableSm::doProcessFecBacklog() {
  QTRACE_ENTRY(routeBacklogTrace, this);
  const auto task = fecTask();
  if (!task || !localForwardingFecs()) return;
  const auto scanNext = [this] {
    if (!fecScan_.isOn()) return false;
    scanFecs();
    return true;
  };
  fecBookmarkIs(processBacklog(fecWords, *task, vrfName(), fecBacklog(), fecBookmark(), scanNext,
                               [this](const Quillo::Fib::FecId& fecId) { processFec(fecId); }));
  routeChangesIs(true);
  requestFirstCount();
}

void IpRouteTableSm::scanRoutes() {
  const auto known = [this](const Vantu::Prefix* after, auto visit) {
    const auto& all = fecsAndPrefixes()->orderedPrefix();
    auto at = after != nullptr ? all.upperBound(after->addrWithMask()) : all.begin();
    while (at != all.end() && visit(Vantu::Prefix(at->first.address(), at->first.length()))) ++at;
  };
  for (const auto& prefix : routeScan_.piece(routeStatus().get(), known)) {
    QTRACE(routeBacklogTrace, 6) << "void IpSnmp::IpRouteTableSm::handleRoute()"
                                 << " initially for " << prefix;
    routeBacklogIs(prefix);
  }
}

void IpRouteTableSm::scanFecs() {
  const auto known = [this](const Quillo::Fib::FecId* after, auto visit) {
    auto at = after != nullptr ? knownFecs_.upper_bound(*after) : knownFecs_.begin();
    while (at != knownFecs_.end() && visit(*at)) ++at;
  };
  for (const auto& fecId : fecScan_.piece(vrfForwardingStatus().get(), known)) {
    QTRACE(routeBacklogTrace, 6) << "void IpSnmp::IpRouteTableSm::handleFec()"
                                 << " initially for " << fecId;
    fecBacklogIs(fecId);
  }
}

void IpRouteTableSm::processRoute(const Vantu::Prefix& prefix) {
  Quillo::Fib::Route route;
  try {
    if (routeStatus()) route = routeStatus()->route(prefix);
  } catch (const Pesk::CorruptionDetectedException& damage) {
    routeStatus()->corruptionDetected(damage.what());
  }
  const auto& key = prefix.addrWithMask();
  if (route == Quillo::Fib::Route()) {
    QTRACE(routeBacklogTrace, 6) << prefix << " route deleted";
    fecsAndPrefixes()->orderedPrefixDel(key);
  } else {
    QTRACE(routeBacklogTrace, 6) << prefix << " route added";
    fecsAndPrefixes()->orderedPrefixIs(key, true);
  }
  routeBacklogDel(prefix);
}

void IpRouteTableSm::processFec(const Quillo::Fib::FecId& fecId) {
  fecScratch_.clear();
  try {
    if (vrfForwardingStatus()) vrfForwardingStatus()->readFec(fecId, fecScratch_);
  } catch (const Pesk::CorruptionDetectedException& damage) {
    fecScratch_.clear();
    vrfForwardingStatus()->corruptionDetected(damage.what());
  }
  fecBacklogDel(fecId);
  if (!fecScratch_.exists()) {
    QTRACE(routeBacklogTrace, 6) << fecId << " fec deleted";
    forwardFecDel(fecId);
    return;
  }
  QTRACE(routeBacklogTrace, 6) << fecId << " fec added";
  try {
    forwardFecIs(fecScratch_);
  } catch (const Kel::RangeException& error) {
    QTRACE(routeBacklogTrace, 0) << "VRF " << vrfName() << " fec " << fecId << " is not served: " << error.what();
    forwardFecDel(fecId);
  }
}

void IpRouteTableSm::forwardFecDel(const Quillo::Fib::FecId& fecId) {
  localForwardingFecs()->forwardFecDel(fecId);
  knownFecs_.erase(fecId);
}

void IpRouteTableSm::forwardFecIs(const Quillo::Fib::Fec& fec) {
  const auto wanted = FibUtils::ipv4NextHops(fec);
  const auto forwardFec = localForwardingFecs()->forwardFecIs(fec.fecId);
  knownFecs_.insert(fec.fecId);
  for (const auto& known : forwardFec->nextHop().keys()) {
    if (!wanted.contains(known)) forwardFec->nextHopDel(known);
  }
  for (const auto& [hop, via] : wanted) forwardFec->nextHopIs(hop, via);
}

}  // namespace IpSnmp
