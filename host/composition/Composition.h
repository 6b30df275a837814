#pragma once
// Everything that the agent serves beside net-snmp's own objects: the follower of the store, the caches and their state
// machines, and the SNMP contexts. quorind and the plugin each provide their event loop.

#include <memory>

#include "host/composition/AgentHealth.h"
#include "host/composition/AgentTree.h"
#include "host/composition/ControlSocket.h"
#include "host/composition/EventLoop.h"
#include "host/composition/ModuleCapabilities.h"
#include "host/composition/SharedGroups.h"
#include "host/composition/StoreFollower.h"
#include "host/composition/VrfContexts.h"
#include "snmp/Config.h"
#include "snmp/Contexts.h"

namespace Host {

class Composition {
 public:
  // Enters the default context at once, even without a store. The VRFs' contexts also answer `sharedGroups`.
  // Throws Kel::Exception if the loop cannot take its descriptors. Requires: at most one object exists at a time.
  // Lifetime: `loop` must outlive this object.
  Composition(EventLoop& loop, const std::string& storeDirectory, SharedGroups::Groups sharedGroups);
  ~Composition();
  Composition(const Composition&) = delete;
  Composition& operator=(const Composition&) = delete;

  // Applies the current configuration: reconfigures `composition`, or replaces it if it is null or follows another
  // store than that in `storeDirectory`. Throws as the constructor; `composition` is null then.
  static void update(std::unique_ptr<Composition>& composition, EventLoop& loop, const std::string& storeDirectory,
                     SharedGroups::Groups sharedGroups);

  // Returns the configured directory, or the default.
  static std::string configuredStoreDirectory();
  // Sets the directory of the network namespaces: `chosen`; if that is empty, the configured one, or the default.
  static void setNetnsDirectory(const std::string& chosen);

 private:
  class ReadyWatcher;
  class ServedVrfWatcher;

  // Applies the current configuration. Enters all contexts again if it changes which objects are served.
  void reconfigure();
  // Makes the contexts follow the VRFs that the current state machine serves.
  void followServedVrfs();

  EventLoop& loop_;
  const std::string storeDirectory_;
  Snmp::Config::PtrConst config_;
  Kel::Ptr<Brev::TaskScheduler> scheduler_;
  Kel::Ptr<Kel::Dir> root_;
  StoreFollower follower_;
  AgentTree tree_;
  SharedGroups sharedGroups_;
  ModuleCapabilities capabilities_;
  Snmp::Contexts contexts_;
  VrfContexts vrfContexts_;
  AgentHealth health_;
  ControlSocket control_;
  Kel::Ptr<ReadyWatcher> readyWatcher_;
  Kel::Ptr<ServedVrfWatcher> servedVrfWatcher_;
};

}  // namespace Host
