#pragma once
// What the SNMP agent says of itself: whether it is ready, and how the switch keeps its FECs.

#include "kel/Attribute.h"
#include "kel/Entity.h"
#include "quillo/tables/Fec.h"

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

namespace Quillo::Fib {

// How the switch keeps its forwarding equivalence classes now. The agent has one, which follows L3::Config.
class FecModeStatus : public Kel::Entity {
  KEL_TYPE_BEGIN("Quillo::Fib::FecModeStatus", FecModeStatus, Kel::Entity)
 public:
  KEL_NAMED(FecModeStatus, Kel::Entity)
  KEL_STORED(FecMode, fecMode, FecMode, fecModeUnknown)
  KEL_TYPE_END_DECLARE
};

}  // namespace Quillo::Fib
