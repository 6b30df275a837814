#include "host/AgentLog.h"

#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>

namespace Host {

namespace {
const char* speaker = "quorind";
}

void agentLogNameIs(const char* name) {
  speaker = name;
}

void agentLog(int priority, const std::string& text) {
  snmp_log(priority, "%s: %s\n", speaker, text.c_str());
}

}  // namespace Host
