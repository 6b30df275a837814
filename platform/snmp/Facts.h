#pragma once
// Whether the agent answers what a publisher wrote. It does not before the first complete pass of a publisher, when
// there is nothing but defaults, nor when the publisher has been away for too long (quorinStaleAfter).
// Thread: the agent's.

#include <cstdint>

namespace Snmp {

// Initially true.
void factsAreServedIs(bool areServed);
bool areFactsServed();

// Requests for objects of this library since the process started: SNMP messages, or AgentX ones of a subagent.
void countRequest();
std::uint64_t requestCount();

}  // namespace Snmp
