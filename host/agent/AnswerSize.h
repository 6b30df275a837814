#pragma once
// Receives SNMP messages as net-snmp's netsnmp_register_agent_nsap() does, and limits the length of the answers.
//
//   if (!receiveMessages(*transport)) ... errno ...
//
// Guarantees:
// - The answer to a GETBULK has as many variables as fit the length that the client takes (msgMaxSize) or the transport
//   carries: those of GETNEXTs, from the first one on.
// - An answer that cannot be shortened, or of which no variable fits, is tooBig without variables (RFC 3416, 4.2.1).
//
// net-snmp 5.9 itself encodes the same answer again and again, forever, if it is one of SNMPv3 (docs/decisions/0041).

struct netsnmp_transport_s;

namespace Host {

// Opens the transport unless it is open, and answers what arrives there until net-snmp closes its sessions. Returns
// false if that fails; the transport is gone then.
bool receiveMessages(netsnmp_transport_s& transport);

}  // namespace Host
