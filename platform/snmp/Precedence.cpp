#include "snmp/Precedence.h"

#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>
// The agent headers need the library's.
#include <net-snmp/agent/net-snmp-agent-includes.h>

namespace Snmp {

namespace {
constexpr int priorityBeforeDefault = 100;
bool isTakingPrecedence = false;
}  // namespace

bool takesPrecedence() {
  return isTakingPrecedence;
}

void takesPrecedenceIs(bool takes) {
  isTakingPrecedence = takes;
}

int registrationPriority() {
  return isTakingPrecedence ? priorityBeforeDefault : DEFAULT_MIB_PRIORITY;
}

}  // namespace Snmp
