#pragma once
// The module of QUORIN-FIB-STATS-MIB (mibs/QUORIN-FIB-STATS-MIB.txt): how many routes a VRF has, below enterprises.E,
// E being the build option QUORIN_ENTERPRISE.
//
// | object                         | OID                    | source: of the VRF's FibStatsMib |
// |--------------------------------|------------------------|----------------------------------|
// | quorinFIBStatsSummaryTable     | enterprises.E.3.23.1.1 | summaryTable                     |
// | quorinFIBStatsByRouteTypeTable | enterprises.E.3.23.1.2 | routeTypeTable                   |
// | quorinFIBStatsByPrefixLenTable | enterprises.E.3.23.1.3 | prefixLenTable                   |
//
// They are served in all contexts, unless the configuration disables "route-tables".

#include "modules/frame/IteratorTable.h"

// Enters and leaves an SNMP context: "" is the default one, any other is named for its VRF. Entering aborts, after
// a line on standard error that names the path, when the cache is missing or of another type.
MIB_EXPORT void init_quorinFIBStatsMIB(Kel::String context);
MIB_EXPORT void unregister_quorinFIBStatsMIB(Kel::String context);

ITERATOR_TABLE_FUNCTIONS(quorinFIBStatsSummaryTable)
ITERATOR_TABLE_FUNCTIONS(quorinFIBStatsByRouteTypeTable)
ITERATOR_TABLE_FUNCTIONS(quorinFIBStatsByPrefixLenTable)
