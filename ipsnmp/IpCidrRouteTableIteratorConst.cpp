#include "ipsnmp/IpCidrRouteTableIteratorConst.h"

#include <bit>

#include "kel/Trace.h"

namespace IpSnmp {
namespace {

Kel::TraceHandle ipCidrRouteTableIteratorConstTrace("IpCidrRouteTableIteratorConst");

// The walk searches for the next prefix with a row after this many lookups without one.
constexpr unsigned fruitlessPrefixes = 64;

// Returns the first prefix after this one that may have a row. `fecRouteList` skips routes without a usable next hop.
// It may be used only while the machines are notified of every change of both tables: any other change may give a row
// to a prefix. The route table skips deleted routes, whose prefixes stay ordered until a task removes them.
auto nextWithRow(const IpForwardMib& mib, const FecsAndPrefixes& order, const Vantu::IpAddrWithMask& prefix) {
  const auto& prefixes = order.orderedPrefix();
  const auto& routes = mib.routeStatus();
  const auto& fecs = mib.vrfForwardingStatus();
  if (!routes || !fecs || !order.forwardFecs()) return prefixes.end();
  auto next = prefixes.upperBound(prefix);
  if (next == prefixes.end()) return next;
  if (order.fecRouteList() && routes->isNotified() && fecs->isNotified()) {
    const auto isGood = [&mib](const Vantu::IntfId& intfId) { return mib.validIntf(intfId); };
    Vantu::Prefix listed;
    if (!order.fecRouteList()->nextThrough(Vantu::Prefix(next->first), isGood, listed)) return prefixes.end();
    next = prefixes.lowerBound(listed.addrWithMask());
    if (next == prefixes.end()) return next;
  }
  auto found = prefixes.end();
  try {
    routes->forEachRoute(Vantu::Prefix(next->first), [&](const Quillo::Fib::Route& route) {
      found = prefixes.lowerBound(route.prefix.addrWithMask());
      return false;
    });
  } catch (const Pesk::CorruptionDetectedException&) {
    return next;  // the lookups will meet the damage, and report it
  }
  return found;
}

}  // namespace

using Iterator = IpForwardMib::IpCidrRouteTableIteratorConst;

Iterator::IpCidrRouteTableIteratorConst(Kel::Ptr<const IpForwardMib> mib)
    : IpCidrRouteTableIteratorConst(std::move(mib), IpCidrRouteTableIndex(), false) {
}

Iterator::IpCidrRouteTableIteratorConst(Kel::Ptr<const IpForwardMib> mib, const IpCidrRouteTableIndex& index,
                                        bool getNext)
    : mib_(std::move(mib)) {
  fetch(index, getNext);
}

Iterator& Iterator::operator++() {
  if (!isAtEnd_) fetch(index(), true);
  return *this;
}

void Iterator::fetch(const IpCidrRouteTableIndex& index, bool getNext) {
  QTRACE(ipCidrRouteTableIteratorConstTrace, 7) << "Index: " << index << " getNext " << getNext;
  isAtEnd_ = true;
  gaveUp_ = false;
  // Holds the prefixes: a report of damage may replace those of the cache.
  const auto fecsAndPrefixes = mib_ ? mib_->fecsAndPrefixes() : nullptr;
  if (!fecsAndPrefixes) return;
  const auto& prefixes = fecsAndPrefixes->orderedPrefix();
  const auto length = static_cast<unsigned>(std::countl_one(index.mask().value()));
  auto at = prefixes.lowerBound(Vantu::IpAddrWithMask(index.dest(), length));
  Vantu::IpAddr firstNextHop = index.nextHop();
  for (unsigned fruitless = 1; at != prefixes.end(); ++fruitless) {
    const Vantu::IpAddrWithMask prefix = at->first;
    if (fetchFrom(Vantu::Prefix(prefix), firstNextHop, getNext ? &index : nullptr)) {
      isAtEnd_ = false;
      return;
    }
    if (fruitless == maxFruitless) {
      QTRACE(ipCidrRouteTableIteratorConstTrace, 7) << prefix << " gives up";
      gaveUp_ = true;
      return;
    }
    // A new search, since a report of damage may have changed the prefixes.
    at = fruitless % fruitlessPrefixes == 0 ? nextWithRow(*mib_, *fecsAndPrefixes, prefix)
                                            : prefixes.upperBound(prefix);
    firstNextHop = Vantu::IpAddr();
  }
}

// Moves to the first row of this prefix at or after the next hop whose index is not `above`. False without one.
bool Iterator::fetchFrom(const Vantu::Prefix& prefix, const Vantu::IpAddr& firstNextHop,
                         const IpCidrRouteTableIndex* above) {
  const auto found = mib_->resolve(prefix);
  if (found.missing != nullptr) {
    QTRACE(ipCidrRouteTableIteratorConstTrace, 7) << prefix << found.missing;
    return false;
  }
  const auto& nextHops = found.forwardFec->nextHop();
  for (auto at = nextHops.lowerBound(firstNextHop); at != nextHops.end(); ++at) {
    const auto& [nextHop, via] = *at;
    const auto* intfId = found.intfId(via);
    const auto ifIndex = intfId != nullptr ? mib_->ifIndexOfHop(*intfId) : std::nullopt;
    if (!ifIndex) {
      QTRACE(ipCidrRouteTableIteratorConstTrace, 7)
          << prefix << " has invalid intf " << (intfId != nullptr ? *intfId : Vantu::IntfId());
      continue;
    }
    const IpCidrRouteTableIndex index(prefix.address(), prefix.netmask(), 0, nextHop);
    if (above != nullptr && index == *above) {
      QTRACE(ipCidrRouteTableIteratorConstTrace, 7) << "Going to next via";
      continue;
    }
    const bool hasIntf = intfId->isValid();
    const auto type = nextHop.isZero() ? ipCidrRouteTypeLocal
                      : hasIntf        ? ipCidrRouteTypeRemote
                                       : ipCidrRouteTypeOther;
    entry_ = IpCidrRouteTableEntry(index, *ifIndex, found.route.metric, found.route.preference(),
                                   found.route.routeType, type);
    QTRACE(ipCidrRouteTableIteratorConstTrace, 7) << prefix << " has entry " << entry_;
    return true;
  }
  return false;
}

}  // namespace IpSnmp
