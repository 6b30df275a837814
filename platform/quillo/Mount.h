#pragma once
// The reading side of the store: read-only, in any number of processes, under any user that may write the lock file.
//
// A mount needs no store when it is made; it waits for one, and follows when the store is recreated. Nothing here
// blocks. In an event loop:
//
//   mount = Kel::makePtr<Mount>(MountConfig{directory});
//   on doorbellFd() readable:  mount->drainDoorbell(); then as below
//   once a second (wake-ups can be lost, the poll cannot), and once at start:
//     while (mount->refresh()) { Snapshot s = mount->snapshot(); ... s.changesSince(bookmark, limit) ... }
//
// refresh() reads the journal's head again after each round, so no commit that was made meanwhile is missed.
//
// Requires that readers can write the lock file "lock.mdb": there they register which version of the data they read, and
// the publisher does not reuse its pages. A mount whose user may not write it is `refused` and tries again with each
// refresh.

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
    waiting,  // no store there yet (or it was removed)
    ready,
    refused,  // a store is there that cannot be read: foreign, of another version, not permitted
    damaged,  // damage was met; the store is opened again after a pause that grows from 0 to 30 s while damage
              // recurs
  };

  explicit Mount(const MountConfig& config);
  ~Mount() override;

  State state() const { return state_; }
  // One line: what it waits for or what is wrong, and what to do. Empty when ready.
  const std::string& stateText() const { return stateText_; }
  const std::string& directory() const { return directory_; }

  // Opens the store if there is one now, notices that it was replaced or removed, carries out a wanted reopen, and
  // reads the head. True when there is something to do since the last call: another state, another store, another
  // journal head, a complete pass. Call it between turns: asserts that no snapshot lives.
  bool refresh();

  // StoreException `notReady` unless state() is ready, `full` when as many readers read as the store takes (512);
  // Pesk::CorruptionDetectedException. Snapshots that live at the same time share one view.
  Snapshot snapshot();

  // The same snapshot for all who look something up in one turn of the event loop, so that a lookup costs no read
  // transaction of its own. It ends with turnEnds(), with refresh(), and when damage is reported. Use it at once and
  // keep nothing of it. Throws as snapshot() does.
  std::shared_ptr<Snapshot> turnSnapshot();
  // `begins` is called whenever such a snapshot is taken, and sees to it that turnEnds() is called before the process
  // waits again. Until it is set, turnSnapshot() gives each caller one of its own. It must not throw.
  void turnBeginsIs(std::function<void()> begins) { turnBegins_ = std::move(begins); }
  void turnEnds() { turn_ = nullptr; }

  // Readable when the publisher committed, or when the store came, went or was replaced. -1 when the system has no
  // watch left to give: then only the poll remains. The number never changes during the life of the mount.
  int doorbellFd() const { return watch_.fd(); }
  // Makes the descriptor quiet again. True when it had rung.
  bool drainDoorbell() { return watch_.drain(); }

  PublisherInfo publisher() const;

  // Whoever met damage reports it here: it is counted and traced at level 0, and the next refresh opens the store
  // again under a new epoch, in which every older bookmark is `tooOld`, so that all readers of this mount rebuild.
  void corruptionDetected(const Pesk::CorruptionDetectedException& damage);
  void corruptionDetected(const std::string& message);
  std::uint64_t corruptionCount() const { return corruptionCount_; }

 private:
  // What a refresh compares with the one before.
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
  Kel::Seconds pause_ = 0;  // between damage and the next attempt

  std::shared_ptr<Snapshot> turn_;
  std::function<void()> turnBegins_;
};

}  // namespace Quillo
