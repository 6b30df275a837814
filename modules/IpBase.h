#pragma once
// What the sources of the module IpBase share.

#include "ipsnmp/IpMib.h"
#include "modules/MibModules.h"
#include "modules/frame/IteratorTable.h"

namespace IpBase {

extern Modules::Module module;

// RowStatus of SNMPv2-TC. Our tables are read-only: every row that is there is active.
inline constexpr int rowStatusActive = 1;

// The cache that all its tables are served from. A function, since tables are static objects that ask for it.
inline Modules::EntitySource ipMibSource() {
  return Modules::entitySource<IpSnmp::IpMib>("snmp/ip/ipmib", "snmp/ip/vrf.mibs/%s.ipmib");
}

}  // namespace IpBase
