#pragma once
// What MIB modules ask the agent for.

#include "kel/Dir.h"
#include "kel/Entity.h"
#include "kel/Name.h"
#include "kel/Ptr.h"
#include "snmp/Config.h"

namespace SnmpUtil {

// The agent's configuration; never null.
Snmp::Config::PtrConst getSnmpConfig();

// Whether the group of objects is switched off ("route-tables").
bool objectsDisabled(const Snmp::Config::PtrConst& config, const Kel::String& group);

// The entity at a path relative to the agent's root, such as "snmp/ip/vrf.mibs/red.ipmib" (Kel::resolve says how a
// path is read). Null when there is none, or no root.
Kel::Ptr<Kel::Entity> getEntityRelative(const char* path);

// The root of those paths, set by whoever composes the agent. Null takes it away, which lets go of everything
// below.
void rootIs(Kel::Ptr<Kel::Dir> root);

}  // namespace SnmpUtil
