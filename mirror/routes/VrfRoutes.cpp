#include "mirror/routes/VrfRoutes.h"

#include <algorithm>

#include "quillo/tables/Records.h"

namespace Mirror {

void VrfRoutes::vrfIdIs(std::optional<Vrf::VrfIdMap::VrfId> vrfId) {
  if (vrfId == vrfId_) return;
  if (vrfId_) {
    unplan();
    published_.remove(*this);
    published_.leave({*vrfId_, ipv4_.hide(), ipv6_.hide(), contents_.storedIds()});
    contents_.forgetStored();
  }
  vrfId_ = vrfId;
  if (!vrfId_) return;
  published_.add(*this);
  allPending();
}

template <class Use>
auto VrfRoutes::withFamily(Vantu::Af af, const Use& use) {
  return af == Vantu::ipv4_ ? use(ipv4_) : use(ipv6_);
}

void VrfRoutes::notified(const RouteMessage& message) {
  withFamily(message.address.af(), [&](auto& family) { family.notified(message); });
}

void VrfRoutes::dumped(const RouteMessage& message) {
  withFamily(message.address.af(), [&](auto& family) { family.dumped(message); });
}

void VrfRoutes::beginDump(DumpStamp stamp) {
  ipv4_.beginDump(stamp);
  ipv6_.beginDump(stamp);
}

bool VrfRoutes::sweep(Vantu::Af af, std::size_t limit) {
  return withFamily(af, [&](auto& family) { return family.sweep(limit); });
}

void VrfRoutes::endDump() {
  ipv4_.endDump();
  ipv6_.endDump();
}

bool VrfRoutes::takeDoubt() {
  const bool doubt4 = ipv4_.takeDoubt();
  return ipv6_.takeDoubt() || doubt4;
}

bool VrfRoutes::takeFound() {
  const bool found4 = ipv4_.takeFound();
  return ipv6_.takeFound() || found4;
}

void VrfRoutes::move(const std::unordered_set<RouteContents::Slot>& outdated) {
  if (outdated.empty()) return;
  ipv4_.touchContents(outdated);
  ipv6_.touchContents(outdated);
  contents_.resolveAgain(outdated);
}

void VrfRoutes::allPending() {
  unplan();
  ipv4_.allPending();
  ipv6_.allPending();
  contents_.forgetStored();
}

std::size_t VrfRoutes::addTo(Quillo::Batch& batch, std::size_t limit) {
  unplan();
  const std::size_t routes = std::min(ipv4_.pending(), limit);
  const std::size_t routes6 = std::min(ipv6_.pending(), limit - routes);
  ipv4_.plan(routes, planned_);
  ipv6_.plan(routes6, planned_);
  std::sort(planned_.begin(), planned_.end());
  planned_.erase(std::unique(planned_.begin(), planned_.end()), planned_.end());
  const auto after = [](const RouteContents::Fec& fec) {
    return fec.stored + static_cast<std::int64_t>(fec.planned);
  };
  for (const auto* fec : planned_) {
    if (fec->stored == 0 && after(*fec) > 0) Quillo::fecIs(batch, *vrfId_, fec->fec);
  }
  ipv4_.addTo(batch, *vrfId_);
  ipv6_.addTo(batch, *vrfId_);
  for (const auto* fec : planned_) {
    if (fec->stored > 0 && after(*fec) == 0) Quillo::fecDel(batch, *vrfId_, fec->fec.fecId);
  }
  return routes + routes6;
}

void VrfRoutes::written() {
  ipv4_.written();
  ipv6_.written();
  for (auto* fec : std::exchange(planned_, {})) {
    fec->stored += static_cast<std::uint32_t>(std::exchange(fec->planned, 0));
    contents_.dropIfUnused(*fec);
  }
}

void VrfRoutes::unplan() {
  ipv4_.unplan();
  ipv6_.unplan();
  for (auto* fec : std::exchange(planned_, {})) fec->planned = 0;
}

}  // namespace Mirror
