#pragma once
// What the agent serves beside net-snmp's own objects: the store that feeds it, the caches and their state
// machines, and the SNMP contexts. It is the same in every home of the library; the home gives it an event loop.

#include "host/composition/AgentTree.h"
#include "host/composition/EventLoop.h"
#include "host/composition/SharedGroups.h"
#include "host/composition/StoreFollower.h"
#include "host/composition/VrfContexts.h"
#include "snmp/Config.h"
#include "snmp/Contexts.h"

namespace Host {

class Composition {
 public:
  // The default context is entered at once, whether there is a store or not; `sharedGroups` are answered in the
  // VRFs' contexts. `loop` must outlive this object.
  Composition(EventLoop& loop, const std::string& storeDirectory, std::vector<SharedGroups::Group> sharedGroups);
  ~Composition();
  Composition(const Composition&) = delete;
  Composition& operator=(const Composition&) = delete;

  // The configuration was read again: what modules decide at registration is decided anew, if that has changed.
  void reconfigure();

  const std::string& storeDirectory() const { return storeDirectory_; }
  // The directory that the configuration in effect names, or else the usual one.
  static std::string configuredStoreDirectory();
  // Puts the directory of the network namespaces into effect: `chosen`, or if that is empty the one that the
  // configuration in effect names, or else the usual one.
  static void netnsDirectoryIs(const std::string& chosen);

 private:
  class ReadyWatcher;

  EventLoop& loop_;
  const std::string storeDirectory_;
  Snmp::Config::PtrConst config_;
  Kel::Ptr<Brev::TaskScheduler> scheduler_;
  Kel::Ptr<Kel::Dir> root_;
  StoreFollower follower_;
  AgentTree tree_;
  Kel::Ptr<ReadyWatcher> readyWatcher_;
  SharedGroups sharedGroups_;
  Snmp::Contexts contexts_;
  VrfContexts vrfContexts_;
};

}  // namespace Host
