#include "host/agent/AgentMain.h"

#include <absl/cleanup/cleanup.h>
#include <fmt/format.h>
#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>
// The agent headers need the library's.
#include <net-snmp/agent/net-snmp-agent-includes.h>
#include <signal.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <optional>

#include "host/agent/NetSnmpAgent.h"
#include "host/agent/Process.h"
#include "host/composition/AgentLog.h"
#include "process/ProcessLimits.h"
#include "process/ServiceManager.h"

namespace Host {

namespace {

// Runs a hook whose failure must not end the agent.
template <class Hook>
void guarded(const char* what, const Hook& hook) {
  try {
    hook();
  } catch (const std::exception& error) {
    logError("{}: {}", what, error.what());
  }
}

void reload(NetSnmpAgent& agent, const AgentHooks& hooks) {
  bool isRead = false;
  guarded("the configuration is not read again, the one in effect stays", [&] {
    agent.readConfigurationAgain();
    logInfo("the configuration has been read again");
    isRead = true;
  });
  if (isRead && hooks.reconfigured) {
    guarded("the configuration is not in effect; mend what is wrong and send SIGHUP again", hooks.reconfigured);
  }
}

void handleSignals(SignalFd& signals, AgentLoop& loop, NetSnmpAgent& agent, const AgentHooks& hooks) {
  while (const auto signal = signals.next()) {
    if (*signal == SIGHUP) {
      reload(agent, hooks);
    } else if (*signal == SIGUSR1) {
      for (const auto kind : Turns::kinds) logInfo("turns of {}", loop.turns().text(kind));
    } else {
      loop.stop();
    }
  }
}

// net-snmp's alarms run in the event loop, so a loop that hangs stops reporting.
void reportToServiceManager(const std::string& status) {
  using namespace Process;
  if (ServiceManager::watches()) {
    snmp_alarm_register(
        1, SA_REPEAT, [](unsigned, void*) { ServiceManager::notifyAlive(); }, nullptr);
  }
  ServiceManager::notifyReady(status);
}

void serve(const AgentOptions& options, SignalFd& signals, std::optional<PidFile>& pidFile, NetSnmpAgent& agent,
           const AgentHooks& hooks) {
  agent.readConfiguration();
  agent.listen();
  if (!options.isForeground) agent.goToBackground();
  pidFile.emplace(options.pidFile);
  agent.settle();
  if (!Process::denyDangerousSystemCalls()) {
    logInfo("the kernel filters no system calls for this process: {}; serving without", std::strerror(errno));
  }

  AgentLoop loop;
  loop.addFd(signals.fd(), [&] { handleSignals(signals, loop, agent, hooks); });
  // Runs before the loop and net-snmp are destroyed, even if the loop fails.
  const absl::Cleanup stop = [&] {
    if (hooks.stopping) guarded("stop", hooks.stopping);
  };
  if (hooks.started) hooks.started(loop, options);
  agent.notify(SNMP_TRAP_COLDSTART, 0);
  reportToServiceManager(agent.role());
  logInfo("version {} serves", QUORIN_VERSION);
  loop.run();
  Process::ServiceManager::notifyStopping();
  logInfo("stopping");
}

int run(const AgentOptions& options, const AgentHooks& hooks) {
  using Action = AgentOptions::Action;
  switch (options.action) {
    case Action::showHelp:
      fmt::print("{}", AgentOptions::help());
      return 0;
    case Action::showVersion:
      fmt::print("quorind {} (net-snmp {})\n", QUORIN_VERSION, netsnmp_get_version());
      return 0;
    case Action::showDirectives:
      NetSnmpAgent(options).printDirectives();
      return 0;
    case Action::serve:
      break;
  }
  Process::endWhenOutOfMemory("quorind", agentLogLine);
  Process::raiseFileLimit();
  signal(SIGPIPE, SIG_IGN);
  SignalFd signals{SIGTERM, SIGINT, SIGHUP, SIGUSR1};
  std::optional<PidFile> pidFile;  // removed last: until then the agent may still save its state
  NetSnmpAgent agent(options);
  try {
    serve(options, signals, pidFile, agent, hooks);
    return 0;
  } catch (const std::exception& error) {
    logError("{}", error.what());  // while the log is still open
    return 1;
  }
}

}  // namespace

int agentMain(int argc, char* argv[], const AgentHooks& hooks) {
  try {
    return run(AgentOptions::fromCommandLine(argc, argv), hooks);
  } catch (const std::exception& error) {
    fmt::print(stderr, "quorind: {}\n", error.what());
    return 1;
  }
}

}  // namespace Host
