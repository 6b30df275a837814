#pragma once
// Checked reading of records in a transaction. Internal to the store.
//
// Records are copied out of the mapping first and checked then, so what the caller gets cannot change or vanish.
// Pesk::CorruptionDetectedException for everything that is not "found" or "not there"; after a fault of the mapping
// every further call raises it.

#include <memory>
#include <optional>
#include <string>

#include "quillo/Corruption.h"
#include "quillo/Environment.h"
#include "quillo/Record.h"

struct MDB_cursor;

namespace Quillo {

// What a failure names: the table (or the store's own index) and the key within it.
[[noreturn]] void damageDetected(Environment& env, Place place, Bytes key, const std::string& what);
[[noreturn]] void damageDetected(Environment& env, Place place, Bytes key, int status);

// `buffer` holds the bytes that the view points into; it only grows, so keep it for the next call.
std::optional<RecordView> readRecord(Environment& env, MDB_txn* txn, Place place, Bytes key, std::string& buffer);

// A walk over one index in key order, to the end of the keys that begin with `prefix`. Closed before its transaction
// ends.
class RecordCursor {
 public:
  RecordCursor(Environment& env, MDB_txn* txn, Place place, Bytes prefix = {});
  ~RecordCursor();
  RecordCursor(const RecordCursor&) = delete;
  RecordCursor& operator=(const RecordCursor&) = delete;

  // To the first key that is not below `lowerBound`; false when there is none.
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
