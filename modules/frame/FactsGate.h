#pragma once
// Counts the requests (snmp/Facts.h), and answers for the objects that a publisher feeds while what it wrote is not
// served: a GET gets noSuchInstance, and GETNEXT and GETBULK go on behind the registration.
//
// Place: in front of all handlers of a registration. A SET passes, and is refused as ever. Thread: the agent's.

#include "modules/frame/NetSnmp.h"

namespace Modules {

// Puts the gate in front of the registration's handlers. Requires: they are complete. Returns false if net-snmp refuses
// it or memory is short.
bool injectFactsGate(netsnmp_handler_registration* registration, bool isFedByPublisher);

}  // namespace Modules
