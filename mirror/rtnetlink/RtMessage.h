#pragma once
// The rtnetlink messages that the mirror uses, and their decoder (rtnetlink(7), linux/rtnetlink.h, linux/if_link.h,
// linux/if_addr.h, linux/neighbour.h, linux/netconf.h, linux/nexthop.h).
//
// The decoder checks every length before it reads, skips unknown attributes, and ignores the flag bits of an
// attribute's type.

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

// The properties of an interface that a whole RTM_NEWLINK has.
struct LinkDetails {
  std::uint32_t ifType = 1;  // IANAifType
  std::uint32_t mtu = 0;
  std::string address;         // as bytes; empty without one, and for an address of zeros
  std::string alias;           // may hold any bytes
  bool isPromiscuous = false;  // accepts all frames
  bool hasConnector = false;   // it is a device on a bus, not one made by software
  std::uint32_t lower = 0;     // ifIndex of the interface that it runs over, in the same namespace; 0: none
  bool isPort = false;         // `master` runs over it: a bond or a bridge, not a VRF device
  friend bool operator==(const LinkDetails&, const LinkDetails&) = default;
};

// RTM_NEWLINK or RTM_DELLINK. Some messages have a single property and lack the others.
struct LinkMessage {
  bool isDeleted = false;
  std::uint32_t ifIndex = 0;  // never 0
  std::string name;           // empty when absent
  std::uint32_t flags = 0;    // IFF_...
  std::optional<Interface::OperStatus> operStatus;
  std::optional<Vantu::EthAddr> ethAddr;  // zero for an address whose length is not six bytes
  std::uint32_t master = 0;               // ifIndex of its bridge, bond or VRF device; 0: none
  bool isWhole = true;                    // false: a single property; ignore master, vrfTable and details
  std::optional<std::uint32_t> vrfTable;  // routing table of a VRF device; none for other devices
  LinkDetails details;
};

// RTM_NEWLINK of the family IPv6: an interface with IPv6, in the reply to RtDump::ipv6Links.
struct Ip6LinkMessage {
  std::uint32_t ifIndex = 0;  // never 0
  std::string name;           // empty when absent
  bool isEnabled = true;      // false: disable_ipv6
  bool forwarding = false;
  std::uint32_t reasmMaxSize = 0;  // octets; 0: unknown
};

// RTM_NEWNEIGHTBL: the parameters of a neighbour table for one interface, in the reply to RtDump::neighbourTables.
struct NeighbourParametersMessage {
  Vantu::Af af = Vantu::unknown_;
  std::uint32_t ifIndex = 0;         // never 0
  std::uint32_t retransmitTime = 0;  // ms; 0: unknown
  std::uint32_t reachableTime = 0;   // ms, the base value
};

// RTM_NEWSTATS: the counters of an interface, in the reply to RtDump::linkCounters.
struct LinkCountersMessage {
  std::uint32_t ifIndex = 0;  // never 0
  Interface::LinkCounters counters;
};

// RTM_NEWADDR or RTM_DELADDR.
struct AddressMessage {
  bool isDeleted = false;
  std::uint32_t ifIndex = 0;  // never 0
  Vantu::IpGenAddr local;     // never unset
  unsigned prefixLength = 0;  // of a point-to-point address: the peer's
  Vantu::IpGenAddr peer;      // unset when there is none
  std::uint32_t flags = 0;    // IFA_F_...
};

// RTM_NEWNEIGH or RTM_DELNEIGH.
struct NeighbourMessage {
  bool isDeleted = false;
  std::uint32_t ifIndex = 0;              // never 0
  Vantu::IpGenAddr addr;                  // never unset
  std::optional<Vantu::EthAddr> ethAddr;  // none unless the address has six bytes
  std::uint16_t state = 0;                // NUD_...

  // Whether the neighbour's link-layer address is known and usable.
  bool isResolved() const;
  bool isStatic() const;
};

