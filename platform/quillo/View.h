#pragma once
// The read transaction behind snapshots. Internal to the store.

#include <memory>

#include "quillo/Meta.h"

namespace Quillo {

// An open store with the one read transaction that is renewed for each view: its slot in the lock file stays taken.
struct MountedStore {
  explicit MountedStore(const std::string& directory);
  ~MountedStore();
  MountedStore(const MountedStore&) = delete;
  MountedStore& operator=(const MountedStore&) = delete;

  // False when the lock file was begun anew and our slot in it is no longer ours: open the store again.
  // Pesk::CorruptionDetectedException.
  bool renew();
  void reset();

  Environment env;
  MDB_txn* txn = nullptr;
};

// One version of the data. Snapshots and scans share it; the last one ends the transaction. It keeps the store
// open, so a mount may drop a store that faulted while views of it are still around.
struct View {
  // `mounted` has been renewed.
  View(std::shared_ptr<MountedStore> mounted, std::uint64_t mountEpoch);
  ~View();
  View(const View&) = delete;
  View& operator=(const View&) = delete;

  std::shared_ptr<MountedStore> store;
  std::uint64_t epoch;
  Head head;
};

}  // namespace Quillo
