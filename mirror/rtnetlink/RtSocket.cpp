#include "mirror/rtnetlink/RtSocket.h"

#include <fmt/format.h>
#include <libmnl/libmnl.h>
#include <linux/if_addr.h>
#include <linux/neighbour.h>
#include <linux/nexthop.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <vector>

#include "kel/Errors.h"
#include "kel/Trace.h"

namespace Mirror {

namespace {

Kel::TraceHandle rtSocketTrace("MirrorSocket");

// The kernel sends dumps in datagrams of at most 32 KiB. A larger single message enlarges the buffer. The bound is
// beyond what a kernel can send: a message has less than 100 kinds of attributes, each of at most 64 KiB.
constexpr std::size_t bufferBytes = 64 << 10;
constexpr std::size_t maxBufferBytes = 16 << 20;

// One buffer for all sockets: each datagram is processed before the next receive.
std::vector<std::uint8_t>& buffer() {
  static std::vector<std::uint8_t> bytes(bufferBytes);
  return bytes;
}

[[noreturn]] void failOnSocket(const char* what, int error = errno) {
  const bool isFull = error == EMFILE || error == ENFILE;
  throw Kel::Exception(fmt::format("rtnetlink: {}: {}; {}", what, std::strerror(error),
                                   isFull ? "raise the limit of open files (ulimit -n)"
                                          : "it takes AF_NETLINK sockets of the family NETLINK_ROUTE "
                                            "(look for a seccomp filter or a restriction of address families)"));
}

void receiveBytesAre(const mnl_socket* socket, int bytes) {
  const int fd = mnl_socket_get_fd(socket);
  if (setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &bytes, sizeof(bytes)) != 0) {
    setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &bytes, sizeof(bytes));
  }
}

void subscribe(const mnl_socket* socket) {
  for (int group : {RTNLGRP_LINK, RTNLGRP_IPV4_IFADDR, RTNLGRP_IPV6_IFADDR, RTNLGRP_NEIGH, RTNLGRP_IPV4_ROUTE,
                    RTNLGRP_IPV6_ROUTE}) {
    if (mnl_socket_setsockopt(socket, NETLINK_ADD_MEMBERSHIP, &group, sizeof(group)) != 0) {
      failOnSocket("cannot subscribe to changes");
    }
  }
  // Optional: old kernels lack these groups. The forwarding flags are also polled, and such kernels have no next-hop
  // objects.
  for (int group : {RTNLGRP_IPV4_NETCONF, RTNLGRP_IPV6_NETCONF, RTNLGRP_NEXTHOP}) {
    if (mnl_socket_setsockopt(socket, NETLINK_ADD_MEMBERSHIP, &group, sizeof(group)) == 0) continue;
    QTRACE(rtSocketTrace, 1) << "no notifications of group " << group << ": " << std::strerror(errno);
  }
}

template <class Header>
Header& putHeader(nlmsghdr* request, std::uint16_t type) {
  request->nlmsg_type = type;
  return *static_cast<Header*>(mnl_nlmsg_put_extra_header(request, sizeof(Header)));
}

}  // namespace

void RtSocket::Close::operator()(mnl_socket* socket) const {
  mnl_socket_close(socket);
}

RtSocket::RtSocket(std::shared_ptr<const Vantu::NetNs> ns, int receiveBytes, Use use)
    : ns_(std::move(ns)), wantedReceiveBytes_(receiveBytes), use_(use), socket_(open()) {
  QTRACE(rtSocketTrace, 1) << "receive buffer of " << this->receiveBytes() << " bytes";
}

RtSocket::Handle RtSocket::open() const {
  const Vantu::NetNsGuard inside(*ns_);
  Handle socket(mnl_socket_open2(NETLINK_ROUTE, SOCK_NONBLOCK | SOCK_CLOEXEC));
  if (!socket) failOnSocket("cannot open a socket");
  receiveBytesAre(socket.get(), wantedReceiveBytes_);
  // With strict checking the kernel honours the family in a dump request. Kernels before 4.20 do not have it.
  int on = 1;
  mnl_socket_setsockopt(socket.get(), NETLINK_GET_STRICT_CHK, &on, sizeof(on));
  if (mnl_socket_bind(socket.get(), 0, MNL_SOCKET_AUTOPID) != 0) failOnSocket("cannot bind the socket");
  if (use_ == Use::dumpsAndChanges) subscribe(socket.get());
  return socket;
}

