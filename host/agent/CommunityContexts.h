#pragma once
// Lets a community of SNMPv1 or SNMPv2c name the context of a VRF. With `quorinContextCommunities @`, a request with
// the community `public@red` reads the context `red` as the security name of `public`. The rights are net-snmp's own:
// com2sec lines give `public` its sources and its security name; group, access and view lines give that name its rights
// in `red`.
//
// Guarantees:
// - A com2sec line for the whole text, `public@red`, has precedence.
// - The base, `public`, needs a com2sec line for the sender's address and the default context (a line without -Cn).
// - Without such a base, or if no such context is entered, net-snmp treats the request as one of an unknown community
//   and drops it. Nothing is logged or kept.
// - The first separator divides the community. A context of more than 32 bytes cannot be named (RFC 3415).
//
// While it exists, it replaces net-snmp's access check, and calls that check for every other request.
// Requires: net-snmp's agent is initialized (init_agent); at most one object exists at a time.

#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>

namespace Host {

class CommunityContexts {
 public:
  CommunityContexts();
  ~CommunityContexts();
  CommunityContexts(const CommunityContexts&) = delete;
  CommunityContexts& operator=(const CommunityContexts&) = delete;
};

}  // namespace Host
