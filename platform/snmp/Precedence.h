#pragma once
// Whose object answers, when the agent has another module for the same one. That is so wherever the library serves
// through a stock snmpd, as plugin or subagent: ours are to take the place of its built-in ones.
//
// net-snmp lets the registration with the longer identifier answer, and of equally long ones that with the lower
// priority number; two of the same number it refuses.

namespace Snmp {

// Set at start, before any context is entered.
bool takesPrecedence();
void takesPrecedenceIs(bool takes);

// The priority of our registrations: net-snmp's default of 127, or one that goes before it.
int registrationPriority();

}  // namespace Snmp
