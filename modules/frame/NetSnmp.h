#pragma once
// net-snmp's agent interface. Its headers need each other in this order.

#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>
// Behind the two above.
#include <net-snmp/agent/net-snmp-agent-includes.h>
