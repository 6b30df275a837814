#pragma once
// Encodes and decodes one record of the store (a fixed header, then the value), and the values of the store's own
// records. Layout in docs/store-format.md. Internal to the store.

#include <cstdint>
#include <optional>
#include <string>

#include "quillo/Table.h"

namespace Quillo {

// The store's indexes. The index is part of a record's checksum, so that a page in a wrong index is detected. The
// numbers are part of the format.
enum class Place : std::uint8_t { records = 0, journal = 1, graves = 2, graveOrder = 3 };

inline constexpr std::size_t recordHeaderBytes = 24;

struct RecordView {
  std::uint64_t checksum = 0;
  std::uint64_t seq = 0;
  std::uint16_t layout = 0;
  Bytes value;  // points into the bytes that were decoded
};

// Encodes a record into `out`, replacing its contents. `key` is the record's key in that index.
void recordEncode(std::string& out, Place place, Bytes key, std::uint64_t seq, std::uint16_t layout, Bytes value);
// The checksum of a record that recordEncode made.
std::uint64_t recordChecksum(Bytes record);
// Returns null, or what is wrong with the record.
const char* recordDecode(RecordView& out, Place place, Bytes key, Bytes record);

// Numbers of 8 bytes: big-endian in keys, so that memcmp orders them, and little-endian in values.
std::string seqKey(std::uint64_t seq);
std::uint64_t seqOfKey(Bytes key);
void appendU64(std::string& out, std::uint64_t value);
std::uint64_t readU64(Bytes bytes, std::size_t offset);

// The key in the index of records: the table's number, then the key in the table.
std::string recordKey(TableId table, Bytes key);

// Layout of the records of table 0.
inline constexpr std::uint16_t metaLayout = 1;

std::string headKey();
std::string passKey();
std::string tableStateKey(TableId table);

std::string encodeHead(const Head& head);
std::string encodePass(const CompletePass& pass);
std::string encodeTableState(const TableState& state);

// nullopt when the value is too short.
std::optional<Head> decodeHead(Bytes value);
std::optional<CompletePass> decodePass(Bytes value);
std::optional<TableState> decodeTableState(Bytes value);

}  // namespace Quillo
