#pragma once
// All that is published, and the way from there to the store.

#include <memory>

#include "mirror/kernel/NeighbourTable.h"
#include "mirror/routes/PublishedRoutes.h"
#include "mirror/vrf/Vrfs.h"
#include "quillo/Publisher.h"
#include "varnix/DocumentPublisher.h"
#include "varnix/Tree.h"

namespace Mirror {

// What the mirrors of the namespaces keep, and what is written to the store.
struct Picture {
  Varnix::Tree tree{Kel::makePtr<Kel::Dir>("")};
  NeighbourTable neighbours;
  PublishedRoutes routes;
  Vrfs vrfs{tree};
};

// Writes the picture to the store.
//
// While the store is full, changes stay pending, and each poll tries to write them again. A store that was removed
// under the publisher is made anew. Three faults are thrown, since the program cannot go on with them: a failure at the
// start, damage, and another publisher in the place of a removed store.
class TreePublisher {
 public:
  // Opens or makes the store. Throws Quillo::StoreException.
  TreePublisher(Picture& picture, Quillo::PublisherConfig config);

  // Writes what changed, in one commit (very many changes of neighbours take several); the first time everything, as
  // a complete pass. Of routes it writes a limited number at a time: call again while isMorePending(). False when that
  // has to wait for a poll, or the complete pass is not complete yet.
  // Throws Quillo::StoreException and Pesk::CorruptionDetectedException.
  bool publish();
  // Of what has to go ahead of the first complete pass: some of the routes that are pending. The same holds.
  void publishRoutes();
  bool isMorePending() const { return !hasFailed_ && picture_.routes.pending() > 0; }
  // To be called once a second: tries again what could not be written, and notices that the store was removed.
  void poll();

  // Everything is in the store.
  bool isUpToDate() const;
  // Not while a store that was removed cannot be made anew.
  const Quillo::Publisher& store() const { return *store_; }

 private:
  void open();
  enum class What { all, routes };
  bool tryPublish(What what = What::all);
  void write(What what);
  void beginPass();
  void writeAll();
  void writeChanges();
  void commit();
  void commitRoutes();
  bool isPending() const;
  bool isGone();

  Picture& picture_;
  Quillo::PublisherConfig config_;
  std::unique_ptr<Quillo::Publisher> store_;
  std::unique_ptr<Varnix::DocumentPublisher> documents_;
  bool isStarted_ = false;        // something was published
  bool isPassBegun_ = false;      // over the store that is open
  bool areDocumentsIn_ = false;   // in this pass
  bool hasPublishedAll_ = false;  // to the store that is open
  bool hasFailed_ = false;
};

}  // namespace Mirror
