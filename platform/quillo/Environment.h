#pragma once
// A store's data file and lock file, opened, and the identity that the data bear. Internal to the store.

#include <sys/types.h>

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
  enum class Access { read, publish };

  // Opens the file and its indexes and checks who wrote it. A publisher makes a new store of an absent or empty file. For
  // a reader, a store that is missing or incomplete is a StoreException `notReady`. Any other StoreException stays true
  // until the file changes. A file that cannot be opened is `damaged` where it holds names of ours or lies beside a
  // doorbell, and otherwise `foreign`. It is left unchanged.
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

  // Another file, or none, has the name of the data file or of the lock file now, or the lock file was cut short.
  bool replaced() const;
  // Bytes of address space.
  std::size_t mapBytes() const;
  // Bytes of the pages that hold data.
  std::size_t usedBytes() const;

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

// Whether the data file of a directory is, or was, a store of ours: it holds our names, or lies beside a doorbell.
bool isStoreOfOurs(const std::string& directory);

// "<what>" for a status of the storage engine or of the fault guard.
std::string statusText(int status);

// Key of the store's identity in the index of records. Its value is readable in every format version:
// docs/store-format.md.
std::string identityKey();

}  // namespace Quillo
