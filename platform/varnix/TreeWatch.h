#pragma once
// Reports which entities of a publisher's tree change. Internal to DocumentPublisher.
//
// Requires: the callback does not change the tree. The object is neither copied nor moved, since its reactors refer to
// it.
// Guarantees: every document attribute of every entity in the tree is watched.

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "varnix/Tree.h"

namespace Varnix {

class TreeWatch {
 public:
  // Calls `changed` with the path of an entity with document attributes when the entity is created or deleted or one
  // of its attributes changes. The constructor calls it once for each existing entity.
  TreeWatch(const Tree& tree, std::function<void(const std::string& path)> changed);

  // Null if the tree has no entity with document attributes at that path.
  Kel::Ptr<const Kel::Entity> entity(const std::string& path) const;

  // Called by the reactors of collections: watch() after an entity was created, forget() after the one at `path` was
  // deleted.
  void watch(const Kel::Ptr<const Kel::Entity>& entity);
  void forget(const std::string& path);
  // The path below the tree's root; empty if the entity is not below it.
  std::string path(const Kel::Entity& entity) const;

 private:
  void watchFixed(const Kel::Dir& dir, const std::vector<OpenDir>& openDirs);
  template <class Watch, class Owner>
  void watchMembers(const Kel::Ptr<Owner>& owner);

  struct Watched {
    Kel::Ptr<const Kel::Entity> entity;
    Kel::Ptr<Kel::NotifieeBase> reactor;
  };

  Kel::Ptr<Kel::Dir> root_;
  std::function<void(const std::string&)> changed_;
  std::map<std::string, Watched> watched_;  // by path
  std::vector<Kel::Ptr<Kel::NotifieeBase>> memberWatches_;
};

}  // namespace Varnix
