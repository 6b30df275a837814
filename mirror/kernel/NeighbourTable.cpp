#include "mirror/kernel/NeighbourTable.h"

#include "quillo/tables/Records.h"

namespace Mirror {

namespace {

Arp::Table::ArpKey arpKey(const NeighbourTable::Place& place, const Vantu::IpGenAddr& addr) {
  return {place.vrfId, addr, place.intfId};
}

}  // namespace

void NeighbourTable::writeNeighbours(const Place& place, const KernelNeighbours& neighbours) {
  const auto at = places_.find(place);
  if (at != places_.end()) {
    std::vector<Vantu::IpGenAddr> gone;
    for (const auto& [addr, neighbour] : at->second) {
      if (!neighbours.contains(addr)) gone.push_back(addr);
    }
    for (const auto& addr : gone) neighbourDel(place, addr);
  }
  for (const auto& [addr, neighbour] : neighbours) neighbourIs(place, addr, neighbour);
}

void NeighbourTable::neighbourIs(const Place& place, const Vantu::IpGenAddr& addr,
                                 const KernelNeighbour& neighbour) {
  const auto [at, isNew] = places_[place].try_emplace(addr, neighbour);
  if (!isNew && at->second == neighbour) return;
  at->second = neighbour;
  if (isNew) ++size_;
  gone_.erase({place, addr});
  come_.emplace(place, addr);
}

void NeighbourTable::neighbourDel(const Place& place, const Vantu::IpGenAddr& addr) {
  const auto at = places_.find(place);
  if (at == places_.end() || at->second.erase(addr) == 0) return;
  if (at->second.empty()) places_.erase(at);
  --size_;
  come_.erase({place, addr});
  gone_.emplace(place, addr);
}

void NeighbourTable::allPending() {
  for (const auto& [place, neighbours] : places_) {
    for (const auto& [addr, neighbour] : neighbours) come_.emplace_hint(come_.end(), place, addr);
  }
}

void NeighbourTable::addDeletions(Quillo::Batch& batch) {
  addedGone_ = 0;
  for (const auto& [place, addr] : gone_) {
    if (addedGone_ == changesPerCommit) return;
    Arp::Table::entryDel(batch, arpKey(place, addr));
    ++addedGone_;
  }
}

void NeighbourTable::addAdditions(Quillo::Batch& batch) {
  addedCome_ = 0;
  for (const auto& [place, addr] : come_) {
    if (addedCome_ == changesPerCommit) return;
    const KernelNeighbour& neighbour = places_.at(place).at(addr);
    Arp::Table::entryIs(batch, {arpKey(place, addr), neighbour.ethAddr, {neighbour.isStatic}});
    ++addedCome_;
  }
}

void NeighbourTable::written() {
  gone_.erase(gone_.begin(), std::next(gone_.begin(), static_cast<std::ptrdiff_t>(addedGone_)));
  come_.erase(come_.begin(), std::next(come_.begin(), static_cast<std::ptrdiff_t>(addedCome_)));
  addedGone_ = addedCome_ = 0;
}

}  // namespace Mirror
