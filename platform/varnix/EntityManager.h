#pragma once
// The reading side of the state database: keeps a tree of typed entities equal to the documents of a store. Reactors
// of the entities run as the tree changes.
//
//   auto mount = Kel::makePtr<Quillo::Mount>(Quillo::MountConfig{directory});
//   auto manager = Kel::makePtr<Varnix::EntityManager>(root->dirIs("Varnix"), mount);
//   // at start, after a doorbell, and once a second:
//   if (mount->refresh()) while (manager->step(100)) ...  // a task may yield between two steps
//
// Guarantees:
// - The entities of Tree.h exist from the start, at their defaults. Members and entries of open directories are created
//   and deleted with their documents; a fixed entity without a document returns to its defaults.
// - No step shows an address without its VRF: an entity takes its attributes after the targets of its references exist,
//   and a target is deleted after the last reference to it. A reference is null only when the store has no such target.
// - An equal value is not set again, even after a rebuild: no row flaps when the publisher restarts.
// - Unknown types and attributes, bad values and documents without a place are traced at level 0 and left out; the rest
//   is served.
// - An entity whose document cannot be read (a damaged record, malformed text) keeps its attributes until it can; the
//   damage is traced at level 0. Until then a reference to a missing target waits, and is not set to null.
// - An exception of a reactor is traced at level 0; the change that caused it remains in effect.
// - While the store is missing or unreadable the tree keeps its contents. A new store replaces them in one go, once a
//   publisher has completed a pass over it.

#include <memory>

#include "quillo/Mount.h"
#include "varnix/QuilloMount.h"
#include "varnix/Tree.h"

namespace Varnix {

class DocumentFeed;
class TreeLoader;

class EntityManager : public Kel::Entity {
  KEL_TYPE_BEGIN("Varnix::EntityManager", EntityManager, Kel::Entity)
 public:
  // Creates the tree in `directory`. Requires: only this object changes the tree. `mount` may be shared; the caller
  // refreshes it.
  EntityManager(const Kel::Ptr<Kel::Dir>& directory, Kel::Ptr<Quillo::Mount> mount);
  ~EntityManager() override;

  // True once the tree holds the first complete pass of a publisher. Stays true.
  KEL_STORED(bool, ready, Ready, false)
  // One line for the operator: what the manager waits for or what is wrong, and what to do. Empty while the tree
  // equals a complete store.
  KEL_STORED(Kel::String, status, Status)
  KEL_TYPE_END_DECLARE

 public:
  const Tree& tree() const { return tree_; }

  // Applies at most `limit` (at least 1) documents or changes. Returns true while more remain; false when the tree
  // equals the store as of the mount's last refresh, or when no store can be read. Reactors run inside, without a
  // snapshot being held. Requires: no reactor calls step() or the mount's refresh().
  bool step(std::size_t limit);

  // The mount of the VRFs' shared tables; null without tables.
  const Kel::Ptr<const KelQuillo::Mount>& quilloMount() const { return quilloMount_; }
  void setQuilloMount(Kel::Ptr<const KelQuillo::Mount> quilloMount) { quilloMount_ = std::move(quilloMount); }

  // The journal position of the tree, valid after step() has returned false. Other followers of the same mount use it
  // so that they do not get ahead of the tree.
  Quillo::Bookmark bookmark() const;

 private:
  void waitingForPass();

  Tree tree_;
  Kel::Ptr<Quillo::Mount> mount_;
  std::unique_ptr<TreeLoader> loader_;
  std::unique_ptr<DocumentFeed> feed_;
  bool sweeping_ = false;
  Kel::Ptr<const KelQuillo::Mount> quilloMount_;
};

}  // namespace Varnix
