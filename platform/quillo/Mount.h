#pragma once
// A reader's handle of the store: read-only, in any number of processes.
//
// The store need not exist: a mount waits for it, and opens a recreated store. Nothing here blocks. In an event loop:
//
//   mount = Kel::makePtr<Mount>(MountConfig{directory});
//   on doorbellFd() readable:  mount->drainDoorbell(); then as below
//   once at start, and once a second since wake-ups can be lost:
//     while (mount->refresh()) { Snapshot s = mount->snapshot(); ... s.changesSince(bookmark, limit) ... }
//
// Each refresh() reads the current head of the journal, so the loop misses no commit that is made meanwhile.
//
// Requires: the user can write the lock file "lock.mdb". Readers register there which version of the data they read, so
// that the publisher does not reuse its pages. Without that permission the mount is `refused`; each refresh tries
// again.

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "kel/Ptr.h"
#include "quillo/Doorbell.h"
#include "quillo/Publisher.h"
#include "quillo/Snapshot.h"

namespace Quillo {

struct MountConfig {
  std::string directory = defaultStoreDirectory;
};

class Environment;
struct View;

class Mount : public Kel::PtrInterface {
 public:
  enum class State {
    waiting,  // there is no store
    ready,
    refused,  // the store cannot be read: foreign, of another version, not permitted
    damaged,  // damage was found; the mount reopens the store after a pause, which grows from 0 to 10 s if damage
              // recurs
  };

  // Does not open the store: refresh() does. Does not throw.
  explicit Mount(const MountConfig& config);
  ~Mount() override;

  State state() const { return state_; }
  // One line for the operator: what the mount waits for or what is wrong, and what to do. Empty when ready.
  const std::string& stateText() const { return stateText_; }
  const std::string& directory() const { return directory_; }

  // Opens the store when it appeared or was replaced, closes it when it was removed, reopens it after damage, and
  // reads the journal's head. Returns whether state, store, journal head or complete pass differ from the last call.
  // Requires: no snapshot exists (asserted), so call it between turns.
  bool refresh();

  // Whether records can be looked up: also between damage and the next attempt, since the other records are sound.
  bool isReadable() const;
  // Takes a snapshot of the store as it is now. Snapshots that exist at the same time share one read transaction.
  // Throws StoreException: `notReady` unless isReadable(), `full` when 512 readers use the store. Throws
  // Pesk::CorruptionDetectedException if the journal's head cannot be read.
  Snapshot snapshot();

  // A snapshot that all lookups of one turn of the event loop share, so that each needs no read transaction of its own.
  // turnEnds(), refresh() and a report of damage release it. Requires: the caller keeps it no longer than its lookup.
  // Throws as snapshot().
  std::shared_ptr<Snapshot> turnSnapshot();
  // Sets a function that is called whenever a shared snapshot is taken. Until it is set, each call of
  // turnSnapshot() takes a snapshot of its own.
  // Requires: it ensures that turnEnds() is called before the event loop waits again, and does not throw.
  void setTurnHandler(std::function<void()> begins) { turnBegins_ = std::move(begins); }
  // Releases the shared snapshot; no-op without one.
  void turnEnds() { turn_ = nullptr; }

  // Readable after a commit, and when the store was created, removed or replaced. -1 if inotify is not available: then
  // only the poll works. Constant for the life of the mount.
  int doorbellFd() const { return watch_.fd(); }
  // Ends the readability of the descriptor. Returns whether it was readable.
  bool drainDoorbell() { return watch_.drain(); }

  // The publisher of the store, by its lock on the doorbell; also without a readable store.
  PublisherInfo publisher() const;

  // Reports damage: counts it, traces it at level 0, notifies the publisher and begins a new epoch, in which older
  // bookmarks are `tooOld`. A later refresh reopens the store, and then all readers of this mount rebuild.
  void corruptionDetected(const Pesk::CorruptionDetectedException& damage) {
    corruptionDetected(std::string(damage.what()));
  }
  void corruptionDetected(const std::string& message);
  std::uint64_t corruptionCount() const { return corruptionCount_; }

 private:
  // The state that refresh() compares with that of the previous call.
  struct Sight {
    State state = State::waiting;
    std::uint64_t epoch = 0;
    std::uint64_t seq = 0;
    Kel::Seconds passTime = 0;
    bool operator==(const Sight&) const = default;
  };

  void stateIs(State state, const std::string& text);
  void noticeReplacement();
  void open();
  void close();
  void look(Sight& sight);
  void reportToPublisher();
  std::shared_ptr<View> view();

  std::string directory_;
  DoorbellWatch watch_;
  std::shared_ptr<Environment> store_;
  std::weak_ptr<View> view_;
  State state_ = State::waiting;
  std::string stateText_;
  std::uint64_t epoch_ = 1;  // not 0, so that a default bookmark belongs to no epoch
  std::optional<Sight> seen_;

  std::uint64_t corruptionCount_ = 0;
  Kel::Seconds corruptionTime_ = 0;
  Kel::Seconds nextReport_ = 0;
  Kel::Seconds pause_ = 0;  // between damage and the next attempt

  std::shared_ptr<Snapshot> turn_;
  std::function<void()> turnBegins_;
};

}  // namespace Quillo
