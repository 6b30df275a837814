#include "varnix/Tree.h"

namespace Varnix {
namespace {

Kel::Ptr<Kel::Entity> makeVrfInfo(const Kel::Name& name) {
  if (name.empty()) throw Kel::RangeException("a VRF has a name of 1 to 100 bytes");
  static_cast<void>(L3::VrfName(name));  // throws if the name is too long
  return Kel::makePtr<Routing::VrfInfo>(name);
}

}  // namespace

template <class T>
Kel::Ptr<T> Tree::make(std::string_view path) const {
  auto dir = root;
  for (auto slash = path.find('/'); slash != std::string_view::npos; slash = path.find('/')) {
    dir = dir->dirIs(Kel::Name(path.substr(0, slash)));
    path.remove_prefix(slash + 1);
  }
  auto entity = Kel::makePtr<T>(Kel::Name(path));
  dir->entityIs(entity);
  return entity;
}

Tree::Tree(Kel::Ptr<Kel::Dir> top) : root(std::move(top)) {
}

std::vector<OpenDir> Tree::openDirs() const {
  constexpr const char* type = "Routing::VrfInfo";
  return {{routingVrfInfoDir, type, makeVrfInfo}, {routing6VrfInfoDir, type, makeVrfInfo}};
}

}  // namespace Varnix
