#include "mirror/rtnetlink/RtMessage.h"

#include <fmt/format.h>
#include <libmnl/libmnl.h>
#include <linux/if.h>
#include <linux/if_addr.h>
#include <linux/if_arp.h>
#include <linux/if_link.h>
#include <linux/ipv6.h>
#include <linux/neighbour.h>
#include <linux/netconf.h>
#include <linux/rtnetlink.h>
#include <xxhash.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "mirror/rtnetlink/RtAttributes.h"

namespace Mirror {

namespace {

std::uint32_t checkedIndex(std::int64_t ifIndex) {
  if (ifIndex <= 0) throw MalformedMessageException(fmt::format("rtnetlink: interface index {}", ifIndex));
  return static_cast<std::uint32_t>(ifIndex);
}

std::string interfaceName(Payload payload) {
  const std::string name(payload.begin(), std::find(payload.begin(), payload.end(), 0));
  if (name.empty() || name.size() >= IFNAMSIZ) {
    throw MalformedMessageException(fmt::format("rtnetlink: interface name of {} bytes", name.size()));
  }
  return name;
}

// The values of IFLA_OPERSTATE (linux/if.h) are those of RFC 2863 in another order.
Interface::OperStatus operStatusOf(std::uint8_t kernelState) {
  switch (kernelState) {
    case IF_OPER_NOTPRESENT:
      return Interface::operStatusNotPresent;
    case IF_OPER_DOWN:
      return Interface::operStatusDown;
    case IF_OPER_LOWERLAYERDOWN:
      return Interface::operStatusLowerLayerDown;
    case IF_OPER_TESTING:
      return Interface::operStatusTesting;
    case IF_OPER_DORMANT:
      return Interface::operStatusDormant;
    case IF_OPER_UP:
      return Interface::operStatusUp;
    default:
      return Interface::operStatusUnknown;
  }
}

std::string textOf(Payload payload) {
  return {payload.begin(), std::find(payload.begin(), payload.end(), 0)};
}

// IFLA_LINKINFO: the kind of a software device, and that of its master.
struct LinkInfo {
  std::string kind, masterKind;
  Payload data;
};

LinkInfo linkInfoOf(Payload payload) {
  LinkInfo info;
  forEachAttribute(payload, [&](int type, Payload value) {
    if (type == IFLA_INFO_KIND) info.kind = textOf(value);
    if (type == IFLA_INFO_SLAVE_KIND) info.masterKind = textOf(value);
    if (type == IFLA_INFO_DATA) info.data = value;
  });
  return info;
}

// Whether the link is a tunnel over IP. Its "hardware" address is the IP address of this end.
bool isIpTunnel(unsigned hardware) {
  constexpr unsigned tunnels[] = {ARPHRD_TUNNEL, ARPHRD_TUNNEL6, ARPHRD_SIT, ARPHRD_IPGRE, ARPHRD_IP6GRE};
  return std::ranges::find(tunnels, hardware) != std::end(tunnels);
}

// A number of IANAifType, from the kind of a software device or the kernel's type of hardware (linux/if_arp.h).
std::uint32_t ifTypeOf(unsigned hardware, const std::string& kind) {
  enum {
    other = 1,
    ethernetCsmacd = 6,
    ppp = 23,
    softwareLoopback = 24,
    hdlc = 118,
    tunnel = 131,
    l2vlan = 135,
    ieee8023adLag = 161,
    infiniband = 199,
    bridge = 209,
    propVirtual = 53
  };
  if (kind == "vlan") return l2vlan;
  if (kind == "bond" || kind == "team") return ieee8023adLag;
  if (kind == "bridge") return bridge;
  if (kind == "vrf") return propVirtual;
  if (isIpTunnel(hardware)) return tunnel;
  switch (hardware) {
    case ARPHRD_ETHER:
      return ethernetCsmacd;
    case ARPHRD_LOOPBACK:
      return softwareLoopback;
    case ARPHRD_PPP:
      return ppp;
    case ARPHRD_CISCO:  // ARPHRD_HDLC
      return hdlc;
    case ARPHRD_NONE:  // a tun device, WireGuard
      return kind == "wireguard" ? tunnel : propVirtual;
    case ARPHRD_INFINIBAND:
      return infiniband;
    default:
      return other;
  }
}

// The routing table of a VRF device; none for a device of another kind.
std::optional<std::uint32_t> vrfTableOf(const LinkInfo& info) {
  if (info.kind != "vrf") return std::nullopt;
  std::optional<std::uint32_t> table;
  forEachAttribute(info.data, [&](int type, Payload value) {
    if (type == IFLA_VRF_TABLE) table = readAs<std::uint32_t>(value, "IFLA_VRF_TABLE");
  });
  if (!table) throw MalformedMessageException("rtnetlink: a VRF device without a routing table");
  return table;
}

// A number of an array of such; 0 beyond its end, which is nearer in older kernels.
std::int32_t numberAt(Payload array, std::size_t at) {
  const std::size_t begin = at * sizeof(std::int32_t);
  return array.size() < begin + sizeof(std::int32_t) ? 0 : readAs<std::int32_t>(array.subspan(begin), "number");
}

RtMessage decodeLinkCounters(const nlmsghdr& message) {
  const Payload payload = payloadOf(message);
  const auto header = readAs<if_stats_msg>(payload, "counters header");
  std::optional<LinkCountersMessage> link;
  forEachAttribute(payload, sizeof(header), [&](int type, Payload value) {
    if (type != IFLA_STATS_LINK_64) return;
    // Later kernels append further counters.
    using Counters = std::array<std::uint64_t, offsetof(rtnl_link_stats64, tx_aborted_errors) / 8>;
    const auto read = readAs<Counters>(value, "IFLA_STATS_LINK_64");
    rtnl_link_stats64 kernel{};
    std::memcpy(&kernel, read.data(), sizeof(read));
    link = LinkCountersMessage{
        checkedIndex(header.ifindex),
        Interface::LinkCounters(kernel.rx_bytes, kernel.rx_packets, kernel.multicast,
                                kernel.rx_dropped + kernel.rx_missed_errors, kernel.rx_errors, kernel.tx_bytes,
                                kernel.tx_packets, kernel.tx_dropped, kernel.tx_errors)};
  });
  if (!link) return {};
  return *link;
}

RtMessage decodeIp6Link(Payload payload, const ifinfomsg& header) {
  Ip6LinkMessage link;
  link.ifIndex = checkedIndex(header.ifi_index);
  forEachAttribute(payload, sizeof(header), [&](int type, Payload value) {
    if (type == IFLA_IFNAME) link.name = interfaceName(value);
    if (type != IFLA_PROTINFO) return;
    forEachAttribute(value, [&](int part, Payload content) {
      if (part == IFLA_INET6_CACHEINFO) {
        link.reasmMaxSize = readAs<ifla_cacheinfo>(content, "IFLA_INET6_CACHEINFO").max_reasm_len;
      }
      if (part != IFLA_INET6_CONF) return;
      link.forwarding = numberAt(content, DEVCONF_FORWARDING) != 0;
      link.isEnabled = numberAt(content, DEVCONF_DISABLE_IPV6) == 0;
    });
  });
  return link;
}

// The kernel has the parameters of all interfaces without IPv4 or IPv6 of their own in one message without an index.
RtMessage decodeNeighbourTable(const nlmsghdr& message) {
  const Payload payload = payloadOf(message);
  const auto header = readAs<ndtmsg>(payload, "neighbour table header");
  NeighbourParametersMessage parameters;
  parameters.af = afOf(header.ndtm_family);
  const auto milliseconds = [](Payload value, const char* what) {
    constexpr std::uint64_t highest = 0xFFFFFFFF;
    return static_cast<std::uint32_t>(std::min(readAs<std::uint64_t>(value, what), highest));
  };
  forEachAttribute(payload, sizeof(header), [&](int type, Payload value) {
    if (type != NDTA_PARMS) return;
    forEachAttribute(value, [&](int part, Payload content) {
      if (part == NDTPA_IFINDEX) {
        parameters.ifIndex = readAs<std::uint32_t>(content, "NDTPA_IFINDEX");
      } else if (part == NDTPA_RETRANS_TIME) {
        parameters.retransmitTime = milliseconds(content, "NDTPA_RETRANS_TIME");
      } else if (part == NDTPA_BASE_REACHABLE_TIME) {
        parameters.reachableTime = milliseconds(content, "NDTPA_BASE_REACHABLE_TIME");
      }
    });
  });
  if (parameters.af == Vantu::unknown_ || parameters.ifIndex == 0) return {};
  return parameters;
}

RtMessage decodeLink(const nlmsghdr& message) {
  const Payload payload = payloadOf(message);
  const auto header = readAs<ifinfomsg>(payload, "link header");
  if (header.ifi_family == AF_INET6 && message.nlmsg_type == RTM_NEWLINK) return decodeIp6Link(payload, header);
  // Messages of other families describe a role of the link, such as that of a bridge port.
  if (header.ifi_family != AF_UNSPEC) return {};
  LinkMessage link;
  link.isDeleted = message.nlmsg_type == RTM_DELLINK;
  link.ifIndex = checkedIndex(header.ifi_index);
  link.flags = header.ifi_flags;
  LinkInfo info;
  bool isLowerElsewhere = false;
  forEachAttribute(payload, sizeof(header), [&](int type, Payload value) {
    if (type == IFLA_IFNAME) {
      link.name = interfaceName(value);
    } else if (type == IFLA_OPERSTATE) {
      link.operStatus = operStatusOf(readAs<std::uint8_t>(value, "IFLA_OPERSTATE"));
    } else if (type == IFLA_ADDRESS) {
      link.ethAddr = value.size() == 6 ? Vantu::EthAddr::fromBytes(value) : Vantu::EthAddr();
      const bool isZero = std::ranges::all_of(value, [](auto byte) { return byte == 0; });
      if (!isZero && !isIpTunnel(header.ifi_type)) link.details.address.assign(value.begin(), value.end());
    } else if (type == IFLA_MASTER) {
      link.master = readAs<std::uint32_t>(value, "IFLA_MASTER");
    } else if (type == IFLA_LINKINFO) {
      info = linkInfoOf(value);
      link.vrfTable = vrfTableOf(info);
    } else if (type == IFLA_MTU) {
      link.details.mtu = readAs<std::uint32_t>(value, "IFLA_MTU");
    } else if (type == IFLA_IFALIAS) {
      link.details.alias = textOf(value);
    } else if (type == IFLA_PROMISCUITY) {
      link.details.isPromiscuous = readAs<std::uint32_t>(value, "IFLA_PROMISCUITY") != 0;
    } else if (type == IFLA_PARENT_DEV_NAME) {
      link.details.hasConnector = true;
    } else if (type == IFLA_LINK) {
      link.details.lower = readAs<std::uint32_t>(value, "IFLA_LINK");
    } else if (type == IFLA_LINK_NETNSID) {
      isLowerElsewhere = true;
    } else if (type == IFLA_WIRELESS) {
      link.isWhole = false;
    }
  });
  if (link.name.empty()) link.isWhole = false;
  link.details.ifType = ifTypeOf(header.ifi_type, info.kind);
  link.details.isPort = link.master != 0 && info.masterKind != "vrf";
  // Of a pair of devices, IFLA_LINK is the other one.
  const bool isPair = info.kind == "veth" || info.kind == "netkit" || info.kind == "vxcan";
  if (isLowerElsewhere || isPair) link.details.lower = 0;
  return link;
}

RtMessage decodeAddress(const nlmsghdr& message) {
  const Payload payload = payloadOf(message);
  const auto header = readAs<ifaddrmsg>(payload, "address header");
  const Vantu::Af af = afOf(header.ifa_family);
  if (af == Vantu::unknown_) return {};
  AddressMessage address;
  address.isDeleted = message.nlmsg_type == RTM_DELADDR;
  address.ifIndex = checkedIndex(header.ifa_index);
  address.prefixLength = header.ifa_prefixlen;
  address.flags = header.ifa_flags;
  if (address.prefixLength > (af == Vantu::ipv4_ ? 32U : 128U)) {
    throw MalformedMessageException(
        fmt::format("rtnetlink: {} prefix length {}", Vantu::afName(af), address.prefixLength));
  }
  forEachAttribute(payload, sizeof(header), [&](int type, Payload value) {
    if (type == IFA_LOCAL) {
      address.local = addressOf(af, value);
    } else if (type == IFA_ADDRESS) {
      address.peer = addressOf(af, value);
    } else if (type == IFA_FLAGS) {
      address.flags = readAs<std::uint32_t>(value, "IFA_FLAGS");
    }
  });
  // IFA_ADDRESS is the peer of a point-to-point address. Otherwise it is the address itself, with or without IFA_LOCAL.
  if (!address.local.isSet()) address.local = address.peer;
  if (address.peer == address.local) address.peer = {};
  if (!address.local.isSet()) throw MalformedMessageException("rtnetlink: address message without an address");
  return address;
}

RtMessage decodeNeighbour(const nlmsghdr& message) {
  const Payload payload = payloadOf(message);
  const auto header = readAs<ndmsg>(payload, "neighbour header");
  const Vantu::Af af = afOf(header.ndm_family);
  // A proxy entry is an address that this machine answers for, not a neighbour.
  if (af == Vantu::unknown_ || (header.ndm_flags & NTF_PROXY)) return {};
  NeighbourMessage neighbour;
  neighbour.isDeleted = message.nlmsg_type == RTM_DELNEIGH;
  neighbour.ifIndex = checkedIndex(header.ndm_ifindex);
  neighbour.state = header.ndm_state;
  forEachAttribute(payload, sizeof(header), [&](int type, Payload value) {
    if (type == NDA_DST) {
      neighbour.addr = addressOf(af, value);
    } else if (type == NDA_LLADDR && value.size() == 6) {
      neighbour.ethAddr = Vantu::EthAddr::fromBytes(value);
    }
  });
  if (!neighbour.addr.isSet()) throw MalformedMessageException("rtnetlink: neighbour message without an address");
  return neighbour;
}

RtMessage decodeForwarding(const nlmsghdr& message) {
  const Payload payload = payloadOf(message);
  const auto header = readAs<netconfmsg>(payload, "netconf header");
  std::optional<std::int32_t> ifIndex;
  std::optional<std::int32_t> forwarding;
  forEachAttribute(payload, sizeof(header), [&](int type, Payload value) {
    if (type == NETCONFA_IFINDEX) ifIndex = readAs<std::int32_t>(value, "NETCONFA_IFINDEX");
    if (type == NETCONFA_FORWARDING) forwarding = readAs<std::int32_t>(value, "NETCONFA_FORWARDING");
  });
  const Vantu::Af af = afOf(header.ncm_family);
  if (af == Vantu::unknown_ || ifIndex != NETCONFA_IFINDEX_ALL || !forwarding) return {};
  return ForwardingMessage{af, *forwarding != 0};
}

}  // namespace

bool NeighbourMessage::isResolved() const {
  // Without NUD_NOARP: such addresses, multicast ones for example, are not resolved.
  constexpr int resolved = NUD_PERMANENT | NUD_REACHABLE | NUD_STALE | NUD_DELAY | NUD_PROBE;
  return ethAddr && (state & resolved);
}

bool NeighbourMessage::isStatic() const {
  return state & NUD_PERMANENT;
}

RtMessage decode(const nlmsghdr& message) {
  if (message.nlmsg_len < sizeof(nlmsghdr)) throw MalformedMessageException("rtnetlink: message without a header");
  switch (message.nlmsg_type) {
    case RTM_NEWLINK:
    case RTM_DELLINK:
      return decodeLink(message);
    case RTM_NEWSTATS:
      return decodeLinkCounters(message);
    case RTM_NEWADDR:
    case RTM_DELADDR:
      return decodeAddress(message);
    case RTM_NEWNEIGH:
    case RTM_DELNEIGH:
      return decodeNeighbour(message);
    case RTM_NEWNEIGHTBL:
      return decodeNeighbourTable(message);
    case RTM_NEWNETCONF:
      return decodeForwarding(message);
    case RTM_NEWROUTE:
    case RTM_DELROUTE:
      return decodeRoute(message);
    case RTM_NEWNEXTHOP:
    case RTM_DELNEXTHOP:
      return decodeNexthop(message);
    default:
      return {};
  }
}

std::optional<InterfaceDigest> digestOf(const nlmsghdr& message) {
  const Payload payload = payloadOf(message);
  InterfaceDigest digest;
  if (message.nlmsg_type == RTM_NEWLINK) {
    digest.ifIndex = checkedIndex(readAs<ifinfomsg>(payload, "link header").ifi_index);
  } else if (message.nlmsg_type == RTM_NEWSTATS) {
    digest.ifIndex = checkedIndex(readAs<if_stats_msg>(payload, "counters header").ifindex);
  } else {
    return std::nullopt;
  }
  digest.hash = XXH3_64bits(payload.data(), payload.size());
  return digest;
}

int statusOf(const nlmsghdr& message) {
  const Payload payload = payloadOf(message);
  if (payload.size() < sizeof(std::int32_t)) return EBADMSG;
  const auto status = readAs<std::int32_t>(payload, "status");
  return status < 0 ? -status : 0;
}

}  // namespace Mirror
