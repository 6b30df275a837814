#pragma once
// The writing side of the store.
//
// A store is a directory (on tmpfs, /run/quorin by default) with one publisher at a time and any number of readers
// (Mount.h). The format is described in docs/store-format.md.
//
//   Publisher publisher({.directory = "/run/quorin", .name = "quorin-mirrord"});
//   publisher.beginFullPass({TableId::varnix});           // at start, and after an overrun: mark ...
//   Batch batch = publisher.begin();
//   batch.put(TableId::varnix, path, json);               // ... write ...
//   batch.commit();
//   publisher.endFullPass();                              // ... and sweep what was not put again
//
// Only what really differs is written and journaled: a put of the value that is there is no change, so a publisher
// that was killed and starts again wakes no reader for what stayed the same.
//
// Process rules: one thread; not across fork() (open the store after daemonising). A Mount of the same directory
// may live in the same process as the publisher only in tests and one-shot tools, and holds no snapshot over a
// commit.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "quillo/Corruption.h"
#include "quillo/StoreException.h"
#include "quillo/Table.h"

namespace Quillo {

inline constexpr const char* defaultStoreDirectory = "/run/quorin";

struct PublisherConfig {
  std::string directory = defaultStoreDirectory;
  std::string name;  // of the program, for whoever asks who holds the store (one line, no control characters)
  // Removes whatever store is there and begins an empty one. Our own store is deleted, whatever its version or
  // damage; a file that is not recognised as ours is set aside as "data.mdb.foreign".
  bool recreate = false;
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

class Publisher;
class PublisherImpl;
struct BatchOps;

// Changes that take effect together, in the order given, or not at all. They are collected in memory and written by
// `commit` in one transaction; a batch that is destroyed without commit leaves no trace.
class Batch {
 public:
  Batch(Batch&&) noexcept;
  Batch& operator=(Batch&&) noexcept;
  ~Batch();

  // RangeException for a key that is empty or longer than `maxKeyBytes`, or a value longer than `maxValueBytes`;
  // the rest of the batch stays.
  void put(TableId table, Bytes key, Bytes value);
  // Nothing happens when the key is not there.
  void del(TableId table, Bytes key);
  bool empty() const;

  // StoreException when it cannot be written (`full`, `gone`, ...): then nothing of the batch is in the store,
  // nothing committed before is lost, and the batch is kept, so that commit can be tried again.
  // CorruptionDetectedException when the store turns out to be damaged: the publisher is of no more use.
  // Afterwards the batch is empty and may be filled again.
  CommitResult commit();

 private:
  friend class Publisher;
  explicit Batch(PublisherImpl& publisher);
  void add(TableId table, bool deletion, Bytes key, Bytes value);
  PublisherImpl* publisher_;
  std::unique_ptr<BatchOps> ops_;
};

class Publisher {
 public:
  // Takes the publisher lock and opens the store, or makes directory and store where there is none. An existing
  // store is read through and checked (0.15 to 0.25 s for a million records). Throws StoreException, and then has
  // changed nothing.
  explicit Publisher(const PublisherConfig& config);
  ~Publisher();
  Publisher(const Publisher&) = delete;
  Publisher& operator=(const Publisher&) = delete;

  Batch begin();

  // The keys of `tables` that are put from here on are marked as seen; a pass that was under way is forgotten.
  void beginFullPass(const std::vector<TableId>& tables);
  bool fullPassActive() const;
  // Deletes the keys of the pass's tables that were not seen and, in the same transaction, records that a complete
  // pass is in the store. On StoreException the pass goes on: call again.
  CommitResult endFullPass();

  // The value as committed, or none. CorruptionDetectedException as for readers.
  std::optional<std::string> get(TableId table, Bytes key) const;

  std::uint64_t seq() const;         // head of the journal
  std::uint64_t generation() const;  // of the store, never 0
  const std::string& directory() const;

 private:
  std::unique_ptr<PublisherImpl> impl_;
};

}  // namespace Quillo
