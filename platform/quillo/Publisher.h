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
// Only differences are written and journaled: a put of the present value is a no-op. So the full pass of a restarted
// publisher notifies readers only of what changed meanwhile.
//
// Requires: all calls on one thread; no fork() while the store is open (open it after daemonising). Only tests and
// one-shot tools may have a Mount of the same directory in the publisher's process, and no snapshot during a commit.

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
  std::string name;  // of the program, for PublisherInfo (one line, no control characters)
  // Replaces the existing store by an empty one. A data file that is not a store of this system is renamed to
  // "data.mdb.foreign".
  bool recreate = false;
  // The group whose members may read the store; none: the group of the directory.
  std::optional<gid_t> group = std::nullopt;
  // The mapping: address space, not memory. It doubles whenever the data outgrows it, up to the limit.
  std::size_t mapBytes = std::size_t{256} << 20;
  std::size_t maxMapBytes = std::size_t{64} << 30;
  // Called once with the reason when a write meets damage, before anything else is done. The storage engine edits
  // copies of damaged pages on the heap without checking their offsets, so the process may have overwritten its own
  // memory. A daemon should end or replace its process here, and use the heap as little as possible.
  void (*onDamage)(const char* why) = nullptr;
  // Deletions that the journal remembers.
  std::uint64_t tombstoneLimit = 100'000;
};

struct CommitResult {
  std::uint64_t changes = 0;  // puts of new values, and deletions of existing keys
  std::uint64_t seq = 0;      // head of the journal after the commit
};

// Who publishes a store.
struct PublisherInfo {
  bool alive = false;
  bool isUnknown = false;  // whether one is alive cannot be determined now: no descriptor, no permission
  // As the publisher wrote them into the doorbell. 0 and empty if no publisher is alive, or if the process that wrote
  // them is not: the kernel reports that a file is locked, but not by which process.
  std::int64_t pid = 0;
  std::string name;
  // Seconds since 1970, by the system's clock; 0: unknown. The last two are also those of a publisher that has died.
  Kel::Seconds started = 0;
  Kel::Seconds lastSeen = 0;    // when Publisher::check() last reported
  Kel::Seconds lastCommit = 0;  // or when it opened the store, if that is later

  // "quorin-mirrord (pid 7)", or "another process".
  std::string text() const;
};

class Doorbell;
class Environment;
class Publisher;
class PublisherLock;
class Writer;

// Changes that take effect together, in the order given, or not at all. They are collected in memory and written by
// `commit` in one transaction. Destroying a batch discards the changes that were not committed. Lifetime: the publisher
// outlives its batches.
class Batch {
 public:
  Batch(Batch&&) noexcept = default;
  Batch& operator=(Batch&&) noexcept = default;

  // Throw RangeException, and leave the batch unchanged, for a key that is empty or longer than `maxKeyBytes`, or a
  // value longer than `maxValueBytes`.
  void put(TableId table, Bytes key, Bytes value);
  // No-op at the commit if the store does not have the key.
  void del(TableId table, Bytes key);
  bool empty() const { return operations_.empty(); }

  // Writes the changes and empties the batch, which may then be filled again.
  // Throws StoreException if they cannot be written (`full`, `gone`, ...): the store is unchanged, and the batch keeps
  // its changes, so that commit() can be called again. Throws CorruptionDetectedException if the store is damaged: only
  // Publisher::makeAnew() helps then.
  CommitResult commit();

 private:
  friend class Publisher;
  // An operation without its bytes, which are in one buffer for the whole batch. So a million operations do not need
  // two million allocations.
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
  // Takes the publisher lock and opens the store, or creates the directory and the store. Reads and verifies an
  // existing store (0.15 to 0.25 s for a million records). Replaces a store that is damaged or of another format
  // version by an empty one, since its contents can be published again; copies one that is mostly free space into a
  // smaller file. Both are traced.
  // Throws StoreException; for a file that is not a store it is of kind `foreign`, and nothing was changed.
  explicit Publisher(const PublisherConfig& config);
  ~Publisher();
  Publisher(const Publisher&) = delete;
  Publisher& operator=(const Publisher&) = delete;

  Batch begin() { return Batch(*this); }

  // Begins a pass: from here on, keys of `tables` that are put are marked as seen. Cancels a pass that is under way.
  void beginFullPass(const std::vector<TableId>& tables);
  bool fullPassActive() const { return pass_ != nullptr; }
  // Deletes the keys of the pass's tables that were not seen and, in the same transaction, records that the store has a
  // complete pass. Throws as Batch::commit(); the pass is then still under way, so the call can be repeated.
  // Requires (aborts): a pass is under way.
  CommitResult endFullPass();

  // Replaces the open store by an empty one, and keeps the lock. Cancels a pass that is under way. Call it after a
  // StoreException `gone`, and after damage. Throws StoreException; the call can then be repeated.
  void makeAnew();

  // Call it once a second, which readers see as a report (PublisherInfo::lastSeen) that the store is up to date. With
  // `isUpToDate` false, since the last commit failed, it makes no report. Creates `publisher.lock` and `doorbell`
  // again if they were removed or replaced. Verifies the whole store once a minute, and sooner if a reader
  // has reported damage. Throws StoreException `gone` if the store was removed or replaced, `owned` if another
  // publisher has taken the lock. Throws CorruptionDetectedException if the store is damaged: only makeAnew() helps
  // then.
  void check(bool isUpToDate = true);

  // Returns the committed value; none without such a key. Throws CorruptionDetectedException for a damaged record, and
  // StoreException if the store cannot be read.
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
  void checkForDamage();
  void clearStaleReaders();
  // Writes the operations, and a complete pass if asked, as one transaction.
  CommitResult apply(const Batch& batch, bool completesPass);
  int attempt(const Batch& batch, bool completesPass, CommitResult& result);
  void write(Writer& writer, const Batch& batch, bool completesPass, CommitResult& result);
  void damaged(const char* why);
  bool grow();
  [[noreturn]] void fail(int status);
  void markSeen(const Batch& batch);

  PublisherConfig config_;
  std::unique_ptr<PublisherLock> lock_;
  std::shared_ptr<Environment> env_;
  std::unique_ptr<Doorbell> doorbell_;
  Head head_;
  std::map<TableId, TableState> states_;  // of the tables that were written
  std::string broken_;                    // why the store cannot be written until makeAnew(); empty: it can
  Kel::Seconds lastReaderCheck_ = 0;
  Kel::Seconds lastStoreCheck_ = 0;
  Kel::Seconds nextReportedCheck_ = 0;
  timespec damageReported_{};       // when a reader last reported damage, by the file's time
  std::unique_ptr<FullPass> pass_;  // null when none is under way
};

}  // namespace Quillo
