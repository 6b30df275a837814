#pragma once
// What an operator states of VRFs that the kernel cannot tell.

#include <map>
#include <string>

#include "vantu/RouteDistinguisher.h"
#include "varnix/Values.h"

namespace Mirror {

struct VrfSettings {
  Vantu::RouteDistinguisher routeDistinguisher;
  std::map<Routing::StaticRouteKey, Routing::StaticRouteFacts> staticRoutes;
  std::map<Routing6::StaticRouteKey, Routing::StaticRouteFacts> staticRoutes6;
  friend bool operator==(const VrfSettings&, const VrfSettings&) = default;
};

using AllVrfSettings = std::map<L3::VrfName, VrfSettings>;

// From the text of a configuration file (YAML); docs/mirror.md describes it. Throws Kel::Exception of one line:
// "FILE:LINE: KEY: what is wrong; what to do".
AllVrfSettings vrfSettingsFromText(const std::string& text, const std::string& file);

}  // namespace Mirror
