#pragma once
// The addresses that the agent listens on.

#include <string>
#include <vector>

namespace Host {

// Where the agent listens when nobody says otherwise: not reachable from other machines.
inline constexpr const char* defaultEndpoint = "udp:127.0.0.1:161";

// The addresses to listen on: those of the command line and of agentAddress directives, which net-snmp collects, or
// the default one. Empty when one of them is "none", which asks for no address at all.
std::vector<std::string> configuredEndpoints();

// Opens them all for requests. Throws Kel::Exception, naming the address, the reason and what to do, when one
// cannot be opened.
void listenOn(const std::vector<std::string>& endpoints);

}  // namespace Host
