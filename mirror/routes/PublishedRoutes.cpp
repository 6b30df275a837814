#include "mirror/routes/PublishedRoutes.h"

#include <algorithm>

#include "mirror/routes/VrfRoutes.h"
#include "quillo/tables/Records.h"

namespace Mirror {

namespace {

// Deletes from the end of `keys`, which cutSome() then shortens.
template <class Key, class Delete>
std::size_t addSome(const std::vector<Key>& keys, std::size_t limit, const Delete& del) {
  const std::size_t count = std::min(keys.size(), limit);
  std::for_each(keys.rbegin(), keys.rbegin() + static_cast<std::ptrdiff_t>(count), del);
  return count;
}

template <class Key>
std::size_t cutSome(std::vector<Key>& keys, std::size_t limit) {
  const std::size_t count = std::min(keys.size(), limit);
  keys.resize(keys.size() - count);
  return count;
}

}  // namespace

void PublishedRoutes::leave(Leftovers leftovers) {
  if (leftovers.size() > 0) leftovers_.push_back(std::move(leftovers));
}

std::size_t PublishedRoutes::pending() const {
  std::size_t count = 0;
  for (const auto& leftovers : leftovers_) count += leftovers.size();
  for (const auto* member : members_) count += member->pending();
  return count;
}

void PublishedRoutes::allPending() {
  leftovers_.clear();
  for (auto* member : members_) member->allPending();
}

std::size_t PublishedRoutes::addLeftovers(Quillo::Batch& batch, std::size_t limit) {
  const std::size_t whole = limit;
  for (auto& left : leftovers_) {
    const std::size_t before = limit;
    limit -= addSome(left.routes, limit, [&](const auto& key) { Quillo::routeDel(batch, left.vrfId, key); });
    limit -= addSome(left.routes6, limit, [&](const auto& key) { Quillo::routeDel(batch, left.vrfId, key); });
    limit -= addSome(left.fecs, limit, [&](const auto& key) { Quillo::fecDel(batch, left.vrfId, key); });
    left.inBatch = before - limit;
  }
  return whole - limit;
}

// Whether records of an earlier VRF with the same id must be deleted first.
bool PublishedRoutes::isHeldUp(const VrfRoutes& member) const {
  return std::any_of(leftovers_.begin(), leftovers_.end(), [&](const Leftovers& left) {
    return left.vrfId == member.vrfId() && left.inBatch < left.size();
  });
}

void PublishedRoutes::addTo(Quillo::Batch& batch) {
  std::size_t limit = changesPerCommit - addLeftovers(batch, changesPerCommit);
  added_.clear();
  std::copy_if(members_.begin(), members_.end(), std::back_inserter(added_),
               [](const VrfRoutes* member) { return member->pending() > 0; });
  // The fewest first, so that a few changes do not wait for the many of another VRF.
  std::sort(added_.begin(), added_.end(),
            [](const VrfRoutes* a, const VrfRoutes* b) { return a->pending() < b->pending(); });
  for (auto* member : added_) {
    if (!isHeldUp(*member)) limit -= member->addTo(batch, limit);
  }
}

void PublishedRoutes::written() {
  for (auto& left : leftovers_) {
    std::size_t limit = std::exchange(left.inBatch, 0);
    limit -= cutSome(left.routes, limit);
    limit -= cutSome(left.routes6, limit);
    cutSome(left.fecs, limit);
  }
  leftovers_.remove_if([](const Leftovers& left) { return left.size() == 0; });
  for (auto* member : added_) member->written();
  added_.clear();
}

}  // namespace Mirror
