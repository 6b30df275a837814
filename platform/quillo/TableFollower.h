#pragma once
// Follows tables of the store: notifies which keys changed, or that any may have.
//
//   auto follower = Kel::makePtr<Quillo::TableFollower>(mount);
//   const TableWatch watch(follower, {.tables = [&] { ... }, .keys = {{TableId::arp, [&](const auto& key) { ... }}}});
//   after each refresh of the mount, as a task:  while (follower->step(100)) ... yield if you should ...
//
// It holds no data: reactors read what they need from a snapshot of that moment, which may already hold later changes.
// Readers converge: the latest change of a key is notified last.
//
// All who watch a store share one follower, since one journal serves all tables: what it reads for one table it has read
// for every other. Where one table serves many (the routes of all VRFs), one reactor passes a key on to the reader that
// its first bytes name.
//
// Guarantees:
// - No notification before the store holds a complete pass of a publisher. Then `initialized`, once.
// - From then on each key that changes, in the order of the changes.
// - `tables`, for all tables together, when it cannot know what changed: it fell behind the journal's tombstones, the
//   mount opened the store again after damage, or the store was made anew. A new store is left alone until it holds a
//   complete pass, so that nobody takes a half-filled one for all there is.
// - A store that vanished, or cannot be read, changes nothing.

#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "kel/Notifier.h"
#include "kel/Trace.h"
#include "quillo/Mount.h"

namespace Quillo {

// The keys of one table.
class TableKeys : public Kel::Notifier {
 public:
  class Notifiee : public Kel::Notifier::Notifiee {
   public:
    void notifierIs(const Kel::Ptr<const TableKeys>& notifier) { kelAttach(notifier); }
    // The record of that key was added or deleted, or has another value.
    virtual void handleKey(const std::string&) {}
  };
};

class TableFollower : public Kel::Notifier {
 public:
  class Notifiee : public Kel::Notifier::Notifiee {
   public:
    void notifierIs(const Kel::Ptr<const TableFollower>& notifier) { kelAttach(notifier); }
    virtual void handleInitialized() {}
    virtual void handleTables() {}
  };

  // The mount may be shared; its user calls refresh().
  explicit TableFollower(Kel::Ptr<Mount> mount) : mount_(std::move(mount)) {}

  const Kel::Ptr<Mount>& mount() const { return mount_; }
  bool initialized() const { return initialized_; }
  // Always the same for a table.
  Kel::Ptr<const TableKeys> keys(TableId table);

  // Reads at most `limit` (at least 1) changes of the journal, whatever their tables, and calls the reactors, which look
  // things up in the same snapshot. True while more remain. Never throws: damage is reported to the mount, after which
  // `tables` is notified; what reactors throw is traced at level 0. Neither step nor the mount's refresh may be called
  // from a reactor.
  bool step(std::size_t limit) { return step(limit, nullptr); }
  // The same up to the bookmark of another reader of this mount: a reactor to a record then finds what that reader has
  // made of the documents committed before it, or together with it. Reads nothing while the bookmark is of another store.
  bool step(std::size_t limit, const Bookmark& other) { return step(limit, &other); }

  // Every change of this table that is in snapshot() has been notified. False when that cannot be known.
  bool isNotified(TableId table) const;

  // Reports damage that a reader of the tables met. Damage to a record is reported to the mount once, at the end of the
  // next step and together with all other met by then, so that the store is opened again once for all. A record that is
  // still damaged in the store opened again is not reported again. Damage to the whole view is reported at once, each
  // time.
  void corruptionDetected(const Pesk::CorruptionDetectedException& damage) { corruptionDetected(damage.what()); }
  void corruptionDetected(const std::string& message);

  // A reader gave up a walk for all the damage in it. It does not know the keys behind that, so `tables` is notified when
  // the store has changed, though not within half a minute.
  void walkWasEnded();

  // A snapshot to look something up in (Mount::turnSnapshot). Throws StoreException when the store cannot be read; then
  // `tables` is notified once it can be read again, so no caller has to remember what it failed to read.
  std::shared_ptr<Snapshot> snapshot();

 private:
  struct Turn {
    std::shared_ptr<Snapshot> snapshot;
    bool anew = false;
    bool more = false;
    std::vector<Change> changes;
  };
  bool step(std::size_t limit, const Bookmark* other);
  Turn read(std::size_t limit, const Bookmark* other);
  void notifyAnew();
  void notifyKeys(const std::vector<Change>& changes);
  bool viewIsReadable() const;
  void reportDamage();

  Kel::Ptr<Mount> mount_;
  Bookmark mark_;
  std::optional<Bookmark> endedAt_;  // how far the store was followed when a walk was given up
  Kel::Seconds endedTime_ = 0;
  bool initialized_ = false;
  std::string obstacle_;  // the latest that was traced
  std::map<TableId, Kel::Ptr<TableKeys>> keys_;
  std::set<std::string> known_;  // damage of records of this store
  std::vector<std::string> unreported_;
};

// Has functions called for a follower and some of its tables, for as long as it lives.
class TableWatch {
 public:
  struct Handlers {
    std::function<void()> initialized;
    std::function<void()> tables;
    std::map<TableId, std::function<void(const std::string& key)>> keys;
  };
  TableWatch(const Kel::Ptr<TableFollower>& follower, const Handlers& handlers);
  ~TableWatch();
  TableWatch(const TableWatch&) = delete;
  TableWatch& operator=(const TableWatch&) = delete;

 private:
  class OnFollower;
  class OnKeys;
  Kel::Ptr<OnFollower> onFollower_;
  std::vector<Kel::Ptr<OnKeys>> onKeys_;
};

// Calls `call` for each reactor of `notifier` that is an `N`. What one throws is traced at level 0 and does not keep the
// next one from being called.
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
