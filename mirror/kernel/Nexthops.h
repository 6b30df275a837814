#pragma once
// The next-hop objects of one network namespace (ip-nexthop(8)): single hops, and groups of single hops. Routes refer
// to them by id.

#include <map>
#include <optional>
#include <set>
#include <vector>

#include "mirror/rtnetlink/RtMessage.h"

namespace Mirror {

class Nexthops {
 public:
  // Returns whether anything changed.
  bool notified(const NexthopMessage& message);

  // A dump: beginDump(), then dumped() for each object. endDump() deletes the other objects, and returns whether
  // the dump changed anything.
  void beginDump();
  void dumped(const NexthopMessage& message);
  bool endDump();

  struct Forwarding {
    bool isBlackhole = false;    // the object, or a member of the group, drops packets
    std::vector<RouteHop> hops;  // the hops of all other members
  };
  // None without such an object; the kernel has then deleted its routes too.
  std::optional<Forwarding> forwarding(std::uint32_t id) const;

  // `ids` and the groups that contain one of them.
  std::set<std::uint32_t> withGroups(std::set<std::uint32_t> ids) const;
  // The objects that forward on one of the interfaces, and their groups.
  std::set<std::uint32_t> on(const std::set<std::uint32_t>& ifIndexes) const;

 private:
  struct Nexthop {
    bool isBlackhole = false;
    RouteHop hop;
    std::vector<std::uint32_t> members;
    bool isListed = true;
  };

  std::map<std::uint32_t, Nexthop> nexthops_;
  bool hasListingChanged_ = false;
};

}  // namespace Mirror
