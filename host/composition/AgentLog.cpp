#include "host/composition/AgentLog.h"

#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>

namespace Host {

namespace {
const char* speaker = "quorind";
bool isWriting = false;
}  // namespace

void setAgentLogName(const char* name) {
  speaker = name;
}

void agentLog(int priority, const std::string& text) {
  isWriting = true;
  snmp_log(priority, "%s: %s\n", speaker, text.c_str());
  isWriting = false;
}

bool isAgentLogWriting() {
  return isWriting;
}

}  // namespace Host
