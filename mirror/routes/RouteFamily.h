#pragma once
// The routes of one table and IP version as the kernel has told of them, and which prefixes of them the store does
// not yet show so.
//
// Notifications are taken as the kernel means them (fib_table_insert() in net/ipv4/fib_trie.c, fib6_add_rt2node() in
// net/ipv6/ip6_fib.c). What does not fit what is known (a route is deleted that nobody has told of) makes the table
// doubtful: the kernel has changed it without a word, and it has to be listed.
//
// A listing marks and sweeps: listingIs(), then dumped() for what the kernel lists, in its order, then sweep(). What
// is notified meanwhile stands against what is listed, which may be older.

#include <absl/container/btree_map.h>
#include <absl/container/btree_set.h>

#include <optional>
#include <unordered_set>

#include "mirror/routes/RouteAliases.h"
#include "mirror/routes/RouteContents.h"
#include "quillo/Publisher.h"
#include "quillo/tables/FibTables.h"
#include "vantu/VrfId.h"

namespace Mirror {

template <class PrefixType>
class RouteFamily {
 public:
  explicit RouteFamily(RouteContents& contents) : contents_(contents) {}

  void notified(const RouteMessage& message);
  void dumped(const RouteMessage& message);
  void listingIs(std::uint8_t stamp);
  // Takes away what was not listed, `limit` routes at most at a time; true when it is through.
  bool sweep(std::size_t limit);
  void listingEnds();

  // Whether a notification did not fit; forgets it.
  bool takeDoubt() { return std::exchange(isDoubtful_, false); }
  // Whether a listing found what the kernel had not told of; forgets it.
  bool takeFound() { return std::exchange(hasFound_, false); }
  std::size_t size() const { return aliases_.size(); }

  // The contents are about to resolve to other FECs.
  void contentsMove(const std::unordered_set<RouteContents::Slot>& slots);

  // ---- towards the store. Nothing is pending of a table that is not shown.
  void shownIs();  // everything is pending; the store has nothing of it
  std::size_t pending() const { return pending_.size(); }
  // Every prefix that the store may have, for who takes them out.
  std::vector<PrefixType> hide();

  // The next batch: plan() chooses `limit` prefixes at most and counts what that means for their FECs, which it adds
  // to `fecs`; addTo() adds them; then either written() or unplan().
  void plan(std::size_t limit, std::vector<RouteContents::Fec*>& fecs);
  void addTo(Quillo::Batch& batch, const Vrf::VrfIdMap::VrfId& vrfId) const;
  void written();
  void unplan() { plan_.clear(); }

 private:
  using Aliases = RouteAliases<PrefixType>;
  using Place = typename Aliases::Place;
  using Alias = typename Aliases::Alias;
  using Group = typename Aliases::Group;
  using Fec = RouteContents::Fec;
  struct Best {
    std::uint32_t metric = 0;
    const RouteContent* content = nullptr;
    Fec* fec = nullptr;  // null: there is none
  };

  static Place placeOf(const RouteMessage& message);
  Best best(const PrefixType& prefix) const;
  void touch(const PrefixType& prefix);
  void change(const Place& place, const Group& before, Group after);
  typename Group::iterator find(Group& group, const RouteContent& content) const;
  void come(const RouteMessage& message, Group& group);
  typename Group::iterator replacedBy(const RouteContent& content, Group& group) const;
  typename Group::iterator extendedBy(const RouteContent& content, Group& group) const;
  void go(const RouteContent& content, Group& group);
  Alias aliasOf(const RouteContent& content) { return {contents_.refer(content), stamp_}; }
  void drop(Group& group, typename Group::iterator alias);
  void replace(Alias& alias, const RouteContent& content);

  RouteContents& contents_;
  Aliases aliases_;
  std::uint8_t stamp_ = 0;
  bool isDoubtful_ = false;
  bool hasFound_ = false;
  absl::btree_set<Place> touched_;  // notified since the listing began
  bool isListing_ = false;
  std::vector<RouteContents::Slot> released_;  // references that the change under way gives back
  std::optional<Place> sweptTo_;

  bool isShown_ = false;
  absl::btree_map<PrefixType, Fec*> pending_;  // with the FEC that the store has for the prefix; null: it has none
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
