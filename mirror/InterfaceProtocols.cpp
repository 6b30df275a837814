#include "mirror/InterfaceProtocols.h"

#include <algorithm>
#include <utility>

namespace Mirror {

namespace {

// ip_fragment.c of the kernel: the longest IPv4 datagram.
constexpr std::uint32_t ipv4ReasmMaxSize = 65535;

}  // namespace

InterfaceProtocols::InterfaceProtocols(const Varnix::Tree& tree, IdOf idOf, unsigned phase)
    : ip4_(tree.ipIntfProtocol), ip6_(tree.ip6IntfProtocol), idOf_(std::move(idOf)), phase_(phase) {
}

void InterfaceProtocols::begin(bool isFresh, std::size_t namespaces) {
  const auto periods = (namespaces + namespacesPerPeriod - 1) / namespacesPerPeriod;
  const auto period = readingsPerTables * std::max<std::size_t>(periods, 1);
  const bool isRetry = areTablesMissed_ && readings_ % readingsPerTables == 0;
  if (readings_ % period == phase_ % period || isRetry) areTablesDue_ = true;
  ++readings_;
  newTimers_.clear();
  areTablesListed_ = false;
  if (isFresh) isWriteDue_ = true;
}

void InterfaceProtocols::listed(const Ip6LinkMessage& link) {
  const Link6 values{link.isEnabled, link.forwarding, link.reasmMaxSize};
  if (links_.insert_or_assign(link.ifIndex, values).second) areTablesDue_ = true;
  isWriteDue_ = true;
}

void InterfaceProtocols::lost(std::uint32_t ifIndex) {
  links_.erase(ifIndex);
  isWriteDue_ = true;
}

void InterfaceProtocols::listed(const NeighbourParametersMessage& parameters) {
  auto& interface = newTimers_[parameters.ifIndex];
  (parameters.af == Vantu::ipv4_ ? interface.ipv4 : interface.ipv6) =
      Timers{parameters.retransmitTime, parameters.reachableTime};
}

bool InterfaceProtocols::wantsTables() {
  areTablesListed_ = std::exchange(areTablesDue_, false);
  return areTablesListed_;
}

void InterfaceProtocols::finish(bool isComplete) {
  if (areTablesListed_) {
    areTablesMissed_ = !isComplete;
    if (!isComplete) newTimers_.merge(timers_);
    timers_ = std::exchange(newTimers_, {});
  }
  if (!isWriteDue_ && !areTablesListed_) return;
  isWriteDue_ = !isComplete;
  Ids ids4, ids6;
  for (const auto& [ifIndex, timers] : timers_) {
    if (!timers.ipv4) continue;
    write(
        *ip4_, ifIndex,
        Ip::IntfParameters(true, false, ipv4ReasmMaxSize, timers.ipv4->retransmitTime, timers.ipv4->reachableTime),
        ids4);
  }
  for (const auto& [ifIndex, link] : links_) {
    const auto at = timers_.find(ifIndex);
    const Timers timers = at == timers_.end() ? Timers() : at->second.ipv6.value_or(Timers());
    write(*ip6_, ifIndex,
          Ip::IntfParameters(link.isEnabled, link.forwarding, link.reasmMaxSize, timers.retransmitTime,
                             timers.reachableTime),
          ids6);
  }
  sweep(*ip4_, published4_, std::move(ids4), isComplete);
  sweep(*ip6_, published6_, std::move(ids6), isComplete);
}

void InterfaceProtocols::write(Ip::AllIntfProtocol& all, std::uint32_t ifIndex,
                               const Ip::IntfParameters& parameters, Ids& ids) const {
  const auto id = idOf_(ifIndex);
  if (!id.isValid()) return;
  all.intfProtocolIs(id)->parametersIs(parameters);
  ids.insert(id);
}

void InterfaceProtocols::sweep(Ip::AllIntfProtocol& all, Ids& published, Ids&& listed, bool isComplete) {
  if (!isComplete) {
    listed.merge(published);
  } else {
    for (const auto& id : published) {
      if (!listed.contains(id)) all.intfProtocolDel(id);
    }
  }
  published = std::move(listed);
}

}  // namespace Mirror
