#pragma once
// The reading side of the store: read-only, in any number of processes, under any user that may write the lock
// file.
//
// A mount is made whether or not there is a store; it waits for one, and follows when the store is recreated.
// Nothing here blocks. In an event loop:
//
//   mount = Kel::makePtr<Mount>(MountConfig{directory});
//   on doorbellFd() readable:  mount->drainDoorbell(); then as below
//   once a second (wake-ups can be lost, the poll cannot), and once at start:
//     while (mount->refresh()) { Snapshot s = mount->snapshot(); ... s.changesSince(bookmark, limit) ... }
//
// refresh() reads the journal head again after each round, so what was committed meanwhile is never slept on.
//
// The lock file "lock.mdb" has to be writable for readers: there they say which version of the data they still
// read, and the publisher does not reuse its pages. Without that a reader would be handed changing pages, so there
// is no fallback for a user who may not write it: the mount says so (`refused`) and tries again with each refresh.

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "kel/Ptr.h"
#include "quillo/Publisher.h"
#include "quillo/Snapshot.h"
#include "quillo/StoreException.h"

namespace Quillo {

struct MountConfig {
  std::string directory = defaultStoreDirectory;
};

// Who holds the publisher lock.
struct PublisherInfo {
  bool alive = false;
  std::int64_t pid = 0;  // as the publisher saw itself; 0 when not alive
  std::string name;
};

class MountImpl;

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

  State state() const;
  // One line: what it waits for or what is wrong, and what to do. Empty when ready.
  const std::string& stateText() const;
  const std::string& directory() const;

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
  int doorbellFd() const;
  // Makes the descriptor quiet again. True when it had rung.
  bool drainDoorbell();

  PublisherInfo publisher() const;

  // Whoever met damage reports it here: it is counted and traced at level 0, and the next refresh opens the store
  // again under a new epoch, in which every older bookmark is `tooOld`, so that all readers of this mount rebuild.
  void corruptionDetected(const Pesk::CorruptionDetectedException& damage);
  void corruptionDetected(const std::string& message);
  std::uint64_t corruptionCount() const;

 private:
  std::unique_ptr<MountImpl> impl_;
  std::shared_ptr<Snapshot> turn_;
  std::function<void()> turnBegins_;
};

}  // namespace Quillo
