#pragma once
// What the store records about itself, as records of table 0. Internal to the store.

#include <cstdint>
#include <optional>
#include <string>

#include "quillo/RecordReader.h"
#include "quillo/Snapshot.h"

namespace Quillo {

struct Head {
  std::uint64_t seq = 0;         // of the latest change
  std::uint64_t floor = 0;       // the highest sequence number of a dropped tombstone
  std::uint64_t tombstones = 0;  // deletions that the journal holds
};

inline constexpr std::uint16_t metaLayout = 1;

std::string headKey();
std::string passKey();
std::string tableStateKey(TableId table);

std::string encodeHead(const Head& head);
std::string encodePass(const CompletePass& pass);
std::string encodeTableState(const TableState& state);

// Absent records are a new store's: zeroes, or none. Pesk::CorruptionDetectedException.
Head readHead(Environment& env, MDB_txn* txn);
std::optional<CompletePass> readPass(Environment& env, MDB_txn* txn);
TableState readTableState(Environment& env, MDB_txn* txn, TableId table);

}  // namespace Quillo
