#pragma once
// The read transaction behind snapshots. Internal to the store.

#include <memory>
#include <optional>

#include "quillo/Meta.h"

namespace Quillo {

// One version of the data. Snapshots and scans share it; the last one ends the transaction. It keeps the store
// open, so a mount may drop a store that faulted while views of it are still around.
//
// The transaction's slot in the lock file is taken for each view and given back: a slot that is kept could be lost
// in between, when the lock file is begun anew.
struct View {
  // What the head of the journal was in a version of the data. Of one open store.
  struct KnownHead {
    std::size_t version;
    Head head;
  };

  // Looks at the head that is known from an earlier view, and leaves its own. Pesk::CorruptionDetectedException;
  // StoreException when all slots are taken.
  View(std::shared_ptr<Environment> opened, std::uint64_t mountEpoch, std::optional<KnownHead>& known);
  ~View();
  View(const View&) = delete;
  View& operator=(const View&) = delete;

  std::shared_ptr<Environment> env;
  MDB_txn* txn = nullptr;
  std::uint64_t epoch;
  Head head;

 private:
  void begin();
  void end();
};

}  // namespace Quillo
