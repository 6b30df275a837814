#pragma once
// What stands behind Publisher and Batch. Internal to the store.

#include <boost/unordered/unordered_flat_set.hpp>
#include <set>

#include "quillo/Doorbell.h"
#include "quillo/Publisher.h"
#include "quillo/PublisherLock.h"
#include "quillo/Writer.h"

namespace Quillo {

// Operations in the order given. The bytes of all of them lie in one buffer: a batch of a million operations is a
// million small structs, not three million allocations.
struct BatchOps {
  struct Op {
    TableId table;
    bool deletion;
    std::size_t keyAt, keySize, valueAt, valueSize;
  };
  std::vector<Op> list;
  std::string bytes;
  Bytes key(const Op& op) const { return Bytes(bytes).substr(op.keyAt, op.keySize); }
  Bytes value(const Op& op) const { return Bytes(bytes).substr(op.valueAt, op.valueSize); }
};

class PublisherImpl {
 public:
  explicit PublisherImpl(const PublisherConfig& config);

  // Writes the operations, and a complete pass if asked, as one transaction.
  CommitResult apply(const BatchOps& ops, bool completesPass);

  void beginFullPass(const std::vector<TableId>& tables);
  bool fullPassActive() const { return passActive_; }
  CommitResult endFullPass();

  std::optional<std::string> get(TableId table, Bytes key);
  std::uint64_t seq() const { return head_.seq; }
  std::uint64_t generation() const { return env_->generation(); }
  const std::string& directory() const { return config_.directory; }

 private:
  // The full 128 bits of a key's hash stand for the key: of a billion keys, two meet once in 10^20 stores.
  struct Digest {
    std::uint64_t low, high;
    bool operator==(const Digest&) const = default;
  };
  struct DigestHash {
    using is_avalanching = void;
    std::size_t operator()(const Digest& digest) const { return digest.low; }
  };
  static Digest digestOf(TableId table, Bytes key);

  void makeDirectory();
  void removeStore();
  void openStore();
  void openAgain();
  void checkAndLoad();
  void clearStaleReaders();
  int attempt(const BatchOps& ops, bool completesPass, CommitResult& result);
  bool grow();
  [[noreturn]] void fail(int status);
  void markSeen(const BatchOps& ops);
  template <class F>
  void reading(const F& use);

  PublisherConfig config_;
  std::optional<PublisherLock> lock_;
  std::optional<Environment> env_;
  std::optional<Doorbell> doorbell_;
  Head head_;
  TableStates states_;
  std::string broken_;  // why nothing can be written any more
  Kel::Seconds lastReaderCheck_ = 0;

  bool passActive_ = false;
  std::set<TableId> passTables_;
  boost::unordered_flat_set<Digest, DigestHash> seen_;
};

}  // namespace Quillo
