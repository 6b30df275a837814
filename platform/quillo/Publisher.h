#pragma once
// The writing side of the store.
//
// A store is a directory (on tmpfs, /run/quorin by default) with one publisher at a time and any number of readers
// (Mount.h). docs/store-format.md describes the format.
//
//   Publisher publisher({.directory = "/run/quorin", .name = "quorin-mirrord"});
//   publisher.beginFullPass({TableId::varnix});           // at start, and after an overrun: mark ...
//   Batch batch = publisher.begin();
//   batch.put(TableId::varnix, path, json);               // ... write ...
//   batch.commit();
//   publisher.endFullPass();                              // ... and sweep what was not put again
//
// Only differences are written and journaled: to put the value that is there is no change, so a publisher that was
// killed and starts again wakes no reader for what stayed the same.
//
// Requires one thread, and no fork() while the store is open (open it after daemonising). A Mount of the same directory
// may live in the publisher's process only in tests and one-shot tools, and holds no snapshot over a commit.

#include <sys/types.h>
#include <time.h>

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "quillo/StoreException.h"
#include "quillo/Table.h"

namespace Quillo {

inline constexpr const char* defaultStoreDirectory = "/run/quorin";

struct PublisherConfig {
  std::string directory = defaultStoreDirectory;
  std::string name;  // of the program, for whoever asks who holds the store (one line, no control characters)
  // Removes whatever store is there and begins an empty one. Our own store is deleted; a file that is not recognised as
  // ours is set aside as "data.mdb.foreign".
  bool recreate = false;
  // Readers are members of this group. None: of the group that the directory has.
  std::optional<gid_t> group = std::nullopt;
  // The mapping: address space, not memory. It doubles whenever the data outgrows it, up to the limit.
  std::size_t mapBytes = std::size_t{256} << 20;
  std::size_t maxMapBytes = std::size_t{64} << 30;
  // Deletions that the journal remembers.
  std::uint64_t tombstoneLimit = 100'000;
};

struct CommitResult {
  std::uint64_t changes = 0;  // puts of new values and deletions of keys that were there
  std::uint64_t seq = 0;      // head of the journal after the commit
};

// Who publishes a store.
struct PublisherInfo {
  bool alive = false;
  // As the publisher saw itself. 0 and empty when not alive, or when the one that wrote them is not: the kernel says
  // that a file is locked, but not by whom.
  std::int64_t pid = 0;
  std::string name;

  // "quorin-mirrord (pid 7)", or "another process".
  std::string text() const;
};

class Doorbell;
class Environment;
class Publisher;
class PublisherLock;

// Changes that take effect together, in the order given, or not at all. They are collected in memory and written by
// `commit` in one transaction; a batch that is destroyed without commit leaves no trace.
class Batch {
 public:
  Batch(Batch&&) noexcept = default;
  Batch& operator=(Batch&&) noexcept = default;

  // RangeException for a key that is empty or longer than `maxKeyBytes`, or a value longer than `maxValueBytes`;
  // the rest of the batch stays.
  void put(TableId table, Bytes key, Bytes value);
  // Nothing happens when the key is not there.
  void del(TableId table, Bytes key);
  bool empty() const { return operations_.empty(); }

  // StoreException when it cannot be written (`full`, `gone`, ...): then nothing of the batch is in the store,
  // nothing committed before is lost, and the batch is kept, so that commit can be tried again.
  // CorruptionDetectedException when the store turns out to be damaged: the publisher is of no more use.
  // Afterwards the batch is empty and may be filled again.
  CommitResult commit();

 private:
  friend class Publisher;
  // The bytes of all operations lie in one buffer: a batch of a million is a million small structs, not three million
  // allocations.
  struct Operation {
    TableId table;
    bool isDeletion;
    std::size_t keyAt, keySize, valueAt, valueSize;
  };

  explicit Batch(Publisher& publisher) : publisher_(&publisher) {}
  void add(TableId table, bool isDeletion, Bytes key, Bytes value);
  Bytes key(const Operation& operation) const { return Bytes(bytes_).substr(operation.keyAt, operation.keySize); }
  Bytes value(const Operation& operation) const {
    return Bytes(bytes_).substr(operation.valueAt, operation.valueSize);
  }

  Publisher* publisher_;
  std::vector<Operation> operations_;
  std::string bytes_;
};

class Publisher {
 public:
  // Takes the publisher lock and opens the store, or makes directory and store where there is none. An existing
  // store is read through and checked (0.15 to 0.25 s for a million records). One that is damaged or in another version
  // is made anew, since its contents are derived; one that is mostly free space is copied into a smaller file. Both are
  // traced. Throws StoreException, of kind `foreign` for a file that is no store, and then has changed nothing.
  explicit Publisher(const PublisherConfig& config);
  ~Publisher();
  Publisher(const Publisher&) = delete;
  Publisher& operator=(const Publisher&) = delete;

  Batch begin() { return Batch(*this); }

  // The keys of `tables` that are put from here on are marked as seen; a pass that was under way is forgotten.
  void beginFullPass(const std::vector<TableId>& tables);
  bool fullPassActive() const { return pass_ != nullptr; }
  // Deletes the keys of the pass's tables that were not seen and, in the same transaction, records that a complete
  // pass is in the store. On StoreException the pass goes on: call again.
  CommitResult endFullPass();

  // Begins an empty store in the place of the one that is open, and keeps the lock. To be called after a StoreException
  // `gone` and after damage; a pass that was under way is forgotten. Throws StoreException: call again.
  void makeAnew();

  // To be called once a second. Makes `publisher.lock` and `doorbell` again where they were removed or replaced, and
  // reads the store through and checks it: once a minute, and sooner when a reader has reported damage. Throws
  // StoreException `gone` for a store that was removed or replaced, `owned` when another publisher has taken the lock,
  // and CorruptionDetectedException for a damaged store. After the last, only makeAnew() helps.
  void check();

  // The value as committed, or none. CorruptionDetectedException as for readers.
  std::optional<std::string> get(TableId table, Bytes key) const;

  std::uint64_t seq() const { return head_.seq; }  // of the journal
  std::uint64_t generation() const;                // of the store, never 0
  const std::string& directory() const { return config_.directory; }

 private:
  friend class Batch;
  struct FullPass;

  void open();
  void removeStore();
  void openStore();
  void openChecked();
  void openOrMakeAnew();
  bool compact();
  void ringAll();
  bool isDamageReported();
  void clearStaleReaders();
  // Writes the operations, and a complete pass if asked, as one transaction.
  CommitResult apply(const Batch& batch, bool completesPass);
  int attempt(const Batch& batch, bool completesPass, CommitResult& result);
  bool grow();
  [[noreturn]] void fail(int status);
  void markSeen(const Batch& batch);

  PublisherConfig config_;
  std::unique_ptr<PublisherLock> lock_;
  std::shared_ptr<Environment> env_;
  std::unique_ptr<Doorbell> doorbell_;
  Head head_;
  std::map<TableId, TableState> states_;  // of the tables that were written
  std::string broken_;                    // why nothing can be written any more
  Kel::Seconds lastReaderCheck_ = 0;
  Kel::Seconds lastStoreCheck_ = 0;
  Kel::Seconds nextReportedCheck_ = 0;
  timespec damageReported_{};       // when a reader last reported damage, by the file's time
  std::unique_ptr<FullPass> pass_;  // null when none is under way
};

}  // namespace Quillo
