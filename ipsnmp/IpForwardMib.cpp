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

bool IpForwardMib::validIntf(const Vantu::IntfId& intfId) const {
  if (intfId.empty()) return true;
  if (!intfId.isValid()) return false;
  if (Vantu::DynamicTunnelIntfId::isDynamicTunnelIntfId(intfId)) return false;
  return ifIndex(intfId) != 0;
}

std::uint32_t IpForwardMib::ifIndex(const Vantu::IntfId& intfId) const {
  const auto* found = ifMib() ? ifMib()->ifIndexByIntfId(intfId) : nullptr;
  return found != nullptr ? static_cast<std::uint32_t>(*found) : 0;
}

const Vantu::IntfId* IpForwardMib::Resolved::intfId(const Quillo::Fib::ViaIndex& via) const {
  return via.value() < vias.size() ? &vias[via.value()].intfId : nullptr;
}

const char* IpForwardMib::resolve(const Vantu::Prefix& prefix, Resolved& into) const {
  readRoute(prefix, into);
  if (!validRoute(into.route)) return " has invalid route";
  const auto& fecId = into.route.fecId;
  const auto* forwardFecs = fecsAndPrefixes() ? fecsAndPrefixes()->forwardFecs().get() : nullptr;
  into.forwardFec = forwardFecs != nullptr ? forwardFecs->forwardFec(fecId) : nullptr;
  FecAsRead unkept{fecId, {}, 0};
  auto& read = into.forwardFec ? forwardFecs->asRead(fecId) : unkept;
  readFec(read);
  into.vias = read.fec.via;
  if (!read.fec.exists()) return " has no fec";
  return into.forwardFec ? nullptr : " has no forward fec";
}

const Quillo::Fib::Fec& IpForwardMib::fec(const Quillo::Fib::FecId& fecId) const {
  const auto* forwardFecs = fecsAndPrefixes() ? fecsAndPrefixes()->forwardFecs().get() : nullptr;
  if (forwardFecs == nullptr) unkept_ = {fecId, {}, 0};
  auto& read = forwardFecs != nullptr ? forwardFecs->asRead(fecId) : unkept_;
  readFec(read);
  return read.fec;
}

void IpForwardMib::readRoute(const Vantu::Prefix& prefix, Resolved& into) const {
  const auto generation = routeStatus() ? routeStatus()->generation() : 0;
  if (generation != 0 && generation == into.routeGeneration && into.prefix == prefix) return;
  into.prefix = prefix;
  into.route = {};
  into.routeGeneration = 0;
  try {
    if (routeStatus()) into.route = routeStatus()->route(prefix);
    into.routeGeneration = generation;
  } catch (const Pesk::CorruptionDetectedException& damage) {
    routeStatus()->corruptionDetected(damage.what());
  }
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
