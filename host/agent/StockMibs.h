#pragma once
// Registers the MIB modules of net-snmp's own agent that this agent serves. They are the system group with sysORTable,
// the snmp group, and the tables of the SNMP engine, message processing, USM and VACM. Those of interfaces and IP are
// replaced by our own modules (modules/MibModules.h).

namespace Host {

// sysServices is 76 unless the configuration sets it. Requires: init_agent was called; the configuration is not read
// yet.
void initStockMibs();

// Registers the modules of a subagent: the system group and the SNMP engine, which it answers in VRF contexts. In the
// default context the master serves its own, and MasterSession does not register ours. Removes the modules' rows of
// sysORTable, since the master has the same. Requires: as initStockMibs().
void initSubagentMibs();

// Makes all objects registered so far refuse every SET with notWritable, whatever the access rules allow: this agent is
// read-only.
void refuseSets();

}  // namespace Host
