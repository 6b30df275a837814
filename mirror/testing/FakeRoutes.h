#pragma once
// The routes of a kernel that is none: what it keeps and tells, in the terms of rtnetlink.

#include <linux/nexthop.h>

#include <algorithm>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "mirror/rtnetlink/RtChannel.h"
#include "mirror/testing/TestMessages.h"

namespace Mirror::Test {

struct TestHop {
  std::string gateway;  // empty: on-link
  int ifIndex = 2;
  bool isDead = false;
  bool isSame(const TestHop& other) const { return gateway == other.gateway && ifIndex == other.ifIndex; }
  friend auto operator<=>(const TestHop&, const TestHop&) = default;
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

  bool isIpv6() const { return prefix.find(':') != std::string::npos; }
  auto place() const { return std::tie(table, prefix, tos, metric); }
  bool isAlike(const TestRoute& other) const {
    return place() == other.place() && protocol == other.protocol && type == other.type &&
           nexthopId == other.nexthopId &&
           std::equal(hops.begin(), hops.end(), other.hops.begin(), other.hops.end(),
                      [](const TestHop& a, const TestHop& b) { return a.isSame(b); });
  }
};

inline void describeGateway(Bytes& bytes, bool isIpv6, const std::string& gateway) {
  if (gateway.empty()) return;
  const auto address = Vantu::IpGenAddr::fromString(gateway);
  Bytes payload = bytesOf(address);
  const bool isOther = (address.af() == Vantu::ipv6_) != isIpv6;
  if (isOther) payload.insert(payload.begin(), {AF_INET6, 0});
  const Bytes attribute = attributeBytes(isOther ? RTA_VIA : RTA_GATEWAY, payload);
  bytes.insert(bytes.end(), attribute.begin(), attribute.end());
  bytes.resize((bytes.size() + 3) / 4 * 4);
}

inline Message describe(Message message, const TestRoute& route) {
  rtmsg header{};
  const auto slash = route.prefix.find('/');
  header.rtm_family = route.isIpv6() ? AF_INET6 : AF_INET;
  header.rtm_dst_len = static_cast<std::uint8_t>(std::stoul(route.prefix.substr(slash + 1)));
  header.rtm_tos = route.tos;
  header.rtm_table = static_cast<std::uint8_t>(route.table < 256 ? route.table : RT_TABLE_COMPAT);
  header.rtm_protocol = route.protocol;
  header.rtm_type = route.type;
  const bool isSingle = route.hops.size() == 1;
  if (isSingle && route.hops[0].isDead) header.rtm_flags = RTNH_F_DEAD | RTNH_F_LINKDOWN;
  message.fixed(header).attribute(RTA_TABLE, bytesOf(route.table));
  if (header.rtm_dst_len > 0) {
    message.attribute(RTA_DST, bytesOf(Vantu::IpGenAddr::fromString(route.prefix.substr(0, slash))));
  }
  if (route.metric != 0) message.attribute(RTA_PRIORITY, bytesOf(route.metric));
  if (route.nexthopId != 0) message.attribute(RTA_NH_ID, bytesOf(route.nexthopId));
  if (isSingle) {
    message.attribute(RTA_OIF, bytesOf(route.hops[0].ifIndex));
    Bytes gateway;
    describeGateway(gateway, route.isIpv6(), route.hops[0].gateway);
    if (!gateway.empty()) message.attributes(gateway);
  } else if (!route.hops.empty()) {
    Bytes all;
    for (const auto& hop : route.hops) {
      Bytes inner;
      describeGateway(inner, route.isIpv6(), hop.gateway);
      rtnexthop next{};
      next.rtnh_len = static_cast<unsigned short>(sizeof(next) + inner.size());
      next.rtnh_flags = hop.isDead ? RTNH_F_DEAD : 0;
      next.rtnh_ifindex = hop.ifIndex;
      const Bytes fixed = bytesOf(next);
      all.insert(all.end(), fixed.begin(), fixed.end());
      all.insert(all.end(), inner.begin(), inner.end());
    }
    message.attribute(RTA_MULTIPATH, all);
  }
  return message;
}

struct TestNexthop {
  std::uint32_t id = 1;
  TestHop hop = {};
  std::vector<std::uint32_t> members = {};
};

inline Message describe(Message message, const TestNexthop& nexthop) {
  nhmsg header{};
  header.nh_family = nexthop.hop.gateway.find(':') == std::string::npos ? AF_INET : AF_INET6;
  message.fixed(header).attribute(NHA_ID, bytesOf(nexthop.id));
  if (nexthop.members.empty()) {
    message.attribute(NHA_OIF, bytesOf(nexthop.hop.ifIndex));
    message.attribute(NHA_GATEWAY, bytesOf(Vantu::IpGenAddr::fromString(nexthop.hop.gateway)));
    return message;
  }
  Bytes group;
  for (const auto member : nexthop.members) {
    const Bytes entry = bytesOf(nexthop_grp{member, 0, 0, 0});
    group.insert(group.end(), entry.begin(), entry.end());
  }
  return message.attribute(NHA_GROUP, group);
}

class FakeRoutes {
 public:
  using Tell = std::function<void(const Message&)>;
  explicit FakeRoutes(Tell tell) : tell_(std::move(tell)) {}

  std::vector<TestRoute> list;  // of one place in the kernel's order
  std::map<std::uint32_t, TestNexthop> nexthops;

