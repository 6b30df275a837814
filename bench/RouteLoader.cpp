#include "RouteLoader.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <libmnl/libmnl.h>
#include <linux/rtnetlink.h>
#include <net/if.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace Bench {
namespace {

constexpr std::size_t largestMessage = 512;
constexpr std::size_t batchBytes = std::size_t{32} << 10U;

std::runtime_error failure(const std::string& what) {
  return std::runtime_error(fmt::format("{}: {}", what, std::strerror(errno)));
}

void putAddress(nlmsghdr* header, std::uint16_t type, std::uint32_t ipv4, const Address6& ipv6, bool isIpv6) {
  if (isIpv6) {
    mnl_attr_put(header, type, ipv6.size(), ipv6.data());
  } else {
    mnl_attr_put_u32(header, type, htonl(ipv4));
  }
}

void putNextHops(nlmsghdr* header, const std::vector<NextHop>& hops, const std::vector<std::uint32_t>& ifIndex,
                 bool isIpv6) {
  const auto putGateway = [&](std::uint32_t gateway) {
    putAddress(header, RTA_GATEWAY, gateway, gateway6(gateway), isIpv6);
  };
  if (hops.size() == 1) {
    putGateway(hops[0].gateway);
    mnl_attr_put_u32(header, RTA_OIF, ifIndex[hops[0].interface]);
    return;
  }
  nlattr* all = mnl_attr_nest_start(header, RTA_MULTIPATH);
  for (const auto& hop : hops) {
    auto* next = static_cast<rtnexthop*>(mnl_nlmsg_get_payload_tail(header));
    header->nlmsg_len += sizeof *next;
    *next = {};
    next->rtnh_ifindex = static_cast<int>(ifIndex[hop.interface]);
    putGateway(hop.gateway);
    const auto* tail = static_cast<const char*>(mnl_nlmsg_get_payload_tail(header));
    next->rtnh_len = static_cast<unsigned short>(tail - reinterpret_cast<const char*>(next));
  }
  mnl_attr_nest_end(header, all);
}

nlmsghdr* putRoute(char* buffer, bool isThere, const Route& route, bool isIpv6) {
  nlmsghdr* header = mnl_nlmsg_put_header(buffer);
  header->nlmsg_type = isThere ? RTM_NEWROUTE : RTM_DELROUTE;
  header->nlmsg_flags = static_cast<std::uint16_t>(NLM_F_REQUEST | (isThere ? NLM_F_CREATE | NLM_F_EXCL : 0));
  auto* message = static_cast<rtmsg*>(mnl_nlmsg_put_extra_header(header, sizeof(rtmsg)));
  message->rtm_family = isIpv6 ? AF_INET6 : AF_INET;
  message->rtm_dst_len = static_cast<unsigned char>(isIpv6 ? length6(route.length) : route.length);
  message->rtm_table = RT_TABLE_MAIN;
  // Not one of FRR's protocols: zebra adopts such routes as its own from an earlier run.
  message->rtm_protocol = RTPROT_STATIC;
  message->rtm_scope = RT_SCOPE_UNIVERSE;
  message->rtm_type = RTN_UNICAST;
  putAddress(header, RTA_DST, route.prefix, prefix6(route.prefix), isIpv6);
  return header;
}

}  // namespace

RouteLoader::RouteLoader(const RouteSet& set, bool isIpv6)
    : set_(set), isIpv6_(isIpv6), socket_(mnl_socket_open(NETLINK_ROUTE)) {
  if (!socket_ || mnl_socket_bind(socket_, 0, MNL_SOCKET_AUTOPID) < 0) throw failure("cannot open rtnetlink");
  for (const auto& interface : RouteSet::interfaces()) {
    ifIndex_.push_back(if_nametoindex(interface.name.c_str()));
    if (ifIndex_.back() == 0) throw failure("interface " + interface.name);
  }
}

RouteLoader::~RouteLoader() {
  if (socket_) mnl_socket_close(socket_);
}

void RouteLoader::add(const std::vector<Route>& routes) {
  change(true, routes);
}

void RouteLoader::change(bool isThere, const std::vector<Route>& routes) {
  std::vector<char> batch;
  std::size_t done = 0;
  while (done < routes.size()) {
    const std::uint32_t first = sequence_ + 1;
    nlmsghdr* last = nullptr;
    std::size_t used = 0;
    batch.assign(batchBytes, 0);
    for (; done < routes.size() && used + largestMessage <= batchBytes; ++done) {
      last = putRoute(batch.data() + used, isThere, routes[done], isIpv6_);
      putNextHops(last, set_.nextHops(routes[done]), ifIndex_, isIpv6_);
      last->nlmsg_seq = ++sequence_;
      used = static_cast<std::size_t>(static_cast<const char*>(mnl_nlmsg_get_payload_tail(last)) - batch.data());
    }
    last->nlmsg_flags |= NLM_F_ACK;
    batch.resize(used);
    send(batch, first, sequence_);
  }
}

// The kernel answers each refused message, and the last one of the batch.
void RouteLoader::send(std::vector<char>& batch, std::uint32_t firstSequence, std::uint32_t lastSequence) {
  if (mnl_socket_sendto(socket_, batch.data(), batch.size()) < 0) throw failure("cannot send routes");
  std::array<char, 8192> answer{};
  for (bool isDone = false; !isDone;) {
    const auto received = mnl_socket_recvfrom(socket_, answer.data(), answer.size());
    if (received < 0) throw failure("no answer from rtnetlink");
    int left = static_cast<int>(received);
    for (const auto* header = reinterpret_cast<const nlmsghdr*>(answer.data()); mnl_nlmsg_ok(header, left);
         header = mnl_nlmsg_next(header, &left)) {
      const auto* error = static_cast<const nlmsgerr*>(mnl_nlmsg_get_payload(header));
      if (header->nlmsg_type == NLMSG_ERROR && error->error != 0) {
        errno = -error->error;
        throw failure(fmt::format("the kernel refused route {} of a batch of {}",
                                  header->nlmsg_seq - firstSequence + 1, lastSequence - firstSequence + 1));
      }
      isDone = isDone || header->nlmsg_seq == lastSequence;
    }
  }
}

}  // namespace Bench
