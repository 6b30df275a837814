#pragma once
// The life of the agent process, around net-snmp's agent library: command line, configuration, addresses,
// background, user, event loop, reload (SIGHUP) and stop (SIGTERM, SIGINT). What the agent serves beside net-snmp's
// own objects is plugged in through hooks.

#include <functional>

#include "host/agent/AgentLoop.h"
#include "host/agent/AgentOptions.h"

namespace Host {

// All may be empty. An exception that leaves `started` ends the agent with its text in the log and a non-zero exit
// status; one that leaves another hook is logged.
struct AgentHooks {
  // The configuration is read, the addresses are open, the process is in the background under its final user; no
  // request has been answered yet. The loop lives until `stopping` has returned.
  std::function<void(AgentLoop&, const AgentOptions&)> started;
  // The configuration has been read again.
  std::function<void()> reconfigured;
  // The loop has ended or failed, or `started` threw; net-snmp still works. Leave contexts, let go of everything here.
  std::function<void()> stopping;
};

// Runs the agent until it is told to stop. Returns the exit status of the process.
int agentMain(int argc, char* argv[], const AgentHooks& hooks);

}  // namespace Host
