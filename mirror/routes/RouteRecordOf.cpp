#include "mirror/routes/RouteRecordOf.h"

#include <linux/rtnetlink.h>

#include <array>

namespace Mirror {

namespace {

// Numbers of routing daemons. The kernel only passes them on, so not all of them are in its headers; those from 190 on
// are of FRR (zebra/rt_netlink.h).
constexpr std::uint8_t protocolBgp = 186;
constexpr std::uint8_t protocolIsis = 187;
constexpr std::uint8_t protocolOspf = 188;
constexpr std::uint8_t protocolRip = 189;
constexpr std::uint8_t protocolRipng = 190;
constexpr std::uint8_t protocolNhrp = 191;
constexpr std::uint8_t protocolEigrp = 192;
constexpr std::uint8_t protocolLdp = 193;
constexpr std::uint8_t protocolSharp = 194;
constexpr std::uint8_t protocolPbr = 195;
constexpr std::uint8_t protocolFrrStatic = 196;
constexpr std::uint8_t protocolOpenFabric = 197;  // IS-IS for data centres

struct Origin {
  std::uint8_t protocol;
  std::uint8_t type, type6;
  std::uint8_t preference;
};
constexpr std::array<Origin, 16> origins{{{RTPROT_KERNEL, 11, 7, 0},
                                          {RTPROT_BOOT, 7, 4, staticDistance},
                                          {RTPROT_STATIC, 7, 4, staticDistance},
                                          {RTPROT_BABEL, 33, 17, 100},
                                          {protocolBgp, 22, 9, 20},
                                          {protocolIsis, 24, 13, 115},
                                          {protocolOspf, 15, 10, 110},
                                          {protocolRip, 10, 6, 120},
                                          {protocolRipng, 10, 6, 120},
                                          {protocolNhrp, 33, 17, 10},
                                          {protocolEigrp, 33, 17, 90},
                                          {protocolLdp, 33, 17, 150},
                                          {protocolSharp, 33, 17, 150},
                                          {protocolPbr, 33, 17, 200},
                                          {protocolFrrStatic, 7, 4, staticDistance},
                                          {protocolOpenFabric, 24, 13, 115}}};
constexpr Origin unknownOrigin{0, 33, 17, 250};

const Origin& originOf(const RouteContent& content) {
  for (const Origin& origin : origins) {
    if (origin.protocol == content.protocol) return origin;
  }
  return unknownOrigin;
}

}  // namespace

Routing::Fib::RouteType routeTypeOf(const RouteContent& content) {
  const Origin& origin = originOf(content);
  return Routing::Fib::RouteType(content.af == Vantu::ipv6_ ? origin.type6 : origin.type);
}

Routing::RoutePreference preferenceOf(const RouteContent& content) {
  return Routing::RoutePreference(originOf(content).preference);
}

bool isNotPersistent(const RouteContent& content) {
  return content.protocol == RTPROT_BOOT;
}

bool isNexthopGroup(const RouteContent& content) {
  const bool isStatic = content.protocol == RTPROT_BOOT || content.protocol == RTPROT_STATIC;
  return isStatic && content.nexthopId != 0;
}

}  // namespace Mirror
