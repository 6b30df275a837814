#include "host/AgentLog.h"

#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>

namespace Host {

void agentLog(int priority, const std::string& text) {
  snmp_log(priority, "quorind: %s\n", text.c_str());
}

}  // namespace Host
