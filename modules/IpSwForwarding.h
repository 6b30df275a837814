#pragma once
// The module of QUORIN-SW-FWD-IP-MIB (mibs/QUORIN-SW-FWD-IP-MIB.txt): the kernel's IP counters of each
// VRF, one row an IP version. Below enterprises.E, E being the build option QUORIN_ENTERPRISE, in every context.
//
// | object                  | OID                   | source                                   |
// |-------------------------|-----------------------|------------------------------------------|
// | quorinSwFwdIpStatsTable | enterprises.E.3.1.1.1 | ipSwFwdStats of the context's IpSnmp::IpMib |
//
// The only table of which a request reads more than memory: Ip::SwFwdStats reads the kernel's files when its counters
// are older than half a second.

#include "modules/frame/IteratorTable.h"

// Enters and leaves an SNMP context. Entering aborts, after a line on standard error that names the path, when the
// cache is missing or of another type.
MIB_EXPORT void init_IpSwForwarding(Kel::String context);
MIB_EXPORT void unregister_IpSwForwarding(Kel::String context);

ITERATOR_TABLE_FUNCTIONS(quorinSwFwdIpStatsTable)
