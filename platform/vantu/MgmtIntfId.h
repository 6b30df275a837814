#pragma once
// Which interfaces are management interfaces: those whose own name (IntfId::localName) begins with "Management",
// and those named in the configuration.

#include <set>

#include "vantu/IntfId.h"

namespace Vantu {

class MgmtIntfId {
 public:
  static bool isMgmtIntfId(const IntfId& intfId);

  // The configured ids, for the whole process; empty at start. A member names an interface by its whole id
  // ("red/eth0": that one) or by its own name ("eth0": in every VRF).
  static const std::set<IntfId>& configured();
  static void configuredIs(std::set<IntfId> intfIds);
};

}  // namespace Vantu