int RtSocket::fd() const {
  return mnl_socket_get_fd(socket_.get());
}

int RtSocket::receiveBytes() const {
  int bytes = 0;
  socklen_t size = sizeof(bytes);
  getsockopt(fd(), SOL_SOCKET, SO_RCVBUF, &bytes, &size);
  return bytes;
}

std::uint32_t RtSocket::portId() const {
  return mnl_socket_get_portid(socket_.get());
}

void RtSocket::dump(RtDump what, std::uint32_t sequence, std::uint32_t table) {
  std::array<std::uint8_t, 128> bytes{};
  nlmsghdr* request = mnl_nlmsg_put_header(bytes.data());
  request->nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
  request->nlmsg_seq = sequence;
  switch (what) {
    case RtDump::links:
      putHeader<ifinfomsg>(request, RTM_GETLINK);
      mnl_attr_put_u32(request, IFLA_EXT_MASK, RTEXT_FILTER_SKIP_STATS);
      break;
    case RtDump::ipv4Addresses:
    case RtDump::ipv6Addresses:
      putHeader<ifaddrmsg>(request, RTM_GETADDR).ifa_family = what == RtDump::ipv4Addresses ? AF_INET : AF_INET6;
      break;
    case RtDump::ipv4Neighbours:
    case RtDump::ipv6Neighbours:
      putHeader<ndmsg>(request, RTM_GETNEIGH).ndm_family = what == RtDump::ipv4Neighbours ? AF_INET : AF_INET6;
      break;
    case RtDump::nexthops:
      putHeader<nhmsg>(request, RTM_GETNEXTHOP);
      break;
    case RtDump::ipv4Routes:
    case RtDump::ipv6Routes:
      putHeader<rtmsg>(request, RTM_GETROUTE).rtm_family = what == RtDump::ipv4Routes ? AF_INET : AF_INET6;
      mnl_attr_put_u32(request, RTA_TABLE, table);
      break;
    case RtDump::linkCounters:
      putHeader<if_stats_msg>(request, RTM_GETSTATS).filter_mask = IFLA_STATS_FILTER_BIT(IFLA_STATS_LINK_64);
      break;
    case RtDump::ipv6Links:
      putHeader<ifinfomsg>(request, RTM_GETLINK).ifi_family = AF_INET6;
      break;
    case RtDump::neighbourTables:
      putHeader<ndtmsg>(request, RTM_GETNEIGHTBL);
      break;
  }
  if (mnl_socket_sendto(socket_.get(), request, request->nlmsg_len) < 0) failOnSocket("cannot ask for a dump");
}

RtChannel::Outcome RtSocket::receive(std::span<const std::uint8_t>& datagram) {
  while (true) {
    sockaddr_nl sender{};
    iovec io{buffer().data(), buffer().size()};
    msghdr header{};
    header.msg_name = &sender;
    header.msg_namelen = sizeof(sender);
    header.msg_iov = &io;
    header.msg_iovlen = 1;
    const ssize_t size = recvmsg(fd(), &header, MSG_TRUNC);
    if (size < 0) {
      if (errno == EINTR) continue;
      if (errno == EAGAIN || errno == EWOULDBLOCK) return Outcome::empty;
      if (errno == ENOBUFS || errno == ENOMEM) return Outcome::overrun;
      failOnSocket("cannot receive");
    }
    if (sender.nl_pid != 0) continue;  // not from the kernel
    if (header.msg_flags & MSG_TRUNC) {
      const auto needed = static_cast<std::size_t>(size);
      if (needed > maxBufferBytes) {
        // Reading everything again would meet it again.
        QTRACE(rtSocketTrace, 0) << "rtnetlink: ignored a message of " << needed << " bytes, where "
                                 << maxBufferBytes
                                 << " are the most; report it with the kernel's version (uname -r)";
        continue;
      }
      buffer().resize(needed);  // for the next time: the rest of the datagram is lost
      return Outcome::overrun;
    }
    datagram = {buffer().data(), static_cast<std::size_t>(size)};
    return Outcome::datagram;
  }
}

void RtSocket::reopen() {
  QTRACE(rtSocketTrace, 1) << "reopening";
  socket_ = open();
}

}  // namespace Mirror
