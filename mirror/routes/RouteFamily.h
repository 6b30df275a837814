#pragma once
// The routes of one table and IP version as the kernel has them, and the prefixes whose records in the store are not up
// to date yet.
//
// Notifications are interpreted as the kernel means them (fib_table_insert() in net/ipv4/fib_trie.c,
// fib6_add_rt2node() in net/ipv6/ip6_fib.c). A notification may contradict the known routes; it may delete an unknown
// one, for example. The kernel has then changed the table without a notification, so the table counts as doubtful and
// must be dumped.
//
// One route of a prefix is in use: the first that can forward. Link-local destinations are different: the interface of a
// packet chooses among their routes, of which each interface has its own (fe80::/64). These are published as one route
// with the next hops of all.
//
// A dump marks and sweeps: beginDump(), dumped() for each route in the kernel's order, sweep(), endDump().
// Notifications received during a dump override the dump, which may be older.

#include <absl/container/btree_map.h>
#include <absl/container/btree_set.h>

#include <cstdint>
#include <optional>
#include <tuple>
#include <unordered_set>
#include <vector>

#include "mirror/routes/RouteContents.h"
#include "quillo/Publisher.h"
#include "quillo/tables/FibTables.h"
#include "vantu/VrfId.h"

namespace Mirror {

// The number of a dump, which marks the routes that it has. A number must not be reused: many dumps in a row may end
// without a sweep, so a route may still have the mark of a dump long ago. 32 bits take no more memory than 8, because
// of the padding.
using DumpStamp = std::uint32_t;

// The routes of one table and IP version in the kernel's order: by prefix, type of service, metric and rank. The first
// route of a prefix that can forward is the one in use.
//
// Holds a million routes: each costs 24 bytes (IPv4) or 36 (IPv6) in a B-tree, and its share of RouteContents.
template <class PrefixType>
class RouteAliases {
 public:
  // Several routes can have the same place; the kernel keeps them in an order of their own.
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
    DumpStamp stamp = 0;        // of the last dump that had it
  };
  using Group = std::vector<Alias>;  // the routes of a place, in the kernel's order

  std::size_t size() const { return map_.size(); }

  Group group(const Place& place) const {
    Group found;
    for (auto at = map_.lower_bound(keyOf(place, 0)); at != map_.end() && isOf(at->first, place); ++at) {
      found.push_back(at->second);
    }
    return found;
  }
  void setGroup(const Place& place, const Group& group) {
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

  // The route of this rank; null if the place has fewer routes.
  Alias* find(const Place& place, std::size_t rank) {
    const auto at = map_.find(keyOf(place, static_cast<std::uint16_t>(rank)));
    return at == map_.end() ? nullptr : &at->second;
  }
  // Requires: the place has `rank` routes.
  void append(const Place& place, std::size_t rank, const Alias& alias) {
    map_.emplace(keyOf(place, static_cast<std::uint16_t>(rank)), alias);
  }

  // Calls visit(metric, alias) for the routes of a prefix, in order, until it returns false.
  template <class Visit>
  void forEachOf(const PrefixType& prefix, const Visit& visit) const {
    for (auto at = map_.lower_bound(Key{prefix, 0, 0, 0}); at != map_.end() && at->first.prefix == prefix; ++at) {
      if (!visit(at->first.metric, at->second)) return;
    }
  }

  // Calls visit(place, alias) for all routes from `from` on, until it returns false.
  template <class Visit>
  void forEach(const Place& from, const Visit& visit) const {
    for (auto at = map_.lower_bound(keyOf(from, 0)); at != map_.end(); ++at) {
      if (!visit(Place{at->first.prefix, at->first.metric, at->first.tos}, at->second)) return;
    }
  }

 private:
  // Laid out for size; ordered by Place, then by rank, which counts from 0 without gaps.
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

  static_assert(sizeof(std::pair<const Key, Alias>) == (sizeof(PrefixType) == 8 ? 24 : 36));

  absl::btree_map<Key, Alias> map_;
};

template <class PrefixType>
class RouteFamily {
 public:
  explicit RouteFamily(RouteContents& contents) : contents_(contents) {}

