#pragma once
// For tests: every object that the modules serve, with the texts that its traces contain.

#include <fmt/ranges.h>

#include <algorithm>
#include <array>
#include <sstream>

#include "modules/frame/Module.h"
#include "modules/testing/TestAgent.h"

namespace Modules {

using Words = std::vector<std::string>;

struct MibObject {
  std::string module, facility, name, identifier;
  // "writable": registered for SET too. "default": served in the default context only. "miscounted" and "absent":
  // TableDescription::miscountedHintIsTraced and absentKeyIsTraced. "blackbox": only tests/discovery_test.py tests its
  // rows, against the kernel.
  Words flags;
  Words components;     // of a table's index, each "object=attribute=value" for one row
  std::string key;      // of this row
  std::string index{};  // of this row
  unsigned firstColumn = 0;
  Words columns{};  // their objects, "-" for a number without one; a SET of those with a star is refused by name

  bool is(const char* flag) const { return std::find(flags.begin(), flags.end(), flag) != flags.end(); }
  bool isTable() const { return !components.empty(); }
};

// Per object: module, facility, name, identifier ("E": our enterprise) and flags; and of a table the components, the
// key, and the index with the first column's number and the columns ("~": the table's name without "Table").
inline constexpr const char* mibObjectTexts = R"(
IpBase IpBase ipForwarding 1.3.6.1.2.1.4.1 writable ;
IpBase IpBase ipv6IpForwarding 1.3.6.1.2.1.4.25 writable default ;

IpBase IpBase ipAddrTable 1.3.6.1.2.1.4.20
| ipAdEntAddr=ipAdEntAddr=10.1.2.3 | 10.1.2.3
| 10.1.2.3 1 ipAdEntAddr ipAdEntIfIndex ipAdEntNetMask ipAdEntBcastAddr ipAdEntReasmMaxSize ;

IpBase IpBase ipNetToMediaTable 1.3.6.1.2.1.4.22 miscounted writable
| ~IfIndex=ifIndex=3 ~NetAddress=netAddress=10.0.0.2
| Value('IpSnmp::ArpTableIndex', ** {'ifIndex': 3, 'ipAddr': '10.0.0.2'})
| 3.10.0.0.2 1 *~IfIndex *~PhysAddress *~NetAddress *~Type ;

IpBase IpBase ipAddressPrefixTable 1.3.6.1.2.1.4.32
| ~IfIndex=ifIndex=5 ~Type=version=ipVersion4 ~Prefix=bytes=0x0a010000 ~Length=length=16
| Value('IpSnmp::IpAddressPrefixKey', ** {'ifIndex': 5, 'version': ipVersion4, 'bytes': '0x0a010000', 'length': 16})
| 5.1.4.10.1.0.0.16 5 ~Origin ~OnLinkFlag ~AutonomousFlag ~AdvPreferredLifetime ~AdvValidLifetime ;

IpBase IpBase ipAddressTable 1.3.6.1.2.1.4.34 writable
| ~AddrType=addrVersion=ipVersion4 ~Addr=addrBytes=0x0a010203
| Value('IpSnmp::InetAddress', ** {'version': ipVersion4, 'bytes': '0x0a010203'})
| 1.4.10.1.2.3 3 *~IfIndex *~Type ~Prefix ~Origin *~Status ~Created ~LastChanged *~RowStatus *~StorageType ;

IpBase IpBase ipNetToPhysicalTable 1.3.6.1.2.1.4.35 miscounted writable
| ~IfIndex=ifIndex=3 ~NetAddressType=inetAddressType=ipVersion4 ~NetAddress=inetAddress=0x0a000002
| Value('IpSnmp::IpNetToPhysicalTableIndex', ** {'ifIndex': 3,
'addr': Value('IpSnmp::InetAddress', ** {'version': ipVersion4, 'bytes': '0x0a000002'})})
| 3.1.4.10.0.0.2 4 *~PhysAddress ~LastUpdated *~Type ~State *~RowStatus ;

IpForward IpForward ipCidrRouteNumber 1.3.6.1.2.1.4.24.3 ;

IpForward IpForward ipCidrRouteTable 1.3.6.1.2.1.4.24.4 miscounted writable
| ~Dest=dest=10.0.0.0 ~Mask=mask=255.255.255.0 ~Tos=tos=0 ~NextHop=nextHop=10.1.1.1
| Value('IpSnmp::IpCidrRouteTableIndex', ** {'dest': '10.0.0.0', 'mask': '255.255.255.0', 'tos': 0,
'nextHop': '10.1.1.1'})
| 10.0.0.0.255.255.255.0.0.10.1.1.1 1 ~Dest ~Mask ~Tos ~NextHop *~IfIndex *~Type ~Proto ~Age *~Info *~NextHopAS
*~Metric1 *~Metric2 *~Metric3 *~Metric4 *~Metric5 *~Status ;

IpSwForwarding Snmp quorinSwFwdIpStatsTable E.3.1.1.1
| ~IPVersion=ipVersion=ipVersion4 | ipVersion4
| 1 3 ~InReceives ~HCInReceives ~InOctets ~HCInOctets ~InHdrErrors ~InNoRoutes ~InAddrErrors ~InUnknownProtos
~InTruncatedPkts ~InForwDatagrams ~HCInForwDatagrams ~ReasmReqds ~ReasmOKs ~ReasmFails ~InDiscards ~InDelivers
~HCInDelivers ~OutRequests ~HCOutRequests ~OutNoRoutes ~OutForwDatagrams ~HCOutForwDatagrams ~OutDiscards
~OutFragReqds ~OutFragOKs ~OutFragFails ~OutFragCreates ~OutTransmits ~HCOutTransmits ~OutOctets ~HCOutOctets
~InMcastPkts ~HCInMcastPkts ~InMcastOctets ~HCInMcastOctets ~OutMcastPkts ~HCOutMcastPkts ~OutMcastOctets
~HCOutMcastOctets ~InBcastPkts ~HCInBcastPkts ~OutBcastPkts ~HCOutBcastPkts ~DiscontinuityTime ~RefreshRate ;

ipSystemStats Snmp ipSystemStatsTable 1.3.6.1.2.1.4.31.1
| ~IPVersion=ipVersion=ipVersion4 | ipVersion4
| 1 3 ~InReceives ;

ipMIB Snmp ipDefaultTTL 1.3.6.1.2.1.4.2 ;
ipMIB Snmp ipReasmTimeout 1.3.6.1.2.1.4.13 ;
ipMIB Snmp ipv6IpDefaultHopLimit 1.3.6.1.2.1.4.26 ;
ipMIB Snmp ipv4InterfaceTableLastChange 1.3.6.1.2.1.4.27 ;
ipMIB Snmp ipv6InterfaceTableLastChange 1.3.6.1.2.1.4.29 ;
ipMIB Snmp ipIfStatsTableLastChange 1.3.6.1.2.1.4.31.2 ;

ipMIB Snmp ipv4InterfaceTable 1.3.6.1.2.1.4.28
| ~IfIndex=ifIndex=3 | 3 | 3 2 ~ReasmMaxSize ~EnableStatus ~RetransmitTime ;

ipMIB Snmp ipv6InterfaceTable 1.3.6.1.2.1.4.30
| ~IfIndex=ifIndex=3 | 3
| 3 2 ~ReasmMaxSize ~Identifier - ~EnableStatus ~ReachableTime ~RetransmitTime ~Forwarding ;

ipMIB Snmp ipIfStatsTable 1.3.6.1.2.1.4.31.3
| ~IPVersion=ipVersion=ipVersion6 ~IfIndex=ifIndex=3
| Value('IpSnmp::IpVersionIfIndex', ** {'ipVersion': ipVersion6, 'ifIndex': 3})
| 2.3 3 ~InReceives ~HCInReceives ~InOctets ~HCInOctets ;

ipMIB Snmp ipDefaultRouterTable 1.3.6.1.2.1.4.37
| ~AddressType=version=ipVersion4 ~Address=bytes=0x0a000001 ~IfIndex=ifIndex=3
| Value('IpSnmp::DefaultRouterIndex', ** {'addr':
Value('IpSnmp::InetAddress', ** {'version': ipVersion4, 'bytes': '0x0a000001'}), 'ifIndex': 3})
| 1.4.10.0.0.1.3 4 ~Lifetime ~Preference ;

inetCidrRoute InetCidrRoute inetCidrRouteNumber 1.3.6.1.2.1.4.24.6 ;

inetCidrRoute InetCidrRoute inetCidrRouteTable 1.3.6.1.2.1.4.24.7
| ~DestType=destType=ipVersion4 ~Dest=dest=0x0a000000 ~PfxLen=pfxLen=24 ~Policy=policy='0.0'
~NextHopType=nextHopType=ipVersion4 ~NextHop=nextHop=0x0a010101
| Value('IpSnmp::InetCidrRouteIndex', ** {'dest':
Value('IpSnmp::InetAddress', ** {'version': ipVersion4, 'bytes': '0x0a000000'}), 'length': 24, 'policy': '0.0',
'nextHop': Value('IpSnmp::InetAddress', ** {'version': ipVersion4, 'bytes': '0x0a010101'})})
| 1.4.10.0.0.0.24.2.0.0.1.4.10.1.1.1 7 ~IfIndex ~Type ~Proto ~Age ~NextHopAS ~Metric1 ~Metric2 ~Metric3 ~Metric4
~Metric5 ~Status ;

quorinAgentMIB AgentMib quorinAgentPublisherState E.4.1.1 default ;
quorinAgentMIB AgentMib quorinAgentPublisherName E.4.1.2 default ;
quorinAgentMIB AgentMib quorinAgentPublisherStart E.4.1.3 default ;
quorinAgentMIB AgentMib quorinAgentHeartbeatAge E.4.1.4 default ;
quorinAgentMIB AgentMib quorinAgentCommitAge E.4.1.5 default ;
quorinAgentMIB AgentMib quorinAgentLastPass E.4.1.6 default ;
quorinAgentMIB AgentMib quorinAgentServing E.4.1.7 default ;
quorinAgentMIB AgentMib quorinAgentStale E.4.1.8 default ;
quorinAgentMIB AgentMib quorinAgentStoreSize E.4.1.9 default ;
quorinAgentMIB AgentMib quorinAgentDamage E.4.1.10 default ;
quorinAgentMIB AgentMib quorinAgentVrfs E.4.1.11 default ;
quorinAgentMIB AgentMib quorinAgentContexts E.4.1.12 default ;
quorinAgentMIB AgentMib quorinAgentIpv4Routes E.4.1.13 default ;
quorinAgentMIB AgentMib quorinAgentIpv6Routes E.4.1.14 default ;
quorinAgentMIB AgentMib quorinAgentIpv4Neighbours E.4.1.15 default ;
quorinAgentMIB AgentMib quorinAgentIpv6Neighbours E.4.1.16 default ;
quorinAgentMIB AgentMib quorinAgentRequests E.4.1.17 default ;
quorinAgentMIB AgentMib quorinAgentLongestTurn E.4.1.18 default ;

quorinAgentMIB AgentMib quorinAgentVrfTable E.4.1.19 default
| ~Name=vrfName=red | red
| 3.114.101.100 2 ~Readiness ;

VrfBase VrfBase quorinVrfTable E.3.18.1.1 miscounted default
| ~Name=vrfName=red | red
| 3.114.101.100 2 ~RoutingStatus ~RouteDistinguisher ~State ;

VrfBase VrfBase quorinVrfIfTable E.3.18.1.2 miscounted default
| ifIndex=ifIndex=3 | 3 | 3 1 ~Membership ;

ifMIB IfMib ifNumber 1.3.6.1.2.1.2.1 ;
ifMIB IfMib ifTableLastChange 1.3.6.1.2.1.31.1.5 ;
ifMIB IfMib ifStackLastChange 1.3.6.1.2.1.31.1.6 ;

ifMIB IfMib ifTable 1.3.6.1.2.1.2.2 miscounted
| ifIndex=ifIndex=3 | 3
| 3 1 ifIndex ifDescr ifType ifMtu ifSpeed ifPhysAddress ifAdminStatus ifOperStatus ifLastChange ifInOctets
ifInUcastPkts ifInNUcastPkts ifInDiscards ifInErrors - ifOutOctets ifOutUcastPkts - ifOutDiscards ifOutErrors ;

ifMIB IfMib ifXTable 1.3.6.1.2.1.31.1.1 miscounted
| ifIndex=ifIndex=3 | 3
| 3 1 ifName ifInMulticastPkts - - - ifHCInOctets ifHCInUcastPkts ifHCInMulticastPkts - ifHCOutOctets
ifHCOutUcastPkts - - ifLinkUpDownTrapEnable ifHighSpeed ifPromiscuousMode ifConnectorPresent ifAlias
ifCounterDiscontinuityTime ;

ifMIB IfMib ifStackTable 1.3.6.1.2.1.31.1.2 miscounted
| ifStackHigherLayer=higher=7 ifStackLowerLayer=lower=3 | Value('IpSnmp::IfStackKey', ** {'higher': 7, 'lower': 3})
| 7.3 3 ifStackStatus ;

ifMIB IfMib dot3StatsTable 1.3.6.1.2.1.10.7.2 miscounted
| dot3StatsIndex=ifIndex=3 | 3 | 3 19 dot3StatsDuplexStatus ;

mplsL3VpnMIB MplsL3Vpn mplsL3VpnConfiguredVrfs 1.3.6.1.2.1.10.166.11.1.1.1 default ;
mplsL3VpnMIB MplsL3Vpn mplsL3VpnActiveVrfs 1.3.6.1.2.1.10.166.11.1.1.2 default ;
mplsL3VpnMIB MplsL3Vpn mplsL3VpnConnectedInterfaces 1.3.6.1.2.1.10.166.11.1.1.3 default ;
mplsL3VpnMIB MplsL3Vpn mplsL3VpnIfConfTable 1.3.6.1.2.1.10.166.11.1.2.1 default blackbox
| mplsL3VpnVrfName=vrfName=red ~Index=ifIndex=3 ;
mplsL3VpnMIB MplsL3Vpn mplsL3VpnVrfTable 1.3.6.1.2.1.10.166.11.1.2.2 default blackbox
| mplsL3VpnVrfName=vrfName=red ;
mplsL3VpnMIB MplsL3Vpn mplsL3VpnVrfPerfTable 1.3.6.1.2.1.10.166.11.1.3.1 default blackbox
| mplsL3VpnVrfName=vrfName=red ;

vacmContextTable VacmContext vacmContextTable 1.3.6.1.6.3.16.1.1 default blackbox
| vacmContextName=contextName=red ;

quorinFIBStatsMIB Snmp quorinFIBStatsSummaryTable E.3.23.1.1 miscounted absent
| quorinFIBStatsAF=addressFamily=ipVersion4 | ipVersion4 | 1 2 quorinFIBStatsTotalRoutes ;

quorinFIBStatsMIB Snmp quorinFIBStatsByRouteTypeTable E.3.23.1.2 miscounted absent
| quorinFIBStatsAF=addressFamily=ipVersion4 quorinFIBStatsRouteType=routeType=routeTypeStatic
| Value('FibStatsSnmp::RouteTypeKey', ** {'addressFamily': ipVersion4, 'routeType': routeTypeStatic})
| 1.3 2 quorinFIBStatsTotalRoutesForRouteType ;

quorinFIBStatsMIB Snmp quorinFIBStatsByPrefixLenTable E.3.23.1.3 miscounted absent
| quorinFIBStatsAF=addressFamily=ipVersion4 quorinFIBStatsPrefixLen=prefixLen=24
| Value('FibStatsSnmp::PrefixLenKey', ** {'addressFamily': ipVersion4,
'prefixLen': Value('FibStatsSnmp::IpAddressPrefixLength', ** {'value': 24})})
| 1.24 2 quorinFIBStatsTotalRoutesForPrefixLen ;

quorinIpMIB Snmp quorinIpIfStatsTable E.3.27.1.1 miscounted absent default
| ~IPVersion=ipVersion=ipVersion6 ~IfIndex=ifIndex=3
| Value('IpSnmp::IpVersionIfIndex', ** {'ipVersion': ipVersion6, 'ifIndex': 3})
| 2.3 3 ~InPkts ~InOctets ~OutPkts ~OutOctets ~InUcastPkts ~InUcastOctets ~OutUcastPkts ~OutUcastOctets ~InMcastPkts
~InMcastOctets ~OutMcastPkts ~OutMcastOctets ~DiscontinuityTime ~RefreshRate ;
)";

inline std::vector<MibObject> mibObjects() {
  std::vector<MibObject> objects;
  std::istringstream text(mibObjectTexts);
  std::array<Words, 4> parts;
  std::size_t at = 0;
  for (std::string word; text >> word;) {
    if (word == "|") {
      ++at;
    } else if (word != ";") {
      const auto place = word.find('~');
      if (place != std::string::npos) word.replace(place, 1, parts[0][2], 0, parts[0][2].size() - 5);
      parts.at(at).push_back(word);
    } else {
      auto& [head, components, key, columns] = parts;
      if (head[3].starts_with("E")) head[3].replace(0, 1, textOf(enterpriseObject({})));
      objects.push_back({.module = head[0],
                         .facility = head[1],
                         .name = head[2],
                         .identifier = head[3],
                         .flags = {head.begin() + 4, head.end()},
                         .components = components,
                         .key = fmt::format("{}", fmt::join(key, " "))});
      if (!columns.empty()) {
        objects.back().index = columns[0];
        objects.back().firstColumn = static_cast<unsigned>(std::stoul(columns[1]));
        objects.back().columns = {columns.begin() + 2, columns.end()};
      }
      parts = {};
      at = 0;
    }
  }
  return objects;
}

}  // namespace Modules
