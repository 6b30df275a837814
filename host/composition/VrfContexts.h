#pragma once
// Gives each served VRF an SNMP context of the VRF's name. A context is entered once the VRF's caches are complete, and
// left before they are destroyed.

#include <map>

#include "agentstate/AgentMib.h"
#include "kel/Ptr.h"
#include "snmp/Contexts.h"
#include "varnix/Routing.h"

namespace Host {

class VrfContexts {
 public:
  // Requires: `contexts` has the default context.
  // A module reads a VRF's routing configuration when it enters the context. So a context waits for a missing
  // configuration, and is entered again for another one.
  // Lifetime: `contexts` must outlive this object.
  VrfContexts(Snmp::Contexts& contexts, const Kel::Ptr<const Routing::VrfConfigDir>& configDir);
  // Leaves the contexts entered; the owner of `contexts` leaves them.
  ~VrfContexts();
  VrfContexts(const VrfContexts&) = delete;
  VrfContexts& operator=(const VrfContexts&) = delete;

  // Enters or leaves the context of a VRF. Logs one line for a name that no context can have.
  void setServed(const Kel::Name& vrf, bool isServed);

  // Whether the VRF has its context; the default VRF has the default one.
  AgentSnmp::VrfReadiness readiness(const Kel::Name& vrf) const;
  // The number of contexts that are entered, the default one included.
  std::size_t count() const { return contexts_.names().size(); }

  // Enters the contexts of all served VRFs again, after the caller has left all contexts.
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
  // The configuration of each VRF's context; null: the context waits for one.
  std::map<Kel::Name, Kel::Ptr<const Routing::Config>> served_;
  Kel::Ptr<Kel::NotifieeBase> configWatch_;
};

}  // namespace Host
