#pragma once
// The fixed part of the state database: the entities that exist even before a publisher has written them.

#include <string>
#include <string_view>
#include <vector>

#include "kel/Dir.h"
#include "varnix/Interface.h"
#include "varnix/Ip.h"
#include "varnix/L3.h"
#include "varnix/Routing.h"
#include "varnix/Vrf.h"

namespace Varnix {

// A directory whose entries are created and deleted with their documents, all of one type.
struct OpenDir {
  Kel::Ptr<Kel::Dir> dir;
  std::string type;  // of the entries
  // Creates an entry. Throws Kel::RangeException if `name` is not valid for one.
  Kel::Ptr<Kel::Entity> (*make)(const Kel::Name& name);
};

// Typed handles to the entities of one tree. A publisher fills its tree and writes it to the store; EntityManager
// fills the agent's tree from the store.
struct Tree {
  Kel::Ptr<Kel::Dir> root;
  Kel::Ptr<Routing::Config> routingConfig = make<Routing::Config>("routing/config");
  Kel::Ptr<Routing6::Config> routing6Config = make<Routing6::Config>("routing6/config");
  Kel::Ptr<Routing::VrfConfigDir> routingVrfConfigDir = make<Routing::VrfConfigDir>("routing/vrf/config");
  Kel::Ptr<Routing6::VrfConfigDir> routing6VrfConfigDir = make<Routing6::VrfConfigDir>("routing6/vrf/config");
  Kel::Ptr<Kel::Dir> routingVrfInfoDir = make<Kel::Dir>("routing/vrf/info");    // of Routing::VrfInfo, by VRF name
  Kel::Ptr<Kel::Dir> routing6VrfInfoDir = make<Kel::Dir>("routing6/vrf/info");  // of Routing::VrfInfo, by VRF name
  Kel::Ptr<Interface::AllIntfStatusDir> intfStatusDir = make<Interface::AllIntfStatusDir>("interface/status");
  Kel::Ptr<Interface::AllIntfCounters> intfCountersDir = make<Interface::AllIntfCounters>("interface/counters");
  Kel::Ptr<L3::Config> l3Config = make<L3::Config>("l3/config");
  Kel::Ptr<L3::Intf::ConfigDir> l3ConfigDir = make<L3::Intf::ConfigDir>("l3/intf/config");
  Kel::Ptr<L3::Intf::StatusDir> l3StatusDir = make<L3::Intf::StatusDir>("l3/intf/status");
  Kel::Ptr<Ip::Config> ipConfig = make<Ip::Config>("ip/config");
  Kel::Ptr<Ip::Status> ipStatus = make<Ip::Status>("ip/status");
  Kel::Ptr<Ip6::Config> ip6Config = make<Ip6::Config>("ip6/config");
  Kel::Ptr<Ip6::Status> ip6Status = make<Ip6::Status>("ip6/status");
  Kel::Ptr<Ip::AllIntfStats> ipIntfStats = make<Ip::AllIntfStats>("ip/intf/stats");
  Kel::Ptr<Ip::AllIntfStats> ip6IntfStats = make<Ip::AllIntfStats>("ip6/intf/stats");
  Kel::Ptr<Ip::AllIntfProtocol> ipIntfProtocol = make<Ip::AllIntfProtocol>("ip/intf/protocol");
  Kel::Ptr<Ip::AllIntfProtocol> ip6IntfProtocol = make<Ip::AllIntfProtocol>("ip6/intf/protocol");
  Kel::Ptr<Ip::AllVrfConfig> allVrfConfig = make<Ip::AllVrfConfig>("ip/vrf/config");
  Kel::Ptr<Ip::AllVrfStatusGlobal> allVrfStatusGlobal = make<Ip::AllVrfStatusGlobal>("ip/vrf/global");
  Kel::Ptr<Ip::AllVrfStatusLocal> allVrfStatusLocal = make<Ip::AllVrfStatusLocal>("ip/vrf/local");
  Kel::Ptr<Vrf::VrfIdMap::Status> vrfIdStatus = make<Vrf::VrfIdMap::Status>("vrf/id/status");
  Kel::Ptr<Vrf::VrfIdMap::NameToIdMapWrapper> vrfNameStatus =
      make<Vrf::VrfIdMap::NameToIdMapWrapper>("vrf/name/status");

  // Creates the entities in `root` (the directory "Varnix" of an agent, or a publisher's nameless one).
  explicit Tree(Kel::Ptr<Kel::Dir> root);

  std::vector<OpenDir> openDirs() const;

 private:
  // Creates the directories of `path`, and in the last one an entity that has the name of the last component.
  template <class T>
  Kel::Ptr<T> make(std::string_view path) const;
};

}  // namespace Varnix
