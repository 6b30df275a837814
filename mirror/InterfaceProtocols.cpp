#include "mirror/InterfaceProtocols.h"

#include <algorithm>
#include <utility>

namespace Mirror {

namespace {

// ip_fragment.c of the kernel: the longest IPv4 datagram.
constexpr std::uint32_t ipv4ReasmMaxSize = 65535;

}  // namespace

InterfaceProtocols::InterfaceProtocols(const Varnix::Tree& tree, IdOf idOf)
    : ip4_(tree.ipIntfProtocol), ip6_(tree.ip6IntfProtocol), idOf_(std::move(idOf)) {
}

void InterfaceProtocols::begin(bool isFresh) {
  newTimers_.clear();
  areTablesListed_ = false;
  if (isFresh) isWriteDue_ = true;
}

void InterfaceProtocols::listed(const Ip6LinkMessage& link) {
  links_[link.ifIndex] = {link.isEnabled, link.forwarding, link.reasmMaxSize};
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
  const bool isNew = isWriteDue_ && std::ranges::any_of(links_, [this](const auto& link) {
                       const auto at = timers_.find(link.first);
                       return at == timers_.end() || !at->second.ipv6;
                     });
  areTablesListed_ = readings_++ % readingsPerTables == 0 || isNew;
  return areTablesListed_;
}

void InterfaceProtocols::finish(bool isComplete) {
  if (areTablesListed_) {
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
