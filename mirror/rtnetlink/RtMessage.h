#pragma once
// What the mirror understands of rtnetlink (rtnetlink(7), linux/rtnetlink.h, linux/if_link.h, linux/if_addr.h,
// linux/neighbour.h, linux/netconf.h, linux/nexthop.h).
//
// Decoding trusts nothing: lengths are checked before anything is read, attributes that are not known are passed
// over, and the flag bits of an attribute's type are ignored.

#include <linux/netlink.h>

#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "kel/Errors.h"
#include "vantu/EthAddr.h"
#include "vantu/IpAddr.h"
#include "varnix/Interface.h"

namespace Mirror {

// An interface came, changed or went. Some messages tell of a single property: then the others are absent.
struct LinkMessage {
  bool isDeleted = false;
  std::uint32_t ifIndex = 0;  // never 0
  std::string name;           // empty when absent
  std::uint32_t flags = 0;    // IFF_...
  std::optional<Interface::OperStatus> operStatus;
  std::optional<Vantu::EthAddr> ethAddr;  // zero for an address that is not of six bytes
  std::uint32_t master = 0;               // ifIndex of the bridge, bond or VRF device that it belongs to; 0: none
  bool isWhole = true;                    // false: a single property; then there is no word of master and vrfTable
  std::optional<std::uint32_t> vrfTable;  // a VRF device: the number of its routing table
};

// An address came, changed or went.
struct AddressMessage {
  bool isDeleted = false;
  std::uint32_t ifIndex = 0;  // never 0
  Vantu::IpGenAddr local;     // never unset
  unsigned prefixLength = 0;  // as the kernel has it: of a point-to-point address, the length for its peer
  Vantu::IpGenAddr peer;      // unset when there is none
  std::uint32_t flags = 0;    // IFA_F_...
};

// A neighbour came, changed or went.
struct NeighbourMessage {
  bool isDeleted = false;
  std::uint32_t ifIndex = 0;              // never 0
  Vantu::IpGenAddr addr;                  // never unset
  std::optional<Vantu::EthAddr> ethAddr;  // absent when there is none, or none of six bytes
  std::uint16_t state = 0;                // NUD_...

  // Whether packets can be sent to the neighbour at its address of the link layer.
  bool isResolved() const;
  bool isStatic() const;
};

// Forwarding of a whole network namespace was switched.
struct ForwardingMessage {
  Vantu::Af af = Vantu::unknown_;
  bool forwarding = false;
};

// ---- routes and next-hop objects

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

// ---- decoding

// monostate: a well-formed message that is not for the mirror.
using RtMessage = std::variant<std::monostate, LinkMessage, AddressMessage, NeighbourMessage, ForwardingMessage,
                               RouteMessage, NexthopMessage>;

// The message is too short, or has an attribute of the wrong size.
class MalformedMessageException : public Kel::Exception {
 public:
  using Exception::Exception;
};

// `message` is followed by as many bytes as its length says. Throws MalformedMessageException.
RtMessage decode(const nlmsghdr& message);

// The status (an errno, 0 for none) in a message of type NLMSG_ERROR or NLMSG_DONE; EBADMSG when it is cut short.
int statusOf(const nlmsghdr& message);

}  // namespace Mirror
