#pragma once
// How a registration holds the entity that it serves.
//
// net-snmp frees neither a registration's private pointer nor an iterator record's, but it does free, and clone,
// the private data of handlers. So the registration's own handler (the last one of its chain) carries the counted
// reference: the entity lives until net-snmp lets go of the registration, whatever way that happens, and a request
// that races the removal of a VRF reads the old cache.

#include "kel/Entity.h"
#include "modules/frame/NetSnmp.h"

namespace Modules {

// To be called once for a registration, before it is registered: its handler takes a count, and `my_reg_void`
// points to the entity for reading.
void heldEntityIs(netsnmp_handler_registration* registration, const Kel::Ptr<Kel::Entity>& entity);

// The entity that a handler is to read; null when the registration holds none. `handler` is the registration's own
// one. It is asked second: when somebody registers an object inside ours, net-snmp copies our registration, and
// leaves `my_reg_void` out.
Kel::Entity* heldEntity(const netsnmp_mib_handler* handler, const netsnmp_handler_registration* registration);

}  // namespace Modules
