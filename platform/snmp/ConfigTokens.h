#pragma once
// Our settings, as tokens of the agent's configuration file:
//
//   quorinDisableObjects GROUP...              object groups not to serve (Snmp::Config::objectGroups); takes
//                                              effect when a context is entered
//   quorinStore DIR                            the directory of the store, an absolute path
//   quorinNetnsDir DIR                         the directory of the network namespaces of VRFs, an absolute path
//   quorinKernelIpHeader strict | any          whether a longer header of the kernel's IPv4 statistics is taken
//   quorinManagementInterfaces INTERFACE...    interfaces whose neighbours are no routes for the FIB statistics:
//                                              "red/eth0", or "eth0" for those of all VRFs
//   quorinRouteCountInterval SECONDS           time between two counts of a VRF's routes (ipCidrRouteNumber)
//   quorinTrace FACILITY/LEVELS[;...]          trace levels, such as IpBase/0-2,8;Vrf*/0,7
//   quorinTraceOutput stderr | syslog | FILE   where trace lines go; FILE is an absolute path
//
// A token may stand more than once; the lines of quorinDisableObjects, quorinManagementInterfaces and quorinTrace
// add up, of the others the last one counts. A wrong value gives one line in the agent's log that names file, line and
// fault, and is left out; the rest is in effect. When the configuration is read again, all settings go back to their
// defaults first.

#include "kel/Name.h"
#include "kel/Trace.h"
#include "snmp/Config.h"

namespace Snmp {

// Makes the tokens known to net-snmp for the application type that it was initialized with; to be called after
// init_agent and before the configuration is read, or at least its lines with our tokens. All settings are at their
// defaults then.
void registerConfigTokens();
// Takes them back. The settings stay as they are.
void unregisterConfigTokens();

// Where trace lines go when no quorinTraceOutput says otherwise: standard error unless set. In effect from the next
// reading of the configuration on. `target` is the identity in syslog or the path of the file.
void defaultTraceOutputIs(Kel::TraceConfig::Output output, const Kel::String& target);

// The same for an agent whose log is reached through a function.
void defaultTraceSinkIs(Kel::TraceConfig::Sink sink);

// The configuration as it was read last; never null. Before the first reading: the defaults.
Config::PtrConst currentConfig();

}  // namespace Snmp
