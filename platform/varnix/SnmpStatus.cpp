#include "varnix/SnmpStatus.h"

KEL_TYPE_DEFINE(Snmp::AgentStatus)
KEL_TYPE_DEFINE(Snmp::Status)
