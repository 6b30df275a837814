#pragma once
// Which modules serve which SNMP context, as the modules themselves report it. The record exists for diagnosis:
// what a manager may ask for is decided by the registrations in net-snmp.

#include <vector>

#include "kel/Name.h"

namespace Snmp {

// Records that a module serves a context. Recording twice is recording once.
void registerMibContext(const Kel::String& context, const Kel::String& moduleName);
// Takes the record back; nothing happens when there is none.
void unregisterMibContext(const Kel::String& context, const Kel::String& moduleName);

// The contexts that some module serves, the default one ("") first.
std::vector<Kel::String> mibContexts();
// The modules that serve the context, in order of name; empty for an unknown one.
std::vector<Kel::String> mibContextModules(const Kel::String& context);

}  // namespace Snmp
