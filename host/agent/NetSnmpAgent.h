#pragma once
// The life of net-snmp's agent library in this process, from initialization to shutdown.

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
  // The name of the configuration files (quorind.conf), of the state file, and of the lines in syslog.
  static constexpr const char* applicationType = "quorind";
  // Keeps SNMPv3 users, the engine's id and its boots, unless SNMP_PERSISTENT_DIR names another directory.
  static constexpr const char* stateDirectory = "/var/lib/quorin";

  // Sets up the library as a master agent or, if the options say so, as a subagent, with the stock modules that we
  // serve and our settings. Reads no configuration yet. Throws Kel::Exception when the library does not start.
  explicit NetSnmpAgent(const AgentOptions& options);
  // Saves the state, if settle() was called, and shuts down the library.
  ~NetSnmpAgent();
  NetSnmpAgent(const NetSnmpAgent&) = delete;
  NetSnmpAgent& operator=(const NetSnmpAgent&) = delete;

  // Reads the configuration for the first time. A fault in a file is logged with its line and passed over. Throws
  // Kel::Exception, naming the file and the reason, when a file that was named explicitly cannot be read.
  void readConfiguration();
  // Resets every setting, reads the configuration again, and reopens the log files. Throws like readConfiguration();
  // then every setting stays as it was.
  void readConfigurationAgain();
  // Opens the configured addresses; a subagent has none. Throws Kel::Exception, naming the address, the reason and what
  // to do, when one cannot be opened.
  void listen();
  // Sends a notification, if the configuration asks for it. No-op in a subagent, whose master sends its own.
  void notify(int trap, int specific) const;
  // Forks into the background; returns in the child. Throws Kel::Exception when that fails, or when the user or group
  // to become does not exist.
  void goToBackground();
  // Gives the state directory to the agent's final user, becomes that user, and saves the state. An unusable state
  // directory is one warning; the agent then keeps no state. From here on the log is limited (LogLimit.h), except for
  // reports about the configuration.
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
