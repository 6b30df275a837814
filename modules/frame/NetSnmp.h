#pragma once
// net-snmp's agent headers, in the order that they require.

#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>
// Requires the two above.
#include <net-snmp/agent/net-snmp-agent-includes.h>
