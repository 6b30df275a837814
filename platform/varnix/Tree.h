#pragma once
// The fixed part of the state database: the entities that exist even before a publisher has written them.
//
// | path                | type                                      |
// |---------------------|-------------------------------------------|
// | routing/config      | Routing::Config                           |
// | routing6/config     | Routing6::Config                          |
// | routing/vrf/config  | Routing::VrfConfigDir                     |
// | routing6/vrf/config | Routing6::VrfConfigDir                    |
// | routing/vrf/info    | Kel::Dir of Routing::VrfInfo, by VRF name |
// | routing6/vrf/info   | Kel::Dir of Routing::VrfInfo, by VRF name |
// | interface/status    | Interface::AllIntfStatusDir               |
// | l3/config           | L3::Config                                |
// | l3/intf/config      | L3::Intf::ConfigDir                       |
// | l3/intf/status      | L3::Intf::StatusDir                       |
// | ip/config           | Ip::Config                                |
// | ip/status           | Ip::Status                                |
// | ip6/config          | Ip6::Config                               |
// | ip6/status          | Ip6::Status                               |
// | ip/intf/stats       | Ip::AllIntfStats, IPv4                    |
// | ip6/intf/stats      | Ip::AllIntfStats, IPv6                    |
// | ip/vrf/config       | Ip::AllVrfConfig                          |
// | ip/vrf/global       | Ip::AllVrfStatusGlobal                    |
// | ip/vrf/local        | Ip::AllVrfStatusLocal                     |
// | vrf/id/status       | Vrf::VrfIdMap::Status                     |
// | vrf/name/status     | Vrf::VrfIdMap::NameToIdMapWrapper         |

#include <string>
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
  // Makes an entry. Throws Kel::RangeException when `name` is not valid for one.
  Kel::Ptr<Kel::Entity> (*make)(const Kel::Name& name);
};

// Typed handles to the entities of one tree. A publisher fills its tree and writes it to the store; EntityManager
// fills the agent's tree from the store.
struct Tree {
  Kel::Ptr<Kel::Dir> root;
  Kel::Ptr<Routing::Config> routingConfig;
  Kel::Ptr<Routing6::Config> routing6Config;
  Kel::Ptr<Routing::VrfConfigDir> routingVrfConfigDir;
  Kel::Ptr<Routing6::VrfConfigDir> routing6VrfConfigDir;
  Kel::Ptr<Kel::Dir> routingVrfInfoDir;
  Kel::Ptr<Kel::Dir> routing6VrfInfoDir;
  Kel::Ptr<Interface::AllIntfStatusDir> intfStatusDir;
  Kel::Ptr<L3::Config> l3Config;
  Kel::Ptr<L3::Intf::ConfigDir> l3ConfigDir;
  Kel::Ptr<L3::Intf::StatusDir> l3StatusDir;
  Kel::Ptr<Ip::Config> ipConfig;
  Kel::Ptr<Ip::Status> ipStatus;
  Kel::Ptr<Ip6::Config> ip6Config;
  Kel::Ptr<Ip6::Status> ip6Status;
  Kel::Ptr<Ip::AllIntfStats> ipIntfStats;
  Kel::Ptr<Ip::AllIntfStats> ip6IntfStats;
  Kel::Ptr<Ip::AllVrfConfig> allVrfConfig;
  Kel::Ptr<Ip::AllVrfStatusGlobal> allVrfStatusGlobal;
  Kel::Ptr<Ip::AllVrfStatusLocal> allVrfStatusLocal;
  Kel::Ptr<Vrf::VrfIdMap::Status> vrfIdStatus;
  Kel::Ptr<Vrf::VrfIdMap::NameToIdMapWrapper> vrfNameStatus;

  // Makes the entities in `root` (the directory "Varnix" of an agent, or a publisher's nameless one).
  explicit Tree(Kel::Ptr<Kel::Dir> root);

  std::vector<OpenDir> openDirs() const;
};

}  // namespace Varnix
