#pragma once
// Read transactions, and checked reading of records in a transaction. Internal to the store.
//
// Guarantees: a record is copied out of the mapping before it is checked, so the result cannot change or vanish.
// Throws Pesk::CorruptionDetectedException for every failure other than a missing record; after a fault of the mapping
// every further call throws it.

#include <memory>
#include <optional>
#include <string>

#include "quillo/Environment.h"
#include "quillo/Record.h"
#include "quillo/StoreException.h"

struct MDB_cursor;

namespace Quillo {

// Throw Pesk::CorruptionDetectedException, which names the table (or the store's own index) and the key in it.
[[noreturn]] void damageDetected(Environment& env, Place place, Bytes key, const std::string& what);
[[noreturn]] void damageDetected(Environment& env, Place place, Bytes key, int status);

// nullopt when there is no such record. The result points into `buffer`, which grows as needed and should be reused.
std::optional<RecordView> readRecord(Environment& env, MDB_txn* txn, Place place, Bytes key, std::string& buffer);

// Whether a search finds the key. Its record is not read, so damage in it is left to readRecord().
bool isFound(Environment& env, MDB_txn* txn, Place place, Bytes key);

// Zeroes, or nullopt, in a new store.
Head readHead(Environment& env, MDB_txn* txn);
std::optional<CompletePass> readPass(Environment& env, MDB_txn* txn);
TableState readTableState(Environment& env, MDB_txn* txn, TableId table);

// A read transaction: one version of the data. Snapshots and scans share it, and the last of them ends it. A view
// keeps its store open, so a mount may release a store that faulted while views of it are in use.
//
// Each view takes a reader slot of the lock file and frees it at its end. A slot kept for the next view could be lost,
// since the lock file may be recreated in between.
struct View {
  // Throws Pesk::CorruptionDetectedException; StoreException when all slots are taken.
  View(std::shared_ptr<Environment> opened, std::uint64_t mountEpoch);
  ~View();
  View(const View&) = delete;
  View& operator=(const View&) = delete;

  std::shared_ptr<Environment> env;
  MDB_txn* txn = nullptr;
  std::uint64_t epoch;  // of the mount; 0 in a publisher's own view
  Head head;
};

// A walk over one index in key order, to the end of the keys that begin with `prefix`. Lifetime: the transaction must
// outlive it.
class RecordCursor {
 public:
  RecordCursor(Environment& env, MDB_txn* txn, Place place, Bytes prefix = {});
  ~RecordCursor();
  RecordCursor(const RecordCursor&) = delete;
  RecordCursor& operator=(const RecordCursor&) = delete;

  // Moves to lower_bound(lowerBound); false when there is none.
  bool seek(Bytes lowerBound);
  bool next();

  // The record at the cursor; valid until the cursor moves.
  Bytes key() const { return {key_, keySize_}; }
  const RecordView& record() const { return record_; }

 private:
  static constexpr std::size_t engineKeyBytes = 511;
  bool move(int operation, Bytes lowerBound);
  int fetch(int operation, Bytes lowerBound);
  void checkEnd();

  Environment& env_;
  Place place_;
  std::string prefix_;
  MDB_cursor* cursor_ = nullptr;
  char key_[engineKeyBytes];
  std::size_t keySize_ = 0;
  std::string previous_;
  std::string buffer_;
  std::size_t size_ = 0;
  RecordView record_;
};

}  // namespace Quillo
