#include "ipsnmp/IpForwardMib.h"

#include <algorithm>
#include <bit>

#include "ipsnmp/IpCidrRouteTableIteratorConst.h"
#include "vantu/IntfId.h"

KEL_TYPE_DEFINE(IpSnmp::IpForwardFec)
KEL_TYPE_DEFINE(IpSnmp::IpForwardFecs)
KEL_TYPE_DEFINE(IpSnmp::FecsAndPrefixes)
KEL_TYPE_DEFINE(IpSnmp::IpForwardMib)

namespace IpSnmp {

FecAsRead& IpForwardFecs::asRead(const Quillo::Fib::FecId& fecId) const {
  const std::size_t wanted = std::bit_ceil(std::clamp(forwardFec().size(), std::size_t{1}, maxAsRead));
  if (asRead_.size() < wanted) asRead_ = std::vector<FecAsRead>(wanted);
  auto& place = asRead_[fecId.value() % asRead_.size()];
  if (place.fecId != fecId) {
    place.fecId = fecId;
    place.generation = 0;
  }
  return place;
}

std::optional<IpCidrRouteTableEntry> IpForwardMib::ipCidrRouteTable(const IpCidrRouteTableIndex& index) const {
  const IpCidrRouteTableIteratorConst at(Kel::Ptr<const IpForwardMib>(this), index, false);
  if (at.isAtEnd() || at.index() != index) return std::nullopt;
  return *at;
}

bool IpForwardMib::validRoute(const Quillo::Fib::Route& route) const {
  if (route == Quillo::Fib::Route()) return false;
  const unsigned type = route.routeType.value();
  return type > 1 && type != 3 && type != 5;
}

std::optional<std::uint32_t> IpForwardMib::ifIndexOfHop(const Vantu::IntfId& intfId) const {
  if (intfId.empty()) return 0;
  if (!intfId.isValid() || Vantu::DynamicTunnelIntfId::isDynamicTunnelIntfId(intfId)) return std::nullopt;
  const auto* found = ifMib() ? ifMib()->ifIndexByIntfId(intfId) : nullptr;
  return found != nullptr && *found != 0 ? std::optional(static_cast<std::uint32_t>(*found)) : std::nullopt;
}

const Vantu::IntfId* IpForwardMib::Resolved::intfId(const Quillo::Fib::ViaIndex& via) const {
  return via.value() < fec->via.size() ? &fec->via[via.value()].intfId : nullptr;
}

IpForwardMib::Resolved IpForwardMib::resolve(const Vantu::Prefix& prefix) const {
  Resolved found;
  const auto* const route = routesAhead_.lowerBound(routeStatus().get(), prefix);
  if (route == nullptr || route->prefix != prefix || !validRoute(*route)) {
    found.missing = " has invalid route";
    return found;
  }
  found.route = *route;
  const auto& fecId = found.route.fecId;
  const auto* const forwardFecs = fecsAndPrefixes() ? fecsAndPrefixes()->forwardFecs().get() : nullptr;
  if (forwardFecs != nullptr) found.forwardFec = forwardFecs->forwardFec(fecId);
  found.fec = &fec(fecId);
  found.missing = !found.fec->exists() ? " has no fec" : !found.forwardFec ? " has no forward fec" : nullptr;
  return found;
}

const Quillo::Fib::Fec& IpForwardMib::fec(const Quillo::Fib::FecId& fecId) const {
  const auto* forwardFecs = fecsAndPrefixes() ? fecsAndPrefixes()->forwardFecs().get() : nullptr;
  if (forwardFecs == nullptr) unkept_ = {fecId, {}, 0};
  auto& read = forwardFecs != nullptr ? forwardFecs->asRead(fecId) : unkept_;
  readFec(read);
  return read.fec;
}

void IpForwardMib::readFec(FecAsRead& into) const {
  const auto generation = vrfForwardingStatus() ? vrfForwardingStatus()->generation() : 0;
  if (generation != 0 && generation == into.generation) return;
  into.generation = 0;
  try {
    if (!vrfForwardingStatus()) return into.fec.clear();
    vrfForwardingStatus()->readFec(into.fecId, into.fec);
    into.generation = generation;
  } catch (const Pesk::CorruptionDetectedException& damage) {
    into.fec.clear();
    vrfForwardingStatus()->corruptionDetected(damage.what());
  }
}

}  // namespace IpSnmp
