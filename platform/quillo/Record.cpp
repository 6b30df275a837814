#include "quillo/Record.h"

#include <xxhash.h>

#include <bit>
#include <cstring>
#include <initializer_list>

namespace Quillo {

static_assert(std::endian::native == std::endian::little, "the store's numbers are written as they lie in memory");

namespace {

// Offsets of the header's fields.
constexpr std::size_t checksumAt = 0;
constexpr std::size_t seqAt = 8;
constexpr std::size_t lengthAt = 16;
constexpr std::size_t layoutAt = 20;
// At 22: two bytes, zero.

template <class T>
T load(Bytes bytes, std::size_t offset) {
  T value;
  std::memcpy(&value, bytes.data() + offset, sizeof value);
  return value;
}

template <class T>
void store(std::string& bytes, std::size_t offset, T value) {
  std::memcpy(bytes.data() + offset, &value, sizeof value);
}

std::uint64_t checksumOf(Place place, Bytes key, Bytes record) {
  std::uint64_t seed = XXH3_64bits_withSeed(key.data(), key.size(), static_cast<std::uint64_t>(place));
  return XXH3_64bits_withSeed(record.data() + seqAt, record.size() - seqAt, seed);
}

std::string metaKey(Bytes name) {
  return std::string(1, '\0').append(name);
}

std::string encodeNumbers(std::initializer_list<std::uint64_t> numbers) {
  std::string bytes;
  for (const auto number : numbers) appendU64(bytes, number);
  return bytes;
}

}  // namespace

void recordEncode(std::string& out, Place place, Bytes key, std::uint64_t seq, std::uint16_t layout, Bytes value) {
  out.assign(recordHeaderBytes, '\0');
  store(out, seqAt, seq);
  store(out, lengthAt, static_cast<std::uint32_t>(value.size()));
  store(out, layoutAt, layout);
  out.append(value);
  store(out, checksumAt, checksumOf(place, key, out));
}

std::uint64_t recordChecksum(Bytes record) {
  return load<std::uint64_t>(record, checksumAt);
}

const char* recordDecode(RecordView& out, Place place, Bytes key, Bytes record) {
  if (record.size() < recordHeaderBytes) return "record shorter than its header";
  if (load<std::uint32_t>(record, lengthAt) != record.size() - recordHeaderBytes) {
    return "wrong length in the record's header";
  }
  out.checksum = load<std::uint64_t>(record, checksumAt);
  if (out.checksum != checksumOf(place, key, record)) return "checksum mismatch";
  out.seq = load<std::uint64_t>(record, seqAt);
  out.layout = load<std::uint16_t>(record, layoutAt);
  out.value = record.substr(recordHeaderBytes);
  return nullptr;
}

std::string seqKey(std::uint64_t seq) {
  std::string key(8, '\0');
  store(key, 0, __builtin_bswap64(seq));
  return key;
}

std::uint64_t seqOfKey(Bytes key) {
  return key.size() == 8 ? __builtin_bswap64(load<std::uint64_t>(key, 0)) : 0;
}

void appendU64(std::string& out, std::uint64_t value) {
  out.resize(out.size() + 8);
  store(out, out.size() - 8, value);
}

std::uint64_t readU64(Bytes bytes, std::size_t offset) {
  return load<std::uint64_t>(bytes, offset);
}

std::string recordKey(TableId table, Bytes key) {
  std::string out;
  out.reserve(key.size() + 1);
  out.push_back(static_cast<char>(table));
  out.append(key);
  return out;
}

std::string headKey() {
  return metaKey("head");
}

std::string passKey() {
  return metaKey("pass");
}

std::string tableStateKey(TableId table) {
  return metaKey("table").append(1, static_cast<char>(table));
}

std::string encodeHead(const Head& head) {
  return encodeNumbers({head.seq, head.floor, head.tombstones});
}

std::string encodePass(const CompletePass& pass) {
  return encodeNumbers({pass.seq, std::bit_cast<std::uint64_t>(pass.time)}) + pass.publisher;
}

std::string encodeTableState(const TableState& state) {
  return encodeNumbers({state.count, state.digest, state.version});
}

std::optional<Head> decodeHead(Bytes value) {
  if (value.size() < 24) return std::nullopt;
  return Head{readU64(value, 0), readU64(value, 8), readU64(value, 16)};
}

std::optional<CompletePass> decodePass(Bytes value) {
  if (value.size() < 16) return std::nullopt;
  return CompletePass{readU64(value, 0), std::bit_cast<double>(readU64(value, 8)), std::string(value.substr(16))};
}

std::optional<TableState> decodeTableState(Bytes value) {
  if (value.size() < 24) return std::nullopt;
  return TableState{readU64(value, 0), readU64(value, 8), readU64(value, 16)};
}

}  // namespace Quillo
