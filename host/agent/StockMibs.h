#pragma once
// The MIB modules of net-snmp's own agent that this agent serves, and no others: the system group with sysORTable,
// the snmp group, the SNMP engine, message processing, USM and VACM tables. The stock modules for interfaces and IP
// stay out: these objects are ours.

namespace Host {

// Registers them; to be called after init_agent and before the configuration is read.
void initStockMibs();

// Those that a subagent needs: the system group and the SNMP engine, which it answers in VRF contexts. In the
// default context they are the master's and must be kept from it (host/MasterSession.h). What the modules say of
// themselves in sysORTable is taken back: the master says it already.
void initSubagentMibs();

// From now on a SET of any object registered so far is refused with notWritable, whatever the access rules allow:
// this agent is read-only. Objects registered later look after themselves.
void refuseSets();

}  // namespace Host
