#include "quillo/fecs/FecRouteList.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

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
// `group` is a slot, or a set of interfaces.
std::uint64_t groupEntry(std::uint32_t group, std::uint64_t number) {
  return std::uint64_t{group} << prefixBits | number;
}

}  // namespace

FecId FecRouteList::fecId(const Vantu::Prefix& prefix) const {
  const auto at = byPrefix_.lower_bound(prefixEntry(prefix, 0));
  if (at == byPrefix_.end() || *at >> slotBits != numberOf(prefix)) return FecId();
  return fecs_[*at & slotMask].id;
}

void FecRouteList::fecIdIs(const Vantu::Prefix& prefix, const FecId& fecId, bool isSought) {
  const auto at = byPrefix_.lower_bound(prefixEntry(prefix, 0));
  if (at != byPrefix_.end() && *at >> slotBits == numberOf(prefix)) {
    const auto old = static_cast<Slot>(*at & slotMask);
    if (fecs_[old].id == fecId && fecs_[old].isSought == isSought) return;
    byPrefix_.erase(at);
    erasePrefix(prefix, old);
  }
  if (fecId == FecId()) return;
  const Slot slot = slotFor(fecId, isSought);
  auto& fec = fecs_[slot];
  byPrefix_.insert(prefixEntry(prefix, slot));
  byFec_.insert(groupEntry(slot, numberOf(prefix)));
  if (!fec.isLarge && fec.intfSet != 0) byIntfSet_.insert(groupEntry(fec.intfSet, numberOf(prefix)));
  if (++fec.prefixCount <= largeFec || fec.isLarge || !isSought) return;
  renumber(slot, false);
  fec.isLarge = true;
  largeFecs_.insert(slot);
}

void FecRouteList::erasePrefix(const Vantu::Prefix& prefix, Slot slot) {
  auto& fec = fecs_[slot];
  byFec_.erase(groupEntry(slot, numberOf(prefix)));
  if (!fec.isLarge && fec.intfSet != 0) byIntfSet_.erase(groupEntry(fec.intfSet, numberOf(prefix)));
  if (--fec.prefixCount == 0) return releaseSlot(slot);
  if (!fec.isLarge || fec.prefixCount >= largeFec / 2) return;
  fec.isLarge = false;
  largeFecs_.erase(slot);
  renumber(slot, true);
}

void FecRouteList::routeIs(const Vantu::Prefix& prefix, const Route& route) {
  fecIdIs(prefix, route.fecId, !isSought_ || isSought_(route));
}

FecRouteList::Numbers::const_iterator FecRouteList::firstOf(const SlotOf& slots, const FecId& fecId,
                                                            const Vantu::Prefix* after,
                                                            Numbers::const_iterator& end) const {
  const auto found = slots.find(fecId);
  if (found == slots.end()) return end = byFec_.end();
  const Slot slot = *found;
  end = byFec_.upper_bound(groupEntry(slot, prefixMask));
  return after != nullptr ? byFec_.upper_bound(groupEntry(slot, numberOf(*after)))
                          : byFec_.lower_bound(groupEntry(slot, 0));
}

void FecRouteList::forEachPrefix(const FecId& fecId, const Vantu::Prefix* after, const Visit& visit) const {
  Numbers::const_iterator end, unsoughtEnd;
  auto at = firstOf(slotOf_, fecId, after, end);
  auto unsought = firstOf(unsoughtSlotOf_, fecId, after, unsoughtEnd);
  while (at != end || unsought != unsoughtEnd) {
    const bool isSoughtNext =
        unsought == unsoughtEnd || (at != end && (*at & prefixMask) < (*unsought & prefixMask));
    auto& next = isSoughtNext ? at : unsought;
    if (!visit(prefixOf(*next & prefixMask))) return;
    ++next;
  }
}

void FecRouteList::forEachPrefix(const Vantu::Prefix* after, const Visit& visit) const {
  auto at = after != nullptr ? byPrefix_.upper_bound(prefixEntry(*after, slotMask)) : byPrefix_.begin();
  for (; at != byPrefix_.end(); ++at) {
    if (!visit(prefixOf(*at >> slotBits))) return;
  }
}

FecRouteList::Slot FecRouteList::slotFor(const FecId& fecId, bool isSought) {
  auto& slots = isSought ? slotOf_ : unsoughtSlotOf_;
  if (const auto found = slots.find(fecId); found != slots.end()) return *found;
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
  fecs_[slot].id = fecId;
  fecs_[slot].isSought = isSought;
  slots.insert(slot);
  return slot;
}

