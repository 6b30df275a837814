#include "agentstate/AgentMib.h"

KEL_TYPE_DEFINE(AgentSnmp::VrfEntry)
KEL_TYPE_DEFINE(AgentSnmp::AgentMib)
