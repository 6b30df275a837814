#pragma once
// How the kernel's routes are called in the store.

#include "mirror/rtnetlink/RouteMessage.h"
#include "vantu/RouteTypes.h"

namespace Mirror {

// By the route's protocol (docs/mirror.md).
Routing::Fib::RouteType routeTypeOf(const RouteContent& content);
// The administrative distance that routers commonly give the protocol.
inline constexpr std::uint8_t staticDistance = 1;
Routing::RoutePreference preferenceOf(const RouteContent& content);
// Kinds of static routes: made at the prompt (RTPROT_BOOT), and made through a next-hop object. False of other routes,
// and the second one of FRR's static routes, too: FRR makes a next-hop object for nearly every route.
bool isNotPersistent(const RouteContent& content);
bool isNexthopGroup(const RouteContent& content);

}  // namespace Mirror
