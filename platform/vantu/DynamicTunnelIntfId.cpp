#include "vantu/DynamicTunnelIntfId.h"

namespace Vantu {

bool DynamicTunnelIntfId::isDynamicTunnelIntfId(const IntfId& intfId) {
  return intfId.localName().starts_with("DynamicTunnel");
}

}  // namespace Vantu