void FecRouteList::releaseSlot(Slot slot) {
  auto& fec = fecs_[slot];
  setIntfSet(slot, 0);
  if (fec.isLarge) largeFecs_.erase(slot);
  (fec.isSought ? slotOf_ : unsoughtSlotOf_).erase(fec.id);
  fec = {};
  freeSlots_.push_back(slot);
}

bool FecRouteList::needsIntfs(const FecId& fecId) const {
  const auto found = slotOf_.find(fecId);
  return found != slotOf_.end() && fecs_[*found].intfsVersion != intfsVersion_;
}

void FecRouteList::setFecInterfaces(const FecId& fecId, const Intfs& intfs) {
  const auto found = slotOf_.find(fecId);
  if (found == slotOf_.end()) return;
  auto& fec = fecs_[*found];
  fec.intfsVersion = intfsVersion_;
  const auto* const known = intfSets_[fec.intfSet].intfs;
  if (known != nullptr ? *known == intfs : intfs.empty()) return;
  if (!fec.isLarge) renumber(*found, false);
  setIntfSet(*found, intfSetOf(intfs));
  if (!fec.isLarge) renumber(*found, true);
}

void FecRouteList::renumber(Slot slot, bool isEntered) {
  const auto intfSet = fecs_[slot].intfSet;
  if (intfSet == 0) return;
  for (auto at = byFec_.lower_bound(groupEntry(slot, 0)); at != byFec_.end() && *at >> prefixBits == slot; ++at) {
    const auto entry = groupEntry(intfSet, *at & prefixMask);
    isEntered ? void(byIntfSet_.insert(entry)) : void(byIntfSet_.erase(entry));
  }
}

void FecRouteList::setIntfSet(Slot slot, IntfSet intfSet) {
  const IntfSet old = std::exchange(fecs_[slot].intfSet, intfSet);
  if (intfSet != 0) ++intfSets_[intfSet].useCount;
  if (old == 0 || --intfSets_[old].useCount > 0) return;
  intfSetOf_.erase(intfSetOf_.find(*intfSets_[old].intfs));
  intfSets_[old] = {};
  freeIntfSets_.push_back(old);
}

FecRouteList::IntfSet FecRouteList::intfSetOf(const Intfs& intfs) {
  if (intfs.empty()) return 0;
  const auto [at, isNew] = intfSetOf_.try_emplace(intfs);
  if (!isNew) return at->second;
  if (freeIntfSets_.empty()) {
    freeIntfSets_.push_back(static_cast<IntfSet>(intfSets_.size()));
    intfSets_.emplace_back();
  }
  at->second = freeIntfSets_.back();
  freeIntfSets_.pop_back();
  intfSets_[at->second].intfs = &at->first;
  return at->second;
}

void FecRouteList::setCompleteTo(const Vantu::Prefix* last) {
  completeTo_ = last != nullptr ? numberOf(*last) + 1 : 0;
}

bool FecRouteList::nextThrough(const Vantu::Prefix& from, const std::function<bool(const Vantu::IntfId&)>& isGood,
                               Vantu::Prefix& result) const {
  static const auto last = numberOf(Vantu::Prefix(Vantu::IpAddr(~std::uint32_t{0}), 32));
  const auto number = numberOf(from);
  result = from;
  if (number >= completeTo_) return number <= last;
  std::uint64_t next = completeTo_;
  const auto consider = [&](const Numbers& numbers, std::uint32_t group) {
    const auto at = numbers.lower_bound(groupEntry(group, number));
    if (at != numbers.end() && *at >> prefixBits == group) next = std::min(next, *at & prefixMask);
  };
  std::vector<bool> areGood(intfSets_.size());
  for (IntfSet set = 1; set < intfSets_.size(); ++set) {
    if (intfSets_[set].useCount == 0) continue;
    areGood[set] = std::any_of(intfSets_[set].intfs->begin(), intfSets_[set].intfs->end(), isGood);
    if (areGood[set]) consider(byIntfSet_, set);
  }
  for (const Slot slot : largeFecs_) {
    if (areGood[fecs_[slot].intfSet]) consider(byFec_, slot);
  }
  if (next > last) return false;
  // completeTo_ need not be the number of a prefix, since its length may be 33. The number before it is one.
  if (next == completeTo_) --next;
  result = prefixOf(next);
  return true;
}

}  // namespace Quillo::Fib
