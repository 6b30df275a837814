// Decodes routes and next-hop objects.

#include <linux/nexthop.h>

#include "mirror/rtnetlink/RtAttributes.h"

namespace Mirror {

namespace {

// A link without carrier loses packets, even if the kernel still uses the hop.
constexpr unsigned deadFlags = RTNH_F_DEAD | RTNH_F_LINKDOWN;

bool isWanted(const rtmsg& header) {
  if (header.rtm_flags & RTM_F_CLONED) return false;  // from the route cache
  if (header.rtm_src_len != 0) return false;          // for certain senders only
  switch (header.rtm_type) {
    case RTN_UNICAST:
    case RTN_BLACKHOLE:
    case RTN_UNREACHABLE:
    case RTN_PROHIBIT:
      return true;
    default:
      return false;
  }
}

RouteMessage::Action actionOf(const nlmsghdr& message) {
  using Action = RouteMessage::Action;
  if (message.nlmsg_type == RTM_DELROUTE) return Action::gone;
  if (message.nlmsg_flags & NLM_F_REPLACE) return Action::replaced;
  if (message.nlmsg_flags & NLM_F_EXCL) return Action::alone;
  return message.nlmsg_flags & NLM_F_APPEND ? Action::last : Action::first;
}

// RTA_VIA: a family, then a gateway. Unset for a family without IP addresses (MPLS).
Vantu::IpGenAddr viaOf(Payload value) {
  const Vantu::Af af = afOf(readAs<std::uint16_t>(value, "RTA_VIA"));
  return af == Vantu::unknown_ ? Vantu::IpGenAddr() : addressOf(af, value.subspan(sizeof(std::uint16_t)));
}

void readGateway(RouteHop& hop, Vantu::Af af, int type, Payload value) {
  if (type == RTA_GATEWAY) hop.gateway = addressOf(af, value);
  if (type == RTA_VIA) hop.gateway = viaOf(value);
}

std::vector<RouteHop> multipathOf(Vantu::Af af, Payload value) {
  std::vector<RouteHop> hops;
  while (value.size() >= sizeof(rtnexthop)) {
    const auto header = readAs<rtnexthop>(value, "next hop");
    if (header.rtnh_len < sizeof(rtnexthop) || header.rtnh_len > value.size()) {
      throw MalformedMessageException(
          fmt::format("rtnetlink: next hop of {} bytes where {} are left", header.rtnh_len, value.size()));
    }
    RouteHop hop{{}, static_cast<std::uint32_t>(header.rtnh_ifindex), (header.rtnh_flags & deadFlags) != 0};
    forEachAttribute(value.first(header.rtnh_len), sizeof(header),
                     [&](int type, Payload inner) { readGateway(hop, af, type, inner); });
    hops.push_back(hop);
    value = after(value, header.rtnh_len);
  }
  return hops;
}

// The seconds that are left of a route's lifetime; none if it has no end. The kernel sends hundredths of a second.
std::optional<std::uint32_t> secondsLeft(Payload cacheInfo) {
  constexpr int hundredths = 100;
  const auto expires = readAs<rta_cacheinfo>(cacheInfo, "RTA_CACHEINFO").rta_expires;
  if (expires == 0) return std::nullopt;
  return expires < 0 ? 0 : static_cast<std::uint32_t>(expires / hundredths);
}

// A signed number of two bits (RFC 4191, 2.1); the reserved one counts as medium.
std::int32_t preferenceOf(std::uint8_t bits) {
  constexpr std::uint8_t high = 1, low = 3;
  return bits == high ? 1 : bits == low ? -1 : 0;
}

}  // namespace

bool RouteContent::isUnicast() const {
  return type == RTN_UNICAST;
}

RtMessage decodeRoute(const nlmsghdr& message) {
  const Payload payload = payloadOf(message);
  const auto header = readAs<rtmsg>(payload, "route header");
  const Vantu::Af af = afOf(header.rtm_family);
  if (af == Vantu::unknown_ || !isWanted(header)) return {};
  RouteMessage route;
  route.action = actionOf(message);
  route.table = header.rtm_table;
  route.length = header.rtm_dst_len;
  route.tos = header.rtm_tos;
  route.address = af == Vantu::ipv4_ ? Vantu::IpGenAddr(Vantu::IpAddr()) : Vantu::IpGenAddr(Vantu::Ip6Addr());
  if (route.length > (af == Vantu::ipv4_ ? 32U : 128U)) {
    throw MalformedMessageException(fmt::format("rtnetlink: {} prefix length {}", Vantu::afName(af), route.length));
  }
  RouteContent& content = route.content;
  content.af = af;
  content.type = header.rtm_type;
  content.protocol = header.rtm_protocol;
  RouteHop hop;
  hop.isDead = (header.rtm_flags & deadFlags) != 0;
  forEachAttribute(payload, sizeof(header), [&](int type, Payload value) {
    switch (type) {
      case RTA_DST:
        route.address = addressOf(af, value);
        break;
      case RTA_TABLE:
        route.table = readAs<std::uint32_t>(value, "RTA_TABLE");
        break;
      case RTA_PRIORITY:
        route.metric = readAs<std::uint32_t>(value, "RTA_PRIORITY");
        break;
      case RTA_OIF:
        hop.ifIndex = readAs<std::uint32_t>(value, "RTA_OIF");
        break;
      case RTA_PREFSRC:
        if (af == Vantu::ipv4_) content.source = addressOf(af, value);
        break;
      case RTA_MULTIPATH:
        content.hops = multipathOf(af, value);
        break;
      case RTA_CACHEINFO:
        route.expires = secondsLeft(value);
        break;
      case RTA_PREF:
        route.preference = preferenceOf(readAs<std::uint8_t>(value, "RTA_PREF"));
        break;
      case RTA_NH_ID:
        content.nexthopId = readAs<std::uint32_t>(value, "RTA_NH_ID");
        break;
      default:
        readGateway(hop, af, type, value);
    }
  });
  if (content.nexthopId != 0 || !content.isUnicast()) {
    content.hops.clear();  // sent for older programs, depending on a sysctl
  } else if (content.hops.empty()) {
    content.hops.push_back(hop);
  }
  std::sort(content.hops.begin(), content.hops.end());
  return route;
}

RtMessage decodeNexthop(const nlmsghdr& message) {
  const Payload payload = payloadOf(message);
  const auto header = readAs<nhmsg>(payload, "next-hop header");
  const Vantu::Af af = afOf(header.nh_family);
  NexthopMessage nexthop;
  nexthop.isDeleted = message.nlmsg_type == RTM_DELNEXTHOP;
  nexthop.hop.isDead = (header.nh_flags & deadFlags) != 0;
  forEachAttribute(payload, sizeof(header), [&](int type, Payload value) {
    if (type == NHA_ID) nexthop.id = readAs<std::uint32_t>(value, "NHA_ID");
    if (type == NHA_OIF) nexthop.hop.ifIndex = readAs<std::uint32_t>(value, "NHA_OIF");
    if (type == NHA_GATEWAY) nexthop.hop.gateway = addressOf(af, value);
    if (type == NHA_BLACKHOLE) nexthop.isBlackhole = true;
    for (; type == NHA_GROUP && value.size() >= sizeof(nexthop_grp); value = after(value, sizeof(nexthop_grp))) {
      nexthop.members.push_back(readAs<nexthop_grp>(value, "NHA_GROUP").id);
    }
  });
  if (nexthop.id == 0) throw MalformedMessageException("rtnetlink: next-hop object without a number");
  return nexthop;
}

}  // namespace Mirror
