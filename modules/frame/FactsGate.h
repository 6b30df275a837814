#pragma once
// A handler in front of all other handlers of a registration. It counts requests (Snmp::countRequest), and while
// Snmp::areFactsServed() is false it hides the objects that a publisher feeds: a GET is answered with noSuchInstance;
// GETNEXT and GETBULK continue after the registration. A SET passes to the next handlers, which refuse it.
// Thread: the agent's.

#include "modules/frame/NetSnmp.h"

namespace Modules {

// Puts the gate in front of the registration's handlers, which must be complete. Without `isFedByPublisher` it only
// counts. Returns false if net-snmp refuses it or memory is short.
bool injectFactsGate(netsnmp_handler_registration* registration, bool isFedByPublisher);

}  // namespace Modules
