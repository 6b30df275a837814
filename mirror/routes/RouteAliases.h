#pragma once
// All routes of one table and IP version, in the kernel's order: by prefix, then by type of service, metric and rank.
// Of a prefix the first one that can forward counts.
//
// Made for a million routes: one costs 24 bytes (IPv4) or 36 (IPv6) in a B-tree, beside what it says
// (RouteContents.h).

#include <absl/container/btree_map.h>

#include <cstdint>
#include <tuple>
#include <vector>

namespace Mirror {

template <class PrefixType>
class RouteAliases {
 public:
  // What several routes can have in common, which the kernel then keeps in an order of their own.
  struct Place {
    PrefixType prefix;
    std::uint32_t metric = 0;
    std::uint8_t tos = 0;
    friend auto operator<=>(const Place& a, const Place& b) {
      return std::tie(a.prefix, a.tos, a.metric) <=> std::tie(b.prefix, b.tos, b.metric);
    }
    friend bool operator==(const Place&, const Place&) = default;
  };
  struct Alias {
    std::uint32_t content = 0;  // RouteContents::Slot
    std::uint8_t stamp = 0;     // of the listing that had it last
  };
  using Group = std::vector<Alias>;  // the routes of a place, in order

  std::size_t size() const { return map_.size(); }

  Group group(const Place& place) const {
    Group found;
    for (auto at = map_.lower_bound(keyOf(place, 0)); at != map_.end() && isOf(at->first, place); ++at) {
      found.push_back(at->second);
    }
    return found;
  }
  void groupIs(const Place& place, const Group& group) {
    std::uint16_t rank = 0;
    auto at = map_.lower_bound(keyOf(place, 0));
    for (const Alias& alias : group) {
      if (at == map_.end() || !isOf(at->first, place)) {
        at = map_.emplace_hint(at, keyOf(place, rank), alias);
      } else {
        at->second = alias;
      }
      ++rank;
      ++at;
    }
    while (at != map_.end() && isOf(at->first, place)) at = map_.erase(at);
  }

  // The routes of a prefix, in order, as visit(metric, alias) until that returns false.
  template <class Visit>
  void forEachOf(const PrefixType& prefix, const Visit& visit) const {
    for (auto at = map_.lower_bound(Key{prefix, 0, 0, 0}); at != map_.end() && at->first.prefix == prefix; ++at) {
      if (!visit(at->first.metric, at->second)) return;
    }
  }

  // All routes from `from` on, as visit(place, alias) until that returns false.
  template <class Visit>
  void forEach(const Place& from, const Visit& visit) const {
    for (auto at = map_.lower_bound(keyOf(from, 0)); at != map_.end(); ++at) {
      if (!visit(Place{at->first.prefix, at->first.metric, at->first.tos}, at->second)) return;
    }
  }
  void clear() { map_.clear(); }

 private:
  // As small as it can be; the order is that of Place, then by rank, which counts from 0 without gaps.
  struct Key {
    PrefixType prefix;
    std::uint32_t metric;
    std::uint8_t tos;
    std::uint16_t rank;
    friend bool operator<(const Key& a, const Key& b) {
      return std::tie(a.prefix, a.tos, a.metric, a.rank) < std::tie(b.prefix, b.tos, b.metric, b.rank);
    }
  };
  static Key keyOf(const Place& place, std::uint16_t rank) { return {place.prefix, place.metric, place.tos, rank}; }
  static bool isOf(const Key& key, const Place& place) {
    return key.prefix == place.prefix && key.tos == place.tos && key.metric == place.metric;
  }

  absl::btree_map<Key, Alias> map_;
};

}  // namespace Mirror