// RTM_NEWNETCONF: the forwarding flag of a whole network namespace.
struct ForwardingMessage {
  Vantu::Af af = Vantu::unknown_;
  bool forwarding = false;
};

// ---- routes and next-hop objects

// A next hop. The gateway may be of the other family: an IPv4 route can go through an IPv6 neighbour.
struct RouteHop {
  Vantu::IpGenAddr gateway;   // unset: on-link
  std::uint32_t ifIndex = 0;  // 0: not named
  bool isDead = false;        // not used for forwarding: its interface is down or has no carrier
  friend auto operator<=>(const RouteHop&, const RouteHop&) = default;
};

// The attributes of a route other than its prefix, table, type of service and metric. Many routes share one content.
struct RouteContent {
  Vantu::Af af = Vantu::unknown_;
  std::uint8_t type = 0;        // RTN_UNICAST, RTN_BLACKHOLE, RTN_UNREACHABLE or RTN_PROHIBIT
  std::uint8_t protocol = 0;    // RTPROT_...: the route's origin
  std::uint32_t nexthopId = 0;  // the next-hop object with the hops; 0: the route has its own
  Vantu::IpGenAddr source;      // IPv4: the preferred source address; the kernel deletes the route with it
  std::vector<RouteHop> hops;   // empty for a route that refuses packets or uses a next-hop object
  bool isUnicast() const;
  friend auto operator<=>(const RouteContent&, const RouteContent&) = default;
};

// RTM_NEWROUTE or RTM_DELROUTE. The kernel keeps several routes to one prefix, even with the same type of service and
// metric. Among those the first in the kernel's order is used.
struct RouteMessage {
  enum class Action {
    gone,      // deleted
    alone,     // added; no other route has its type of service and metric
    replaced,  // replaced the first of those
    first,     // added before those
    last,      // added after those
  };
  Action action = Action::first;
  std::uint32_t table = 0;
  Vantu::IpGenAddr address;  // never unset
  unsigned length = 0;
  std::uint8_t tos = 0;      // 0: any
  std::uint32_t metric = 0;  // the lowest is preferred
  RouteContent content;
  // For a route from a router advertisement: its remaining lifetime in seconds, and the router's preference (RFC 4191:
  // -1 to 1).
  std::optional<std::uint32_t> expires = std::nullopt;
  std::int32_t preference = 0;
};

// RTM_NEWNEXTHOP or RTM_DELNEXTHOP.
struct NexthopMessage {
  bool isDeleted = false;
  std::uint32_t id = 0;  // never 0
  bool isBlackhole = false;
  RouteHop hop;                        // of a single next hop
  std::vector<std::uint32_t> members;  // of a group: ids
};

// ---- decoding

// monostate: a well-formed message that the mirror ignores.
using RtMessage =
    std::variant<std::monostate, LinkMessage, Ip6LinkMessage, LinkCountersMessage, AddressMessage, NeighbourMessage,
                 NeighbourParametersMessage, ForwardingMessage, RouteMessage, NexthopMessage>;

// The message is too short, or has an attribute of the wrong size.
class MalformedMessageException : public Kel::Exception {
 public:
  using Exception::Exception;
};

// Requires: the memory at `message` holds as many bytes as its length says. Throws MalformedMessageException.
RtMessage decode(const nlmsghdr& message);

// Identifies the contents of a message about one interface in a dump of links or counters, to detect what has changed
// since the last dump.
struct InterfaceDigest {
  std::uint32_t ifIndex = 0;  // never 0
  std::uint64_t hash = 0;     // of all that follows the netlink header
};

// None for a message of another kind. Requires and throws: as decode().
std::optional<InterfaceDigest> digestOf(const nlmsghdr& message);

// The status in a message of type NLMSG_ERROR or NLMSG_DONE: an errno, or 0. EBADMSG if the message is too short.
int statusOf(const nlmsghdr& message);

}  // namespace Mirror
