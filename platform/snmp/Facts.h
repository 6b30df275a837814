#pragma once
// Whether the agent answers the objects that a publisher feeds, and the number of requests. AgentHealth decides: not
// before the first complete pass of a publisher, and not while the state is older than quorinStaleAfter.
// Thread: the agent's.

#include <cstdint>

namespace Snmp {

// Sets and returns whether these objects are answered; initially true.
void factsAreServedIs(bool areServed);
bool areFactsServed();

// Count and return the messages with requests for objects of this library since the process started: of SNMP, or in a
// subagent of AgentX.
void countRequest();
std::uint64_t requestCount();

}  // namespace Snmp
