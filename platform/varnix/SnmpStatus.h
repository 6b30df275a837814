#pragma once
// The state of the SNMP agent, as those who wait for it see it.

#include "kel/Attribute.h"
#include "kel/Entity.h"

namespace Snmp {

// The agent process.
class AgentStatus : public Kel::Entity {
  KEL_TYPE_BEGIN("Snmp::AgentStatus", AgentStatus, Kel::Entity)
 public:
  KEL_NAMED(AgentStatus, Kel::Entity)
  // Set by the hosting process when the first complete pass of a publisher is in the store.
  KEL_STORED(bool, agentReady, AgentReady, false)
  KEL_TYPE_END_DECLARE
};

class Status : public Kel::Entity {
  KEL_TYPE_BEGIN("Snmp::Status", Status, Kel::Entity)
 public:
  KEL_NAMED(Status, Kel::Entity)
  // Null until the hosting process has its agent.
  KEL_CHILD(AgentStatus, agentStatus, AgentStatus)
  KEL_TYPE_END_DECLARE
};

}  // namespace Snmp
