#pragma once
// The next-hop objects of one network namespace (ip-nexthop(8)): single hops and groups of them, which routes refer to
// by number.

#include <map>
#include <optional>
#include <set>
#include <vector>

#include "mirror/rtnetlink/RtMessage.h"

namespace Mirror {

class Nexthops {
 public:
  // True when anything differs from what was known.
  bool notified(const NexthopMessage& message) { return apply(message); }

  // A listing: begin, then dumped() for each one, then what was not listed is gone. True when anything differs from
  // what was known.
  void listingIs();
  void dumped(const NexthopMessage& message);
  bool listingEnds();

  struct Forwarding {
    bool isBlackhole = false;
    std::vector<RouteHop> hops;
  };
  // None when there is no such object: then the kernel has taken its routes away too.
  std::optional<Forwarding> forwarding(std::uint32_t id) const;

  // The objects themselves, and the groups that have one of them.
  std::set<std::uint32_t> withGroups(std::set<std::uint32_t> ids) const;
  // Those that forward on one of the interfaces, groups among them.
  std::set<std::uint32_t> on(const std::set<std::uint32_t>& ifIndexes) const;
  bool empty() const { return nexthops_.empty(); }

 private:
  struct Nexthop {
    bool isBlackhole = false;
    RouteHop hop;
    std::vector<std::uint32_t> members;
    bool isListed = true;
  };
  bool apply(const NexthopMessage& message);

  std::map<std::uint32_t, Nexthop> nexthops_;
  bool hasListingChanged_ = false;
};

}  // namespace Mirror
