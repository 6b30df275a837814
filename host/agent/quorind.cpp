// The agent of its own: alone, or as subagent of a running snmpd.

#include "host/agent/Hosting.h"

int main(int argc, char* argv[]) {
  return Host::agentMain(argc, argv, Host::compositionHooks());
}
