#include "varnix/Tree.h"

namespace Varnix {
namespace {

// Creates the directories of `path`, and in the last one an entity that has the name of the last component.
template <class T>
Kel::Ptr<T> make(Kel::Ptr<Kel::Dir> dir, std::string_view path) {
  for (auto slash = path.find('/'); slash != std::string_view::npos; slash = path.find('/')) {
    dir = dir->dirIs(Kel::Name(path.substr(0, slash)));
    path.remove_prefix(slash + 1);
  }
  auto entity = Kel::makePtr<T>(Kel::Name(path));
  dir->entityIs(entity);
  return entity;
}

Kel::Ptr<Kel::Entity> makeVrfInfo(const Kel::Name& name) {
  if (name.empty()) throw Kel::RangeException("a VRF has a name of 1 to 100 bytes");
  static_cast<void>(L3::VrfName(name));  // refuses one that is too long
  return Kel::makePtr<Routing::VrfInfo>(name);
}

}  // namespace

Tree::Tree(Kel::Ptr<Kel::Dir> top)
    : root(std::move(top)),
      routingConfig(make<Routing::Config>(root, "routing/config")),
      routing6Config(make<Routing6::Config>(root, "routing6/config")),
      routingVrfConfigDir(make<Routing::VrfConfigDir>(root, "routing/vrf/config")),
      routing6VrfConfigDir(make<Routing6::VrfConfigDir>(root, "routing6/vrf/config")),
      routingVrfInfoDir(make<Kel::Dir>(root, "routing/vrf/info")),
      routing6VrfInfoDir(make<Kel::Dir>(root, "routing6/vrf/info")),
      intfStatusDir(make<Interface::AllIntfStatusDir>(root, "interface/status")),
      l3Config(make<L3::Config>(root, "l3/config")),
      l3ConfigDir(make<L3::Intf::ConfigDir>(root, "l3/intf/config")),
      l3StatusDir(make<L3::Intf::StatusDir>(root, "l3/intf/status")),
      ipConfig(make<Ip::Config>(root, "ip/config")),
      ipStatus(make<Ip::Status>(root, "ip/status")),
      ip6Config(make<Ip6::Config>(root, "ip6/config")),
      ip6Status(make<Ip6::Status>(root, "ip6/status")),
      ipIntfStats(make<Ip::AllIntfStats>(root, "ip/intf/stats")),
      ip6IntfStats(make<Ip::AllIntfStats>(root, "ip6/intf/stats")),
      allVrfConfig(make<Ip::AllVrfConfig>(root, "ip/vrf/config")),
      allVrfStatusGlobal(make<Ip::AllVrfStatusGlobal>(root, "ip/vrf/global")),
      allVrfStatusLocal(make<Ip::AllVrfStatusLocal>(root, "ip/vrf/local")),
      vrfIdStatus(make<Vrf::VrfIdMap::Status>(root, "vrf/id/status")),
      vrfNameStatus(make<Vrf::VrfIdMap::NameToIdMapWrapper>(root, "vrf/name/status")) {
}

std::vector<OpenDir> Tree::openDirs() const {
  constexpr const char* type = "Routing::VrfInfo";
  return {{routingVrfInfoDir, type, makeVrfInfo}, {routing6VrfInfoDir, type, makeVrfInfo}};
}

}  // namespace Varnix
