#pragma once
// Completes the AgentX session (RFC 2741) of a subagent with its master. net-snmp opens the session after it has read
// the configuration, and again a ping interval after it lost the master. It registers with the master what the agent
// library has registered: everything at the start of a session, later changes at once.

#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>
// The agent headers need the library's.
#include <net-snmp/agent/net-snmp-agent-includes.h>

#include <string>
#include <vector>

#include "snmp/HandlerRegistration.h"

namespace Host {

class MasterSession : public Snmp::HandlerRegistration {
 public:
  // Requires: the library is initialized as a subagent and has its stock modules; the configuration is not read yet.
  // Present registrations are never passed to the master. `address`, unless empty, is the master's address and
  // overrides the configuration.
  explicit MasterSession(std::string address);
  // Requires: the library is not shut down yet, which would free this object as an argument of callbacks.
  ~MasterSession() override;

  // Call it once net-snmp has read the configuration and tried to open the session. Logs one line if no master answers.
  void configured();

  // Runs before the modules' initHandler, and creates the root subtrees of the context (ccitt, iso and
  // joint-iso-ccitt). The library would otherwise register them with the master, which fails with an error line for
  // each.
  void initHandler(Kel::String context) override;
  void exitHandler(Kel::String) override {}
  const char* name() const override { return "AgentX"; }

 private:
  static int handleConfigurationRead(int, int, void*, void* self);
  static int handleOpened(int, int, void*, void* self);
  static int handleClosed(int, int, void*, void* self);
  void keepFromMaster() const;

  const std::string address_;
  std::vector<const netsnmp_handler_registration*> own_;
  bool isOpen_ = false;
  Snmp::AutoRegistree registree_;
};

}  // namespace Host
