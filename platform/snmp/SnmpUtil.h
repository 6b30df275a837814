#pragma once
// What the agent provides to MIB modules: its configuration, and entities by path.

#include "kel/Dir.h"
#include "kel/Entity.h"
#include "kel/Name.h"
#include "kel/Ptr.h"
#include "snmp/Config.h"

namespace SnmpUtil {

// The agent's configuration; never null.
Snmp::Config::PtrConst getSnmpConfig();

// Whether the group of objects ("route-tables") is disabled.
bool objectsDisabled(const Snmp::Config::PtrConst& config, const Kel::String& group);

// The entity at a path relative to the agent's root, such as "snmp/ip/vrf.mibs/red.ipmib" (Kel::resolve). Null when
// there is no such entity or the root is unset.
Kel::Ptr<Kel::Entity> getEntityRelative(const char* path);

// Sets the root of those paths. The composition of the agent sets it at start, and to null at the end, which releases
// it.
void rootIs(Kel::Ptr<Kel::Dir> root);

}  // namespace SnmpUtil
