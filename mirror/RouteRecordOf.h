#pragma once
// How the kernel's routes are called in the store.

#include "mirror/RouteMessage.h"
#include "vantu/RouteTypes.h"

namespace Mirror {

// By the route's protocol (docs/mirror.md).
Routing::Fib::RouteType routeTypeOf(const RouteContent& content);
// The administrative distance that routers commonly give the protocol.
inline constexpr std::uint8_t staticDistance = 1;
Routing::RoutePreference preferenceOf(const RouteContent& content);
// Kinds of static routes: nobody but the operator at the prompt made it (RTPROT_BOOT), and its next hops are a next-hop
// object. False of other routes.
bool isNotPersistent(const RouteContent& content);
bool isNexthopGroup(const RouteContent& content);

}  // namespace Mirror
