#pragma once
// The module of QUORIN-IP-MIB (mibs/QUORIN-IP-MIB.txt): IP counters of each interface and IP version. Below
// enterprises.E, E being the build option QUORIN_ENTERPRISE, in the default context only; the interfaces are those
// of all VRFs.
//
// | object              | OID                    | source                                             |
// |---------------------|------------------------|----------------------------------------------------|
// | quorinIpIfStatsTable | enterprises.E.3.27.1.1 | ipIfStatsTable of the default VRF's IpSnmp::IpMib |

#include "modules/frame/IteratorTable.h"

// Enters and leaves an SNMP context; in any but the default one, "", nothing is served. Entering the default one
// aborts, after a line on standard error that names the path, when the cache is missing or of another type.
MIB_EXPORT void init_quorinIpMIB(Kel::String context);
MIB_EXPORT void unregister_quorinIpMIB(Kel::String context);

ITERATOR_TABLE_FUNCTIONS(quorinIpIfStatsTable)
