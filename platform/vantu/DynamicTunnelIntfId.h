#pragma once
// Which interfaces are dynamic tunnels: those whose own name (IntfId::localName) begins with "DynamicTunnel".

#include "vantu/IntfId.h"

namespace Vantu {

class DynamicTunnelIntfId {
 public:
  static bool isDynamicTunnelIntfId(const IntfId& intfId);
};

}  // namespace Vantu
