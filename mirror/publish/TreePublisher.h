#pragma once
// The picture, which is everything that the mirror publishes, in memory, and the publisher that writes it to the store.

#include <memory>
#include <optional>

#include "mirror/kernel/NeighbourTable.h"
#include "mirror/routes/PublishedRoutes.h"
#include "mirror/vrf/Vrfs.h"
#include "quillo/Publisher.h"
#include "varnix/DocumentPublisher.h"
#include "varnix/Tree.h"

namespace Mirror {

// The mirrors of all namespaces update it; TreePublisher writes it to the store.
struct Picture {
  Varnix::Tree tree{Kel::makePtr<Kel::Dir>("")};
  NeighbourTable neighbours;
  PublishedRoutes routes;
  Vrfs vrfs{tree};
};

// Writes the picture to the store.
//
// While the store is full, from the start or later, changes stay pending and each poll retries them, without a report to
// readers (see Quillo::Publisher::check). If the store was removed, or is damaged and the configuration's `onDamage`
// returned, the publisher replaces it by an empty one and writes the whole picture. It does so at once; if that recurs
// within a minute, after pauses that grow from 1 s to 10 s (10 s at once after damage). Exceptions must end the program:
// they mean another failure at the start, or another publisher of the store.
class TreePublisher {
 public:
  // Opens or creates the store. Throws Quillo::StoreException.
  TreePublisher(Picture& picture, Quillo::PublisherConfig config);

  // Writes the changes in one commit; very many changes of neighbours take several. The first calls write everything,
  // as a full pass. Each call writes a limited number of routes: call again while isMorePending().
  // Returns whether the full pass is complete and the store could be written.
  // Throws Quillo::StoreException.
  bool publish();
  // Writes a limited number of pending routes, before the first full pass is complete. Throws Quillo::StoreException.
  void publishRoutes();
  bool isMorePending() const { return !hasFailed_ && picture_.routes.pending() > 0; }
  // Call it once a second: retries what could not be written, and notices that the store was removed or damaged. No-op
  // before the first attempt to write. Throws as publish().
  void poll();

  // Whether everything is in the store.
  bool isUpToDate() const;
  const Quillo::Publisher& store() const { return *store_; }

 private:
  void lose(const std::string& why, Kel::Seconds leastPause);
  void damaged(const std::string& why);
  void makeAnew();
  void setFailing(bool isFailing);
  enum class What { all, routes };
  bool tryPublish(What what = What::all);
  void write(What what);
  void beginPass();
  void writeAll();
  void writeChanges();
  void commit();
  void commitRoutes();
  bool isPending() const;

  Picture& picture_;
  Quillo::PublisherConfig config_;
  std::unique_ptr<Quillo::Publisher> store_;
  std::unique_ptr<Varnix::DocumentPublisher> documents_;  // null: the store is lost
  bool isStarted_ = false;                                // something was published
  bool isPassBegun_ = false;                              // over the store that is open
  bool areDocumentsIn_ = false;                           // in this pass
  bool hasPublishedAll_ = false;                          // to the store that is open
  bool hasFailed_ = false;
  bool isCheckDue_ = false;
  std::optional<Kel::Seconds> lastMadeAnew_;
  Kel::Seconds pause_ = 0;  // 0 unless the store was lost again soon
  Kel::Seconds mayMakeAnewAt_ = 0;
};

}  // namespace Mirror
