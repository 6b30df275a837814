#pragma once
// Status entities of the SNMP agent: whether it is ready, and the mode in which the switch keeps its FECs.

#include "kel/Entity.h"
#include "quillo/tables/Fec.h"

namespace Snmp {

class AgentStatus : public Kel::Entity {
  KEL_TYPE_BEGIN("Snmp::AgentStatus", AgentStatus, Kel::Entity)
 public:
  KEL_NAMED(AgentStatus, Kel::Entity)
  // True once the store holds the first complete pass of a publisher.
  KEL_STORED(bool, agentReady, AgentReady, false)
  KEL_TYPE_END_DECLARE
};

class Status : public Kel::Entity {
  KEL_TYPE_BEGIN("Snmp::Status", Status, Kel::Entity)
 public:
  KEL_NAMED(Status, Kel::Entity)
  // Null until the process has created its agent.
  KEL_CHILD(AgentStatus, agentStatus, AgentStatus)
  KEL_TYPE_END_DECLARE
};

}  // namespace Snmp

namespace Quillo::Fib {

// The current FEC mode. The agent has one, a copy of the mode in L3::Config.
class FecModeStatus : public Kel::Entity {
  KEL_TYPE_BEGIN("Quillo::Fib::FecModeStatus", FecModeStatus, Kel::Entity)
 public:
  KEL_NAMED(FecModeStatus, Kel::Entity)
  KEL_STORED(FecMode, fecMode, FecMode, fecModeUnknown)
  KEL_TYPE_END_DECLARE
};

}  // namespace Quillo::Fib
