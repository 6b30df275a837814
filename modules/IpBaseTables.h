#pragma once
// What the source files of the module IpBase share.

#include "ipsnmp/IpMib.h"
#include "modules/IpBase.h"

namespace IpBase {

extern Modules::Module module;

// The cache that all its tables are served from. A function, as tables are static objects that ask for it.
inline Modules::EntitySource ipMibSource() {
  return Modules::entitySource<IpSnmp::IpMib>("snmp/ip/ipmib", "snmp/ip/vrf.mibs/%s.ipmib");
}

}  // namespace IpBase
