#pragma once
// For tests: the kernel's objects, and rtnetlink messages about them in the kernel's byte layout.

#include <linux/if.h>
#include <linux/if_addr.h>
#include <linux/if_link.h>
#include <linux/neighbour.h>
#include <linux/netconf.h>
#include <linux/nexthop.h>
#include <linux/rtnetlink.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "vantu/EthAddr.h"
#include "vantu/IpAddr.h"

namespace Mirror::Test {

using Bytes = std::vector<std::uint8_t>;

// The bytes of a value in an attribute or a header.
template <class T>
Bytes bytesOf(const T& value) {
  Bytes bytes(sizeof(T));
  std::memcpy(bytes.data(), &value, sizeof(T));
  return bytes;
}
inline Bytes bytesOf(const Bytes& bytes) {
  return bytes;
}
inline Bytes bytesOf(const std::string& text) {
  return {text.c_str(), text.c_str() + text.size() + 1};
}
inline Bytes bytesOf(const Vantu::EthAddr& address) {
  return {address.bytes().begin(), address.bytes().end()};
}
inline Bytes bytesOf(const Vantu::IpGenAddr& address) {
  if (address.af() == Vantu::ipv6_) return {address.v6().bytes().begin(), address.v6().bytes().end()};
  const auto bytes = address.v4().bytes();
  return {bytes.begin(), bytes.end()};
}

// Appends `bytes` after padding to four bytes.
inline void append(Bytes& to, const Bytes& bytes) {
  to.resize((to.size() + 3) / 4 * 4);
  to.insert(to.end(), bytes.begin(), bytes.end());
}

// An attribute with its header, for a message or inside another attribute.
template <class Value>
Bytes attributeBytes(unsigned type, const Value& value) {
  const Bytes payload = bytesOf(value);
  Bytes bytes = bytesOf(
      nlattr{static_cast<std::uint16_t>(sizeof(nlattr) + payload.size()), static_cast<std::uint16_t>(type)});
  append(bytes, payload);
  return bytes;
}

class Message {
 public:
  explicit Message(std::uint16_t type, std::uint16_t flags = 0, std::uint32_t sequence = 0, std::uint32_t port = 0)
      : bytes_(bytesOf(nlmsghdr{0, type, flags, sequence, port})) {}

  template <class T>
  Message& fixed(const T& header) {
    append(bytes_, bytesOf(header));
    return *this;
  }
  template <class Value>
  Message& attribute(unsigned type, const Value& value) {
    return fixed(attributeBytes(type, value));
  }
  Bytes bytes() const {
    Bytes all = bytes_;
    const auto size = static_cast<std::uint32_t>(all.size());
    std::memcpy(all.data(), &size, sizeof(size));
    return all;
  }

 private:
  Bytes bytes_;
};

inline std::uint8_t familyOf(bool isIpv6) {
  return isIpv6 ? AF_INET6 : AF_INET;
}

struct TestLink {
  int ifIndex = 1;
  std::string name;
  unsigned flags = IFF_UP | IFF_RUNNING;
  int operState = IF_OPER_UP;
  std::optional<Vantu::EthAddr> ethAddr = std::nullopt;
  std::uint32_t master = 0;
  std::optional<std::uint32_t> vrfTable = std::nullopt;
};

inline Message describe(Message message, const TestLink& link) {
  message.fixed(ifinfomsg{AF_UNSPEC, 0, 0, link.ifIndex, link.flags, 0}).attribute(IFLA_IFNAME, link.name);
  message.attribute(IFLA_OPERSTATE, static_cast<std::uint8_t>(link.operState));
  if (link.ethAddr) message.attribute(IFLA_ADDRESS, *link.ethAddr);
  if (link.master != 0) message.attribute(IFLA_MASTER, link.master);
  if (link.vrfTable) {
    Bytes info = attributeBytes(IFLA_INFO_KIND, std::string("vrf"));
    append(info, attributeBytes(IFLA_INFO_DATA | NLA_F_NESTED, attributeBytes(IFLA_VRF_TABLE, *link.vrfTable)));
    message.attribute(IFLA_LINKINFO | NLA_F_NESTED, info);
  }
  return message;
}

struct TestAddress {
  int ifIndex = 1;
  Vantu::IpGenAddr local;
  unsigned prefixLength = 24;
  Vantu::IpGenAddr peer = {};
  std::uint32_t flags = IFA_F_PERMANENT;
  bool isIpv6() const { return local.af() == Vantu::ipv6_; }
  bool isSame(const TestAddress& other) const {
    if (ifIndex != other.ifIndex || local != other.local) return false;
    return isIpv6() || (prefixLength == other.prefixLength && peer == other.peer);
  }
};

inline Message describe(Message message, const TestAddress& address) {
  message.fixed(ifaddrmsg{familyOf(address.isIpv6()), static_cast<std::uint8_t>(address.prefixLength),
                          static_cast<std::uint8_t>(address.flags), 0,
                          static_cast<std::uint32_t>(address.ifIndex)});
  // Like the kernel, an IPv6 address without a peer has no IFA_LOCAL.
  message.attribute(IFA_ADDRESS, address.peer.isSet() ? address.peer : address.local);
  if (!address.isIpv6() || address.peer.isSet()) message.attribute(IFA_LOCAL, address.local);
  return message.attribute(IFA_FLAGS, address.flags);
}

struct TestNeighbour {
  int ifIndex = 1;
  Vantu::IpGenAddr addr;
  std::optional<Vantu::EthAddr> ethAddr = std::nullopt;
  std::uint16_t state = NUD_REACHABLE;
  std::uint8_t flags = 0;  // NTF_...
  bool isIpv6() const { return addr.af() == Vantu::ipv6_; }
  bool isSame(const TestNeighbour& other) const { return ifIndex == other.ifIndex && addr == other.addr; }
};

inline Message describe(Message message, const TestNeighbour& neighbour) {
  message.fixed(ndmsg{familyOf(neighbour.isIpv6()), 0, 0, neighbour.ifIndex, neighbour.state, neighbour.flags, 0});
  message.attribute(NDA_DST, neighbour.addr);
  if (neighbour.ethAddr) message.attribute(NDA_LLADDR, *neighbour.ethAddr);
  return message;
}

struct TestHop {
  std::string gateway;  // empty: on-link
  int ifIndex = 2;
  bool isDead = false;
  auto place() const { return std::tie(gateway, ifIndex); }
  bool operator==(const TestHop& other) const { return place() == other.place(); }
  bool operator<(const TestHop& other) const { return place() < other.place(); }
};

struct TestRoute {
  std::string prefix;  // "10.0.0.0/8"
  std::vector<TestHop> hops = {};
  std::uint32_t metric = 0;
  std::uint8_t protocol = RTPROT_STATIC;
  std::uint8_t type = RTN_UNICAST;
  std::uint32_t nexthopId = 0;
  std::uint32_t table = 254;
  std::uint8_t tos = 0;
  Vantu::IpGenAddr source = {};

