#pragma once
// Declarations that the sources of the module IpBase share.

#include "ipsnmp/IpMib.h"
#include "modules/MibModules.h"
#include "modules/frame/IteratorTable.h"

namespace IpBase {

extern Modules::Module module;

// active(1) of RowStatus (SNMPv2-TC): every row of a read-only table is active.
inline constexpr int rowStatusActive = 1;

// The source of all its tables. A function, because static objects of other sources call it during initialization.
inline Modules::EntitySource ipMibSource() {
  return Modules::entitySource<IpSnmp::IpMib>("snmp/ip/ipmib", "snmp/ip/vrf.mibs/%s.ipmib");
}

}  // namespace IpBase
