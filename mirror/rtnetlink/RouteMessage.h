#pragma once
// Routes and next-hop objects as the kernel tells of them (linux/rtnetlink.h, linux/nexthop.h).

#include <compare>
#include <cstdint>
#include <vector>

#include "vantu/IpAddr.h"

namespace Mirror {

// Where packets go next. A gateway may be of the other family than the route: IPv4 through an IPv6 neighbour.
struct RouteHop {
  Vantu::IpGenAddr gateway;   // unset: the destination itself is a neighbour
  std::uint32_t ifIndex = 0;  // 0: none is named
  bool isDead = false;        // the kernel does not forward on it: its interface is down, or has no carrier
  friend auto operator<=>(const RouteHop&, const RouteHop&) = default;
};

// What a route says beside the prefix, table, type of service and metric that it is found under. Very many routes say
// the same.
struct RouteContent {
  Vantu::Af af = Vantu::unknown_;
  std::uint8_t type = 0;        // RTN_UNICAST, RTN_BLACKHOLE, RTN_UNREACHABLE or RTN_PROHIBIT
  std::uint8_t protocol = 0;    // RTPROT_...: who made the route
  std::uint32_t nexthopId = 0;  // the next-hop object that has the hops; 0: the route has its own
  Vantu::IpGenAddr source;      // IPv4: the preferred source address, with which the route goes
  std::vector<RouteHop> hops;   // none of a route that refuses packets, or has a next-hop object
  bool isUnicast() const;
  friend auto operator<=>(const RouteContent&, const RouteContent&) = default;
};

// A route came, changed or went. The kernel keeps several routes to one prefix, and even several of the same type of
// service and metric, in an order of which the first counts.
struct RouteMessage {
  enum class Action {
    gone,
    alone,     // it has come, and is the only one of its type of service and metric
    replaced,  // it has taken the place of the first one of those
    first,     // it has come before those
    last,      // it has come behind those
  };
  Action action = Action::first;
  std::uint32_t table = 0;
  Vantu::IpGenAddr address;  // never unset
  unsigned length = 0;
  std::uint8_t tos = 0;      // 0: any
  std::uint32_t metric = 0;  // the lowest wins
  RouteContent content;
};

// A next-hop object came, changed or went.
struct NexthopMessage {
  bool isDeleted = false;
  std::uint32_t id = 0;  // never 0
  bool isBlackhole = false;
  RouteHop hop;                        // unless it is a group
  std::vector<std::uint32_t> members;  // of a group: ids
};

}  // namespace Mirror
