#pragma once
// Finds the routes of a table in order, for walks and for lookups that follow the order. It reads ahead in pieces that
// grow while a walk goes on, since a search in the store costs as much as reading ten routes.
//
// Guarantees: finds what the table has now: what was read is used again while the table has the same generation.
// Damage is reported to the table; a damaged route counts as missing. Throws Quillo::StoreException while the table
// cannot be read.
// Lifetime: a route that is returned, until the next call.

#include <algorithm>
#include <vector>

#include "quillo/tables/FibTables.h"

namespace IpSnmp {

// `Status` is Quillo::Fib::RouteStatus or Quillo::Fib6::RouteStatus.
template <class Status>
class RoutesAhead {
 public:
  using Key = typename Status::Key;
  using Route = typename Status::Route;

  // The first route at or above `prefix`; null if there is none. A null table has no routes.
  const Route* lowerBound(const Status* table, const Key& prefix) {
    return search(table, prefix, [&](const Route& route) { return route.prefix < prefix; });
  }
  // The first route above `prefix`.
  const Route* upperBound(const Status* table, const Key& prefix) {
    return search(table, prefix, [&](const Route& route) { return !(prefix < route.prefix); });
  }

 private:
  static constexpr std::size_t firstPiece = 2, largestPiece = 128;

  template <class IsBefore>
  const Route* search(const Status* table, const Key& prefix, const IsBefore& isBefore) {
    if (table == nullptr) return nullptr;
    const auto generation = table->generation();
    const bool isKnown = generation != 0 && generation == generation_ && !(prefix < from_);
    if (isKnown) {
      if (const auto* found = firstOf(isBefore); found != nullptr || isWhole_) return found;
    }
    const bool isWalk = isKnown && at_ + 1 >= routes_.size();
    pieceSize_ = isWalk ? std::min(2 * pieceSize_, largestPiece) : firstPiece;
    read(*table, prefix);
    generation_ = generation;
    return firstOf(isBefore);
  }

  // Mostly the one after that of the last time.
  template <class IsBefore>
  const Route* firstOf(const IsBefore& isBefore) {
    const auto isHere = [&](std::size_t at) {
      return at < routes_.size() && !isBefore(routes_[at]) && (at == 0 || isBefore(routes_[at - 1]));
    };
    if (isHere(at_ + 1)) {
      ++at_;
    } else if (!isHere(at_)) {
      const auto found = std::partition_point(routes_.begin(), routes_.end(), isBefore);
      if (found == routes_.end()) return nullptr;
      at_ = static_cast<std::size_t>(found - routes_.begin());
    }
    return &routes_[at_];
  }

  void read(const Status& table, const Key& from) {
    from_ = from;
    at_ = 0;
    routes_.clear();
    try {
      table.forEachRoute(from, [this](const Route& route) {
        routes_.push_back(route);
        return routes_.size() < pieceSize_;
      });
    } catch (const Pesk::CorruptionDetectedException& damage) {
      table.corruptionDetected(damage.what());
    }
    isWhole_ = routes_.size() < pieceSize_;
  }

  std::vector<Route> routes_;  // those from lower_bound(from_) on
  Key from_;
  bool isWhole_ = false;          // no route follows
  std::uint64_t generation_ = 0;  // of the table at that time; 0: read again
  std::size_t pieceSize_ = firstPiece;
  std::size_t at_ = 0;  // the position found last
};

}  // namespace IpSnmp
