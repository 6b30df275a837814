#include "host/composition/AgentLog.h"

#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>

// Exported by the library without a header. Unlike snmp_log(), it does not allocate.
extern "C" void snmp_log_string(int priority, const char* line);

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

void agentLogLine(const char* line) {
  isWriting = true;
  snmp_log_string(LOG_ERR, line);
  isWriting = false;
}

bool isAgentLogWriting() {
  return isWriting;
}

}  // namespace Host