  // `flags` is what a request has beside NLM_F_CREATE: NLM_F_EXCL (add), NLM_F_APPEND, NLM_F_REPLACE or nothing (prepend).
  void routeIs(const TestRoute& route, std::uint16_t flags = NLM_F_EXCL) {
    const auto isThere = [&](const TestRoute& other) { return other.place() == route.place(); };
    auto at = std::find_if(list.begin(), list.end(), isThere);
    const bool isAlone = at == list.end();
    if (!isAlone && (flags & NLM_F_EXCL)) return;
    if (std::any_of(list.begin(), list.end(), [&](const TestRoute& other) { return other.isAlike(route); })) return;
    const std::uint16_t told = isAlone ? NLM_F_EXCL : flags;
    if (!isAlone && (flags & NLM_F_REPLACE)) {
      *replacedBy(route, at) = route;
      tell_(describe(Message(RTM_NEWROUTE, NLM_F_REPLACE), route));
      return;
    }
    if (route.isIpv6() && isMultipath(route)) {
      const auto sibling = std::find_if(
          at, list.end(), [&](const TestRoute& other) { return isThere(other) && isMultipath(other); });
      if (sibling != list.end()) {
        for (const auto& hop : route.hops) {
          if (std::none_of(sibling->hops.begin(), sibling->hops.end(),
                           [&](const auto& o) { return o.isSame(hop); })) {
            sibling->hops.push_back(hop);
          }
        }
        tell_(describe(Message(RTM_NEWROUTE, NLM_F_CREATE | told), *sibling));
        return;
      }
    }
    if (route.isIpv6() || (flags & NLM_F_APPEND)) {
      while (at != list.end() && isThere(*at)) ++at;
    }
    list.insert(at, route);
    tell_(describe(Message(RTM_NEWROUTE, NLM_F_CREATE | told), route));
  }
  void routeDel(std::size_t index) {
    const TestRoute gone = list[index];
    list.erase(list.begin() + static_cast<std::ptrdiff_t>(index));
    tell_(describe(Message(RTM_DELROUTE), gone));
  }
  // One of the hops of an IPv6 multipath route.
  void hopDel(std::size_t index) {
    TestRoute gone = list[index];
    list[index].hops.pop_back();
    gone.hops.erase(gone.hops.begin(), std::prev(gone.hops.end()));
    tell_(describe(Message(RTM_DELROUTE), gone));
  }
  void nexthopIs(const TestNexthop& nexthop) {
    nexthops[nexthop.id] = nexthop;
    tell_(describe(Message(RTM_NEWNEXTHOP, NLM_F_CREATE | NLM_F_REPLACE), nexthop));
  }
  // With the routes that refer to it, of which the kernel says nothing.
  void nexthopDel(std::uint32_t id) {
    const TestNexthop gone = nexthops.at(id);
    tell_(describe(Message(RTM_DELNEXTHOP), gone));
    withoutNexthop(id, true);
  }
  // Without a word.
  void linkDown(int ifIndex) {
    std::vector<std::uint32_t> gone;
    for (const auto& [id, nexthop] : nexthops) {
      if (nexthop.members.empty() && nexthop.hop.ifIndex == ifIndex) gone.push_back(id);
    }
    for (const auto id : gone) withoutNexthop(id, false);
    std::erase_if(list, [&](TestRoute& route) {
      for (auto& hop : route.hops) hop.isDead |= hop.ifIndex == ifIndex;
      return !route.hops.empty() &&
             std::all_of(route.hops.begin(), route.hops.end(), [](const TestHop& hop) { return hop.isDead; });
    });
  }
  void linkUp(int ifIndex) {
    for (auto& route : list) {
      for (auto& hop : route.hops) hop.isDead &= hop.ifIndex != ifIndex;
    }
  }

  std::vector<Bytes> objects(RtDump what, std::uint32_t table,
                             const std::function<Message(std::uint16_t)>& reply) const {
    std::vector<Bytes> all;
    if (what == RtDump::nexthops) {
      for (const auto& [id, nexthop] : nexthops) all.push_back(describe(reply(RTM_NEWNEXTHOP), nexthop).bytes());
      return all;
    }
    for (const auto& route : list) {
      if (route.table != table || route.isIpv6() != (what == RtDump::ipv6Routes)) continue;
      all.push_back(describe(reply(RTM_NEWROUTE), route).bytes());
    }
    return all;
  }

 private:
  static bool isMultipath(const TestRoute& route) {
    return route.nexthopId == 0 && !route.hops.empty() && !route.hops[0].gateway.empty();
  }
  std::vector<TestRoute>::iterator replacedBy(const TestRoute& route, std::vector<TestRoute>::iterator first) {
    if (!route.isIpv6()) return first;
    for (auto at = first; at != list.end() && at->place() == route.place(); ++at) {
      if (isMultipath(*at) == isMultipath(route)) return at;
    }
    return first;
  }
  void withoutNexthop(std::uint32_t id, bool isTold) {
    nexthops.erase(id);
    std::erase_if(list, [&](const TestRoute& route) { return route.nexthopId == id; });
    std::set<std::uint32_t> empty;
    for (auto& [other, group] : nexthops) {
      if (std::erase(group.members, id) == 0) continue;
      if (group.members.empty()) {
        empty.insert(other);
      } else if (isTold) {
        tell_(describe(Message(RTM_NEWNEXTHOP), group));
      }
    }
    for (const auto other : empty) {
      if (isTold) tell_(describe(Message(RTM_DELNEXTHOP), TestNexthop{other, {"10.0.0.1"}}));
      nexthops.erase(other);
      std::erase_if(list, [&](const TestRoute& route) { return route.nexthopId == other; });
    }
  }

  Tell tell_;
};

}  // namespace Mirror::Test
