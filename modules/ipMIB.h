#pragma once
// Declarations that the sources of the module ipMIB share: the objects of IP-MIB (RFC 4293) that a publisher feeds,
// beside those of IpBase.

#include "ipsnmp/IpMib.h"
#include "modules/MibModules.h"
#include "modules/frame/IteratorTable.h"

namespace IpMibObjects {

extern Modules::Module module;

// The group that disables all of them.
inline constexpr const char* group = "ip-mib-tables";

// The source of all its tables. A function, because static objects of other sources call it during initialization.
inline Modules::EntitySource source() {
  return Modules::entitySource<IpSnmp::IpMib>("snmp/ip/ipmib", "snmp/ip/vrf.mibs/%s.ipmib");
}

}  // namespace IpMibObjects
