#pragma once
// One write transaction, which changes records, journal, tombstones and table states together. Internal to the store.

#include <map>
#include <string>

#include "quillo/RecordReader.h"
#include "quillo/Snapshot.h"

namespace Quillo {

// What stopped the transaction, other than damage: the publisher tries again, or turns it into a StoreException.
struct WriteFailure {
  int status;
};

using TableStates = std::map<TableId, TableState>;

class Writer {
 public:
  // Begins the transaction. All operations throw WriteFailure or Pesk::CorruptionDetectedException. Nothing is written
  // before commit(); the destructor aborts a transaction that was not committed.
  Writer(Environment& env, const Head& head, const TableStates& states, std::uint64_t tombstoneLimit);
  ~Writer();
  Writer(const Writer&) = delete;
  Writer& operator=(const Writer&) = delete;

  // Return whether they changed the table.
  bool put(TableId table, Bytes key, Bytes value);
  bool del(TableId table, Bytes key);
  // Records a complete pass, with the current head of the journal as its `seq`.
  void recordPass(CompletePass pass);

  void commit();

  const Head& head() const { return head_; }
  const TableStates& states() const { return states_; }

 private:
  void store(Place place, const std::string& key, std::uint64_t seq, std::uint16_t layout, Bytes value,
             unsigned flags);
  void erase(Place place, const std::string& key);
  void appendJournal(std::uint64_t seq, Change::Kind kind, const std::string& key);
  void eraseTombstone(const std::string& key);
  void dropTombstones();
  TableState& stateOf(TableId table);

  Environment& env_;
  MDB_txn* txn_ = nullptr;
  Head head_;
  TableStates states_;
  std::uint64_t tombstoneLimit_;
  std::string old_;     // the record being replaced
  std::string record_;  // the record being made
};

}  // namespace Quillo
