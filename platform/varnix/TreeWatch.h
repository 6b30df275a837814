#pragma once
// Tells which entities of a tree change. Internal to the publishing side.

#include <functional>
#include <map>
#include <string>

#include "varnix/Tree.h"

namespace Varnix {

class TreeWatch {
 public:
  // `changed` is called with the path of an entity with attributes that came, went, or has another attribute value;
  // during construction for each that is there. It must not change the tree.
  TreeWatch(const Tree& tree, std::function<void(const std::string& path)> changed);

  // Null when the tree has none at that path.
  Kel::Ptr<const Kel::Entity> entity(const std::string& path) const;

  // For the reactors.
  void changed(const Kel::Entity& entity) const;
  template <class Watcher, class T>
  void entityIs(const Kel::Ptr<T>& entity);
  void entityDel(const std::string& path);
  std::string path(const Kel::Entity& entity) const;

 private:
  Kel::Ptr<Kel::Dir> root_;
  std::function<void(const std::string&)> changed_;
  struct Watched {
    Kel::Ptr<const Kel::Entity> entity;
    Kel::Ptr<Kel::NotifieeBase> reactor;
  };
  std::map<std::string, Watched> watched_;  // by path
};

}  // namespace Varnix
