#pragma once
// Runs net-snmp's agent library in this process, from initialization to shutdown. Call its operations in this order:
// readConfiguration(), listen(), goToBackground() if wanted, settle().

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
  // Holds SNMPv3 users, the engine id and boots, unless SNMP_PERSISTENT_DIR names another directory. A subagent uses
  // its subdirectory "subagent".
  static constexpr const char* stateDirectory = "/var/lib/quorin";

  // Sets up the library as a master agent or, with -X, as a subagent, with our settings and the stock modules that we
  // serve. Reads no configuration yet. Throws Kel::Exception if the library does not start.
  // Requires: at most one object exists. Lifetime: `options` must outlive it.
  explicit NetSnmpAgent(const AgentOptions& options);
  // Saves the state, if settle() was called, and shuts down the library.
  ~NetSnmpAgent();
  NetSnmpAgent(const NetSnmpAgent&) = delete;
  NetSnmpAgent& operator=(const NetSnmpAgent&) = delete;

  // Reads the configuration for the first time. Logs and skips faulty lines. Throws Kel::Exception that names the file
  // and the reason if a file of the command line, or an existing default file, cannot be read.
  void readConfiguration();
  // Resets every setting, reads the configuration again, reopens the log files, and sends nsNotifyRestart. Throws as
  // readConfiguration(), before any setting changes.
  void readConfigurationAgain();
  // Opens the configured addresses; a subagent has none. Throws Kel::Exception that names the address, the reason and
  // the remedy if one cannot be opened.
  void listen();
  // A short line for the service manager: "answering on udp:127.0.0.1:161", or "serving through an AgentX master".
  std::string role() const;
  // Sends a trap (SNMPv1's generic `trap` and `specific`) to the configured receivers. No-op in a subagent, whose
  // master sends its own.
  void notify(int trap, int specific) const;
  // Forks into the background; returns in the child. Throws Kel::Exception if that fails, or if the user or group of
  // the command line does not exist.
  void goToBackground();
  // Gives the state directory to the agent's final user (of the command line, otherwise of the configuration; by
  // default the present one), becomes that user, and saves the state. For an unusable state directory it logs one
  // warning, and the agent keeps no state. From here on the log is limited (LogLimit.h), except while the configuration
  // is read again, and communities can name contexts (CommunityContexts.h). Throws Kel::Exception if the process cannot
  // become that user.
  void settle();
  // Prints the directives that a configuration file may hold, to standard error. Requires: readConfiguration() was not
  // called.
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
