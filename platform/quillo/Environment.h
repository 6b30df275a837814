#pragma once
// The files of a store directory, and one of them opened: the data, with the identity that they bear. Internal to the
// store.

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>

#include "quillo/FaultGuard.h"
#include "quillo/Record.h"
#include "quillo/StoreException.h"

struct MDB_env;
struct MDB_txn;

namespace Quillo {

inline constexpr std::uint32_t formatVersion = 1;

inline std::string dataFile(const std::string& directory) {
  return directory + "/data.mdb";
}
inline std::string lockFile(const std::string& directory) {
  return directory + "/lock.mdb";
}
inline std::string doorbellFile(const std::string& directory) {
  return directory + "/doorbell";
}
inline std::string publisherLockFile(const std::string& directory) {
  return directory + "/publisher.lock";
}
inline std::string foreignFile(const std::string& directory) {
  return directory + "/data.mdb.foreign";
}

class Environment {
 public:
  enum class Access { read, publish };

  // Opens the file and its indexes and checks who wrote it. A publisher makes a new store of an absent or empty file. For
  // a reader, a store that is missing or incomplete is a StoreException `notReady`. Any other StoreException stays true
  // until the file changes. A file that is not our store is left unchanged.
  Environment(const std::string& directory, Access access, std::size_t mapBytes);
  ~Environment();
  Environment(const Environment&) = delete;
  Environment& operator=(const Environment&) = delete;

  MDB_env* handle() const { return env_; }
  unsigned index(Place place) const { return indexes_[static_cast<std::size_t>(place)]; }
  const std::string& directory() const { return directory_; }
  std::uint64_t generation() const { return generation_; }

  // Begins a read transaction, which endRead() ends; follows a publisher that enlarges the map. A status of the
  // storage engine or of the fault guard.
  int beginRead(MDB_txn*& txn) const;
  static void endRead(MDB_txn* txn);

  // Another file, or none, has the file's name now.
  bool replaced() const;
  // Bytes of address space.
  std::size_t mapBytes() const;

  // The head of the journal in the version of the data that was read last.
  struct KnownHead {
    std::size_t version;
    Head head;
  };
  std::optional<KnownHead>& knownHead() { return knownHead_; }

  // A fault was met in the mapping: the storage engine's own state in memory may be inconsistent.
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

  std::string directory_;
  MDB_env* env_ = nullptr;
  unsigned indexes_[4] = {};
  std::uint64_t generation_ = 0;
  std::optional<KnownHead> knownHead_;
  bool faulted_ = false;
  dev_t device_ = 0;
  ino_t inode_ = 0;
};

// "<what>" for a status of the storage engine or of the fault guard.
std::string statusText(int status);

// Key of the store's identity in the index of records. Its value is readable in every format version:
// docs/store-format.md.
std::string identityKey();

}  // namespace Quillo
