#pragma once
// Completes net-snmp's AgentX session (RFC 2741) of a subagent with its master. net-snmp opens the session after the
// configuration is read, and again a ping interval after it lost the master. It registers with the master what is
// registered with the agent library: everything at the start of a session, later changes at once.

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
  // Requires that the library is initialized as a subagent and has its stock modules, and that the configuration is not
  // read yet. Present registrations are never passed to the master. `address`, unless empty, is the master's address
  // and overrides the configuration.
  explicit MasterSession(std::string address);
  // Requires that the library is not shut down yet: that would free this object as an argument of callbacks.
  ~MasterSession() override;

  // To be called once net-snmp has read the configuration and tried to open the session. Logs one line when there is no
  // master yet.
  void configured();

  // Enters a context before all modules do, and makes its roots. The library would otherwise register the roots with
  // the master, which fails with a line of error for each.
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
