#pragma once
// net-snmp's agent library, from its first call to its last, as this process uses it.

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "host/agent/AgentOptions.h"
#include "host/agent/LogLimit.h"
#include "host/agent/MasterSession.h"

namespace Host {

class NetSnmpAgent {
 public:
  // Under this name the configuration files (quorind.conf) and the state file are found, and lines in syslog.
  static constexpr const char* applicationType = "quorind";
  // Where SNMPv3 users, the engine's id and its boots are kept, unless SNMP_PERSISTENT_DIR names another directory.
  static constexpr const char* stateDirectory = "/var/lib/quorin";

  // Sets the library up as a master agent, or as a subagent if the options say so, with the stock modules that we
  // serve and our settings; reads nothing yet. Throws Kel::Exception when it cannot.
  explicit NetSnmpAgent(const AgentOptions& options);
  // Saves the state, if the agent got as far as settle(), and shuts the library down.
  ~NetSnmpAgent();
  NetSnmpAgent(const NetSnmpAgent&) = delete;
  NetSnmpAgent& operator=(const NetSnmpAgent&) = delete;

  // Reads the configuration for the first time. Throws Kel::Exception, naming the file and the reason, when a file
  // that was asked for by name cannot be read; a fault inside a file is logged with its line and passed over.
  void readConfiguration();
  // Reads it again, every setting back to its default first, and reopens the log files. When a file that was asked
  // for by name cannot be read, throws as above, and everything stays as it was.
  void readConfigurationAgain();
  // Opens the configured addresses. Throws as listenOn does (host/Endpoints.h). A subagent has none.
  void listen();
  // Sends a notification, if the configuration asks for it; a subagent leaves that to its master.
  void notify(int trap, int specific) const;
  // Forks into the background; returns in the child. Throws Kel::Exception when that fails, or when there is no such
  // user or group to become there.
  void goToBackground();
  // Gives the state directory to the user that the agent is to run as, becomes that user, saves the state. A state
  // directory that cannot be used is one warning, and the agent goes on without keeping its state. From then on the log
  // is limited (host/LogLimit.h), but for what the reading of the configuration reports.
  void settle();
  // Prints the directives that a configuration file may hold, to standard error.
  void printDirectives();

 private:
  void checkConfigurationFiles() const;

  const AgentOptions& options_;
  bool keepsState_ = false;
  std::optional<MasterSession> masterSession_;  // of a subagent
  std::optional<LogLimit> logLimit_;            // while the agent serves
};

}  // namespace Host
