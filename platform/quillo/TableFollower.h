#pragma once
// Follows tables of the store: says which keys changed, or that anything may have.
//
//   auto follower = Kel::makePtr<Quillo::TableFollower>(mount);
//   auto reactor = Kel::makePtr<MyReactor>();            // a TableKeys::Notifiee
//   reactor->notifierIs(follower->keys(Quillo::TableId::arp));
//   after each refresh of the mount, as a task:  while (follower->step(100)) ... yield if you should ...
//
// It holds no data: reactors read what they need from a snapshot of that moment, in which a change may already be
// followed by others that are told later. They come to the right end, since the last change of a key is told last.
//
// The journal is one for all tables, so one follower is shared by all that watch a store: what it reads for one table
// it has read for every other. Where one table serves many (the routes of all VRFs), its one reactor passes a key on
// to the one that its first bytes name.
//
// What it tells, and when:
// - Nothing before the store holds a complete pass of a publisher. Then `initialized`, once.
// - From then on each key that changes, in the order of the changes.
// - `tables`, for all tables together, when it cannot say what changed: it fell behind the journal's tombstones, the
//   mount opened the store again after damage, or the store was made anew. A new store is left alone until it holds
//   a complete pass, so that nobody takes a half-filled one for what is left.
// A store that vanished, or cannot be read, changes nothing.

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "kel/Notifier.h"
#include "quillo/Mount.h"

namespace Quillo {

// The keys of one table.
class TableKeys : public Kel::Notifier {
 public:
  class Notifiee : public Kel::Notifier::Notifiee {
   public:
    void notifierIs(const Kel::Ptr<const TableKeys>& notifier) { kelAttach(notifier); }
    // The record of that key came, went or has another value.
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

  // Takes in at most `limit` (at least 1) changes of the journal, whatever their tables, and calls the reactors. The
  // snapshot is held meanwhile, so what they look up is there to be read. True while more remains. Never throws: damage
  // is reported to the mount, after which the tables are told; what reactors throw is traced at level 0. Neither step
  // nor the mount's refresh may be called from a reactor.
  bool step(std::size_t limit) { return step(limit, nullptr); }
  // The same, but no further than another reader of this mount has come: whoever reacts to a record then finds what
  // that reader has made of documents committed before it, or together with it. Nothing before it has begun with
  // the store that is there now.
  bool step(std::size_t limit, const Bookmark& other) { return step(limit, &other); }

  // Every change of this table that is in snapshot() has been notified. False when that cannot be known.
  bool isNotified(TableId table) const;

  // Damage that a reader of the tables met. That of a record goes to the mount at the end of the next step, together
  // with what else is met till then: the store is opened again once for all of it, and what can be read is read
  // meanwhile. A record that is damaged still after that is reported no more, or there would be no end of opening.
  // Damage to the whole view goes to the mount at once, each time.
  void corruptionDetected(const Pesk::CorruptionDetectedException& damage) { corruptionDetected(damage.what()); }
  void corruptionDetected(const std::string& message);

  // A reader's walk was ended for all the damage in it. What lies behind that is not told by key when it is mended, so
  // the tables are told once the store has changed, though not within half a minute.
  void walkWasEnded();

  // A snapshot to look something up in (Mount::turnSnapshot). Throws StoreException when there is none to be had; then
  // the tables are told once the store can be read again, so that nobody has to keep account of what it failed to read.
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
  void tellAnew();
  void tellKeys(const std::vector<Change>& changes);
  bool viewIsReadable() const;
  void reportDamage();

  Kel::Ptr<Mount> mount_;
  Bookmark mark_;
  std::optional<Bookmark> endedAt_;  // how far the store was followed when a walk was ended
  Kel::Seconds endedTime_ = 0;
  bool initialized_ = false;
  std::string obstacle_;  // the latest that was traced
  std::map<TableId, Kel::Ptr<TableKeys>> keys_;
  std::set<std::string> known_;  // damage of records of this store
  std::vector<std::string> unreported_;
};

}  // namespace Quillo
