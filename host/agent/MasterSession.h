#pragma once
// The AgentX session (RFC 2741) of a subagent with its master. net-snmp opens it when the configuration has been
// read, and again a ping interval after the master was lost; here is what it leaves to us.
//
// What is registered with the agent library is registered with the master: all of it anew with each session, and
// what comes and goes meanwhile at once.

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
  // To be made after the library is initialized as a subagent and has its stock modules, before the configuration
  // is read. What is registered by then stays between us and never gets to the master. `address`, unless empty, is
  // where the master listens, whatever the configuration says.
  explicit MasterSession(std::string address);
  // To be destroyed before the library shuts down, which frees whatever its callbacks were given.
  ~MasterSession() override;

  // The configuration has been read for the first time, and net-snmp has tried to open the session. When there is no
  // master yet, that is one line in the log.
  void configured();

  // It enters contexts before all modules: makes the roots of a new context, which the library would otherwise
  // announce to the master, in vain, with a line of error for each.
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
