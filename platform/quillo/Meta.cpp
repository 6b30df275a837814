#include "quillo/Meta.h"

#include <bit>

namespace Quillo {

namespace {

std::string metaKey(Bytes name) {
  return std::string(1, '\0').append(name);
}

// The value of a meta record of at least `size` bytes, copied.
std::optional<std::string> readMeta(Environment& env, MDB_txn* txn, const std::string& key, std::size_t size) {
  std::string buffer;
  std::optional<RecordView> record = readRecord(env, txn, Place::records, key, buffer);
  if (!record) {
    return std::nullopt;
  }
  if (record->layout != metaLayout || record->value.size() < size) {
    damageDetected(env, Place::records, key, std::string("unknown layout"));
  }
  return std::string(record->value);
}

}  // namespace

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
  std::string bytes;
  appendU64(bytes, head.seq);
  appendU64(bytes, head.floor);
  appendU64(bytes, head.tombstones);
  return bytes;
}

std::string encodePass(const CompletePass& pass) {
  std::string bytes;
  appendU64(bytes, pass.seq);
  appendU64(bytes, std::bit_cast<std::uint64_t>(pass.time));
  return bytes + pass.publisher;
}

std::string encodeTableState(const TableState& state) {
  std::string bytes;
  appendU64(bytes, state.count);
  appendU64(bytes, state.digest);
  appendU64(bytes, state.version);
  return bytes;
}

Head readHead(Environment& env, MDB_txn* txn) {
  std::optional<std::string> bytes = readMeta(env, txn, headKey(), 24);
  return bytes ? Head{readU64(*bytes, 0), readU64(*bytes, 8), readU64(*bytes, 16)} : Head{};
}

std::optional<CompletePass> readPass(Environment& env, MDB_txn* txn) {
  std::optional<std::string> bytes = readMeta(env, txn, passKey(), 16);
  if (!bytes) {
    return std::nullopt;
  }
  return CompletePass{readU64(*bytes, 0), std::bit_cast<double>(readU64(*bytes, 8)), bytes->substr(16)};
}

TableState readTableState(Environment& env, MDB_txn* txn, TableId table) {
  std::optional<std::string> bytes = readMeta(env, txn, tableStateKey(table), 24);
  return bytes ? TableState{readU64(*bytes, 0), readU64(*bytes, 8), readU64(*bytes, 16)} : TableState{};
}

}  // namespace Quillo
