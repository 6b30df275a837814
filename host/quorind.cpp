// The standalone agent.

#include "host/AgentMain.h"

int main(int argc, char* argv[]) {
  return Host::agentMain(argc, argv, Host::AgentHooks{});
}
