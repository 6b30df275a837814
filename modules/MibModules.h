#pragma once
// The MIB modules: the objects that each serves, and how it enters and leaves an SNMP context.
//
// | module            | objects                                                    | contexts | source                |
// |-------------------|------------------------------------------------------------|----------|-----------------------|
// | IpBase            | IP-MIB (RFC 4293), 1.3.6.1.2.1.4:                          |          |                       |
// |                   | ipForwarding .1                                            | all      | Routing::Config       |
// |                   | ipv6IpForwarding .25                                       | default  | Routing6::Config      |
// |                   | ipAddrTable .20, ipAddressPrefixTable .32,                 | all      | IpSnmp::IpMib         |
// |                   | ipAddressTable .34                                         |          |                       |
// |                   | ipNetToMediaTable .22, ipNetToPhysicalTable .35            | all      | IpSnmp::IpMib (keys), |
// |                   |                                                            |          | Arp::Table::Status    |
// | ipMIB             | IP-MIB: ipDefaultTTL .2, ipReasmTimeout .13,               | all      | Routing::Config       |
// |                   | ipv6IpDefaultHopLimit .26                                  |          |                       |
// |                   | ipv4InterfaceTableLastChange .27, ipv4InterfaceTable .28,  | all      | IpSnmp::IpMib         |
// |                   | ipv6InterfaceTableLastChange .29, ipv6InterfaceTable .30,  |          |                       |
// |                   | ipIfStatsTableLastChange .31.2, ipIfStatsTable .31.3,      |          |                       |
// |                   | ipDefaultRouterTable .37                                   |          |                       |
// | IpForward         | IP-FORWARD-MIB (RFC 2096), 1.3.6.1.2.1.4.24:               | all      | IpSnmp::IpForwardMib  |
// |                   | ipCidrRouteNumber .3, ipCidrRouteTable .4                  |          |                       |
// | IpSwForwarding    | QUORIN-SW-FWD-IP-MIB: quorinSwFwdIpStatsTable E.3.1.1.1    | all      | Ip::SwFwdStats        |
// | ipSystemStats     | IP-MIB: ipSystemStatsTable .31.1                           | all      | Ip::SwFwdStats        |
// | VrfBase           | QUORIN-VRF-MIB: quorinVrfTable E.3.18.1.1,                 | default  | IpSnmp::IpVrfMib      |
// |                   | quorinVrfIfTable E.3.18.1.2                                |          |                       |
// | ifMIB             | IF-MIB (RFC 2863): ifNumber 1.3.6.1.2.1.2.1, ifTable .2,   | all      | IpSnmp::IfTables      |
// |                   | ifXTable 1.3.6.1.2.1.31.1.1, ifStackTable .2,              |          |                       |
// |                   | ifTableLastChange .5, ifStackLastChange .6;                |          |                       |
// |                   | EtherLike-MIB (RFC 3635): dot3StatsTable 1.3.6.1.2.1.10.7.2 | all     | IpSnmp::IfTables      |
// | quorinFIBStatsMIB | QUORIN-FIB-STATS-MIB: quorinFIBStatsSummaryTable E.3.23.1.1, | all    | FibStatsMib           |
// |                   | quorinFIBStatsByRouteTypeTable E.3.23.1.2,                 |          |                       |
// |                   | quorinFIBStatsByPrefixLenTable E.3.23.1.3                  |          |                       |
// | quorinIpMIB       | QUORIN-IP-MIB: quorinIpIfStatsTable E.3.27.1.1             | default  | IpSnmp::IpMib         |
// | inetCidrRoute     | IP-FORWARD-MIB (RFC 4292), 1.3.6.1.2.1.4.24:               | all      | IpSnmp::IpForwardMib  |
// |                   | inetCidrRouteNumber .6, inetCidrRouteTable .7              |          |                       |
// | quorinAgentMIB    | QUORIN-AGENT-MIB: 18 scalars E.4.1.1 to .18,               | default  | AgentSnmp::AgentMib   |
// |                   | quorinAgentVrfTable E.4.1.19                               |          |                       |
// | mplsL3VpnMIB      | MPLS-L3VPN-STD-MIB (RFC 4382), 1.3.6.1.2.1.10.166.11.1:    | default  | IpSnmp::MplsVpnMib    |
// |                   | scalars .1.1 to .1.3, mplsL3VpnIfConfTable .2.1,           |          |                       |
// |                   | mplsL3VpnVrfTable .2.2, mplsL3VpnVrfPerfTable .3.1         |          |                       |
// | vacmContextTable  | SNMP-VIEW-BASED-ACM-MIB: vacmContextTable,                 | default  | net-snmp's contexts   |
// |                   | 1.3.6.1.6.3.16.1.1 (not in a subagent)                     |          |                       |
//
// E stands for 1.3.6.1.4.1 and the build option QUORIN_ENTERPRISE. The texts of our own MIB modules are in mibs/.
// While the configuration disables a group of objects, modules serve nothing: IpForward, inetCidrRoute and
// quorinFIBStatsMIB with "route-tables", ifMIB with "interface-tables", ipMIB and ipSystemStats with "ip-mib-tables",
// mplsL3VpnMIB with "mpls-l3vpn". Requests read only memory, except those of IpSwForwarding and ipSystemStats:
// Ip::SwFwdStats reads /proc/net when its counters are older than half a second.
//
// init_<module>(context) registers the module's objects in an SNMP context: "" is the default context, any other has
// its VRF's name. If an entity to serve is missing or of another type, it writes a line that names the path to standard
// error and aborts. unregister_<module>(context) removes the objects; no-op for a context that was never entered.

#include "modules/frame/Module.h"

#define MIB_MODULE_FUNCTIONS(Name)                  \
  MIB_EXPORT void init_##Name(Kel::String context); \
  MIB_EXPORT void unregister_##Name(Kel::String context);

MIB_MODULE_FUNCTIONS(IpBase)
MIB_MODULE_FUNCTIONS(IpForward)
MIB_MODULE_FUNCTIONS(IpSwForwarding)
MIB_MODULE_FUNCTIONS(VrfBase)
MIB_MODULE_FUNCTIONS(ifMIB)
MIB_MODULE_FUNCTIONS(mplsL3VpnMIB)
MIB_MODULE_FUNCTIONS(quorinFIBStatsMIB)
MIB_MODULE_FUNCTIONS(quorinAgentMIB)
MIB_MODULE_FUNCTIONS(quorinIpMIB)
MIB_MODULE_FUNCTIONS(ipMIB)
MIB_MODULE_FUNCTIONS(ipSystemStats)
MIB_MODULE_FUNCTIONS(inetCidrRoute)
MIB_MODULE_FUNCTIONS(vacmContextTable)

#undef MIB_MODULE_FUNCTIONS
