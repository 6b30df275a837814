#pragma once
// The next-hop objects of one network namespace (ip-nexthop(8)): single hops and groups of them, which routes refer to
// by number.

#include <map>
#include <optional>
#include <vector>

#include "mirror/RouteMessage.h"

namespace Mirror {

class Nexthops {
 public:
  void notified(const NexthopMessage& message);

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

  // Whether the object is `other`, or a group that has it.
  bool has(std::uint32_t id, std::uint32_t other) const;
  bool usesInterface(std::uint32_t ifIndex) const;
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
