#pragma once
// Runs net-snmp's agent library in this process, from initialization to shutdown.

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "host/agent/AgentOptions.h"
#include "host/agent/CommunityContexts.h"
#include "host/agent/LogLimit.h"
#include "host/agent/MasterSession.h"
#include "host/agent/StreamConnections.h"

namespace Host {

class NetSnmpAgent {
 public:
  // The name of the configuration files (quorind.conf), of the state file, and of the lines in syslog.
  static constexpr const char* applicationType = "quorind";
  // Has SNMPv3 users, the engine's id and its boots, unless SNMP_PERSISTENT_DIR names another directory.
  static constexpr const char* stateDirectory = "/var/lib/quorin";

  // Sets up the library as a master agent or, by the options, as a subagent, with our settings and the stock modules
  // that we serve. Reads no configuration yet. Throws Kel::Exception if the library does not start.
  explicit NetSnmpAgent(const AgentOptions& options);
  // Saves the state, if settle() was called, and shuts down the library.
  ~NetSnmpAgent();
  NetSnmpAgent(const NetSnmpAgent&) = delete;
  NetSnmpAgent& operator=(const NetSnmpAgent&) = delete;

  // Reads the configuration for the first time. Logs and skips a faulty line. Throws Kel::Exception that names the file
  // and the reason if a file from the command line cannot be read.
  void readConfiguration();
  // Resets every setting, reads the configuration again, and reopens the log files. Throws like readConfiguration(),
  // before any setting changes.
  void readConfigurationAgain();
  // Opens the configured addresses; a subagent has none. Throws Kel::Exception that names the address, the reason and
  // the remedy if one cannot be opened.
  void listen();
  // What the agent does, in one short line: answer on the addresses that listen() opened, or serve through a master.
  std::string role() const;
  // Sends a notification, if the configuration asks for it. No-op in a subagent, whose master sends its own.
  void notify(int trap, int specific) const;
  // Forks into the background; returns in the child. Throws Kel::Exception if that fails, or if the configured user or
  // group does not exist.
  void goToBackground();
  // Gives the state directory to the agent's final user, becomes that user, and saves the state. For an unusable state
  // directory it logs one warning, and the agent keeps no state. From here on the log is limited (LogLimit.h), except
  // for reports about the configuration.
  void settle();
  // Prints the directives that a configuration file may hold, to standard error.
  void printDirectives();

 private:
  void checkConfigurationFiles() const;

  const AgentOptions& options_;
  bool keepsState_ = false;
  std::vector<std::string> endpoints_;  // that listen() opened
  StreamConnections connections_;
  std::optional<MasterSession> masterSession_;          // of a subagent
  std::optional<CommunityContexts> communityContexts_;  // of an agent that answers managers itself
  std::optional<LogLimit> logLimit_;                    // while the agent serves
};

}  // namespace Host
