#pragma once
// Configures and watches the connection to an AgentX master (RFC 2741). net-snmp's library opens it, with a session,
// after reading the configuration, and retries every ping interval after a loss. It passes sysORTable's rows and
// notifications through that session.
//
// This class passes on the registrations: at the start of a connection everything that the agent library has
// registered, and later changes at once. Each context has a session of its own on the connection. Leaving a context
// closes its session: net-snmp's master then cancels the requests that it has handed to us. After a mere unregistration
// it would go on with them, from freed memory (net-snmp 5.9.3: netsnmp_reassign_requests() in agent/snmp_agent.c).
//
// Of the registration that a VRF's context has for all objects (ContextObjects), the master gets each object: it must
// know them to skip those that the view of a request hides. Otherwise it would ask for every hidden value.
//
// It also keeps the stock modules' registrations from the master, sets address and ping interval (1 s), and logs once
// if no master answers.

#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>
// The agent headers need the library's.
#include <net-snmp/agent/net-snmp-agent-includes.h>

#include <map>
#include <string>
#include <vector>

#include "snmp/HandlerRegistration.h"

namespace Host {

class MasterSession : public Snmp::HandlerRegistration {
 public:
  // Requires: the library is initialized as a subagent and has its stock modules; the configuration is not read yet.
  // Registrations that exist now (the stock modules') are never passed to the master. A non-empty `address` overrides
  // the configuration.
  explicit MasterSession(std::string address);
  // Requires: called before snmp_shutdown(), which frees the arguments of callbacks that are still registered, this
  // object among them.
  ~MasterSession() override;

  // Call it once, after the first reading of the configuration. From then on net-snmp reopens the session. Logs one
  // line if no master answers yet.
  void configured();

  // Creates the root subtrees of the context (ccitt, iso and joint-iso-ccitt) before the modules enter it, since name()
  // is first in order. Otherwise the library would register them with the master, which fails with an error line for
  // each.
  void initHandler(Kel::String context) override;
  // Passes on the objects of a VRF's context.
  void entered(const Kel::String& context) override;
  // Closes the context's session.
  void leaving(const Kel::String& context) override;
  void exitHandler(Kel::String) override {}
  const char* name() const override { return "AgentX"; }

 private:
  static int handleConfigurationRead(int, int, void*, void* self);
  static int handleOpened(int, int, void*, void* self);
  static int handleClosed(int, int, void*, void* self);
  static int handleRegistration(int, int change, void* registration, void* self);
  void keepFromMaster() const;
  void passOn(int change, const register_parameters& registration);
  void passOnObjects(const Kel::String& context);
  bool openSession(const Kel::String& context);

  const std::string address_;
  std::vector<const netsnmp_handler_registration*> own_;
  bool isOpen_ = false;
  bool isMakingRoots_ = false;
  std::map<Kel::String, long> sessions_;  // the open sessions' identifiers, by context
  Snmp::AutoRegistree registree_;
};

}  // namespace Host
