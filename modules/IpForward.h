#pragma once
// The module of IP-FORWARD-MIB (RFC 2096): the IPv4 routes of each VRF.
//
// | object            | OID                | source                                    |
// |-------------------|--------------------|-------------------------------------------|
// | ipCidrRouteNumber | 1.3.6.1.2.1.4.24.3 | the VRF's IpSnmp::IpForwardMib, numRoutes |
// | ipCidrRouteTable  | 1.3.6.1.2.1.4.24.4 | its rows, computed when they are asked for |
//
// Both are served in all contexts, unless the configuration disables "route-tables".

#include "modules/frame/IteratorTable.h"

// Enters and leaves an SNMP context: "" is the default one, any other is named for its VRF. Entering aborts, after
// a line on standard error that names the path, when the cache is missing or of another type.
MIB_EXPORT void init_IpForward(Kel::String context);
MIB_EXPORT void unregister_IpForward(Kel::String context);

extern "C" {
int handle_ipCidrRouteNumber(netsnmp_mib_handler* handler, netsnmp_handler_registration* registration,
                             netsnmp_agent_request_info* requestInfo, netsnmp_request_info* requests);
}

ITERATOR_TABLE_FUNCTIONS(ipCidrRouteTable)
