#pragma once
// What the mirror understands of rtnetlink (rtnetlink(7), linux/rtnetlink.h, linux/if_link.h, linux/if_addr.h,
// linux/neighbour.h, linux/netconf.h, linux/nexthop.h).
//
// Decoding trusts nothing: lengths are checked before anything is read, attributes that are not known are passed
// over, and the flag bits of an attribute's type are ignored.

#include <linux/netlink.h>

#include <cstdint>
#include <optional>
#include <string>
#include <variant>

#include "kel/Errors.h"
#include "mirror/rtnetlink/RouteMessage.h"
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
