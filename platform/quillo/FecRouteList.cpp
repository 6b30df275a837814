#include "quillo/FecRouteList.h"

#include <fmt/format.h>

namespace Quillo::Fib {
namespace {

constexpr unsigned slotBits = 26, lengthBits = 6, prefixBits = 32 + lengthBits;
constexpr std::uint64_t slotMask = (std::uint64_t{1} << slotBits) - 1;
constexpr std::uint64_t prefixMask = (std::uint64_t{1} << prefixBits) - 1;
static_assert(slotBits + prefixBits == 64 && FecRouteList::maxFecs == slotMask + 1);

std::uint64_t numberOf(const Vantu::Prefix& prefix) {
  return std::uint64_t{prefix.address().value()} << lengthBits | prefix.length();
}
Vantu::Prefix prefixOf(std::uint64_t number) {
  return {Vantu::IpAddr(static_cast<std::uint32_t>(number >> lengthBits)),
          static_cast<unsigned>(number & ((1U << lengthBits) - 1))};
}
std::uint64_t prefixEntry(const Vantu::Prefix& prefix, std::uint32_t slot) {
  return numberOf(prefix) << slotBits | slot;
}
std::uint64_t fecEntry(const Vantu::Prefix& prefix, std::uint32_t slot) {
  return std::uint64_t{slot} << prefixBits | numberOf(prefix);
}

}  // namespace

FecId FecRouteList::fecId(const Vantu::Prefix& prefix) const {
  const auto at = byPrefix_.lower_bound(prefixEntry(prefix, 0));
  if (at == byPrefix_.end() || *at >> slotBits != numberOf(prefix)) return FecId();
  return fecs_[*at & slotMask].id;
}

void FecRouteList::fecIdIs(const Vantu::Prefix& prefix, const FecId& fecId) {
  const auto at = byPrefix_.lower_bound(prefixEntry(prefix, 0));
  if (at != byPrefix_.end() && *at >> slotBits == numberOf(prefix)) {
    const auto old = static_cast<Slot>(*at & slotMask);
    if (fecs_[old].id == fecId) return;
    byPrefix_.erase(at);
    byFec_.erase(fecEntry(prefix, old));
    if (--fecs_[old].prefixCount == 0) slotReleased(old);
  }
  if (fecId == FecId()) return;
  const Slot slot = slotIs(fecId);
  ++fecs_[slot].prefixCount;
  byPrefix_.insert(prefixEntry(prefix, slot));
  byFec_.insert(fecEntry(prefix, slot));
}

void FecRouteList::forEachPrefix(const FecId& fecId, const Vantu::Prefix* after, const Visit& visit) const {
  const auto found = slotOf_.find(fecId);
  if (found == slotOf_.end()) return;
  const std::uint64_t slot = found->second;
  auto at = after != nullptr ? byFec_.upper_bound(fecEntry(*after, found->second))
                             : byFec_.lower_bound(slot << prefixBits);
  for (; at != byFec_.end() && *at >> prefixBits == slot; ++at) {
    if (!visit(prefixOf(*at & prefixMask))) return;
  }
}

void FecRouteList::forEachPrefix(const Vantu::Prefix* after, const Visit& visit) const {
  auto at = after != nullptr ? byPrefix_.upper_bound(prefixEntry(*after, slotMask)) : byPrefix_.begin();
  for (; at != byPrefix_.end(); ++at) {
    if (!visit(prefixOf(*at >> slotBits))) return;
  }
}

FecRouteList::Slot FecRouteList::slotIs(const FecId& fecId) {
  if (const auto found = slotOf_.find(fecId); found != slotOf_.end()) return found->second;
  Slot slot = 0;
  if (!freeSlots_.empty()) {
    slot = freeSlots_.back();
    freeSlots_.pop_back();
  } else if (fecs_.size() < maxFecs) {
    slot = static_cast<Slot>(fecs_.size());
    fecs_.emplace_back();
  } else {
    throw Kel::RangeException(
        fmt::format("FecRouteList: no room for FEC {}; expected at most {} FECs in use", fecId.value(), maxFecs));
  }
  fecs_[slot] = {fecId, 0};
  slotOf_.emplace(fecId, slot);
  return slot;
}

void FecRouteList::slotReleased(Slot slot) {
  slotOf_.erase(fecs_[slot].id);
  fecs_[slot] = {};
  freeSlots_.push_back(slot);
}

}  // namespace Quillo::Fib