  bool isIpv6() const { return prefix.find(':') != std::string::npos; }
  // Whether the kernel merges IPv6 routes like this one that have the same place() into a multipath route.
  bool isMultipath() const { return nexthopId == 0 && !hops.empty() && !hops[0].gateway.empty(); }
  auto place() const { return std::tie(table, prefix, tos, metric); }
  bool isSame(const TestRoute& other) const {
    return place() == other.place() && protocol == other.protocol && type == other.type &&
           nexthopId == other.nexthopId && source == other.source && hops == other.hops;
  }
};

inline Bytes gatewayBytes(const std::string& gateway, bool isIpv6) {
  if (gateway.empty()) return {};
  const auto address = Vantu::IpGenAddr::fromString(gateway);
  Bytes payload = bytesOf(address);
  const bool isOther = (address.af() == Vantu::ipv6_) != isIpv6;
  if (isOther) payload.insert(payload.begin(), {AF_INET6, 0});
  return attributeBytes(isOther ? RTA_VIA : RTA_GATEWAY, payload);
}

inline Message describe(Message message, const TestRoute& route) {
  rtmsg header{};
  const auto slash = route.prefix.find('/');
  header.rtm_family = familyOf(route.isIpv6());
  header.rtm_dst_len = static_cast<std::uint8_t>(std::stoul(route.prefix.substr(slash + 1)));
  header.rtm_tos = route.tos;
  header.rtm_table = static_cast<std::uint8_t>(route.table < 256 ? route.table : RT_TABLE_COMPAT);
  header.rtm_protocol = route.protocol;
  header.rtm_type = route.type;
  const bool isSingle = route.hops.size() == 1;
  if (isSingle && route.hops[0].isDead) header.rtm_flags = RTNH_F_DEAD | RTNH_F_LINKDOWN;
  message.fixed(header).attribute(RTA_TABLE, route.table);
  if (header.rtm_dst_len > 0) {
    message.attribute(RTA_DST, Vantu::IpGenAddr::fromString(route.prefix.substr(0, slash)));
  }
  if (route.metric != 0) message.attribute(RTA_PRIORITY, route.metric);
  if (route.nexthopId != 0) message.attribute(RTA_NH_ID, route.nexthopId);
  if (route.source.isSet()) message.attribute(RTA_PREFSRC, route.source);
  if (isSingle) {
    message.attribute(RTA_OIF, route.hops[0].ifIndex);
    message.fixed(gatewayBytes(route.hops[0].gateway, route.isIpv6()));
  } else if (!route.hops.empty()) {
    Bytes all;
    for (const auto& hop : route.hops) {
      const Bytes gateway = gatewayBytes(hop.gateway, route.isIpv6());
      append(all, bytesOf(rtnexthop{static_cast<std::uint16_t>(sizeof(rtnexthop) + gateway.size()),
                                    static_cast<std::uint8_t>(hop.isDead ? RTNH_F_DEAD : 0), 0, hop.ifIndex}));
      append(all, gateway);
    }
    message.attribute(RTA_MULTIPATH, all);
  }
  return message;
}

struct TestNexthop {
  std::uint32_t id = 1;
  TestHop hop = {};
  std::vector<std::uint32_t> members = {};  // of a group
  bool isBlackhole = false;
};

inline Message describe(Message message, const TestNexthop& nexthop) {
  const bool isIpv6 = nexthop.hop.gateway.find(':') != std::string::npos;
  message.fixed(nhmsg{familyOf(isIpv6), 0, 0, 0, 0}).attribute(NHA_ID, nexthop.id);
  if (nexthop.isBlackhole) return message.attribute(NHA_BLACKHOLE, Bytes());
  if (nexthop.members.empty()) {
    message.attribute(NHA_OIF, nexthop.hop.ifIndex);
    return message.attribute(NHA_GATEWAY, Vantu::IpGenAddr::fromString(nexthop.hop.gateway));
  }
  Bytes group;
  for (const auto member : nexthop.members) append(group, bytesOf(nexthop_grp{member, 0, 0, 0}));
  return message.attribute(NHA_GROUP, group);
}

inline Message describeForwarding(Message message, Vantu::Af af, int ifIndex, int forwarding) {
  message.fixed(netconfmsg{familyOf(af == Vantu::ipv6_)}).attribute(NETCONFA_IFINDEX, ifIndex);
  return message.attribute(NETCONFA_FORWARDING, forwarding);
}

}  // namespace Mirror::Test
