#pragma once
// Registers those MIB modules of net-snmp's own agent that this agent serves: the system group with sysORTable, the
// snmp group, the SNMP engine, message processing, USM and VACM tables. We serve interfaces and IP ourselves.

namespace Host {

// Requires that init_agent was called and the configuration is not read yet.
void initStockMibs();

// The modules of a subagent: the system group and the SNMP engine, which it answers in VRF contexts. In the default
// context the master has its own, so MasterSession keeps ours from it. Removes the modules' rows of sysORTable, which
// the master has, too.
void initSubagentMibs();

// Makes the objects that are registered so far refuse every SET with notWritable, whatever the access rules allow: this
// agent is read-only.
void refuseSets();

}  // namespace Host
