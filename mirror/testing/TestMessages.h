#pragma once
// rtnetlink messages for tests, byte by byte as the kernel lays them out.

#include <linux/if.h>
#include <linux/if_addr.h>
#include <linux/if_link.h>
#include <linux/neighbour.h>
#include <linux/netconf.h>
#include <linux/rtnetlink.h>

#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "vantu/EthAddr.h"
#include "vantu/IpAddr.h"

namespace Mirror::Test {

using Bytes = std::vector<std::uint8_t>;

template <class T>
Bytes bytesOf(const T& value) {
  Bytes bytes(sizeof(T));
  std::memcpy(bytes.data(), &value, sizeof(T));
  return bytes;
}

inline Bytes bytesOf(const Vantu::IpGenAddr& address) {
  if (address.af() == Vantu::ipv6_) return {address.v6().bytes().begin(), address.v6().bytes().end()};
  const auto bytes = address.v4().bytes();
  return {bytes.begin(), bytes.end()};
}

// An attribute as it stands in a message, or inside another one.
inline Bytes attributeBytes(unsigned type, const Bytes& payload) {
  Bytes bytes = bytesOf(
      nlattr{static_cast<std::uint16_t>(sizeof(nlattr) + payload.size()), static_cast<std::uint16_t>(type)});
  bytes.insert(bytes.end(), payload.begin(), payload.end());
  return bytes;
}

class Message {
 public:
  explicit Message(std::uint16_t type, std::uint16_t flags = 0, std::uint32_t sequence = 0, std::uint32_t port = 0)
      : header_{0, type, flags, sequence, port} {}

  template <class T>
  Message& fixed(const T& header) {
    append(bytesOf(header));
    return *this;
  }
  Message& attribute(unsigned type, const Bytes& payload) {
    append(attributeBytes(type, payload));
    return *this;
  }
  Message& attributes(const Bytes& whole) {
    append(whole);
    return *this;
  }
  Message& text(unsigned type, const std::string& value) {
    return attribute(type, {value.c_str(), value.c_str() + value.size() + 1});
  }

  Bytes bytes() const {
    nlmsghdr header = header_;
    header.nlmsg_len = static_cast<std::uint32_t>(sizeof(header) + body_.size());
    Bytes all = bytesOf(header);
    all.insert(all.end(), body_.begin(), body_.end());
    return all;
  }

 private:
  void append(const Bytes& bytes) {
    body_.resize((body_.size() + 3) / 4 * 4);
    body_.insert(body_.end(), bytes.begin(), bytes.end());
  }
  nlmsghdr header_;
  Bytes body_;
};

struct TestLink {
  int ifIndex = 1;
  std::string name;
  unsigned flags = IFF_UP | IFF_RUNNING;
  int operState = IF_OPER_UP;
  std::optional<Vantu::EthAddr> ethAddr = std::nullopt;
  std::uint32_t master = 0;
  std::optional<std::uint32_t> vrfTable = std::nullopt;
};

// IFLA_LINKINFO of a device of kind "vrf".
inline Bytes vrfLinkInfo(std::uint32_t table) {
  Bytes info = attributeBytes(IFLA_INFO_KIND, {'v', 'r', 'f', 0});
  const Bytes data = attributeBytes(IFLA_INFO_DATA | NLA_F_NESTED, attributeBytes(IFLA_VRF_TABLE, bytesOf(table)));
  info.insert(info.end(), data.begin(), data.end());
  return info;
}

inline Message describe(Message message, const TestLink& link) {
  ifinfomsg header{};
  header.ifi_family = AF_UNSPEC;
  header.ifi_index = link.ifIndex;
  header.ifi_flags = link.flags;
  message.fixed(header).text(IFLA_IFNAME, link.name);
  message.attribute(IFLA_OPERSTATE, {static_cast<std::uint8_t>(link.operState)});
  if (link.ethAddr) message.attribute(IFLA_ADDRESS, {link.ethAddr->bytes().begin(), link.ethAddr->bytes().end()});
  if (link.master != 0) message.attribute(IFLA_MASTER, bytesOf(link.master));
  if (link.vrfTable) message.attribute(IFLA_LINKINFO | NLA_F_NESTED, vrfLinkInfo(*link.vrfTable));
  return message;
}

struct TestAddress {
  int ifIndex = 1;
  Vantu::IpGenAddr local;
  unsigned prefixLength = 24;
  Vantu::IpGenAddr peer = {};
  std::uint32_t flags = IFA_F_PERMANENT;
};

inline Message describe(Message message, const TestAddress& address) {
  ifaddrmsg header{};
  const bool isIpv4 = address.local.af() == Vantu::ipv4_;
  header.ifa_family = isIpv4 ? AF_INET : AF_INET6;
  header.ifa_prefixlen = static_cast<std::uint8_t>(address.prefixLength);
  header.ifa_flags = static_cast<std::uint8_t>(address.flags);
  header.ifa_index = static_cast<std::uint32_t>(address.ifIndex);
  message.fixed(header);
  // As the kernel: of an IPv6 address without a peer there is IFA_ADDRESS alone.
  message.attribute(IFA_ADDRESS, bytesOf(address.peer.isSet() ? address.peer : address.local));
  if (isIpv4 || address.peer.isSet()) message.attribute(IFA_LOCAL, bytesOf(address.local));
  message.attribute(IFA_FLAGS, bytesOf(address.flags));
  return message;
}

struct TestNeighbour {
  int ifIndex = 1;
  Vantu::IpGenAddr addr;
  std::optional<Vantu::EthAddr> ethAddr = std::nullopt;
  std::uint16_t state = NUD_REACHABLE;
  std::uint8_t flags = 0;  // NTF_...
};

inline Message describe(Message message, const TestNeighbour& neighbour) {
  ndmsg header{};
  header.ndm_family = neighbour.addr.af() == Vantu::ipv4_ ? AF_INET : AF_INET6;
  header.ndm_ifindex = neighbour.ifIndex;
  header.ndm_state = neighbour.state;
  header.ndm_flags = neighbour.flags;
  message.fixed(header).attribute(NDA_DST, bytesOf(neighbour.addr));
  if (neighbour.ethAddr) {
    const auto& bytes = neighbour.ethAddr->bytes();
    message.attribute(NDA_LLADDR, {bytes.begin(), bytes.end()});
  }
  return message;
}

inline Message describeForwarding(Message message, Vantu::Af af, int ifIndex, int forwarding) {
  netconfmsg header{};
  header.ncm_family = af == Vantu::ipv4_ ? AF_INET : AF_INET6;
  message.fixed(header);
  return message.attribute(NETCONFA_IFINDEX, bytesOf(ifIndex)).attribute(NETCONFA_FORWARDING, bytesOf(forwarding));
}

}  // namespace Mirror::Test
