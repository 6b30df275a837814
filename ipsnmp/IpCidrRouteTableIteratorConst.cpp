#include "ipsnmp/IpCidrRouteTableIteratorConst.h"

#include <bit>
#include <utility>

#include "kel/Trace.h"

namespace IpSnmp {
namespace {

Kel::TraceHandle ipCidrRouteTableIteratorConstTrace("IpCidrRouteTableIteratorConst");

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
  // Its own handle: what a report of damage brings about may put other prefixes in the place of these.
  const auto fecsAndPrefixes = mib_ ? mib_->fecsAndPrefixes() : nullptr;
  if (!fecsAndPrefixes) return;
  const auto& prefixes = fecsAndPrefixes->orderedPrefix();
  const auto length = static_cast<unsigned>(std::countl_one(index.mask().value()));
  auto at = prefixes.lowerBound(Vantu::IpAddrWithMask(index.dest(), length));
  Vantu::IpAddr firstNextHop = index.nextHop();
  while (at != prefixes.end()) {
    const Vantu::IpAddrWithMask prefix = at->first;
    if (fetchFrom(Vantu::Prefix(prefix), firstNextHop, getNext ? &index : nullptr)) {
      isAtEnd_ = false;
      return;
    }
    at = prefixes.upperBound(prefix);
    firstNextHop = Vantu::IpAddr();
  }
}

// The first row of this prefix whose next hop is not below the given one, and whose index is not `above`.
bool Iterator::fetchFrom(const Vantu::Prefix& prefix, const Vantu::IpAddr& firstNextHop,
                         const IpCidrRouteTableIndex* above) {
  // Into the one that holds this prefix already, or else into the one that was not used last.
  auto& used = mib_->iteratorScratchUsed_;
  if (mib_->iteratorScratch_[used].prefix != prefix) used = 1 - used;
  auto& found = mib_->iteratorScratch_[used];
  if (const char* missing = mib_->resolve(prefix, found)) {
    QTRACE(ipCidrRouteTableIteratorConstTrace, 7) << prefix << missing;
    return false;
  }
  const auto& nextHops = found.forwardFec->nextHop();
  for (auto at = nextHops.lowerBound(firstNextHop); at != nextHops.end(); ++at) {
    const auto& [nextHop, via] = *at;
    const auto* intfId = found.intfId(via);
    if (intfId == nullptr || !mib_->validIntf(*intfId)) {
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
    entry_ = IpCidrRouteTableEntry(index, hasIntf ? mib_->ifIndex(*intfId) : 0, found.route.metric,
                                   found.route.preference(), found.route.routeType, type);
    QTRACE(ipCidrRouteTableIteratorConstTrace, 7) << prefix << " has entry " << entry_;
    return true;
  }
  return false;
}

}  // namespace IpSnmp
