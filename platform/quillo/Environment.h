#pragma once
// An open store: its data file and lock file, and the identity record in the data. Internal to the store.

#include <sys/types.h>

#include <array>
#include <cstdint>
#include <optional>
#include <string>

#include "quillo/FaultGuard.h"
#include "quillo/Record.h"
#include "quillo/StoreException.h"
#include "quillo/StoreFiles.h"

struct MDB_env;
struct MDB_txn;

namespace Quillo {

inline constexpr std::uint32_t formatVersion = 1;

class Environment {
 public:
  // probe: opens the file without locks, to read it as a new reader would. Allowed beside another environment of the
  // same process, which LMDB otherwise forbids, but only while nothing commits.
  enum class Access { read, publish, probe };

  // Opens the file and its indexes, and checks that this system wrote it. A publisher creates a new store if the file
  // is missing or empty. `mapBytes`: a publisher's mapping; unused otherwise.
  // Throws StoreException, and leaves the file unchanged. To a reader, a missing or incomplete store is `notReady`. A
  // file that cannot be opened is `damaged` if it is a store of this system (isStoreOfOurs), else `foreign`. Except for
  // `notReady`, another attempt fails in the same way until the file changes.
  Environment(const std::string& directory, Access access, std::size_t mapBytes);
  ~Environment();
  Environment(const Environment&) = delete;
  Environment& operator=(const Environment&) = delete;

  MDB_env* handle() const { return env_; }
  unsigned index(Place place) const { return indexes_[static_cast<std::size_t>(place)]; }
  const std::string& directory() const { return directory_; }
  std::uint64_t generation() const { return generation_; }

  // Begins a read transaction, which endRead() ends. Enlarges the mapping if the publisher has enlarged the file.
  // Returns 0, or a status of the storage engine or of the fault guard (mappingFault).
  int beginRead(MDB_txn*& txn) const;
  static void endRead(MDB_txn* txn);

  // Whether the data file or the lock file was removed or replaced under its name, or the lock file was truncated.
  bool replaced() const;
  // Bytes of address space.
  std::size_t mapBytes() const;
  // Bytes of the pages that hold data.
  std::size_t usedBytes() const;
  // The same of each index (Place), in a read transaction. Zeroes when they cannot be read.
  std::array<std::size_t, 4> indexBytes(MDB_txn* txn) const;

  // The head of the journal in the version of the data that was read last.
  struct KnownHead {
    std::size_t version;
    Head head;
  };
  std::optional<KnownHead>& knownHead() { return knownHead_; }

  // Whether an access to the mapping has faulted, so that the storage engine's state in memory may be inconsistent.
  bool faulted() const { return faulted_; }
  void setFaulted() { faulted_ = true; }

 private:
  void open(Access access, std::size_t mapBytes);
  void readIdentity(Access access);
  bool openIndexes(MDB_txn* txn);
  void checkIdentity(MDB_txn* txn);
  void create();
  [[noreturn]] void fail(int status, Access access) const;
  void close();

  FaultHandlers handlers_;
  std::string directory_;
  MDB_env* env_ = nullptr;
  unsigned indexes_[4] = {};
  std::uint64_t generation_ = 0;
  std::optional<KnownHead> knownHead_;
  bool faulted_ = false;
  // One of the two files, as it was opened.
  struct OpenFile {
    dev_t device = 0;
    ino_t inode = 0;
    off_t bytes = 0;
  };
  OpenFile data_, lock_;
};

// Whether the data file of a directory is, or was, a store of this system: it contains the names of our indexes, or the
// directory has a doorbell.
bool isStoreOfOurs(const std::string& directory);

// The text for a status of the storage engine or of the fault guard.
std::string statusText(int status);

// Key of the store's identity in the index of records. Its value is readable in every format version:
// docs/store-format.md.
std::string identityKey();

}  // namespace Quillo
