#pragma once
// Runs the agent process around net-snmp's agent library: command line, configuration, addresses, background, user,
// event loop, reload (SIGHUP), a log of how long the loop was busy (SIGUSR1, Turns.h) and stop (SIGTERM, SIGINT). Hooks
// add what the agent serves beside net-snmp's objects.

#include <functional>

#include "host/agent/AgentLoop.h"
#include "host/agent/AgentOptions.h"

namespace Host {

// Each hook may be empty. An exception from `started` is logged and ends the agent with a non-zero exit status. One
// from another hook is only logged.
struct AgentHooks {
  // Called before the first request, once the configuration is read, the addresses are open, and the process is in the
  // background under its final user. Lifetime: the loop lives until `stopping` has returned.
  std::function<void(AgentLoop&, const AgentOptions&)> started;
  // Called after the configuration was read again.
  std::function<void()> reconfigured;
  // Called after the loop ended or failed, or `started` threw, while net-snmp still works. The hook must leave all
  // contexts.
  std::function<void()> stopping;
};

// Runs the agent until SIGTERM or SIGINT, or prints what -h, -v or -H ask for. Returns the exit status: 0, or 1 after
// an error, which is logged, or printed to standard error while no log is open.
int agentMain(int argc, char* argv[], const AgentHooks& hooks);

}  // namespace Host
