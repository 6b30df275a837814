#pragma once
// Read transactions, and checked reading of records in a transaction. Internal to the store.
//
// Guarantees: a record is copied out of the mapping before it is checked, so what the caller gets cannot change or
// vanish. Throws Pesk::CorruptionDetectedException for everything but "found" and "not there"; after a fault of the
// mapping every further call throws it.

#include <memory>
#include <optional>
#include <string>

#include "quillo/Environment.h"
#include "quillo/Record.h"
#include "quillo/StoreException.h"

struct MDB_cursor;

namespace Quillo {

// Throws Pesk::CorruptionDetectedException, which names the table (or the store's own index) and the key in it.
[[noreturn]] void damageDetected(Environment& env, Place place, Bytes key, const std::string& what);
[[noreturn]] void damageDetected(Environment& env, Place place, Bytes key, int status);

// None when there is no such record. The result points into `buffer`, which grows as needed: reuse it.
std::optional<RecordView> readRecord(Environment& env, MDB_txn* txn, Place place, Bytes key, std::string& buffer);

// Of a new store they are zeroes, or none.
Head readHead(Environment& env, MDB_txn* txn);
std::optional<CompletePass> readPass(Environment& env, MDB_txn* txn);
TableState readTableState(Environment& env, MDB_txn* txn, TableId table);

// One version of the data, in a read transaction. Snapshots and scans share it; the last of them ends the transaction.
// It keeps the store open, so a mount may drop a store that faulted while views of it are still in use.
//
// Each view takes a slot in the lock file and gives it back: one that is kept could be lost in between, when the lock
// file is begun anew.
struct View {
  // Throws Pesk::CorruptionDetectedException; StoreException when all slots are taken.
  View(std::shared_ptr<Environment> opened, std::uint64_t mountEpoch);
  ~View();
  View(const View&) = delete;
  View& operator=(const View&) = delete;

  std::shared_ptr<Environment> env;
  MDB_txn* txn = nullptr;
  std::uint64_t epoch;  // of the mount; 0 of a publisher's own view
  Head head;
};

// A walk over one index in key order, to the end of the keys that begin with `prefix`. Requires that its transaction
// outlives it.
class RecordCursor {
 public:
  RecordCursor(Environment& env, MDB_txn* txn, Place place, Bytes prefix = {});
  ~RecordCursor();
  RecordCursor(const RecordCursor&) = delete;
  RecordCursor& operator=(const RecordCursor&) = delete;

  // To lower_bound(lowerBound); false when there is none.
  bool seek(Bytes lowerBound);
  bool next();

  // Of the record under the cursor; valid until it moves.
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