  void notified(const RouteMessage& message);
  void dumped(const RouteMessage& message);
  void beginDump(DumpStamp stamp);  // `stamp` is above that of the last dump
  // Deletes routes that the dump did not have; visits about `limit` routes. Returns whether the sweep is complete.
  bool sweep(std::size_t limit);
  void endDump();

  // Returns whether a notification contradicted the known routes, and resets that.
  bool takeDoubt() { return std::exchange(isDoubtful_, false); }
  // Returns whether a dump found a change that was not notified, and resets that.
  bool takeFound() { return std::exchange(hasFound_, false); }
  std::size_t size() const { return aliases_.size(); }
  // Appends the gateways of all default routes that can forward, whatever their metrics.
  void addGateways(std::vector<Quillo::Fib::Via>& gateways) const;

  // Makes the prefixes of these contents pending. Call it before the contents resolve to other FECs.
  void touchContents(const std::unordered_set<RouteContents::Slot>& slots);

  // ---- publication. A table that is not published has nothing pending.
  void allPending();  // publishes the table: makes everything pending, as for an empty store
  std::size_t pending() const { return pending_.size(); }
  // Ends publication. Returns every prefix that the store may have, for the caller to delete.
  std::vector<PrefixType> hide();

  // The next batch: plan() chooses at most `limit` prefixes, counts the change for their FECs, and appends these to
  // `fecs`. addTo() adds the prefixes to the batch. Then follows written() or unplan().
  void plan(std::size_t limit, std::vector<RouteContents::Fec*>& fecs);
  void addTo(Quillo::Batch& batch, const Vrf::VrfIdMap::VrfId& vrfId) const;
  void written();
  void unplan() { plan_.clear(); }

 private:
  using Aliases = RouteAliases<PrefixType>;
  using Place = typename Aliases::Place;
  using Alias = typename Aliases::Alias;
  using Group = typename Aliases::Group;
  using Position = typename Group::iterator;
  using Fec = RouteContents::Fec;
  struct Best {
    std::uint32_t metric = 0;
    const RouteContent* content = nullptr;
    Fec* fec = nullptr;  // null: no route can forward
  };

  static Place placeOf(const RouteMessage& message);
  Best best(const PrefixType& prefix) const;
  void joinHops(const PrefixType& prefix);
  void touch(const PrefixType& prefix);
  void change(const Place& place, const Group& before, Group after);
  Position find(Group& group, const RouteContent& content) const;
  void add(const RouteMessage& message, Group& group);
  Position replacedBy(const RouteContent& content, Group& group) const;
  Position extendedBy(const RouteContent& content, Group& group) const;
  void remove(const RouteContent& content, Group& group);
  bool dumpedInOrder(const Place& place, const RouteContent& content);
  Alias aliasOf(const RouteContent& content) { return {contents_.refer(content), stamp_}; }
  void drop(Group& group, Position alias);
  void replace(Alias& alias, const RouteContent& content);

  RouteContents& contents_;
  Aliases aliases_;
  DumpStamp stamp_ = 0;
  bool isDoubtful_ = false;
  bool hasFound_ = false;
  absl::btree_set<Place> touched_;  // notified since the dump began
  bool isListing_ = false;
  // The place that the dump is at, while its routes are in the known order or new. Every interface has a route to
  // fe80::/64, so a place may have thousands.
  struct {
    std::optional<Place> place;
    std::size_t routes = 0;                    // the dump had so far; the first of the group
    std::unordered_set<std::uint64_t> hashes;  // of these routes
  } inOrder_;
  std::vector<RouteContents::Slot> released_;  // references to release at the end of change()
  std::optional<Place> sweptTo_;

  bool isShown_ = false;
  // The FECs with the next hops of several routes to a link-local destination, as of the last plan().
  absl::btree_map<PrefixType, Fec*> joined_;
  absl::btree_map<PrefixType, Fec*> pending_;  // with the FEC that the store has for the prefix; null: none
  struct Planned {
    PrefixType prefix;
    Fec* before;
    Best now;
  };
  std::vector<Planned> plan_;
};

extern template class RouteFamily<Vantu::Prefix>;
extern template class RouteFamily<Vantu::Ip6Prefix>;

}  // namespace Mirror
