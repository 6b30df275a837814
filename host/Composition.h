#pragma once
// What the agent serves beside net-snmp's own objects: the store that feeds it, the caches and their state
// machines, and the SNMP contexts.

#include "host/AgentMain.h"
#include "host/AgentTree.h"
#include "host/StoreFollower.h"
#include "snmp/Contexts.h"

namespace Host {

class Composition {
 public:
  // The default context is entered at once, whether there is a store or not. `loop` must outlive this object.
  Composition(AgentLoop& loop, const std::string& storeDirectory);
  ~Composition();
  Composition(const Composition&) = delete;
  Composition& operator=(const Composition&) = delete;

  // The configuration was read again: what modules decide at registration is decided anew.
  void reconfigure();

  // Hooks that make, reconfigure and end one Composition; they share it.
  static AgentHooks hooks();

 private:
  class ReadyWatcher;

  AgentLoop& loop_;
  Kel::Ptr<Brev::TaskScheduler> scheduler_;
  Kel::Ptr<Kel::Dir> root_;
  StoreFollower follower_;
  AgentTree tree_;
  Kel::Ptr<ReadyWatcher> readyWatcher_;
  Snmp::Contexts contexts_;
};

}  // namespace Host
