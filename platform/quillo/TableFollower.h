#pragma once
// Follows the tables of a store: notifies which keys changed, or that any key may have changed.
//
//   auto follower = Kel::makePtr<Quillo::TableFollower>(mount);
//   const TableWatch watch(follower, {.tables = [&] { ... }, .keys = {{TableId::arp, [&](const auto& key) { ... }}}});
//   after each refresh of the mount, as a task:  while (follower->step(100)) ... yield if you should ...
//
// It holds no data: reactors read records from a current snapshot, which may already hold later changes. Readers
// converge: the latest change of a key is notified last.
//
// All readers of a store share one follower, since one journal holds the changes of all tables. Where one table
// serves many readers (the routes of all VRFs), one reactor passes a key to the reader that the first bytes of the
// key name.
//
// Guarantees:
// - `initialized` is notified once, when the store holds a complete pass of a publisher; nothing is notified before.
// - From then on each changed key is notified, in the order of the changes.
// - `tables` is notified, for all tables together, when the changes are unknown: the follower fell behind the journal's
//   tombstones, the mount reopened the store after damage, or the store was recreated. A new store is read only
//   after its first complete pass, so that readers do not take a half-filled store for a complete one.
// - While the store is missing or unreadable, nothing is notified.

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "kel/Notifier.h"
#include "kel/Trace.h"
#include "quillo/Mount.h"

namespace Quillo {

class TableWatch;

class TableFollower : public Kel::PtrInterface {
 public:
  // The mount may be shared. Requires: the caller refreshes it (Mount::refresh).
  explicit TableFollower(Kel::Ptr<Mount> mount) : mount_(std::move(mount)) {}

  const Kel::Ptr<Mount>& mount() const { return mount_; }
  // Whether `initialized` was notified. Stays true.
  bool initialized() const { return initialized_; }

  // Reads at most `limit` (at least 1) changes of the journal, of any table, and calls the reactors, whose lookups
  // use the same snapshot. Returns true while more changes remain. Never throws: damage is reported to the mount,
  // after which `tables` is notified, and exceptions of reactors are traced at level 0.
  // Requires: reactors call neither step() nor the mount's refresh().
  //
  // With `other`, the bookmark of another reader of this mount, it reads only up to that bookmark. A reactor to a
  // record then finds the entities that this reader made from documents of the same commit or earlier ones. Reads
  // nothing while the bookmark is of another store or epoch.
  bool step(std::size_t limit, const std::optional<Bookmark>& other = std::nullopt);

  // Whether every change of this table in snapshot() has been notified. False when that is unknown.
  bool isNotified(TableId table) const;

  // Reports damage that a reader of the tables found. Damage to a record is reported to the mount once, at the end of
  // the next step, so that one reopening of the store serves all reports until then. If the record is still damaged
  // after that, it is not reported again. Damage to the whole version of the data is reported at once, each time.
  void corruptionDetected(const Pesk::CorruptionDetectedException& damage) { corruptionDetected(damage.what()); }
  void corruptionDetected(const std::string& message);

  // Reports that a reader ended a walk because of too much damage, so it misses the rest of the table. `tables` is
  // notified when the store has changed, but at the earliest after half a minute.
  void reportEndedWalk();

  // The snapshot for a lookup (Mount::turnSnapshot). Throws StoreException when the store cannot be read. Then
  // `tables` is notified as soon as it can be read, so callers need not remember what they failed to read.
  std::shared_ptr<Snapshot> snapshot();

 private:
  friend class TableWatch;
  struct Turn {
    std::shared_ptr<Snapshot> snapshot;
    bool anew = false;
    bool more = false;
    std::vector<Change> changes;
  };
  Turn read(std::size_t limit, const std::optional<Bookmark>& other);
  template <class Call>
  void notify(const Call& call);
  void notifyAnew();
  void notifyKeys(const std::vector<Change>& changes);
  bool viewIsReadable() const;
  void reportDamage();

  Kel::Ptr<Mount> mount_;
  Bookmark mark_;
  std::optional<Bookmark> endedAt_;  // the follower's position when a reader ended a walk
  Kel::Seconds endedTime_ = 0;
  bool initialized_ = false;
  std::string obstacle_;                    // the latest traced message
  std::vector<const TableWatch*> watches_;  // in the order in which they were made
  std::set<std::string> known_;             // damage of records of this store
  std::vector<std::string> unreported_;
};

// Calls functions for the notifications of a follower and some of its tables, during the life of this object. The
// functions may make and destroy watches, their own included. An exception of a function is traced at level 0.
class TableWatch {
 public:
  using OnKey = std::function<void(const std::string& key)>;
  // The notifications of TableFollower; an empty function ignores one.
  struct Handlers {
    std::function<void()> initialized;
    std::function<void()> tables;
    std::map<TableId, OnKey> keys;  // the record of that key was added or deleted, or has another value
  };
  TableWatch(Kel::Ptr<TableFollower> follower, Handlers handlers);
  ~TableWatch();
  TableWatch(const TableWatch&) = delete;
  TableWatch& operator=(const TableWatch&) = delete;

 private:
  friend class TableFollower;
  const Kel::Ptr<TableFollower> follower_;
  const std::shared_ptr<const Handlers> handlers_;
};

// Calls `call` for each reactor of `notifier` that is an `N`. An exception of a reactor is traced at level 0, and the
// next reactor is called.
template <class N, class Call>
void notifyEach(const Kel::Notifier& notifier, Kel::TraceHandle& traceHandle, const Call& call) {
  notifier.kelNotify<N>([&](N& reactor) {
    try {
      call(reactor);
    } catch (const std::exception& error) {
      QTRACE(traceHandle, 0) << "a reactor failed: " << error.what();
    }
  });
}

}  // namespace Quillo
