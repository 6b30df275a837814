#pragma once
// The reading side of the state database: keeps a tree of typed entities equal to the documents of a store, and
// lets their reactors fire.
//
//   auto mount = Kel::makePtr<Quillo::Mount>(Quillo::MountConfig{directory});
//   auto manager = Kel::makePtr<Varnix::EntityManager>(root->dirIs("Varnix"), mount);
//   at start, when the doorbell rang, and once a second:
//     if (mount->refresh()) ... run a task: while it may go on, `manager->step(100)` until that is false
//
// The entities of Tree.h are there from the start, at their defaults. Members, and entries of the open directories,
// come and go with their documents; fixed entities go back to their defaults when theirs goes. What refers to an
// entity takes its attributes only when that is there, and what is referred to stays until it is let go: an address
// is never seen without its VRF, however a change is cut into steps. A reference is null only when the store as a
// whole has no such target. What is equal is not set again, after a rebuild either: no row flaps because the
// publisher was restarted or the store was damaged.
//
// Whatever cannot be used is traced at level 0 and left out: a document that is not well-formed, of unknown type or
// without a place, an attribute that the type does not have or whose value is bad, a damaged record. The rest is
// served.
//
// A reactor that throws is traced at level 0; what made it fire stays done, and the rest goes on.
//
// When the store vanishes, cannot be read, or is made anew, the tree keeps what it has; a new store replaces it in
// one go as soon as a publisher has completed a pass over that.

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
  // Makes the tree in `directory`, and from then on is the only one to change it. The mount may be shared; its user
  // calls refresh().
  EntityManager(const Kel::Ptr<Kel::Dir>& directory, Kel::Ptr<Quillo::Mount> mount);
  ~EntityManager() override;

  // True once the first complete pass of a publisher, and everything up to its end, is in the tree. Stays true.
  KEL_STORED(bool, ready, Ready, false)
  // One line for the operator: what is waited for, what is wrong and what to do. Empty when the tree is in step
  // with a complete store.
  KEL_STORED(Kel::String, status, Status)
  KEL_TYPE_END_DECLARE

 public:
  const Tree& tree() const { return tree_; }

  // Takes in at most `limit` (at least 1) documents or changes. True while more remains to be done; false when the
  // tree is as the store was at the last refresh of the mount, or when there is none to read. Reactors run inside;
  // no snapshot of the mount is held meanwhile. Neither step nor the mount's refresh may be called from a reactor.
  bool step(std::size_t limit);

  // Where the shared tables of the VRFs are mounted from; null: from nowhere.
  const Kel::Ptr<const KelQuillo::Mount>& quilloMount() const { return quilloMount_; }
  void quilloMountIs(Kel::Ptr<const KelQuillo::Mount> quilloMount) { quilloMount_ = std::move(quilloMount); }

  // Up to where the tree is in step with the store, once step() has returned false: for others who follow the same
  // mount and are not to be ahead of the tree.
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
