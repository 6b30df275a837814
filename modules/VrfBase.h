#pragma once
// The module of QUORIN-VRF-MIB (mibs/QUORIN-VRF-MIB.txt): the VRFs, and the interfaces that belong to one. Below
// enterprises.E, E being the build option QUORIN_ENTERPRISE, and in the default context only.
//
// | object           | OID                 | source                                              |
// |------------------|---------------------|-----------------------------------------------------|
// | quorinVrfTable   | enterprises.E.3.18.1.1 | the vrfTable of the one IpSnmp::IpVrfMib         |
// | quorinVrfIfTable | enterprises.E.3.18.1.2 | its vrfIfTable                                   |

#include "modules/frame/IteratorTable.h"

// Enters and leaves an SNMP context; in any but the default one, "", nothing is served. Entering the default one
// aborts, after a line on standard error that names the path, when the cache is missing or of another type.
MIB_EXPORT void init_VrfBase(Kel::String context);
MIB_EXPORT void unregister_VrfBase(Kel::String context);

ITERATOR_TABLE_FUNCTIONS(quorinVrfTable)
ITERATOR_TABLE_FUNCTIONS(quorinVrfIfTable)
