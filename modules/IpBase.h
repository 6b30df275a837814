#pragma once
// The module of IP-MIB (RFC 4293): the forwarding flags, and the tables of addresses and neighbours.
//
// | object               | OID              | contexts     | source                                         |
// |----------------------|------------------|--------------|------------------------------------------------|
// | ipForwarding         | 1.3.6.1.2.1.4.1  | all          | the VRF's Routing::Config                      |
// | ipv6IpForwarding     | 1.3.6.1.2.1.4.25 | default only | Routing6::Config                               |
// | ipAddrTable          | 1.3.6.1.2.1.4.20 | all          | collections of the VRF's IpSnmp::IpMib          |
// | ipNetToMediaTable    | 1.3.6.1.2.1.4.22 | all          | (of the neighbours only the keys; what is known |
// | ipAddressPrefixTable | 1.3.6.1.2.1.4.32 | all          | of them is read from the shared table)          |
// | ipAddressTable       | 1.3.6.1.2.1.4.34 | all          |                                                |
// | ipNetToPhysicalTable | 1.3.6.1.2.1.4.35 | all          |                                                |

#include "modules/frame/IteratorTable.h"

// Enters and leaves an SNMP context: "" is the default one, any other is named for its VRF. Entering aborts, after
// a line on standard error that names the path, when something that is to be served is missing or of another type.
MIB_EXPORT void init_IpBase(Kel::String context);
MIB_EXPORT void unregister_IpBase(Kel::String context);

extern "C" {
int handle_ipForwarding(netsnmp_mib_handler* handler, netsnmp_handler_registration* registration,
                        netsnmp_agent_request_info* requestInfo, netsnmp_request_info* requests);
int handle_ipv6IpForwarding(netsnmp_mib_handler* handler, netsnmp_handler_registration* registration,
                            netsnmp_agent_request_info* requestInfo, netsnmp_request_info* requests);
}

ITERATOR_TABLE_FUNCTIONS(ipAddrTable)
ITERATOR_TABLE_FUNCTIONS(ipNetToMediaTable)
ITERATOR_TABLE_FUNCTIONS(ipAddressPrefixTable)
ITERATOR_TABLE_FUNCTIONS(ipAddressTable)
ITERATOR_TABLE_FUNCTIONS(ipNetToPhysicalTable)
