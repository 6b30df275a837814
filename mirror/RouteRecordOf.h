#pragma once
// How the kernel's routes are called in the store.

#include "mirror/RouteMessage.h"
#include "vantu/RouteTypes.h"

namespace Mirror {

// By the route's protocol (docs/mirror.md).
Routing::Fib::RouteType routeTypeOf(const RouteContent& content);
// The administrative distance that routers commonly give the protocol.
Routing::RoutePreference preferenceOf(const RouteContent& content);

}  // namespace Mirror
