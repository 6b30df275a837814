#pragma once
// Gives each served VRF an SNMP context of the VRF's name. A context is entered once the VRF's caches are complete, and
// left before they are destroyed. Entering a context calls initHandler of every MIB module; leaving calls exitHandler
// (snmp/Contexts.h).

#include <map>

#include "agentstate/AgentMib.h"
#include "kel/Ptr.h"
#include "snmp/Contexts.h"
#include "varnix/Routing.h"

namespace Host {

class VrfContexts {
 public:
  // The context of a VRF without routing configuration is entered once the configuration exists, since modules read it
  // then. If the configuration is replaced, the context is left and entered again.
  // Requires: the default context is entered before setServed() is called. Lifetime: `contexts` must outlive this
  // object.
  VrfContexts(Snmp::Contexts& contexts, const Kel::Ptr<const Routing::VrfConfigDir>& configDir);
  // Does not leave any context: the owner of `contexts` does.
  ~VrfContexts();
  VrfContexts(const VrfContexts&) = delete;
  VrfContexts& operator=(const VrfContexts&) = delete;

  // Enters or leaves the VRF's context. Logs one line if the name cannot be a context (null byte, more than 255 bytes),
  // or if access control cannot grant it (more than 32 bytes). Requires: not the default VRF, since the owner of
  // `contexts` enters its context, "".
  void setServed(const Kel::Name& vrf, bool isServed);

  // vrfReady if the context is entered (always for the default VRF), vrfNoContext for a name that cannot be a context,
  // otherwise vrfWaiting.
  AgentSnmp::VrfReadiness readiness(const Kel::Name& vrf) const;
  // The number of contexts that are entered, the default one included.
  std::size_t count() const { return contexts_.names().size(); }

  // Enters the contexts of all served VRFs again. Requires: the caller has left them, and has entered the default one.
  void reenter();

  // The longest context name that net-snmp's access control can grant (RFC 3415, vacmContextName).
  static constexpr std::size_t longestAccessible = 32;
  // The longest context name (RFC 3411, SnmpAdminString).
  static constexpr std::size_t longest = 255;

 private:
  class ConfigWatch;

  static bool canBeContext(const Kel::Name& vrf);
  void enter(const Kel::Name& vrf);
  // Call it when the configuration of the VRF changed.
  void configured(const Kel::Name& vrf);

  Snmp::Contexts& contexts_;
  Kel::Ptr<const Routing::VrfConfigDir> configDir_;
  // The served VRFs, each with the configuration for which its context was entered; null: it waits for one.
  std::map<Kel::Name, Kel::Ptr<const Routing::Config>> served_;
  Kel::Ptr<Kel::NotifieeBase> configWatch_;
};

}  // namespace Host
